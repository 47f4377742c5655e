// Switching, registering, opening and dropping while a vendor layer delivers without pause.

#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Log.h"
#include "tests/support/BusyVendor.h"
#include "tests/support/StressThreads.h"

using namespace android;
using kov::test::BusyVendor;
using kov::test::FakeCameraHardware;

namespace {

constexpr auto kWatchdog = std::chrono::seconds(20);

/// How long to go on at least: within the suite until enough has happened, as long as the environment says for a soak.
std::chrono::seconds leastDuration() {
    const char* seconds = std::getenv("KOV_STRESS_SECONDS");
    return std::chrono::seconds(seconds ? std::atoi(seconds) : 0);
}

/// The camera service. Its threads hold the adaptor for a few calls at a time and rest without it, so that the last
/// reference goes, and another adaptor is made, again and again.
struct Service : kov::test::StressThreads {
    std::atomic<uint64_t> delivered{0}, switched{0}, switchedWithin{0}, switchedWithinPicture{0}, opened{0},
        registered{0};

    void switchAtRandom(CameraHardwareInterface& adaptor, uint32_t random) {
        adaptor.sendCommand(1000 + static_cast<int32_t>(random % 17), 0, 0);
        switched.fetch_add(1, std::memory_order_relaxed);
    }

    /// Switches within every so manieth message.
    void received(uint64_t switchWithin, std::atomic<uint64_t>& counter) {
        const std::lock_guard held(lock);
        const uint64_t count = delivered.fetch_add(1, std::memory_order_relaxed);
        if (count % switchWithin != 0)
            return;
        switchAtRandom(*openKovCameraHardware().get(), static_cast<uint32_t>(count / 2));
        counter.fetch_add(1, std::memory_order_relaxed);
    }
    void received() { received(64, switchedWithin); }

    void registerAt(CameraHardwareInterface& adaptor) {
        adaptor.setCallbacks(
            [](int32_t, int32_t, int32_t, void* self) { static_cast<Service*>(self)->received(); },
            [](int32_t type, const sp<IMemory>&, void* self) {
                auto* const service = static_cast<Service*>(self);
                if (type == CAMERA_MSG_COMPRESSED_IMAGE)  // which the vendor layer delivers within `takePicture`
                    service->received(2, service->switchedWithinPicture);
                else
                    service->received();
            },
            [](int64_t, int32_t, const sp<IMemory>&, void* self) { static_cast<Service*>(self)->received(); }, this);
        registered.fetch_add(1, std::memory_order_relaxed);
    }

    void switchModes(std::minstd_rand& random, CameraHardwareInterface& adaptor) {
        switchAtRandom(adaptor, random());
        if (random() % 4 == 0)
            adaptor.takePicture();
        if (random() % 8 == 0)
            adaptor.startPreview();
    }

    /// Some calls, half of them under the lock, then a rest.
    template <typename Call>
    void useAdaptor(std::minstd_rand& random, Call call) {
        {
            const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
            for (auto left = random() % 16; left > 0; --left)
                lockedOrNot(random, [&] { call(*adaptor.get()); });
        }
        rest(random);
    }

    void openAndRegister(std::minstd_rand& random) {
        const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
        registerAt(*adaptor.get());
        opened.fetch_add(1, std::memory_order_relaxed);
        if (random() % 4 == 0)
            rest(random);
    }

    static void rest(std::minstd_rand& random) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 1000));
    }

    uint64_t progress() const { return delivered + switched + opened; }
};

/// Waits for `done`; ends the process when nothing moves any more.
template <typename Done>
void watch(const Service& service, Done done) {
    uint64_t last = 0;
    auto lastMove = std::chrono::steady_clock::now();
    while (!done()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto now = std::chrono::steady_clock::now();
        if (service.progress() != last) {
            last = service.progress();
            lastMove = now;
        }
        if (now - lastMove > kWatchdog) {
            std::fprintf(stderr, "deadlock: nothing moved for %lld s\n", static_cast<long long>(kWatchdog.count()));
            std::abort();
        }
    }
}

TEST(SwitchStressTest, NothingTouchesTheDeadAndNobodyWaitsForever) {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    const sp<BusyVendor> vendor = new BusyVendor;
    FakeCameraHardware::setNext(vendor.get());
    const size_t openedBefore = FakeCameraHardware::timesOpened();
    static Service service;  // late messages may arrive until the process ends

    for (int kind = 0; kind < 3; ++kind)
        service.start([&vendor = *vendor.get(), kind](auto&) { vendor.deliver(kind); });
    for (int i = 0; i < 2; ++i)
        service.start([](auto& random) {
            service.useAdaptor(random, [&](auto& adaptor) { service.switchModes(random, adaptor); });
        });
    service.start([](auto& random) { service.useAdaptor(random, [](auto& adaptor) { service.registerAt(adaptor); }); });
    service.start([](auto& random) { service.openAndRegister(random); });

    const auto end = std::chrono::steady_clock::now() + leastDuration();
    watch(service, [&] {
        return std::chrono::steady_clock::now() >= end && service.delivered > 5000 && service.switched > 1000 &&
               service.switchedWithin > 20 && service.switchedWithinPicture > 20 && vendor->receivers > 500 &&
               FakeCameraHardware::timesOpened() - openedBefore > 3;
    });
    // This adaptor gets its callbacks from the threads, in the thick of their switches, and none afterwards.
    sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
    const uint64_t switchedBefore = service.switched, registeredBefore = service.registered;
    watch(service,
          [&] { return service.switched > switchedBefore + 50 && service.registered > registeredBefore + 50; });
    service.stop = true;
    watch(service, [] { return service.running == 0; });
    service.join();

    for (int heldBack = 0; heldBack < 2; ++heldBack)  // by the self shot, if that is what was selected last
        vendor->deliver(1);
    const uint64_t before = service.delivered;
    for (int kind = 0; kind < 3; ++kind)
        vendor->deliver(kind);
    // The service may switch within one of them, and the vendor layer call back within that registration.
    EXPECT_GE(service.delivered - before, 3U) << "the vendor layer was left with a receiver that is gone";
    adaptor.clear();
    FakeCameraHardware::setNext(nullptr);

    const auto shown = [](const std::atomic<uint64_t>& count) { return static_cast<unsigned long long>(count); };
    std::printf(
        "%llu messages delivered; %llu switches asked for (%llu within callbacks, %llu within takePicture), %llu "
        "changes of the receiver made; %llu openings, %zu adaptors\n",
        shown(service.delivered), shown(service.switched), shown(service.switchedWithin),
        shown(service.switchedWithinPicture), shown(vendor->receivers), shown(service.opened),
        FakeCameraHardware::timesOpened() - openedBefore);
    vendor->waitUntilNobodyElseHoldsIt();
    EXPECT_EQ(vendor->getStrongCount(), 1);  // no adaptor, no shot and no thread of one was left over
}

}  // namespace
