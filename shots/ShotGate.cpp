// The fence between a shot and everything that may still be on its way to it.

#include "shots/ShotGate.h"

#include "imaging/TaggedLog.h"

namespace android {

namespace {
constexpr TaggedLog kLog("ShotGate");
}

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

size_t ShotGate::blocks() {
    size_t count = 0;
    for (const ShotGate* gate = sFirst.load(std::memory_order_acquire); gate; gate = gate->mNext)
        ++count;
    return count;
}

bool ShotGate::tryReuse(void* key, Kind kind) {
    uint32_t unused = kClosed;
    if (!mState.compare_exchange_strong(unused, kClosed | kHoldOne, std::memory_order_acq_rel,
                                        std::memory_order_relaxed))
        return false;
    mKey.store(key, std::memory_order_relaxed);
    mKind.store(kind, std::memory_order_relaxed);
    return true;
}

void ShotGate::publish() {
    mState.fetch_and(~kClosed, std::memory_order_release);
}

void ShotGate::close() {
    mState.fetch_or(kClosed, std::memory_order_acq_rel);
}

bool ShotGate::retire() {
    close();
    if (isThisThreadInside()) {
        kLog.error("retired from inside, where it would wait for itself; the shot is left as it is");
        return false;
    }
    const AutoMutex held(mDrainLock);
    while (mState.load(std::memory_order_acquire) & kInsideMask)
        mDrained.wait(mDrainLock);
    return true;
}

bool ShotGate::isThisThreadInside() const {
    for (const Entry* entry = sInnermost; entry; entry = entry->mOuter) {
        if (entry->mGate == this && entry->mInside)
            return true;
    }
    return false;
}

bool ShotGate::isKeyedTo(void* key, Kind kind) const {
    return mKey.load(std::memory_order_relaxed) == key && mKind.load(std::memory_order_relaxed) == kind;
}

bool ShotGate::addInside(uint32_t alsoHold) {
    if (!(mState.fetch_add(kInsideOne + alsoHold, std::memory_order_acq_rel) & kClosed))
        return true;
    subInside(alsoHold);
    return false;
}

void ShotGate::subInside(uint32_t alsoHold) {
    const uint32_t less = kInsideOne + alsoHold;
    const uint32_t after = mState.fetch_sub(less, std::memory_order_acq_rel) - less;
    if ((after & kClosed) && !(after & kInsideMask)) {
        // Somebody may be waiting. The block outlives all its users, so it may be touched after it was left.
        const AutoMutex held(mDrainLock);
        mDrained.broadcast();
    }
}

ShotGate::Entry::Entry(void* key, Kind kind) {
    for (ShotGate* gate = sFirst.load(std::memory_order_acquire); gate; gate = gate->mNext) {
        if (!gate->isKeyedTo(key, kind) || !gate->addInside(kHoldOne))
            continue;
        // The block may have been given to another object between the look and the entry. Now that it is entered it is
        // that of an object that lives.
        if (gate->isKeyedTo(key, kind)) {
            enter(gate);
            return;
        }
        gate->subInside(kHoldOne);
    }
}

ShotGate::Entry::Entry(ShotGate& gate) {
    if (gate.addInside(kHoldOne))
        enter(&gate);
}

void ShotGate::Entry::enter(ShotGate* gate) {
    mGate = gate;
    mInside = true;
    mOuter = sInnermost;
    sInnermost = this;
}

ShotGate::Entry::~Entry() {
    if (!mGate)
        return;
    sInnermost = mOuter;
    if (mInside)
        mGate->subInside(kHoldOne);
    else
        mGate->subHold();
}

ShotGate::Outside::Outside(ShotGate& gate) : mEntry(sInnermost) {
    if (!mEntry || mEntry->mGate != &gate || !mEntry->mInside) {
        mEntry = nullptr;
        return;
    }
    mEntry->mInside = false;
    gate.subInside(0);
}

void ShotGate::Outside::back() {
    if (!mEntry)
        return;
    mAlive = mEntry->mGate->addInside(0);
    mEntry->mInside = mAlive;
    mEntry = nullptr;
}

}  // namespace android
