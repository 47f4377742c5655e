// The fence of one object: who gets in, who is waited for, when its block is used again; and whom it tells.

#include "shots/ShotGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <utility>

#include "shots/CallbackSet.h"
#include "tests/support/Recorder.h"
#include "tests/support/WaitingThread.h"

using android::ShotGate;

namespace {

const char kKind = 0, kOtherKind = 0;

/// A block for an object that is never looked at.
struct Fenced {
    Fenced() {
        EXPECT_FALSE(ShotGate::Entry(&object, &kKind)) << "not yet published";
        gate.publish();
    }
    ~Fenced() {
        gate.close();
        EXPECT_FALSE(ShotGate::Entry(&object, &kKind));
        gate.giveUp();
    }
    char object = 0;
    ShotGate& gate = ShotGate::take(&object, &kKind);
};

TEST(ShotGateTest, LetsInByAddressAndClassWhileOpen) {
    Fenced fenced;
    EXPECT_TRUE(ShotGate::Entry(&fenced.object, &kKind));
    EXPECT_FALSE(ShotGate::Entry(&fenced.object, &kOtherKind)) << "an object of another class lies there now";
    EXPECT_FALSE(ShotGate::Entry(&fenced.object + 1, &kKind));
}

TEST(ShotGateTest, RetiringWaitsForThoseInside) {
    Fenced fenced;
    std::optional<ShotGate::Entry> inside(std::in_place, fenced.gate);
    std::atomic<bool> retired{false};
    std::jthread retiring = kov::test::startUntilItWaits([&] { retired = fenced.gate.retire(); });
    EXPECT_FALSE(retired);
    inside.reset();
    retiring.join();
    EXPECT_TRUE(retired);
}

TEST(ShotGateTest, RetiringDoesNotWaitForThoseOutsideAndTheyDoNotComeBack) {
    Fenced fenced;
    const ShotGate::Entry outer(fenced.gate);
    ShotGate::Outside outside(fenced.gate);
    const ShotGate::Entry nested(fenced.gate);  // a command from within a callback
    ShotGate::Outside again(fenced.gate);
    EXPECT_TRUE(fenced.gate.retire());
    EXPECT_FALSE(again.comeBack());
    EXPECT_FALSE(outside.comeBack());
}

TEST(ShotGateTest, RetiringFromInsideIsRefused) {
    kov::test::Recorder recorder;
    Fenced fenced;
    const ShotGate::Entry outer(fenced.gate);
    ShotGate::Outside outside(fenced.gate);
    {
        const ShotGate::Entry inner(fenced.gate);
        EXPECT_FALSE(fenced.gate.retire());
    }
    EXPECT_EQ(
        recorder.take(),
        kov::test::Lines{"E ShotGate: retired from inside, where it would wait for itself; the shot is left as it is"});
    EXPECT_TRUE(fenced.gate.retire());
}

// Two objects of different classes use the same block in turn, while a stale callback looks for the first all the time.
TEST(ShotGateTest, WhoLooksForTheOldObjectDoesNotGetIntoTheNext) {
    static constexpr int kRounds = 100000;
    char first = 0, second = 0;
    std::atomic<const char*> owner{nullptr};
    std::atomic<int> entered{0}, mistaken{0};
    std::atomic<bool> over{false};
    std::thread stale([&] {
        while (!over) {
            if (const ShotGate::Entry inside{&first, &kKind}) {
                ++entered;
                mistaken += owner != &first;
            }
        }
    });
    for (int round = 0; round < kRounds || entered == 0; ++round) {
        for (const auto& [object, kind] : {std::pair{&first, &kKind}, {&second, &kOtherKind}}) {
            ShotGate& gate = ShotGate::take(object, kind);
            owner = object;
            gate.publish();
            EXPECT_TRUE(gate.retire());
            gate.giveUp();
        }
    }
    over = true;
    stale.join();
    EXPECT_EQ(mistaken, 0);
}

TEST(ShotGateTest, ABlockThatSomebodyHoldsIsNotUsedAgain) {
    std::optional<Fenced> fenced(std::in_place);
    const ShotGate::Hold hold(fenced->gate);
    fenced.reset();
    const Fenced next;
    EXPECT_FALSE(ShotGate::Entry(hold));  // else it would be the next one's, which is open
}

TEST(CallbackSetTest, ACallbackComesWithItsOwnCookie) {
    static constexpr android::notify_callback kCallbacks[] = {[](int32_t, int32_t, int32_t, void*) {},
                                                              [](int32_t, int32_t, int32_t, void*) {}};
    android::CallbackSet set;
    char cookies[2];
    std::atomic<bool> over{false};
    std::jthread storing([&] {
        for (int i = 0; !over; ++i)
            set.store(kCallbacks[i % 2], nullptr, nullptr, &cookies[i % 2]);
    });
    int seen[2] = {}, mixed = 0;
    while (seen[0] < 50000 || seen[1] < 50000) {
        const auto [callback, cookie] = set.notify();
        const int which = callback == kCallbacks[1];
        seen[which] += callback != nullptr;
        mixed += callback && cookie != &cookies[which];
    }
    over = true;
    EXPECT_EQ(mixed, 0);
}

}  // namespace
