// The vendor camera as the adaptor meets it: through openCameraHardware.

#include <binder/MemoryBase.h>
#include <camera/CameraHardwareInterface.h>
#include <gtest/gtest.h>
#include <libexif/exif-data.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
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
#include "tests/support/Region.h"
#include "tests/support/WaitingThread.h"

namespace kov::test {
namespace {

using namespace android;
using namespace std::chrono_literals;

struct Message {
    int32_t type;
    sp<IMemory> memory;
    int32_t ext1;
    std::chrono::steady_clock::time_point time;
};

/// What arrives, of the process: a message that was on its way may come when its test is over.
struct Inbox {
    std::mutex lock;
    std::vector<Message> messages;
    std::function<void(int32_t)> inside;  // run in each callback
    std::atomic<int> running{0};          // callbacks
} gInbox;

void arrive(int32_t type, const sp<IMemory>& memory, int32_t ext1 = 0) {
    ++gInbox.running;
    std::unique_lock held(gInbox.lock);
    gInbox.messages.push_back({type, memory, ext1, std::chrono::steady_clock::now()});
    const auto inside = gInbox.inside;
    held.unlock();
    if (inside)
        inside(type);
    --gInbox.running;
}

class VendorCameraTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (camera.get())
            camera->release();
        inEachCallback(nullptr);
        // A callback that the release did not wait for still uses this test.
        await([] { return gInbox.running == 0; });
        forget();
    }
    static void inEachCallback(std::function<void(int32_t)> work) {
        const std::lock_guard held(gInbox.lock);
        gInbox.inside = std::move(work);
    }

    void open(const std::string& source, double speed = 8) {
        setenv("KOV_CAMERA_SOURCE", source.c_str(), 1);
        setenv("KOV_CAMERA_SPEED", std::to_string(speed).c_str(), 1);
        camera = openCameraHardware();
        ASSERT_TRUE(camera.get());
        camera->setCallbacks([](int32_t type, int32_t ext1, int32_t, void*) { arrive(type, nullptr, ext1); },
                             [](int32_t type, const sp<IMemory>& memory, void*) { arrive(type, memory); },
                             [](int64_t, int32_t type, const sp<IMemory>& memory, void*) { arrive(type, memory); },
                             nullptr);
        camera->enableMsgType(CAMERA_MSG_ALL_MSGS);
    }
    /// A source whose every frame is red, for small pictures.
    void openRed(double speed = 8) {
        cv::imwrite(folder / "red.png", cv::Mat(48, 64, CV_8UC3, cv::Scalar(0, 0, 255)));
        open(folder / "red.png", speed);
        set("picture-size", "320x240");
    }
    status_t set(const std::string& key, const std::string& value) {
        CameraParameters parameters = camera->getParameters();
        parameters.set(key.c_str(), value.c_str());
        return camera->setParameters(parameters);
    }

    /// The messages so far of any of the types.
    std::vector<Message> messages(int32_t types) {
        const std::lock_guard held(gInbox.lock);
        std::vector<Message> found = gInbox.messages;
        std::erase_if(found, [&](const Message& message) { return (message.type & types) == 0; });
        return found;
    }
    static void await(const std::function<bool()>& isSo) { ASSERT_TRUE(waitUntil(isSo)); }
    std::vector<Message> await(int32_t type, size_t count = 1) {
        await([&] { return messages(type).size() >= count; });
        return messages(type);
    }
    static void forget() {
        const std::lock_guard held(gInbox.lock);
        gInbox.messages.clear();
    }

    TemporaryFolder folder;
    Recorder recorder;
    sp<CameraHardwareInterface> camera;
};

TEST_F(VendorCameraTest, KeepsTheFrameRate) {
    constexpr size_t kWindow = 12;
    for (const int rate : {10, 30}) {
        openRed(4);
        set("preview-size", "176x144");
        set("preview-frame-rate", std::to_string(rate));
        camera->startPreview();
        await([&] {  // in one window: the machine may have other work in the others
            const auto frames = messages(CAMERA_MSG_PREVIEW_FRAME);
            bool keeps = false;
            for (size_t first = 1; first + kWindow < frames.size(); ++first) {
                const std::chrono::duration<double> took = frames[first + kWindow].time - frames[first].time;
                keeps |= std::abs(kWindow / took.count() / (4 * rate) - 1) < 0.05;
            }
            return keeps;
        });
        TearDown();
    }
}

TEST_F(VendorCameraTest, DeliversEverySizeInEveryFormat) {
    openRed(1);  // so slow that no frame is overwritten while it is read; of Y 76, U 85, V 255, full range
    for (const auto& [format, first, last] : {std::tuple("yuv420sp", 255, 85), {"yuv420p", 85, 255}}) {
        std::istringstream sizes(camera->getParameters().get("preview-size-values"));
        for (std::string size; std::getline(sizes, size, ',');) {
            SCOPED_TRACE(format + size);
            set("preview-format", format);
            ASSERT_EQ(set("preview-size", size), NO_ERROR);
            int width = 0, height = 0;
            camera->getParameters().getPreviewSize(&width, &height);
            camera->startPreview();
            const sp<IMemoryHeap> heap = camera->getPreviewHeap();
            sp<IMemory> memory;  // a message of the size before may still be on its way
            await([&] {
                const auto frames = messages(CAMERA_MSG_PREVIEW_FRAME);
                memory = frames.empty() ? nullptr : frames.back().memory;
                return memory.get() && memory->getMemory().get() == heap.get();
            });
            camera->stopPreview();
            const auto frame = bytesOf(memory);
            EXPECT_LE(memory->offset() + frame.size(), heap->getSize());
            ASSERT_EQ(frame.size(), static_cast<size_t>(width) * height * 3 / 2);
            EXPECT_NEAR(frame[1000], 76, 1);
            EXPECT_NEAR(frame[width * height], first, 2);
            EXPECT_NEAR(frame.back(), last, 2);
        }
    }
}

TEST_F(VendorCameraTest, SendsTheEnabledMessagesOfAPicture) {
    openRed();
    const std::tuple<int32_t, const char*, std::vector<int32_t>> cases[] = {
        {0x1FF, "jpeg", {0x002, 0x080, 0x100}},   {0x1FF & ~0x080, "jpeg", {0x002, 0x100}},
        {0x1FF & ~0x002, "jpeg", {0x080, 0x100}}, {0x1FF & ~0x100, "jpeg", {0x002, 0x080}},
        {0x1FF, "yuv420sp", {0x002, 0x080}},      {0x1FF, "yuv420p", {0x002, 0x080}}};
    for (const auto& [enabled, format, expected] : cases) {
        ASSERT_EQ(set("picture-format", format), NO_ERROR);
        camera->disableMsgType(0x1FF);
        camera->enableMsgType(enabled);
        EXPECT_EQ(camera->msgTypeEnabled(0x182), (enabled & 0x182) == 0x182);
        forget();
        ASSERT_EQ(camera->takePicture(), NO_ERROR);
        await(expected.back());
        std::vector<int32_t> types;
        for (const Message& message : messages(~CAMERA_MSG_PREVIEW_FRAME))
            types.push_back(message.type);
        EXPECT_EQ(types, expected);
        // The picture is over when its last message, sent or not, is.
        await([&] { return camera->takePicture() == NO_ERROR; });
        camera->cancelPicture();
    }
    camera->disableMsgType(CAMERA_MSG_PREVIEW_FRAME);
    camera->startPreview();
    camera->startRecording();
    await(CAMERA_MSG_VIDEO_FRAME, 3);
    EXPECT_TRUE(messages(CAMERA_MSG_PREVIEW_FRAME).empty());
    camera->enableMsgType(CAMERA_MSG_PREVIEW_FRAME);
    await(CAMERA_MSG_PREVIEW_FRAME);
}

TEST_F(VendorCameraTest, RefusesWhatCannotBeAndEverythingAfterRelease) {
    openRed();
    const std::string before = camera->getParameters().flatten().string();
    const std::pair<const char*, const char*> cases[] = {
        {"preview-size", "641x480"},   {"preview-size", ""},        {"preview-size", "640x480,"},
        {"preview-format", "rgb565"},  {"preview-frame-rate", "0"}, {"preview-frame-rate", "61"},
        {"picture-size", "2561x1920"}, {"picture-format", "png"},   {"jpeg-quality", "0"},
        {"jpeg-quality", "101"},       {"jpeg-quality", "85 "},     {"jpeg-quality", ""}};
    for (const auto& [key, value] : cases) {
        SCOPED_TRACE(text("%s=%s", key, value));
        recorder.take();
        EXPECT_EQ(set(key, value), BAD_VALUE);
        const std::string line = text("E VendorCamera: setParameters: %s cannot be \"%s\"; possible", key, value);
        EXPECT_EQ(recorder.take(line).size(), 1U);
        EXPECT_EQ(camera->getParameters().flatten().string(), before);
    }
    EXPECT_EQ(set("preview-size-values", "1x1"), NO_ERROR);
    EXPECT_EQ(camera->getParameters().flatten().string(), before);

    camera->startPreview();
    EXPECT_EQ(set("preview-size", "320x240"), INVALID_OPERATION);
    EXPECT_EQ(set("preview-format", "yuv420p"), INVALID_OPERATION);
    EXPECT_EQ(set("picture-format", "yuv420sp"), NO_ERROR);
    EXPECT_EQ(camera->sendCommand(1039, 3, 0), BAD_VALUE);

    camera->release();
    EXPECT_EQ(camera->startPreview(), INVALID_OPERATION);
    EXPECT_EQ(camera->takePicture(), INVALID_OPERATION);
    EXPECT_EQ(set("jpeg-quality", "40"), INVALID_OPERATION);
}

/// Width, height, orientation and software; also expects that the picture was taken just now.
std::string exifOf(const std::vector<uint8_t>& jpeg) {
    ExifData* const data = exif_data_new_from_data(jpeg.data(), static_cast<unsigned int>(jpeg.size()));
    const auto word = [&](ExifIfd ifd, ExifTag tag) {
        char value[64] = "";
        if (ExifEntry* const entry = exif_content_get_entry(data->ifd[ifd], tag))
            exif_entry_get_value(entry, value, sizeof value);
        return std::string(value);
    };
    std::tm taken = {};
    taken.tm_isdst = -1;
    strptime(word(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL).c_str(), "%Y:%m:%d %H:%M:%S", &taken);
    EXPECT_NEAR(static_cast<double>(std::time(nullptr) - std::mktime(&taken)), 0, 60);
    const std::string all = word(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION) + " " +
                            word(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION) + " " +
                            word(EXIF_IFD_0, EXIF_TAG_ORIENTATION) + " " + word(EXIF_IFD_0, EXIF_TAG_SOFTWARE);
    exif_data_unref(data);
    return all;
}

TEST_F(VendorCameraTest, MakesPicturesOfTheAskedSizeAndQuality) {
    open("scene:still-life");
    size_t smaller = 0;
    for (const auto& [width, height, quality] : {std::tuple(640, 480, "40"), {640, 480, "95"}, {1600, 1200, "95"}}) {
        forget();
        set("picture-size", text("%dx%d", width, height));
        set("jpeg-quality", quality);
        camera->takePicture();
        const auto jpeg = bytesOf(await(CAMERA_MSG_COMPRESSED_IMAGE).front().memory);
        EXPECT_EQ(cv::imdecode(jpeg, cv::IMREAD_COLOR).size(), cv::Size(width, height));
        EXPECT_EQ(exifOf(jpeg), text("%d %d Top-left kovcameraadaptor " KOV_VERSION, width, height));
        EXPECT_GT(jpeg.size(), smaller * 3 / 2);
        smaller = jpeg.size();
        const auto raw = await(CAMERA_MSG_RAW_IMAGE).front().memory;
        EXPECT_EQ(raw->getMemory().get(), camera->getRawHeap().get());
        EXPECT_EQ(raw->size(), static_cast<size_t>(width) * height * 3 / 2);
    }
}

TEST_F(VendorCameraTest, APictureStopsThePreviewAndShowsItsLastMoment) {
    open("scene:crossing?delay=0&seconds=2");
    set("picture-size", "640x480");
    camera->startPreview();
    await(CAMERA_MSG_PREVIEW_FRAME, 12);
    EXPECT_TRUE(camera->previewEnabled());
    camera->takePicture();
    EXPECT_FALSE(camera->previewEnabled());
    const auto raw = bytesOf(await(CAMERA_MSG_RAW_IMAGE).back().memory);
    // The last message of the preview may still be on its way.
    await([&] { return bytesOf(messages(CAMERA_MSG_PREVIEW_FRAME).back().memory) == raw; });
}

TEST_F(VendorCameraTest, EveryOperationWorksInsideACallback) {
    for (const int32_t where : {CAMERA_MSG_PREVIEW_FRAME, CAMERA_MSG_SHUTTER, CAMERA_MSG_RAW_IMAGE,
                                CAMERA_MSG_COMPRESSED_IMAGE, CAMERA_MSG_VIDEO_FRAME, CAMERA_MSG_FOCUS}) {
        SCOPED_TRACE(where);
        openRed(20);
        std::atomic<bool> first{true};
        static std::atomic<bool> again;  // as the inbox
        again = false;
        const auto onData = [](int32_t type, const sp<IMemory>&, void*) {
            again = again || type == CAMERA_MSG_COMPRESSED_IMAGE;
        };
        inEachCallback([&](int32_t type) {
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
            camera->setCallbacks(nullptr, onData, nullptr, nullptr);
            camera->takePicture();
        });
        camera->startPreview();
        camera->startRecording();
        camera->autoFocus();
        if (where & (CAMERA_MSG_SHUTTER | CAMERA_MSG_RAW_IMAGE | CAMERA_MSG_COMPRESSED_IMAGE)) {
            camera->stopRecording();
            camera->takePicture();
        }
        // The picture that was taken inside arrives at the callback that was set inside.
        await([&] { return again.load(); });
        TearDown();
    }
}

TEST_F(VendorCameraTest, MayBeDroppedInsideACallback) {
    for (const int32_t where : {CAMERA_MSG_PREVIEW_FRAME, CAMERA_MSG_COMPRESSED_IMAGE}) {
        openRed(20);
        sp<CameraHardwareInterface> last = std::exchange(camera, {});
        std::atomic<bool> handedOver{false}, dropped{false};
        inEachCallback([&](int32_t type) {
            if (type != where || dropped)
                return;
            while (!handedOver)
                std::this_thread::yield();
            last.clear();
            dropped = true;
        });
        last->startPreview();
        if (where == CAMERA_MSG_COMPRESSED_IMAGE)
            last->takePicture();
        handedOver = true;
        await([&] { return dropped.load(); });
        TearDown();
    }
}

TEST_F(VendorCameraTest, StartsStopsAndPicturesRaceWithoutDeadlock) {
    openRed(100);
    // As a service does it: one lock around its calls and in its callbacks.
    std::recursive_mutex service;
    inEachCallback([&](int32_t) { const std::lock_guard guard(service); });
    const auto end = std::chrono::steady_clock::now() + 300ms;
    const std::function<void()> calls[] = {
        [&] { camera->startPreview(); },
        [&] { camera->stopPreview(); },
        [&] { camera->takePicture(); },
        [&] { camera->cancelPicture(); },
        [&] { camera->startRecording(); },
        [&] { camera->stopRecording(); },
        [&] { set("preview-size", camera->previewEnabled() ? "640x480" : "176x144"); }};
    std::vector<std::jthread> threads;
    for (const auto& call : calls)
        threads.emplace_back([&service, &call, end] {
            while (std::chrono::steady_clock::now() < end) {
                const std::lock_guard guard(service);
                call();
            }
        });
    threads.clear();
    forget();
    camera->cancelPicture();
    camera->startPreview();
    await(CAMERA_MSG_PREVIEW_FRAME, 3);
}

TEST_F(VendorCameraTest, ARecordingFrameIsNotReusedUntilItComesBack) {
    openRed(50);
    EXPECT_EQ(camera->startRecording(), INVALID_OPERATION);
    camera->startPreview();
    ASSERT_EQ(camera->startRecording(), NO_ERROR);
    EXPECT_EQ(camera->takePicture(), INVALID_OPERATION);
    await(CAMERA_MSG_PREVIEW_FRAME, 24);
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

}  // namespace
}  // namespace kov::test
