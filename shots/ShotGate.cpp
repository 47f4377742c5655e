// The fence between a shot and everything that may still be on its way to it.

#include "shots/ShotGate.h"

namespace android {

std::atomic<ShotGate*> ShotGate::sFirst{nullptr};
thread_local ShotGate::Entry* ShotGate::sInnermost = nullptr;

ShotGate& ShotGate::take(void* key, Kind kind) {
    for (ShotGate* gate = sFirst.load(std::memory_order_acquire); gate; gate = gate->mNext) {
        if (gate->tryReuse(key, kind))
            return *gate;
    }
    ShotGate* gate = new ShotGate;
    gate->tryReuse(key, kind);
    ShotGate* first = sFirst.load(std::memory_order_relaxed);
    do {
        gate->mNext = first;
    } while (!sFirst.compare_exchange_weak(first, gate, std::memory_order_release, std::memory_order_relaxed));
    return *gate;
}

bool ShotGate::tryReuse(void* key, Kind kind) {
    uint32_t unused = kClosed;
    if (!mLanes[0].state.compare_exchange_strong(unused, kClosed | kHoldOne, std::memory_order_acq_rel,
                                                 std::memory_order_relaxed))
        return false;
    bool free = true;
    for (uint32_t lane = 1; lane < kLanes; ++lane)
        free = free && mLanes[lane].state.load(std::memory_order_acquire) == kClosed;
    // A thread may have left another lane with a new hold in this one.
    free = free && mLanes[0].state.load(std::memory_order_acquire) == (kClosed | kHoldOne);
    if (!free) {
        giveUp();
        return false;
    }
    mKey.store(key, std::memory_order_relaxed);
    mKind.store(kind, std::memory_order_relaxed);
    return true;
}

void ShotGate::publish() {
    for (Lane& lane : mLanes)
        lane.state.fetch_and(~kClosed, std::memory_order_release);
}

void ShotGate::close() {
    for (Lane& lane : mLanes)
        lane.state.fetch_or(kClosed, std::memory_order_acq_rel);
}

void ShotGate::retire() {
    close();
    const AutoMutex held(mDrainLock);
    while (anyInside())
        mDrained.wait(mDrainLock);
}

bool ShotGate::anyInside() const {
    for (const Lane& lane : mLanes) {
        if (lane.state.load(std::memory_order_acquire) & kInsideMask)
            return true;
    }
    return false;
}

bool ShotGate::isKeyedTo(void* key, Kind kind) const {
    return mKey.load(std::memory_order_relaxed) == key && mKind.load(std::memory_order_relaxed) == kind;
}

bool ShotGate::addInside(uint32_t lane, uint32_t alsoHold) {
    if (!(mLanes[lane].state.fetch_add(kInsideOne + alsoHold, std::memory_order_acq_rel) & kClosed))
        return true;
    subInside(lane, alsoHold);
    return false;
}

void ShotGate::subInside(uint32_t lane, uint32_t alsoHold) {
    const uint32_t less = kInsideOne + alsoHold;
    const uint32_t after = mLanes[lane].state.fetch_sub(less, std::memory_order_acq_rel) - less;
    if ((after & kClosed) && !(after & kInsideMask)) {
        // Somebody may be waiting. The block outlives all its users, so it may be touched after it was left.
        const AutoMutex held(mDrainLock);
        mDrained.broadcast();
    }
}

/// The lane that the calling thread uses in every block.
static uint32_t ownLane(uint32_t lanes) {
    static std::atomic<uint32_t> next{0};
    static thread_local const uint32_t lane = next.fetch_add(1, std::memory_order_relaxed);
    return lane % lanes;
}

ShotGate::Entry::Entry(void* key, Kind kind) {
    const uint32_t lane = ownLane(kLanes);
    for (ShotGate* gate = sFirst.load(std::memory_order_acquire); gate; gate = gate->mNext) {
        if (!gate->isKeyedTo(key, kind) || !gate->addInside(lane, kHoldOne))
            continue;
        // The block may have been given to another object between the look and the entry. Now that it is entered it is
        // that of an object that lives.
        if (gate->isKeyedTo(key, kind)) {
            enter(gate, lane);
            return;
        }
        gate->subInside(lane, kHoldOne);
    }
}

ShotGate::Entry::Entry(ShotGate& gate) {
    const uint32_t lane = ownLane(kLanes);
    if (gate.addInside(lane, kHoldOne))
        enter(&gate, lane);
}

void ShotGate::Entry::enter(ShotGate* gate, uint32_t lane) {
    mGate = gate;
    mLane = lane;
    mInside = true;
    mOuter = sInnermost;
    sInnermost = this;
}

ShotGate::Entry::~Entry() {
    if (!mGate)
        return;
    sInnermost = mOuter;
    if (mInside)
        mGate->subInside(mLane, kHoldOne);
    else
        mGate->subHold(mLane);
}

ShotGate::Outside::Outside(ShotGate& gate) : mEntry(sInnermost) {
    if (!mEntry || mEntry->mGate != &gate || !mEntry->mInside) {
        mEntry = nullptr;
        return;
    }
    mEntry->mInside = false;
    gate.subInside(mEntry->mLane, 0);
}

void ShotGate::Outside::back() {
    if (!mEntry)
        return;
    mAlive = mEntry->mGate->addInside(mEntry->mLane, 0);
    mEntry->mInside = mAlive;
    mEntry = nullptr;
}

}  // namespace android
