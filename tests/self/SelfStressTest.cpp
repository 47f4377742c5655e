// Pictures of the self shot while modes are switched and the adaptor is dropped.

#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Log.h"
#include "tests/support/BusyVendor.h"
#include "tests/support/FakeCaps.h"

using namespace android;

namespace {

constexpr auto kLeast = std::chrono::milliseconds(600);
constexpr auto kMost = std::chrono::seconds(30);  // on a machine that is busy with other things
constexpr int kPictures = 20;

/// Opens and drops the adaptor, takes pictures, and switches modes: from threads of its own and from within the
/// callbacks of pictures. Its callbacks and calls meet at one lock.
struct Application {
    std::recursive_mutex lock;
    std::atomic<int> pictures{0};
    std::atomic<bool> stop{false};

    void received(int32_t type) {
        const std::lock_guard held(lock);
        if (type != CAMERA_MSG_COMPRESSED_IMAGE && type != CAMERA_MSG_RAW_IMAGE)
            return;
        pictures += type == CAMERA_MSG_COMPRESSED_IMAGE;
        if (pictures % 3 == 1)
            openKovCameraHardware()->sendCommand(pictures % 2 ? 1006 : 1000, 0, 0);
    }

    void run(uint32_t seed) {
        for (std::minstd_rand random(seed); !stop;) {
            const sp<CameraHardwareInterface> camera = openKovCameraHardware();
            camera->setCallbacks(
                [](int32_t, int32_t, int32_t, void*) {},
                [](int32_t type, const sp<IMemory>&, void* self) { static_cast<Application*>(self)->received(type); },
                [](int64_t, int32_t, const sp<IMemory>&, void*) {}, this);
            camera->sendCommand(1006, 0, 0);
            for (int i = 0; i < 20; ++i) {
                std::unique_lock held(lock, std::defer_lock);
                if (random() % 2)
                    held.lock();
                camera->startPreview();
                camera->takePicture();
                if (random() % 8 == 0)
                    camera->sendCommand(random() % 4 ? 1006 : 1013, 0, 0);
                held = {};
                std::this_thread::yield();
            }
        }
    }
};

TEST(SelfStressTest, PicturesSwitchesAndDropsAtRandom) {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    kov::test::fakeCaps() = {};
    const sp<kov::test::BusyVendor> vendor = new kov::test::BusyVendor;
    vendor->params.setPreviewSize(64, 48);
    kov::test::FakeCameraHardware::setNext(vendor.get());
    static Application application;  // late messages may arrive until the process ends

    std::thread threads[] = {std::thread([] { application.run(1); }), std::thread([] { application.run(2); })};
    const auto begin = std::chrono::steady_clock::now();
    const auto elapsed = [&] { return std::chrono::steady_clock::now() - begin; };
    while (elapsed() < kLeast || (elapsed() < kMost && application.pictures < kPictures))
        vendor->deliver(1);
    application.stop = true;
    for (std::thread& thread : threads)
        thread.join();
    kov::test::FakeCameraHardware::setNext(nullptr);
    vendor->waitUntilNobodyElseHoldsIt();

    EXPECT_GE(application.pictures, kPictures);
    EXPECT_EQ(vendor->getStrongCount(), 1);
    EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
    EXPECT_STREQ(vendor->params.getPictureFormat(), "jpeg");
}

}  // namespace
