// The vendor camera as the adaptor meets it: through openCameraHardware.

#include <binder/MemoryBase.h>
#include <camera/CameraHardwareInterface.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "tests/camera/TemporaryFolder.h"
#include "tests/support/Recorder.h"

namespace kov::test {
namespace {

using namespace android;
using namespace std::chrono_literals;

constexpr auto kPatience = 20s;  // for what must happen; a deadlock shows as a failure after it

struct Message {
    int32_t type = 0;
    sp<IMemory> memory;
    int32_t ext1 = 0;
    std::chrono::steady_clock::time_point time;
};

std::vector<uint8_t> bytesOf(const sp<IMemory>& memory) {
    const auto* first = static_cast<const uint8_t*>(memory->pointer());
    return {first, first + memory->size()};
}

class VendorCameraTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (camera.get())
            camera->release();
        // A callback that the release did not wait for still uses this test.
        std::unique_lock lock(mLock);
        ASSERT_TRUE(mChanged.wait_for(lock, kPatience, [&] { return mInside == 0; }));
    }

    void open(const std::string& source, double speed = 8) {
        setenv("KOV_CAMERA_SOURCE", source.c_str(), 1);
        setenv("KOV_CAMERA_SPEED", std::to_string(speed).c_str(), 1);
        camera = openCameraHardware();
        if (!camera.get())
            return;
        camera->setCallbacks(onNotify, onData, onTimestamp, this);
        camera->enableMsgType(CAMERA_MSG_ALL_MSGS);
    }
    /// A source whose every frame is of one colour (BGR).
    void openColour(const cv::Scalar& colour, double speed = 8) {
        const std::string file = folder / "colour.png";
        cv::imwrite(file, cv::Mat(48, 64, CV_8UC3, colour));
        open(file, speed);
    }
    status_t set(const std::string& key, const std::string& value) {
        CameraParameters parameters = camera->getParameters();
        parameters.set(key.c_str(), value.c_str());
        return camera->setParameters(parameters);
    }

    /// Waits until `count` messages of a type have come; fails the test when they do not.
    std::vector<Message> await(int32_t type, size_t count = 1) {
        std::unique_lock lock(mLock);
        const bool came = mChanged.wait_for(lock, kPatience, [&] { return select(type).size() >= count; });
        EXPECT_TRUE(came) << "message " << type << " did not come " << count << " times";
        return select(type);
    }
    std::vector<int32_t> typesWithoutPreview() {
        const std::lock_guard lock(mLock);
        std::vector<int32_t> types;
        for (const Message& message : mMessages)
            if (message.type != CAMERA_MSG_PREVIEW_FRAME)
                types.push_back(message.type);
        return types;
    }
    size_t count(int32_t type) {
        const std::lock_guard lock(mLock);
        return select(type).size();
    }
    void forget() {
        const std::lock_guard lock(mLock);
        mMessages.clear();
    }
    std::vector<uint8_t> takeRaw() {
        camera->takePicture();
        return bytesOf(await(CAMERA_MSG_RAW_IMAGE).back().memory);
    }

    TemporaryFolder folder;
    Recorder recorder;
    sp<CameraHardwareInterface> camera;
    std::function<void(int32_t)> insideCallback;  // set before the preview starts

private:
    std::vector<Message> select(int32_t type) const {
        std::vector<Message> found;
        std::copy_if(mMessages.begin(), mMessages.end(), std::back_inserter(found),
                     [&](const Message& m) { return m.type == type; });
        return found;
    }
    void add(Message message) {
        message.time = std::chrono::steady_clock::now();
        const int32_t type = message.type;
        {
            const std::lock_guard lock(mLock);
            ++mInside;
            mMessages.push_back(std::move(message));
            mChanged.notify_all();
        }
        if (insideCallback)
            insideCallback(type);
        const std::lock_guard lock(mLock);
        --mInside;
        mChanged.notify_all();
    }
    static void onNotify(int32_t type, int32_t ext1, int32_t, void* user) {
        static_cast<VendorCameraTest*>(user)->add({type, {}, ext1, {}});
    }
    static void onData(int32_t type, const sp<IMemory>& memory, void* user) {
        static_cast<VendorCameraTest*>(user)->add({type, memory, 0, {}});
    }
    static void onTimestamp(int64_t, int32_t type, const sp<IMemory>& memory, void* user) {
        static_cast<VendorCameraTest*>(user)->add({type, memory, 0, {}});
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Message> mMessages;
    int mInside = 0;
};

TEST_F(VendorCameraTest, KeepsTheFrameRate) {
    for (const int rate : {10, 30}) {
        openColour({90, 120, 150}, 4);
        set("preview-size", "176x144");
        set("preview-frame-rate", std::to_string(rate));
        camera->startPreview();
        constexpr size_t kWindow = 12;
        constexpr size_t kWindows = 3;
        const auto frames = await(CAMERA_MSG_PREVIEW_FRAME, kWindow * kWindows + 2);
        camera->release();
        std::vector<double> rates;  // the middle window counts: the machine may have other work in one of them
        for (size_t first = 1; rates.size() < kWindows; first += kWindow)
            rates.push_back(kWindow /
                            std::chrono::duration<double>(frames[first + kWindow].time - frames[first].time).count());
        std::sort(rates.begin(), rates.end());
        EXPECT_NEAR(rates[1], 4 * rate, 4 * rate * 0.05);
        forget();
    }
}

TEST_F(VendorCameraTest, LaysFramesOutAsTheFormatSays) {
    struct Case {
        const char* format;
        cv::Scalar colour;
        int y, firstChroma, lastChroma;
    };
    // Full range: blue is Y 29, U 255, V 107; red is Y 76, U 85, V 255.
    const Case cases[] = {{"yuv420sp", {0, 0, 255}, 76, 255, 85},       {"yuv420p", {0, 0, 255}, 76, 85, 255},
                          {"yuv420sp", {255, 0, 0}, 29, 107, 255},      {"yuv420p", {255, 0, 0}, 29, 255, 107},
                          {"yuv420sp", {255, 255, 255}, 255, 128, 128}, {"yuv420sp", {0, 0, 0}, 0, 128, 128}};
    for (const Case& c : cases) {
        openColour(c.colour);
        set("preview-format", c.format);
        camera->startPreview();
        const auto frame = bytesOf(await(CAMERA_MSG_PREVIEW_FRAME).front().memory);
        camera->release();
        ASSERT_EQ(frame.size(), 640U * 480 * 3 / 2);
        const uint8_t* chroma = frame.data() + 640 * 480;
        EXPECT_NEAR(frame[1000], c.y, 1) << c.format << c.colour;
        EXPECT_NEAR(chroma[0], c.firstChroma, 2) << c.format << c.colour;
        EXPECT_NEAR(frame.back(), c.lastChroma, 2) << c.format << c.colour;
        forget();
    }
}

TEST_F(VendorCameraTest, DeliversEverySizeThatItLists) {
    openColour({20, 200, 90}, 100);
    std::istringstream sizes(camera->getParameters().get("preview-size-values"));
    for (std::string size; std::getline(sizes, size, ',');) {
        ASSERT_EQ(set("preview-size", size), NO_ERROR) << size;
        int width = 0;
        int height = 0;
        camera->getParameters().getPreviewSize(&width, &height);
        camera->startPreview();
        const sp<IMemoryHeap> heap = camera->getPreviewHeap();
        const auto memory = await(CAMERA_MSG_PREVIEW_FRAME).front().memory;
        ssize_t offset = 0;
        size_t bytes = 0;
        EXPECT_EQ(memory->getMemory(&offset, &bytes).get(), heap.get()) << size;
        EXPECT_EQ(bytes, static_cast<size_t>(width) * height * 3 / 2) << size;
        EXPECT_LE(offset + bytes, heap->getSize()) << size;
        EXPECT_NEAR(static_cast<uint8_t*>(memory->pointer())[bytes - 1], 108, 60) << size;
        camera->stopPreview();
        // The message that was on its way is let through before the next size.
        std::this_thread::sleep_for(5ms);
        forget();
    }
}

TEST_F(VendorCameraTest, SendsTheEnabledMessagesOfAPicture) {
    openColour({50, 60, 70});
    set("picture-size", "320x240");
    struct Case {
        int32_t enabled;
        const char* format;
        std::vector<int32_t> expected;
    };
    const Case cases[] = {{0x1FF, "jpeg", {0x002, 0x080, 0x100}},   {0x1FF & ~0x080, "jpeg", {0x002, 0x100}},
                          {0x1FF & ~0x002, "jpeg", {0x080, 0x100}}, {0x1FF & ~0x100, "jpeg", {0x002, 0x080}},
                          {0x1FF, "yuv420sp", {0x002, 0x080}},      {0x1FF, "yuv420p", {0x002, 0x080}}};
    for (const Case& c : cases) {
        ASSERT_EQ(set("picture-format", c.format), NO_ERROR);
        camera->disableMsgType(0x1FF);
        camera->enableMsgType(c.enabled);
        EXPECT_EQ(camera->msgTypeEnabled(0x182), (c.enabled & 0x182) == 0x182);
        forget();
        ASSERT_EQ(camera->takePicture(), NO_ERROR);
        await(c.expected.back());
        EXPECT_EQ(typesWithoutPreview(), c.expected);
        // The picture is over when its last message, sent or not, is.
        while (set("picture-format", "jpeg") != NO_ERROR || camera->takePicture() != NO_ERROR)
            std::this_thread::yield();
        camera->cancelPicture();
    }
    camera->disableMsgType(CAMERA_MSG_PREVIEW_FRAME);
    camera->startPreview();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(count(CAMERA_MSG_PREVIEW_FRAME), 0U);
    camera->enableMsgType(CAMERA_MSG_PREVIEW_FRAME);
    await(CAMERA_MSG_PREVIEW_FRAME);
}

TEST_F(VendorCameraTest, RefusesWhatCannotBeAndChangesNothing) {
    openColour({50, 60, 70});
    const std::string before = camera->getParameters().flatten().string();
    const std::pair<const char*, const char*> cases[] = {
        {"preview-size", "641x480"},   {"preview-size", ""},        {"preview-size", "640x480,"},
        {"preview-format", "rgb565"},  {"preview-frame-rate", "0"}, {"preview-frame-rate", "61"},
        {"picture-size", "2561x1920"}, {"picture-format", "png"},   {"jpeg-quality", "0"},
        {"jpeg-quality", "101"},       {"jpeg-quality", "85 "},     {"jpeg-quality", ""}};
    for (const auto& [key, value] : cases) {
        recorder.take();
        EXPECT_EQ(set(key, value), BAD_VALUE) << key << '=' << value;
        const Lines lines =
            recorder.take("E VendorCamera: setParameters: " + std::string(key) + " cannot be \"" + value);
        ASSERT_EQ(lines.size(), 1U) << key << '=' << value;
        EXPECT_NE(lines[0].find("possible are"), std::string::npos);
        EXPECT_EQ(camera->getParameters().flatten().string(), before);
    }
    EXPECT_EQ(set("preview-size-values", "1x1"), NO_ERROR);
    EXPECT_EQ(camera->getParameters().flatten().string(), before);

    camera->startPreview();
    EXPECT_EQ(set("preview-size", "320x240"), INVALID_OPERATION);
    EXPECT_EQ(set("preview-format", "yuv420p"), INVALID_OPERATION);
    EXPECT_EQ(set("picture-format", "yuv420sp"), NO_ERROR);
    EXPECT_EQ(camera->sendCommand(1039, 3, 0), BAD_VALUE);
}

TEST_F(VendorCameraTest, MakesPicturesOfTheAskedSizeAndQuality) {
    open("scene:still-life");
    size_t smaller = 0;
    for (const auto& [size, quality, width, height] :
         {std::tuple("640x480", "40", 640, 480), {"640x480", "95", 640, 480}, {"1600x1200", "95", 1600, 1200}}) {
        forget();
        set("picture-size", size);
        set("jpeg-quality", quality);
        camera->takePicture();
        const auto jpeg = bytesOf(await(CAMERA_MSG_COMPRESSED_IMAGE).front().memory);
        const cv::Mat picture = cv::imdecode(jpeg, cv::IMREAD_COLOR);
        EXPECT_EQ(picture.size(), cv::Size(width, height));
        EXPECT_GT(jpeg.size(), smaller * 3 / 2);
        smaller = jpeg.size();
        EXPECT_EQ(await(CAMERA_MSG_RAW_IMAGE).front().memory->getMemory().get(), camera->getRawHeap().get());
        EXPECT_EQ(await(CAMERA_MSG_RAW_IMAGE).front().memory->size(), static_cast<size_t>(width) * height * 3 / 2);
    }
}

TEST_F(VendorCameraTest, APictureStopsThePreviewAndShowsItsLastMoment) {
    open("scene:crossing?delay=0&seconds=2");
    set("picture-size", "640x480");
    camera->startPreview();
    await(CAMERA_MSG_PREVIEW_FRAME, 12);
    camera->disableMsgType(CAMERA_MSG_COMPRESSED_IMAGE);
    // A message that is on its way is let through.
    camera->stopPreview();
    std::this_thread::sleep_for(30ms);
    const auto newest = bytesOf(await(CAMERA_MSG_PREVIEW_FRAME).back().memory);
    const auto raw = takeRaw();
    EXPECT_FALSE(camera->previewEnabled());
    EXPECT_TRUE(raw == newest);
    camera->startPreview();
    EXPECT_TRUE(camera->previewEnabled());
}

void onJpegAgain(int32_t type, const sp<IMemory>&, void* user) {
    if (type == CAMERA_MSG_COMPRESSED_IMAGE)
        *static_cast<std::atomic<bool>*>(user) = true;
}

TEST_F(VendorCameraTest, EveryOperationWorksInsideACallback) {
    for (const int32_t where : {CAMERA_MSG_PREVIEW_FRAME, CAMERA_MSG_SHUTTER, CAMERA_MSG_RAW_IMAGE,
                                CAMERA_MSG_COMPRESSED_IMAGE, CAMERA_MSG_VIDEO_FRAME, CAMERA_MSG_FOCUS}) {
        forget();
        openColour({50, 60, 70}, 20);
        set("picture-size", "320x240");
        std::atomic<bool> first{true};
        std::atomic<bool> again{false};
        insideCallback = [&](int32_t type) {
            if (type != where || !first.exchange(false))
                return;
            camera->stopRecording();
            camera->stopPreview();
            set("preview-size", "320x240");
            camera->startPreview();
            camera->autoFocus();
            camera->cancelAutoFocus();
            camera->startRecording();
            camera->stopRecording();
            camera->cancelPicture();
            camera->setCallbacks(nullptr, onJpegAgain, nullptr, &again);
            camera->takePicture();
        };
        camera->startPreview();
        camera->startRecording();
        camera->autoFocus();
        if (where != CAMERA_MSG_VIDEO_FRAME && where != CAMERA_MSG_FOCUS && where != CAMERA_MSG_PREVIEW_FRAME) {
            camera->stopRecording();
            camera->takePicture();
        }
        // The picture that was taken inside arrives at the callback that was set inside.
        for (const auto end = std::chrono::steady_clock::now() + kPatience; !again;) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << where;
            std::this_thread::sleep_for(1ms);
        }
        camera->release();
        std::this_thread::sleep_for(5ms);
        insideCallback = nullptr;
    }
}

TEST_F(VendorCameraTest, MayBeDroppedInsideACallback) {
    for (const int32_t where : {CAMERA_MSG_PREVIEW_FRAME, CAMERA_MSG_COMPRESSED_IMAGE}) {
        forget();
        openColour({50, 60, 70}, 20);
        set("picture-size", "320x240");
        sp<CameraHardwareInterface> last = std::exchange(camera, {});
        std::atomic<bool> handedOver{false};
        std::atomic<bool> dropped{false};
        insideCallback = [&](int32_t type) {
            if (type != where || dropped)
                return;
            while (!handedOver)
                std::this_thread::yield();
            last.clear();
            dropped = true;
        };
        last->startPreview();
        if (where == CAMERA_MSG_COMPRESSED_IMAGE)
            last->takePicture();
        handedOver = true;
        for (const auto end = std::chrono::steady_clock::now() + kPatience; !dropped;) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << where;
            std::this_thread::sleep_for(1ms);
        }
        TearDown();
        insideCallback = nullptr;
    }
}

TEST_F(VendorCameraTest, StartsStopsAndPicturesRaceWithoutDeadlock) {
    openColour({50, 60, 70}, 100);
    set("picture-size", "320x240");
    // As a service does it: one lock around its calls and in its callbacks.
    std::recursive_mutex service;
    insideCallback = [&](int32_t) { const std::lock_guard guard(service); };
    const auto end = std::chrono::steady_clock::now() + 300ms;
    const auto hammer = [&](const std::function<void()>& call) {
        return std::thread([&service, call, end] {
            while (std::chrono::steady_clock::now() < end) {
                const std::lock_guard guard(service);
                call();
            }
        });
    };
    std::thread threads[] = {
        hammer([&] { camera->startPreview(); }), hammer([&] { camera->stopPreview(); }), hammer([&] {
            if (camera->takePicture() != NO_ERROR)
                camera->cancelPicture();
        }),
        hammer([&] { set("preview-size", camera->previewEnabled() ? "640x480" : "176x144"); }), hammer([&] {
            camera->startRecording();
            camera->stopRecording();
        })};
    for (std::thread& thread : threads)
        thread.join();
    forget();
    camera->cancelPicture();
    camera->startPreview();
    await(CAMERA_MSG_PREVIEW_FRAME, 3);
    camera->stopPreview();
    std::this_thread::sleep_for(10ms);
    const size_t frames = count(CAMERA_MSG_PREVIEW_FRAME);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(count(CAMERA_MSG_PREVIEW_FRAME), frames);
}

TEST_F(VendorCameraTest, ARecordingFrameIsNotReusedUntilItComesBack) {
    openColour({50, 60, 70}, 50);
    EXPECT_EQ(camera->startRecording(), INVALID_OPERATION);
    camera->startPreview();
    ASSERT_EQ(camera->startRecording(), NO_ERROR);
    EXPECT_EQ(camera->takePicture(), INVALID_OPERATION);
    await(CAMERA_MSG_VIDEO_FRAME, 6);
    await(CAMERA_MSG_PREVIEW_FRAME, count(CAMERA_MSG_PREVIEW_FRAME) + 12);
    const auto lent = await(CAMERA_MSG_VIDEO_FRAME, 6);
    std::set<ssize_t> places;
    for (const Message& message : lent)
        places.insert(message.memory->offset());
    EXPECT_EQ(places.size(), lent.size());
    forget();
    camera->releaseRecordingFrame(lent[2].memory);
    EXPECT_EQ(await(CAMERA_MSG_VIDEO_FRAME).front().memory->offset(), lent[2].memory->offset());
    camera->stopRecording();
    EXPECT_FALSE(camera->recordingEnabled());
}

TEST_F(VendorCameraTest, FocusesAndCancels) {
    openColour({50, 60, 70}, 10);
    EXPECT_EQ(camera->autoFocus(), INVALID_OPERATION);
    camera->startPreview();
    camera->autoFocus();
    EXPECT_EQ(await(CAMERA_MSG_FOCUS).front().ext1, 1);
    forget();
    camera->autoFocus();
    camera->cancelAutoFocus();
    camera->takePicture();
    EXPECT_EQ(camera->takePicture(), INVALID_OPERATION);
    camera->cancelPicture();
    std::this_thread::sleep_for(60ms);
    EXPECT_EQ(count(CAMERA_MSG_FOCUS), 0U);
    EXPECT_EQ(count(CAMERA_MSG_COMPRESSED_IMAGE), 0U);
}

TEST_F(VendorCameraTest, ASourceThatBreaksEndsThePreviewWithAnError) {
    for (const char* name : {"1.png", "2.png"})
        cv::imwrite(folder / name, cv::Mat(48, 64, CV_8UC3, cv::Scalar(1, 2, 3)));
    open(folder.path() + "?seconds=0.1");
    std::filesystem::remove(folder / "2.png");
    camera->startPreview();
    EXPECT_EQ(await(CAMERA_MSG_ERROR).front().ext1, UNKNOWN_ERROR);
    EXPECT_FALSE(camera->previewEnabled());
    EXPECT_EQ(recorder.take("E VendorCamera: the source broke").size(), 1U);
}

TEST_F(VendorCameraTest, ASourceThatCannotBeOpenedIsNoCamera) {
    const std::pair<std::string, double> cases[] = {
        {"scene:nowhere", 1}, {folder / "missing.jpg", 1}, {"scene:landscape", 0}};
    for (const auto& [source, speed] : cases) {
        recorder.take();
        open(source, speed);
        EXPECT_FALSE(camera.get()) << source;
        EXPECT_EQ(recorder.take("E VendorCamera: ").size(), 1U) << source;
    }
}

TEST_F(VendorCameraTest, RefusesEverythingAfterRelease) {
    openColour({50, 60, 70});
    camera->release();
    EXPECT_EQ(camera->startPreview(), INVALID_OPERATION);
    EXPECT_EQ(camera->takePicture(), INVALID_OPERATION);
    EXPECT_EQ(set("jpeg-quality", "40"), INVALID_OPERATION);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(camera->dump(ends[1], {}), NO_ERROR);
    close(ends[1]);
    char text[4096] = {};
    EXPECT_GT(read(ends[0], text, sizeof text - 1), 0);
    close(ends[0]);
    EXPECT_NE(std::string(text).find("released: yes"), std::string::npos);
}

}  // namespace
}  // namespace kov::test
