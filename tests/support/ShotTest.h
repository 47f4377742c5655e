// The frame around a test of one shot: a fake vendor layer below it, a recording application above it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>

#include "shots/ShotCallbacks.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/Handles.h"
#include "tests/support/Recorder.h"
#include "tests/support/Region.h"
#include "tests/support/WaitingThread.h"

namespace kov::test {

/// Owns a `Mode` over `hardware` and is its application: its callbacks record "app.notify 0xTYPE EXT1 EXT2",
/// "app.data 0xTYPE SIZE" (or "null") and "app.dataTimestamp TIME 0xTYPE SIZE", and keep the data message received last
/// in `lastData`. `whileReceiving` runs in each data callback, `whileNotified` in each notification's.
template <typename Mode>
class ShotTest : public ::testing::Test {
public:
    void makeShot() {
        shot = android::makeShot<Mode>(hardware);
        if (hardware.get())
            shot->setCallbacks(onNotify, onData, onDataTimestamp, this);
    }
    /// A new shot in place of the one before; what is recorded after the line that tells of it.
    Lines made() {
        retireShot();
        recorder.take();
        makeShot();
        const Lines lines = recorder.take();
        const std::string created = text("I %s: %s created: pid=PID", Mode::kTag, Mode::kTag);
        return {std::find(lines.begin(), lines.end(), created) + 1, lines.end()};
    }
    void retireShot() {
        if (Mode* old = std::exchange(shot, nullptr))
            android::retireShot(old, old->gate());
    }
    /// As the adaptor does it.
    void switchAway() {
        shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
        retireShot();
    }
    /// A preview frame of the vendor layer's preview size in 4:2:0, all bytes `fill`.
    android::sp<android::IMemory> makeFrame(uint8_t fill = 0) const {
        int width = 0;
        int height = 0;
        hardware->params.getPreviewSize(&width, &height);
        return makeMemory(static_cast<size_t>(width) * height * 3 / 2, fill);
    }
    ~ShotTest() override {
        resetFakeSystem();
        gFakeArcJpeg = {};
    }
    /// Whatever a test does, nothing of a library's is left when its shot has gone.
    void TearDown() override {
        retireShot();
        EXPECT_TRUE(waitUntil([] { return handlesOwed().empty(); })) << handlesOwed();
    }

    Recorder recorder;
    android::sp<FakeCameraHardware> hardware = new FakeCameraHardware;
    Mode* shot = nullptr;
    android::sp<android::IMemory> lastData;
    std::function<void()> whileReceiving;
    std::function<void(int32_t type, int32_t ext1)> whileNotified;
    std::mutex mLastDataLock;  // messages may come on several threads; tests read when none does

    static void onNotify(int32_t msgType, int32_t ext1, int32_t ext2, void* user) {
        record(text("app.notify 0x%X %d %d", msgType, ext1, ext2));
        // A copy, as it may replace itself.
        if (const auto within = static_cast<ShotTest*>(user)->whileNotified)
            within(msgType, ext1);
    }
    static void onData(int32_t msgType, const android::sp<android::IMemory>& data, void* user) {
        auto* test = static_cast<ShotTest*>(user);
        {
            const std::lock_guard held(test->mLastDataLock);
            test->lastData = data;
        }
        record(data.get() ? text("app.data 0x%X %zu", msgType, data->size()) : text("app.data 0x%X null", msgType));
        if (test->whileReceiving)
            test->whileReceiving();
    }
    static void onDataTimestamp(int64_t timestamp, int32_t msgType, const android::sp<android::IMemory>& data, void*) {
        record(text("app.dataTimestamp %lld 0x%X %zu", static_cast<long long>(timestamp), msgType,
                    data.get() ? data->size() : 0));
    }
};

}  // namespace kov::test
