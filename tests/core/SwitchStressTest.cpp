// Switching, registering, opening, dropping and taking pictures at random while a vendor layer delivers without pause.

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <ostream>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Heaps.h"
#include "host/runtime/Log.h"
#include "shots/ShotGate.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/Handles.h"
#include "tests/support/Region.h"
#include "tests/support/WaitingThread.h"

using namespace android;
using namespace kov::test;

namespace {

using Count = std::atomic<uint64_t>;
using Random = std::minstd_rand;

/// Delivers notifications, frames and timestamped frames on a thread each, without pause and without a lock, through
/// whatever was registered: a registration may be replaced, and its receiver deleted, while a message is on its way. It
/// takes its time before and after it stores a registration, and may call back from within.
class BusyVendor : public FakeCameraHardware {
public:
    Count receivers{0};  // changes of who receives the messages

    /// A kind for each thread: 0 notifications, 1 frames, 2 timestamped frames.
    void deliver(int kind) const {
        const Receiver to = receiver();
        std::this_thread::yield();
        if (kind == 0)
            to.notify(CAMERA_MSG_FOCUS, 1);
        else if (kind == 1)
            to.data(CAMERA_MSG_PREVIEW_FRAME, mFrame);
        else
            to.dataTimestamp(1, CAMERA_MSG_VIDEO_FRAME, mFrame);
    }

private:
    status_t within(const char* operation) override {
        const std::string_view name = operation;
        const uint32_t chance = mCalls++ * 2654435761U;  // spreads the count over all bits
        if (name == "takePicture")
            receiver().data(CAMERA_MSG_COMPRESSED_IMAGE, mPicture);  // synchronously, on the caller's thread
        if (name == "setCallbacks stored") {
            void* const user = receiver().user;
            receivers += mLast.exchange(user) != user;
            if ((chance >> 27) % 8 == 0)
                deliver((chance >> 25) % 2 ? 0 : 2);  // no frame: another thread has that
        }
        if (name.starts_with("setCallbacks"))
            rest(chance >> 30);
        return NO_ERROR;
    }
    static void rest(uint32_t howLong) {
        if (howLong > 1)
            std::this_thread::sleep_for(std::chrono::microseconds(50 * howLong));
        else if (howLong == 1)
            std::this_thread::yield();
    }

    std::atomic<uint32_t> mCalls{0};
    std::atomic<void*> mLast{nullptr};
    const sp<IMemory> mFrame = makeMemory(64 * 48 * 3 / 2), mPicture = makeMemory(600);
};

/// What the service does at random, and how much of it has to have happened.
struct Scene {
    const char* name;
    std::vector<int32_t> modes;     // that it switches to
    uint32_t switchEvery;           // so manieth action
    std::vector<int32_t> commands;  // that it sends in the others
    bool drops;                     // whether the last reference to the adaptor goes again and again
    uint64_t switched, pictures;    // at least

    friend void PrintTo(const Scene& scene, std::ostream* to) { *to << scene.name; }
};

const Scene kScenes[] = {
    {"EveryMode",
     {1000, 1001, 1002, 1003, 1004, 1006, 1009, 1010, 1013, 1016},
     2,
     {1017, 1018, 1019, 1020, 1022, 1023, 1024, 1029, 1030, 1033, 1034, 1035, 1037, 1038, 1039},
     true,
     300,
     20},
    {"SelfPictures", {1006, 1006, 1006, 1013, 1000}, 8, {1039}, true, 20, 20},
    {"Bursts", {1000, 1001, 1001, 1001}, 32, {1023, 1023, 1024, 1024, 1023, 1024, 1026, 1025}, false, 20, 10},
};

/// The camera service. It takes a lock of its own in its callbacks and around every other call.
class Service {
public:
    explicit Service(const Scene& scene) : scene(scene) {}

    const Scene& scene;
    Count delivered{0}, pictures{0}, switched{0}, switchedWithin{0}, opened{0}, registered{0};

    /// Calls `round` on a thread again and again, with random numbers of the thread's own. It rests for up to seven
    /// times as long as a round took, so that on every machine there are moments at which nobody holds the adaptor.
    template <typename Round>
    void start(Round round) {
        ++mRunning;
        mThreads.emplace_back(
            [this, round, &rounds = mRounds.emplace_back(), random = Random(mRounds.size())]() mutable {
                for (; !mStop; ++rounds) {
                    if (mPausing) {
                        ++mResting;
                        mPausing.wait(true);
                        --mResting;
                    }
                    const auto begin = std::chrono::steady_clock::now();
                    round(random);
                    std::this_thread::sleep_for((std::chrono::steady_clock::now() - begin) * (random() % 8));
                }
                --mRunning;
            });
    }
    /// Some calls, half of them under the lock.
    template <typename Call>
    void useAdaptor(Random& random, Call call) {
        const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
        ++opened;
        for (auto left = random() % 16; left > 0; --left) {
            std::unique_lock held(mLock, std::defer_lock);
            if (random() % 2)
                held.lock();
            call(*adaptor.get(), random());
        }
    }
    void act(CameraHardwareInterface& adaptor, uint32_t random) {
        const auto& [codes, every] =
            random / 8 % scene.switchEvery == 0 ? std::tie(scene.modes, switched) : std::tie(scene.commands, sent);
        adaptor.sendCommand(codes[random / 256 % codes.size()], static_cast<int32_t>(random % 2), 0);
        ++every;
        if (random % 4 == 0)
            adaptor.takePicture();
        if (random % 8 == 1)
            adaptor.startPreview();
    }
    void registerAt(CameraHardwareInterface& adaptor) {
        adaptor.setCallbacks(
            [](int32_t, int32_t, int32_t, void* self) { static_cast<Service*>(self)->received(0); },
            [](int32_t type, const sp<IMemory>&, void* self) { static_cast<Service*>(self)->received(type); },
            [](int64_t, int32_t, const sp<IMemory>&, void* self) { static_cast<Service*>(self)->received(0); }, this);
        ++registered;
    }
    /// Waits for `done` while every thread goes on; ends the process when one does not.
    template <typename Done>
    void watch(Done done) const {
        while (!done()) {
            const std::vector<uint64_t> last(mRounds.begin(), mRounds.end());
            insist([&] { return done() || std::ranges::equal(mRounds, last, std::greater<uint64_t>()); });
        }
    }
    /// Runs `test` while nobody acts; threads of pictures that end may still deliver.
    template <typename Test>
    void pause(Test test) {
        mPausing = true;
        insist([&] { return mResting == mRunning && mActing == 0; });
        test();
        mPausing = false;
        mPausing.notify_all();
        insist([&] { return mResting == 0; });
    }
    void join() {
        mStop = true;
        insist([&] { return mRunning == 0; });
        mThreads.clear();
    }

private:
    /// Waits for what needs only that no thread is stuck.
    template <typename Done>
    static void insist(Done done) {
        if (!waitUntil(done)) {
            std::fprintf(stderr, "deadlock: a thread does not go on\n");
            std::abort();
        }
    }
    /// Acts within every other picture, and every so manieth other message.
    void received(int32_t type) {
        const std::lock_guard held(mLock);
        const bool isPicture = type == CAMERA_MSG_COMPRESSED_IMAGE;
        const uint64_t count = isPicture ? pictures++ : delivered++;
        ++mActing;
        if (count % (isPicture ? 2 : 64) == 0 && !mStop && !mPausing) {
            act(*openKovCameraHardware().get(), static_cast<uint32_t>(count) * 2654435761U);
            ++switchedWithin;
        }
        --mActing;
    }

    Count sent{0};
    std::recursive_mutex mLock;
    std::atomic<bool> mStop{false}, mPausing{false};
    std::atomic<int> mRunning{0};  // threads that have not ended
    std::atomic<int> mResting{0};  // those of them that pause
    std::atomic<int> mActing{0};   // calls from within a callback
    std::deque<Count> mRounds;     // of each thread
    std::vector<std::jthread> mThreads;
};

class SwitchStressTest : public ::testing::TestWithParam<Scene> {};

TEST_P(SwitchStressTest, NothingTouchesTheDeadAndNobodyWaitsForever) {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    const char* const seconds = std::getenv("KOV_STRESS_SECONDS");  // of a soak, for all scenes
    const std::chrono::seconds least((seconds ? std::atoi(seconds) : 0) / std::size(kScenes));
    // A thousand times as fast as the real time.
    fakeSystem().now = [](int) { return systemTime() * 1000; };
    fakeSystem().sleep = [](int64_t duration) { std::this_thread::sleep_for(std::chrono::nanoseconds(duration)); };
    static std::atomic<int> threads{0};  // of the product
    fakeSystem().startThread = [](const std::function<void()>& work) {
        ++threads;
        std::thread([work] {
            work();
            --threads;
        }).detach();
        return true;
    };
    const sp<BusyVendor> vendor = new BusyVendor;
    vendor->params.setPreviewSize(64, 48);
    FakeCameraHardware::setNext(vendor.get());
    const size_t openedBefore = FakeCameraHardware::timesOpened(), heapsBefore = kov::host::liveHeaps();
    Service service(GetParam());
    sp<CameraHardwareInterface> adaptor = service.scene.drops ? nullptr : openKovCameraHardware();

    for (int kind = 0; kind < 3; ++kind)
        service.start([&vendor = *vendor.get(), kind](auto& random) {
            for (auto left = random() % 32; left > 0; --left)
                vendor.deliver(kind);
        });
    const auto acts = [&](auto& camera, uint32_t random) { service.act(camera, random); };
    const auto registers = [&](auto& camera, uint32_t) { service.registerAt(camera); };
    for (int i = 0; i < 2; ++i)
        service.start([&](auto& random) { service.useAdaptor(random, acts); });
    for (int i = 0; i < 2; ++i)
        service.start([&](auto& random) { service.useAdaptor(random, registers); });

    const auto end = std::chrono::steady_clock::now() + least;
    const auto enough = [&] {
        return std::chrono::steady_clock::now() >= end && service.delivered > 5000 && service.switchedWithin > 50 &&
               service.switched > service.scene.switched && service.pictures > service.scene.pictures &&
               vendor->receivers > service.scene.switched / 2;
    };
    int pauses = 0;
    while (pauses < 4 || !enough()) {
        if (service.scene.drops) {
            const size_t before = FakeCameraHardware::timesOpened();
            service.watch([&] { return FakeCameraHardware::timesOpened() > before; });
            adaptor = openKovCameraHardware();
        }
        // This adaptor gets its callbacks from the threads, in the thick of their switches.
        const uint64_t switchedBefore = service.switched, registeredBefore = service.registered;
        service.watch(
            [&] { return service.switched > switchedBefore + 20 && service.registered > registeredBefore + 50; });
        service.pause([&] {
            ++pauses;
            for (int heldBack = 0; heldBack < 2; ++heldBack)  // by the self shot, if that is what was selected last
                vendor->deliver(1);
            const uint64_t before = service.delivered;
            for (int kind = 0; kind < 3; ++kind)
                vendor->deliver(kind);
            // Threads of pictures that end may tell more.
            EXPECT_GE(service.delivered - before, 3U) << "the vendor layer was left with a receiver that is gone";
        });
        if (service.scene.drops)
            adaptor.clear();
    }
    service.join();
    adaptor.clear();
    FakeCameraHardware::setNext(nullptr);
    // Threads of shots that are gone may go on for a little; no object of a shot is left over.
    EXPECT_TRUE(waitUntil([&] {
        return vendor->getStrongCount() == 1 && threads == 0 && handlesOwed().empty() &&
               kov::host::liveHeaps() <= heapsBefore;
    })) << vendor->getStrongCount()
        << ", " << threads << ", " << handlesOwed() << ", " << kov::host::liveHeaps() - heapsBefore;
    EXPECT_STREQ(vendor->params.getPictureFormat(), "jpeg");
    EXPECT_LT(ShotGate::blocks(), 64U) << "blocks are not used again";
    resetFakeSystem();
    const auto shown = [](const Count& count) { return static_cast<unsigned long long>(count); };
    std::printf(
        "%s: %llu messages and %llu pictures delivered; %llu switches asked for, %llu actions within callbacks, "
        "%llu changes of the receiver made; %llu openings, %zu adaptors; %d pauses, %zu blocks\n",
        service.scene.name, shown(service.delivered), shown(service.pictures), shown(service.switched),
        shown(service.switchedWithin), shown(vendor->receivers), shown(service.opened),
        FakeCameraHardware::timesOpened() - openedBefore, pauses, ShotGate::blocks());
}

INSTANTIATE_TEST_SUITE_P(Scenes, SwitchStressTest, ::testing::ValuesIn(kScenes), ::testing::PrintToStringParamName());

}  // namespace
