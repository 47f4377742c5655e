// The service side as a library: the real adaptor and the real host under several listeners.

#include "tools/session/Session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "shots/Commands.h"
#include "tools/session/Inbox.h"
#include "tools/session/Pictures.h"
#include "tools/session/Sources.h"

namespace kov::cam {
namespace {

using namespace android;

constexpr double kPatience = 30;  // seconds, for what must happen

/// Keeps as text what it is told, and the last frame's mean colour.
class Witness : public Inbox {
public:
    void onFrame(const Frame& frame) override {
        const std::lock_guard held(mLock);
        mColor = cv::mean(toBgr(frame));
        Inbox::onFrame(frame);
    }
    void onCall(const Call& call) override { add("call " + std::string(call.name)); }
    void onCommand(const Command& command) override { add("command " + std::to_string(command.code)); }
    void onResult(const Result& result) override {
        add("result " + std::string(result.name) + (result.reason.empty() ? "" : ": ") + std::string(result.reason));
    }
    void onLog(const LogLine& line) override { add("log " + std::string(line.text)); }
    void onInnerCall(const InnerCall& call) override {
        add(std::string(call.library) + " " + std::string(call.name) + "(" + std::string(call.arguments) +
            ") = " + std::string(call.result));
    }

    bool await(int32_t type) {
        for (Message message; next(&message, kPatience);) {
            if (message.type == type)
                return true;
        }
        return false;
    }
    bool saw(const std::string& text) const { return count(text) > 0; }
    long count(const std::string& text) const {
        const std::lock_guard held(mLock);
        return std::ranges::count_if(mLines, [&](const std::string& line) { return line.starts_with(text); });
    }
    cv::Scalar color() const {
        const std::lock_guard held(mLock);
        return mColor;
    }

private:
    void add(std::string line) {
        const std::lock_guard held(mLock);
        mLines.push_back(std::move(line));
    }

    mutable std::mutex mLock;
    std::vector<std::string> mLines;
    cv::Scalar mColor;
};

/// Expects an operation to fail, and to say this.
template <typename Operation>
void expectError(const std::string& expected, Operation operation) {
    try {
        operation();
        ADD_FAILURE() << "nothing failed: " << expected;
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
    }
}

const std::map<std::string, std::string> kSmall = {{"preview-size", "320x240"}, {"picture-size", "320x240"}};

class SessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KOV_CAMERA_SPEED", "4", 1);
        setLogLevel("silent");
    }

    void open(const std::string& source, std::vector<std::shared_ptr<Listener>> more = {}) {
        more.insert(more.begin(), witness);
        session = Session::open({source, kSmall, more});
    }
    /// Whether the preview comes to show a colour, a few steps more or less.
    bool shows(cv::Scalar wanted) {
        for (int frame = 0; frame < 200; ++frame) {
            if (!witness->await(CAMERA_MSG_PREVIEW_FRAME))
                return false;
            if (cv::norm(witness->color(), wanted, cv::NORM_INF) < 4)
                return true;
        }
        return false;
    }

    const std::shared_ptr<Witness> witness = std::make_shared<Witness>();
    std::shared_ptr<Session> session;
};

TEST_F(SessionTest, EveryListenerHearsWhatHappensFromWhenItIsAddedUntilItIsRemoved) {
    open("scene:still-life");
    const auto other = std::make_shared<Witness>();
    session->selectMode(KOV_MODE_SINGLE);
    session->startPreview();
    ASSERT_TRUE(witness->await(CAMERA_MSG_PREVIEW_FRAME));
    session->addListener(other);
    session->addListener(other);
    session->takePicture();
    EXPECT_TRUE(witness->await(CAMERA_MSG_COMPRESSED_IMAGE));
    EXPECT_TRUE(other->await(CAMERA_MSG_COMPRESSED_IMAGE));
    EXPECT_EQ(other->count("call "), 1);
    session->removeListener(other);
    session->setParameter("jpeg-quality", "50");
    EXPECT_EQ(session->parameter("jpeg-quality"), "50");
    EXPECT_TRUE(witness->saw("call setParameters"));
    EXPECT_FALSE(other->saw("call setParameters"));
    for (const char* line :
         {"call openKovCameraHardware", "command 1000", "log ShotSingle::takePicture start", "result takePicture",
          "libcamera.so openCameraHardware() = a camera", "libcamera.so takePicture() = 0"})
        EXPECT_TRUE(witness->saw(line)) << line;
}

TEST_F(SessionTest, SaysWhySomethingFailed) {
    expectError("unknown scene", [&] { open("scene:nowhere"); });
    expectError("there is no file missing.jpg; give a picture, a video, a folder, /dev/videoN or scene:NAME",
                [&] { open("missing.jpg"); });
    open("scene:still-life");
    expectError("a process has one camera", [&] { Session::open({}); });
    expectError("picture-size cannot be \"7x7\"", [&] { session->setParameter("picture-size", "7x7"); });
    expectError("neither key nor value", [&] { session->setParameter("a", "b;c=d"); });
    expectError("autoFocus: start the preview first", [&] { session->autoFocus(); });
    EXPECT_TRUE(witness->saw("result autoFocus: autoFocus: start the preview first"));
    session->close();
    session->close();
    expectError("is closed", [&] { session->startPreview(); });
}

TEST_F(SessionTest, WhatIsPushedIsShownAlsoAfterAnotherSource) {
    open("scene:still-life");
    session->startPreview();
    ASSERT_TRUE(witness->await(CAMERA_MSG_PREVIEW_FRAME));
    session.reset();
    open("push:");
    session->startPreview();
    EXPECT_TRUE(shows({96, 96, 96}));
    std::vector<uint8_t> jpeg;
    cv::imencode(".jpg", cv::Mat(480, 640, CV_8UC3, cv::Scalar(20, 40, 200)), jpeg);
    pushJpeg(jpeg.data(), jpeg.size());
    EXPECT_TRUE(shows({20, 40, 200}));
    std::vector<uint8_t> nv21(64 * 64 * 3 / 2, 128);
    std::fill_n(nv21.begin(), 64 * 64, 150);
    pushFrame(nv21.data(), nv21.size(), 64, 64, PixelLayout::Yuv420sp);
    EXPECT_TRUE(shows({150, 150, 150}));
    expectError("is no picture", [&] { pushJpeg(nv21.data(), 100); });
    expectError("6144 bytes, not 99", [&] { pushFrame(nv21.data(), 99, 64, 64, PixelLayout::Yuv420p); });
    expectError("even sides", [&] { pushFrame(nv21.data(), 99, 63, 64, PixelLayout::Yuv420p); });
}

/// Drops what it holds of the session when the first frame comes.
struct Dropper : Listener {
    std::shared_ptr<Session> session;
    std::atomic<bool> armed{false}, dropped{false};
    void onFrame(const Frame&) override {
        if (!armed.exchange(false))
            return;
        session.reset();
        dropped = true;
    }
};

TEST_F(SessionTest, MayBeDroppedOnTheCamerasThread) {
    for (int i = 0; i < 3; ++i) {
        const auto dropper = std::make_shared<Dropper>();
        open("scene:still-life", {dropper});
        session->selectMode(KOV_MODE_SINGLE);
        session->startPreview();
        dropper->session = std::move(session);
        dropper->armed = true;
        while (!dropper->dropped)
            std::this_thread::yield();
    }
    open("scene:still-life");  // the process's one camera is free again
    session->startPreview();
    EXPECT_TRUE(witness->await(CAMERA_MSG_PREVIEW_FRAME));
}

TEST_F(SessionTest, ListenersComeAndGoWhileModesAreSwitched) {
    open("scene:portrait");
    std::atomic<bool> stop{false};
    std::thread guests([&] {
        while (!stop) {
            const auto guest = std::make_shared<Witness>();
            session->addListener(guest);
            std::this_thread::yield();
            session->removeListener(guest);
        }
    });
    std::thread settings([&] {
        for (int i = 0; !stop; ++i)
            session->setParameter("jpeg-quality", std::to_string(50 + i % 40));
    });
    session->startPreview();
    for (int i = 0; i < 24; ++i) {
        session->selectMode(KOV_MODE_SINGLE + i % 4);
        session->sendCommand(SMILE_SHOT_DETECTION_START);
        EXPECT_TRUE(witness->await(CAMERA_MSG_PREVIEW_FRAME));
    }
    stop = true;
    guests.join();
    settings.join();
    EXPECT_TRUE(witness->saw("libarccamera.so ASSD_InitSmileEngine"));
    session->selectMode(KOV_MODE_PANORAMA);
    session->sendCommand(PANORAMA_SHOT_START);
    const std::string handled = "libPanoraMax1.so px_handleFrame(frame=320x240, time_ms=";
    for (int frame = 0; frame < 200 && !witness->saw(handled); ++frame)
        ASSERT_TRUE(witness->await(CAMERA_MSG_PREVIEW_FRAME));
    EXPECT_TRUE(witness->saw(handled));
}

}  // namespace
}  // namespace kov::cam
