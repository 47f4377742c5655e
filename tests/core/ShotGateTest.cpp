// The fence of one object: who gets in, who is waited for, when its block is used again.

#include "shots/ShotGate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>

using android::ShotGate;

namespace {

const char kKind = 0;
const char kOtherKind = 0;

/// A block for an object that is never looked at.
struct Fenced {
    Fenced() { gate.publish(); }
    ~Fenced() {
        gate.close();
        gate.giveUp();
    }
    char object = 0;
    ShotGate& gate = ShotGate::take(&object, &kKind);
};

TEST(ShotGateTest, LetsInByAddressAndClassWhileOpen) {
    char object = 0;
    char neighbour = 0;
    ShotGate& gate = ShotGate::take(&object, &kKind);
    EXPECT_FALSE(ShotGate::Entry(&object, &kKind)) << "not yet published";
    gate.publish();
    EXPECT_TRUE(ShotGate::Entry(&object, &kKind));
    EXPECT_FALSE(ShotGate::Entry(&object, &kOtherKind)) << "an object of another class lies at the address now";
    EXPECT_FALSE(ShotGate::Entry(&neighbour, &kKind));
    gate.close();
    EXPECT_FALSE(ShotGate::Entry(&object, &kKind));
    gate.giveUp();
}

TEST(ShotGateTest, RetiringWaitsForThoseInside) {
    Fenced fenced;
    std::optional<ShotGate::Entry> inside(std::in_place, fenced.gate);
    std::future<void> retired = std::async(std::launch::async, [&] { fenced.gate.retire(); });
    EXPECT_EQ(retired.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    inside.reset();
    EXPECT_EQ(retired.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

TEST(ShotGateTest, RetiringDoesNotWaitForThoseOutsideAndTheyDoNotComeBack) {
    Fenced fenced;
    const ShotGate::Entry outer(fenced.gate);
    ShotGate::Outside outside(fenced.gate);
    {
        const ShotGate::Entry nested(fenced.gate);  // a command from within a callback
        ShotGate::Outside again(fenced.gate);
        fenced.gate.retire();
        EXPECT_FALSE(again.comeBack());
    }
    EXPECT_FALSE(outside.comeBack());
}

TEST(ShotGateTest, ABlockThatSomebodyHoldsIsNotUsedAgain) {
    std::optional<Fenced> fenced(std::in_place);
    const ShotGate* const block = &fenced->gate;
    const ShotGate::Hold hold(fenced->gate);
    fenced.reset();
    const Fenced next;
    EXPECT_NE(&next.gate, block);
    EXPECT_FALSE(ShotGate::Entry(hold));
}

}  // namespace
