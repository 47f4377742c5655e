// The host's effects engine, through its C interface.

#include <caps/caps.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/camera/Sources.h"
#include "host/caps/Status.h"
#include "tests/support/SceneFrames.h"

using kov::caps::Status;
using namespace kov::test;

namespace {

using Bytes = std::vector<uint8_t>;
using Apply = std::function<void(cips*)>;

const cv::Size kPreview(640, 480);

constexpr caps_result code(Status status) {
    return static_cast<caps_result>(status);
}

template <typename... Results>
void expect(Status status, Results... results) {
    EXPECT_EQ(std::vector<caps_result>({results...}), std::vector(sizeof...(results), code(status)));
}

/// An object of the library: `create` takes last where it goes. To destroy one that was not made does nothing.
template <typename Object, auto create, auto destroy>
struct Owned {
    template <typename... Arguments>
    explicit Owned(const Arguments&... arguments) : result(create(arguments..., &object)) {}
    Owned(const Owned&) = delete;
    ~Owned() { destroy(object); }
    operator Object*() const { return object; }

    Object* object = nullptr;
    const caps_result result;
};
using Image = Owned<caps_image, caps_createImage, caps_destroyImage>;
using Buffer = Owned<caps_data, caps_createBuffer, caps_destroyBuffer>;
using Stream = Owned<caps_stream, ctstream_createBufferStream, ctstream_destroy>;
using JpegSession = Owned<cips, caps_createSession, caps_destroySession>;
using FrameSession = Owned<cips, caps_newSessionWithRaw, caps_destroySession>;
using Iterator = Owned<caps_iterator, caps_render, caps_destroyIterator>;

template <auto begin, auto set, auto end, typename... Values>
Apply edit(Values... values) {
    return [=](cips* session) {
        begin(session);
        set(session, values...);
        end(session);
    };
}
constexpr auto rotate = edit<caps_beginRotate, caps_setRotate, caps_endRotate, int>;
constexpr auto cartoon = edit<caps_beginCartoon, caps_setCartoon, caps_endCartoon, int>;
constexpr auto stamp = edit<caps_beginStamp, caps_setStamp, caps_endStamp, int, int>;

const Apply kNone = [](cips*) {};
const Apply kColor = [](cips* session) { caps_applySketch(session, 1); };
const Apply kGrey = [](cips* session) { caps_applySketch(session, 0); };
const std::vector<Apply> kAll = {kNone, cartoon(1), kColor, kGrey, stamp(3, 100)};

/// A semi-planar frame, V first.
struct Frame {
    explicit Frame(cv::Size size) : size(size), bytes(static_cast<size_t>(size.area()) * 3 / 2) {}
    cv::Mat luma() { return {size, CV_8U, bytes.data()}; }
    cv::Mat chroma() { return {size / 2, CV_8UC2, bytes.data() + size.area()}; }
    Image image() {
        const caps_data pixels = {static_cast<int32_t>(bytes.size()), bytes.data()};
        return Image(&pixels, size.width, size.height, size.width, 4380);
    }

    cv::Size size;
    Bytes bytes;
};

struct Input {
    explicit Input(Bytes& jpeg) : pair{static_cast<int32_t>(jpeg.size()), jpeg.data()} {}

    caps_data pair;
    Stream stream{&pair, 0};
    JpegSession session{stream, 1};
};
struct Output {
    Bytes bytes() const { return {buffer.object->data, buffer.object->data + buffer.object->length}; }

    Buffer buffer{0};
    Stream stream{buffer, 0};
};

Bytes compress(const cv::Mat& picture) {
    Bytes jpeg;
    cv::imencode(".jpg", picture, jpeg);
    return jpeg;
}
cv::Size sizeOf(const Bytes& jpeg) {
    return cv::imdecode(jpeg, cv::IMREAD_COLOR).size();
}
Frame frameOf(Bytes jpeg) {
    Frame frame(sizeOf(jpeg));
    EXPECT_EQ(caps_renderAsRawToBuffer(Input(jpeg).session, frame.image(), 0, 0), CAPS_SUCCESS);
    return frame;
}
cv::Mat sceneOf(const char* name, cv::Size size = kPreview) {
    std::string error;
    return kov::camera::openSource(std::string("scene:") + name, &error)->frame(0, size);
}

/// As the preview is rendered.
Frame drawn(Frame from, const Apply& apply, cv::Size size) {
    Frame to(size);
    const Image source = from.image();
    const FrameSession session(source);
    apply(session);
    EXPECT_EQ(caps_renderAsRawToBuffer(session, to.image(), 0, 0), CAPS_SUCCESS);
    return to;
}
caps_result lastStep(caps_iterator* iterator) {
    caps_result result = CAPS_SUCCESS;
    while (result == CAPS_SUCCESS)
        result = caps_doNextIteration(iterator);
    return result;
}
/// As a picture is rendered.
Bytes renderJpeg(cips* session, cv::Size size, float quality = 0.95f) {
    const Output output;
    caps_setJpegQuality(session, quality);
    EXPECT_EQ(lastStep(Iterator(session, output.stream, size.width, size.height, 0, 1)), code(Status::Done));
    return output.bytes();
}

double share(const cv::Mat& mask) {
    return cv::mean(mask != 0)[0] / 255;
}

TEST(CapsEngine, WithoutAnEffectAFrameIsTheSourceTurned) {
    for (const cv::Size size : {cv::Size(2, 2), {6, 4}, {34, 18}, {642, 478}}) {
        Frame source(size);
        cv::randu(source.bytes, 0, 256);
        EXPECT_EQ(drawn(source, kNone, size).bytes, source.bytes);
        for (int i = 0; i < 3; ++i) {
            Frame wanted(i == 1 ? size : cv::Size(size.height, size.width));
            cv::Mat luma = wanted.luma(), chroma = wanted.chroma();
            cv::rotate(source.luma(), luma, i);  // from 0 for a quarter clockwise to 2 for three
            cv::rotate(source.chroma(), chroma, i);
            EXPECT_EQ(drawn(source, rotate(90 * i - 270), wanted.size).bytes, wanted.bytes) << size << " turned " << i;
        }
    }
}

TEST(CapsEngine, EveryLookIsItselfOnEveryScene) {
    for (const char* const scene : {"portrait", "landscape", "still-life"}) {
        SCOPED_TRACE(scene);
        Frame source = frameOf(compress(sceneOf(scene)));
        Frame flat = drawn(source, cartoon(1), kPreview), color = drawn(source, kColor, kPreview),
              grey = drawn(source, kGrey, kPreview), inked = drawn(source, stamp(3, 100), kPreview);
        // Flat within outlines: most places are like their neighbours, and the colours stay those of the source.
        EXPECT_GT(share(cv::abs(flat.luma().colRange(1, 640) - flat.luma().colRange(0, 639)) < 2), 0.6);
        for (Frame* const frame : {&flat, &color})
            EXPECT_LT(cv::norm(cv::mean(frame->chroma()), cv::mean(source.chroma()), cv::NORM_INF), 8);
        for (Frame* const frame : {&grey, &inked})
            EXPECT_EQ(share(frame->chroma().reshape(1) != 128), 0);
        for (Frame* const frame : {&color, &grey})
            EXPECT_GT(cv::mean(frame->luma())[0], cv::mean(source.luma())[0] + 15) << "drawn on white paper";
        const double ink = share(inked.luma() == 16), paper = share(inked.luma() == 248);
        EXPECT_GT(std::min(ink, paper), 0.1);
        EXPECT_GT(ink + paper, 0.93);
        EXPECT_GT(share(drawn(source, stamp(3, 180), kPreview).luma() < 128), ink + 0.05);
    }
}

TEST(CapsEngine, StepsReachEveryTwentiethAndDrawWhatIsDrawnAtOnce) {
    for (const cv::Size size : {kPreview, cv::Size(354, 258), {18, 66}}) {
        Frame source = frameOf(compress(sceneOf("landscape", size)));
        for (const Apply& apply : kAll) {
            SCOPED_TRACE(std::to_string(size.width) + " with effect " + std::to_string(&apply - kAll.data()));
            const Image image = source.image();
            const FrameSession session(image);
            apply(session);
            caps_setJpegQuality(session, 1);
            const Output atOnce, inSteps;
            EXPECT_EQ(caps_render(session, atOnce.stream, size.width, size.height, 0, 1, nullptr), CAPS_SUCCESS);
            // A JPEG of the best quality differs from what was put in by its rounding.
            EXPECT_LE(cv::norm(frameOf(atOnce.bytes()).bytes, drawn(source, apply, size).bytes, cv::NORM_INF), 4);
            const Iterator iterator(session, inSteps.stream, size.width, size.height, 0, 1);
            int32_t total = 0, done = -1;
            caps_estimateIterationCount(iterator, &total);
            for (int32_t step = 0; step < total; ++step) {
                caps_getCurIterationCount(iterator, &done);
                EXPECT_EQ(done, step);
                EXPECT_EQ(inSteps.buffer.object->length, 0);
                EXPECT_EQ(caps_doNextIteration(iterator), step + 1 < total ? CAPS_SUCCESS : code(Status::Done));
            }
            caps_getCurIterationCount(iterator, &done);
            EXPECT_TRUE(done == total && total % 20 == 0) << done << " of " << total;
            EXPECT_EQ(caps_doNextIteration(iterator), code(Status::Done));  // and the picture stays
            EXPECT_EQ(inSteps.bytes(), atOnce.bytes());
        }
    }
}

TEST(CapsEngine, APictureOfAnySizeLooksAsItsPreviewDid) {
    for (const char* const scene : {"portrait", "crossing"}) {
        const cv::Mat largest = sceneOf(scene, {2560, 1920});  // one drawing for all sizes
        Frame preview = frameOf(compress(reduced(largest, kPreview)));
        // Strokes get no finer than a pixel: what is small has the same tones.
        const std::pair<cv::Size, cv::Size> sizes[] = {
            {{320, 240}, {40, 30}}, {{1280, 960}, kPreview}, {largest.size(), kPreview}};
        for (const auto& [size, both] : sizes) {
            Bytes jpeg = compress(reduced(largest, size));
            for (const Apply& apply : kAll) {
                SCOPED_TRACE(scene + std::to_string(size.width) + " with effect " +
                             std::to_string(&apply - kAll.data()));
                const Input source(jpeg);
                apply(source.session);
                [[maybe_unused]] const auto begin = std::chrono::steady_clock::now();
                Frame picture = frameOf(renderJpeg(source.session, size)), expected = drawn(preview, apply, kPreview);
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
                EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
#endif
                EXPECT_LT(difference(reduced(picture.luma(), both), reduced(expected.luma(), both)),
                          size.width < kPreview.width ? 11 : 5);
                EXPECT_LT(difference(reduced(picture.chroma(), both / 2), reduced(expected.chroma(), both / 2)), 1);
            }
        }
    }
}

TEST(CapsEngine, RendersEverySizeAndQuality) {
    const cv::Mat scene = sceneOf("still-life");
    Frame wanted = frameOf(compress(scene(cv::Rect(100, 90, 334, 252))));
    Bytes odd = compress(scene(cv::Rect(100, 90, 333, 251)));
    Frame frame = frameOf(renderJpeg(Input(odd).session, wanted.size, 1));
    EXPECT_LT(difference(frame.luma(), wanted.luma()), 1.5);
    EXPECT_LT(difference(frame.chroma(), wanted.chroma()), 3);
    for (const cv::Size size : {cv::Size(333, 251), {1, 1}, {41, 31}, {640, 480}, {17, 700}, {1300, 1}}) {
        for (const Apply& apply : kAll) {
            const Input source(odd);
            apply(source.session);
            rotate(90)(source.session);
            EXPECT_EQ(sizeOf(renderJpeg(source.session, size)), size);
        }
    }
    size_t before = 0;
    for (const float quality : {0.0f, 0.3f, 0.7f, 0.9f, 0.95f, 1.0f}) {
        const size_t bytes = renderJpeg(Input(odd).session, kPreview, quality).size();
        EXPECT_GT(bytes, std::exchange(before, bytes)) << quality;
    }
}

TEST(CapsEngine, RefusesABrokenJpegQuietly) {
    const Bytes good = compress(sceneOf("portrait"));
    Bytes noJpeg(500, 7), header(good.begin(), good.begin() + 20), half(good.begin(), good.begin() + good.size() / 2);
    Bytes damaged = good;
    std::fill_n(damaged.begin() + damaged.size() / 2, 400, 0xff);
    testing::internal::CaptureStderr();
    expect(Status::BadJpeg, Input(noJpeg).session.result, Input(header).session.result);
    for (Bytes* const bytes : {&half, &damaged}) {
        const Input source(*bytes);
        const Output output;
        const Iterator iterator(source.session, output.stream, 640, 480, 0, 1);
        Frame frame(kPreview);
        expect(Status::BadJpeg, iterator.result, caps_renderAsRawToBuffer(source.session, frame.image(), 0, 0));
        EXPECT_EQ(iterator.object, nullptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CapsEngine, RefusesWhatItCannotRenderAndKeepsWhatItHad) {
    Bytes jpeg = compress(sceneOf("portrait", {64, 48}));
    const Input source(jpeg);
    cips* const session = source.session;
    const Output output;
    const auto render = [&](caps_stream* to, int width = 64, int height = 48) {
        return caps_render(session, to, width, height, 0, 1, nullptr);
    };
    const caps_data pixels = {96, jpeg.data()};
    expect(Status::BadSize, Image(&pixels, 8, 8, 9, 4380).result, Image(&pixels, 65536, 65536, 65536, 4380).result,
           render(output.stream, 0), render(output.stream, 9, 8193),
           caps_renderAsRawToBuffer(session, Frame({48, 64}).image(), 0, 0));
    const Buffer small(200);
    expect(Status::BufferFull, render(Stream(small, 0)));
    EXPECT_EQ(small.object->length, 0);
    // A stamp that was begun and not set is no stamp, and no rotation, whatever was set before.
    rotate(0)(session);
    caps_beginStamp(session);
    expect(Status::OutOfOrder, caps_endStamp(session), caps_setRotate(session, 90));
    EXPECT_EQ(render(output.stream), CAPS_SUCCESS);  // nothing of all that counted
    EXPECT_LT(difference(frameOf(output.bytes()).luma(), frameOf(jpeg).luma()), 4);
    const Iterator orphan(Input(jpeg).session, Output().stream, 64, 48, 0, 1);
    EXPECT_EQ(lastStep(orphan), code(Status::Done));  // it outlives what it came from
}

}  // namespace
