// Switching, registering, opening and dropping while a vendor layer delivers without pause.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Log.h"
#include "tests/support/BusyVendor.h"

using namespace android;
using kov::test::BusyVendor;
using kov::test::FakeCameraHardware;

namespace {

constexpr auto kWatchdog = std::chrono::seconds(20);

/// How long to go on: short within the suite, as long as the environment says for a soak.
std::chrono::milliseconds duration() {
    const char* seconds = std::getenv("KOV_STRESS_SECONDS");
    return std::chrono::milliseconds(seconds ? std::atoi(seconds) * 1000 : 1500);
}

/// The camera service: one lock of its own, taken around its calls and in its callbacks.
struct Service {
    std::recursive_mutex lock;
    std::atomic<uint64_t> delivered{0}, switched{0}, opened{0};
    std::atomic<bool> stop{false};

    void switchAtRandom(CameraHardwareInterface& adaptor, uint32_t random) {
        adaptor.sendCommand(1000 + static_cast<int32_t>(random % 17), 0, 0);
        switched.fetch_add(1, std::memory_order_relaxed);
    }

    void received() {
        const std::lock_guard held(lock);
        const uint64_t count = delivered.fetch_add(1, std::memory_order_relaxed);
        if (count % 64 != 0)
            return;
        // The application switches modes from within its callback.
        const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
        switchAtRandom(*adaptor.get(), static_cast<uint32_t>(count / 64));
    }

    void registerAt(CameraHardwareInterface& adaptor) {
        adaptor.setCallbacks(
            [](int32_t, int32_t, int32_t, void* self) { static_cast<Service*>(self)->received(); },
            [](int32_t, const sp<IMemory>&, void* self) { static_cast<Service*>(self)->received(); },
            [](int64_t, int32_t, const sp<IMemory>&, void* self) { static_cast<Service*>(self)->received(); }, this);
    }

    void switcher(uint32_t seed) {
        std::minstd_rand random(seed);
        while (!stop) {
            const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
            for (int i = 0; i < 50 && !stop; ++i) {
                std::unique_lock held(lock, std::defer_lock);
                if (random() % 2)
                    held.lock();
                switchAtRandom(*adaptor.get(), random());
                if (random() % 4 == 0)
                    adaptor->takePicture();
                if (random() % 8 == 0)
                    adaptor->startPreview();
            }
        }
    }

    void registrar() {
        while (!stop) {
            const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
            for (int i = 0; i < 20 && !stop; ++i)
                registerAt(*adaptor.get());
        }
    }

    void opener() {
        while (!stop) {
            const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
            registerAt(*adaptor.get());
            opened.fetch_add(1, std::memory_order_relaxed);
        }
    }

    uint64_t progress() const { return delivered + switched + opened; }
};

/// Waits for the end of the run; ends the process when nothing moves any more.
void watch(const Service& service) {
    const auto end = std::chrono::steady_clock::now() + duration();
    uint64_t last = 0;
    auto lastMove = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() < end) {
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
    static Service service;  // late messages may arrive until the process ends

    std::vector<std::thread> threads;
    for (int kind = 0; kind < 3; ++kind)
        threads.emplace_back([&, kind] {
            while (!service.stop)
                vendor->deliver(kind);
        });
    threads.emplace_back([] { service.switcher(1); });
    threads.emplace_back([] { service.switcher(2); });
    threads.emplace_back([] { service.registrar(); });
    threads.emplace_back([] { service.opener(); });

    watch(service);
    service.stop = true;
    for (std::thread& thread : threads)
        thread.join();
    FakeCameraHardware::setNext(nullptr);

    EXPECT_GT(service.delivered, 100U);
    EXPECT_GT(service.switched, 100U);
    EXPECT_GT(service.opened, 10U);
    std::printf("%llu messages delivered, %llu switches, %llu openings\n",
                static_cast<unsigned long long>(service.delivered), static_cast<unsigned long long>(service.switched),
                static_cast<unsigned long long>(service.opened));
    vendor->waitUntilNobodyElseHoldsIt();
    EXPECT_EQ(vendor->getStrongCount(), 1);  // no adaptor, no shot and no thread of one was left over
}

}  // namespace
