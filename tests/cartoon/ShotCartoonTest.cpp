// The cartoon shot: what it calls, sends and logs, in its order.

#include "shots/cartoon/ShotCartoon.h"

#include <algorithm>
#include <tuple>

#include "host/runtime/Heaps.h"
#include "tests/support/FakeCaps.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

const Lines kOpened = caps("createBuffer 0", "createBufferStream in 0", "createBufferStream out 0", "createSession 1");
const Lines kFreed = caps("destroySession", "destroyStream in", "destroyStream out", "destroyBuffer");
const Lines kCartoon = caps("beginCartoon", "setCartoon 1", "endCartoon");
const Lines kStamp = Lines{"D ShotCartoon: applyEffectStamp"} + caps("beginStamp", "setStamp 3 100", "endStamp");
const Lines kColor = {"D ShotCartoon: applyEffectSketchColor", "caps.applySketch 1"};
const Lines kGrey = {"D ShotCartoon: applyEffectSketchGray", "caps.applySketch 0"};
const std::vector<std::pair<int32_t, Lines>> kEffects = {{0, kCartoon}, {1, kColor}, {2, kGrey},
                                                         {3, kStamp},   {7, {}},     {-1, {}}};

class ShotCartoonTest : public ShotTest<ShotCartoon> {
protected:
    ShotCartoonTest() {
        fakeSystem().now = [now = nsecs_t{}](int) mutable { return now += 7000000; };
        made();
    }
    ~ShotCartoonTest() override { gFakeCaps = {}; }

    void select(int32_t effect) {
        shot->sendCommand(1039, effect, 0);
        recorder.take();
    }
    Lines picture() {
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 5));
        return recorder.take();
    }
    /// Lines of a preview frame whose bytes are `fill`.
    static Lines frameLines(uint8_t fill, const Lines& effect) {
        const std::string image = text("createImage 460800 of %d, 640x480 stride 640 4380", fill);
        return caps("pixelBitSize 4380", image, image, text("newSessionWithRaw of %d..%d", fill, fill)) + effect +
               caps(text("renderAsRawToBuffer over %d, 0 0", fill), "destroySession", "destroyImage", "destroyImage") +
               Lines{"app.data 0x10 460800"};
    }
    static Lines pictureLines(const Lines& effect, const char* quality = "0.95") {
        return kOpened + effect +
               caps(text("setJpegQuality %s", quality), "render 2560x1920 0 1", "doNextIteration",
                    "estimateIterationCount", "getCurIterationCount", "doNextIteration", "getCurIterationCount") +
               Lines{"D ShotCartoon: For Iteration[100]", "app.notify 0x2400 100 0", "caps.destroyIterator",
                     "D ShotCartoon:  CAMERA_MSG_COMPRESSED_IMAGE after HandlePreview in 7 ms res[0]"} +
               kFreed + Lines{"app.data 0x100 9"};
    }
};

TEST_F(ShotCartoonTest, TheEffectIsSelectedAndEveryCommandReachesTheVendorLayer) {
    hardware->results["sendCommand"] = -5;
    for (const auto& [code, argument] : {std::pair(1039, 3), {1040, 1}, {1019, 2}}) {
        EXPECT_EQ(shot->sendCommand(code, argument, 4), -5);
        EXPECT_EQ(recorder.take(), (Lines{text("I ShotCartoon: sendCommand %d, %d, 4", code, argument),
                                          text("hw.sendCommand %d %d 4", code, argument)}));
    }
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(1));
    EXPECT_EQ(recorder.take(), frameLines(1, kStamp));
}

TEST_F(ShotCartoonTest, FramesAreRenderedInPlaceFromOneCopy) {
    for (const auto& [code, calls] : kEffects) {
        SCOPED_TRACE(code);
        if (code != 0)  // the cartoon needs no command
            select(code);
        const sp<IMemory> frame = makeFrame(20);
        const size_t heaps = kov::host::heapsMade();
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        EXPECT_EQ(recorder.take(), frameLines(20, calls));
        EXPECT_EQ(kov::host::heapsMade(), heaps + 1);
        EXPECT_EQ(lastData.get(), frame.get());
        EXPECT_EQ(bytesOf(frame), std::vector<uint8_t>(frame->size(), gFakeCaps.look));
    }
}

TEST_F(ShotCartoonTest, APlanarFrameIsRenderedInTheLibrarysOrderAndDeliveredInItsOwn) {
    hardware->params.setPreviewSize(4, 2);
    hardware->params.setPreviewFormat("yuv420p");
    made();
    const sp<IMemory> frame = makeMemory(12);
    const std::vector<uint8_t> planar = {1, 2, 3, 4, 5, 6, 7, 8, 20, 21, 30, 31};
    std::copy(planar.begin(), planar.end(), static_cast<uint8_t*>(frame->pointer()));
    std::vector<uint8_t> ordered(14, 99), planes(5, 99);
    planarToSemiPlanar(planar.data(), 4, 2, ordered.data());
    EXPECT_EQ(ordered, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 30, 20, 31, 21, 99, 99}));
    pairsToPlanes(ordered.data() + 8, 2, planes.data());
    EXPECT_EQ(planes, (std::vector<uint8_t>{20, 21, 30, 31, 99}));
    for (const std::string failing : {"renderAsRawToBuffer", "newSessionWithRaw", "createImage", "no memory"}) {
        gFakeCaps.results = {{failing, 0}};
        fakeSystem().allowsHeap = [&](size_t) { return failing != "no memory"; };
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        EXPECT_EQ(bytesOf(frame), planar) << failing;
    }
    gFakeCaps.results = {};
    fakeSystem().allowsHeap = {};
    gFakeCaps.renderRaw = [](uint8_t* to) { std::copy_n("abcdefghVUWT", 12, to); };
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
    EXPECT_EQ(recorder.take("caps.newSession"), caps("newSessionWithRaw of 1..21"));  // ends with a U
    const auto bytes = bytesOf(frame);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "abcdefghUTVW");
}

TEST_F(ShotCartoonTest, FramesAreRenderedAsFarAsTheyAreThere) {
    const char* const small =
        "E ShotCartoon: a preview frame of %d bytes is smaller than %d x %d; such frames are "
        "passed on as they are";
    const std::tuple<const char*, int, int, size_t, Lines> cases[] = {
        {"yuv422i", 640, 480, 640 * 480 * 2, {}},
        {"yuv420i", 640, 480, 640 * 480 * 3 / 2, {}},
        {"yuv420sp", 0, 0, 9, {text(small, 9, 0, 0)}},
        {"yuv420sp", -4, -2, 12, {text(small, 12, -4, -2)}},
        {"yuv420sp", 3, 4, 18, {}},
        {"yuv420sp", 4, 3, 18, {}},
    };
    for (const auto& [format, width, height, size, lines] : cases) {
        SCOPED_TRACE(text("%s %dx%d", format, width, height));
        hardware->params.setPreviewSize(width, height);
        hardware->params.setPreviewFormat(format);
        made();
        const sp<IMemory> frame = makeMemory(size, 20);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        const std::string sent = text("app.data 0x10 %zu", size);
        EXPECT_EQ(recorder.take(), lines + Lines(2, sent));
        EXPECT_EQ(bytesOf(frame), std::vector<uint8_t>(size, 20));
    }
    hardware->params.setPreviewSize(4, 2);
    made();
    const sp<IMemory> padded = makeMemory(15, 20);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, padded);
    EXPECT_EQ(bytesOf(padded), (std::vector<uint8_t>{99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 20, 20, 20}));
}

TEST_F(ShotCartoonTest, AFrameIsDeliveredWhateverTheLibraryAnswersAndThatIsSaidOnce) {
    const std::pair<const char*, Lines> cases[] = {
        {"createImage", {"E ShotCartoon: preview frames are not rendered: caps_createImage - [-1]"}},
        {"newSessionWithRaw", {"E ShotCartoon: preview frames are not rendered: caps_newSessionWithRaw - [-1]"}},
        {"renderAsRawToBuffer", {"E ShotCartoon: preview frames are not rendered: caps_renderAsRawToBuffer - [-1]"}},
        {"no memory", {"E ShotCartoon: preview frames are not rendered: no memory for the copy - [0]"}},
        {"beginCartoon", {}},
        {"setCartoon", {}}};
    for (const auto& [name, lines] : cases) {
        SCOPED_TRACE(name);
        gFakeCaps.results = {{name, -1}};
        fakeSystem().allowsHeap = [failing = std::string(name)](size_t) { return failing != "no memory"; };
        for (const Lines& expected : {lines, Lines()}) {
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(20));
            const Lines all = recorder.take();
            EXPECT_EQ(all.back(), "app.data 0x10 460800");
            EXPECT_EQ(handlesOwed(), "");
            EXPECT_EQ(only(all, {"E "}), expected);
        }
        gFakeCaps.results = {};
        fakeSystem().allowsHeap = {};
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(20));
        EXPECT_EQ(recorder.take(), frameLines(20, kCartoon));
    }
    for (const auto& [bits, stride] : {std::pair(INT32_MAX, INT32_MAX), {INT32_MIN, INT32_MIN}, {16, 1280}, {7, 0}}) {
        gFakeCaps.bitsPerPixel = bits;
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(20));
        EXPECT_EQ(recorder.take("caps.createImage")[0],
                  text("caps.createImage 460800 of 20, 640x480 stride %d 4380", stride));
    }
}

TEST_F(ShotCartoonTest, PicturesAreRenderedAndReplaced) {
    for (const auto& [code, calls] : kEffects) {
        SCOPED_TRACE(code);
        select(code);
        EXPECT_EQ(picture(), pictureLines(calls));
        EXPECT_EQ(std::string(static_cast<const char*>(lastData->pointer()), lastData->size()), gFakeCaps.jpeg);
        EXPECT_EQ(lastData->getMemory()->getSize(), 9U);
    }
    const sp<IMemory> frame = makeFrame();
    lastData.clear();
    const size_t alive = kov::host::liveHeaps();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
    EXPECT_EQ(kov::host::liveHeaps(), alive - 1) << "the picture of before is kept";
    recorder.take();
    for (const auto& [parameter, quality] : {std::pair("70", "0.90"), {"40", "0.70"}, {"85", "0.95"}, {"", "0.95"}}) {
        hardware->params.set("jpeg-quality", parameter);
        EXPECT_EQ(picture(), pictureLines({}, quality));
    }
    shot->setCallbacks(nullptr, onData, nullptr, this);
    EXPECT_EQ(picture().back(), "app.data 0x100 9");  // without a word of progress
}

TEST_F(ShotCartoonTest, ProgressIsToldInStepsOfFivePercent) {
    const std::tuple<std::vector<int32_t>, int32_t, std::vector<int>> cases[] = {
        {{0, 3, 10, 10, 21, 30}, 30, {10, 70, 100}},
        {{1, 2, 3, 4}, 0, {}},
        {{1, 2, 3, 4}, -4, {}},
        {{-5, -1, 0, 1}, 20, {5}},
        {{10, 5, 20, 10}, 20, {25, 100}},
        {{1, 40, 20}, 20, {100}},  // 200 percent is not told
        {{30}, 30, {}},            // done in the first step
        {{0, INT32_MAX}, 1, {}},
        {{0, 201, 202}, 200, {100}},  // 100.5 percent, and 101
        {{0, INT32_MIN}, 1, {}},
    };
    for (const auto& [counts, total, told] : cases) {
        gFakeCaps.counts = counts;
        gFakeCaps.total = total;
        Lines expected;
        for (const int percent : told)
            expected.push_back(text("app.notify 0x2400 %d 0", percent));
        EXPECT_EQ(only(picture(), {"app."}), expected + Lines{"app.data 0x100 9"}) << total;
    }
    for (const char* untold : {"estimateIterationCount", "getCurIterationCount"}) {
        gFakeCaps.results = {{untold, -7}};
        gFakeCaps.counts = {1, 1, 1};
        gFakeCaps.total = 1;
        EXPECT_EQ(only(picture(), {"app."}), Lines{"app.data 0x100 9"}) << untold;
    }
}

TEST_F(ShotCartoonTest, AFailureEndsThePictureAndReleasesWhatWasMade) {
    const Lines calls = kOpened + kCartoon + caps("setJpegQuality 0.95", "render 2560x1920 0 1");
    const std::tuple<const char*, int, const char*, Lines> cases[] = {
        {"createBuffer", 1, "caps_createBuffer - [-7]", {}},
        {"createBufferStream in", 2, "ctstream_createBufferStream - [-7]", caps("destroyBuffer")},
        {"createBufferStream out", 3, "ctstream_createBufferStream - [-7]", caps("destroyStream in", "destroyBuffer")},
        {"createSession", 4, "caps_createSession - [-7]", {kFreed.begin() + 1, kFreed.end()}},
        {"beginCartoon", 5, "applyEffect - [-7]", kFreed},
        {"setCartoon", 6, "applyEffect - [-7]", kFreed},
        {"endCartoon", 7, "applyEffect - [-7]", kFreed},
        {"render", 9, "caps_render - [-7]", kFreed},
    };
    for (const auto& [failing, made, line, released] : cases) {
        SCOPED_TRACE(failing);
        gFakeCaps.results = {{failing, -7}};
        EXPECT_EQ(picture(),
                  Lines(calls.begin(), calls.begin() + made) + Lines{text("E ShotCartoon: %s", line)} + released);
    }
    for (const char* nothing : {"createBufferStream in", "createBufferStream out", "createSession", "render"}) {
        gFakeCaps.results = {};
        gFakeCaps.makesNothing = {nothing};  // though it claims to succeed
        const Lines lines = picture();
        EXPECT_EQ(without(lines, {"[-255]"}).size(), lines.size() - 1);
        EXPECT_EQ(only(lines, {"app."}), Lines{});
    }
    gFakeCaps = {};
    gFakeCaps.jpeg = "";
    const Lines empty = picture();
    EXPECT_EQ(Lines(empty.end() - 6, empty.end()),
              Lines{"E ShotCartoon: the rendered picture has no bytes"} + kFreed + Lines{"app.data 0x100 0"});
    gFakeCaps = {};
    // The other effects go on whatever the library answers, and so does a quality that it refuses.
    gFakeCaps.results = {{"applySketch", -7}, {"beginStamp", -7}, {"setStamp", -7}, {"setJpegQuality", -7}};
    for (const int32_t effect : {1, 2, 3}) {
        select(effect);
        EXPECT_EQ(picture().back(), "app.data 0x100 9");
    }
}

TEST_F(ShotCartoonTest, ASwitchFromWithinItsProgressEndsAPicture) {
    whileNotified = [&](int32_t, int32_t) { switchAway(); };
    const Lines lines = only(picture(), {"caps.", "app.data"});
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "caps.doNextIteration"), 2);
    EXPECT_EQ(Lines(lines.end() - 5, lines.end()), caps("destroyIterator") + kFreed);
}

}  // namespace
