// The fence between a shot and everything that may still be on its way to it.
#pragma once

#include <kov/annotations.h>
#include <utils/threads.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace android {

/// Control block of one shot (or of the adaptor): counts the threads that are inside its code.
///
///     closed --publish--> open --retire--> closed, once nobody is inside
///
/// A thread gets in through an `Entry`, and steps out through an `Outside` for every call that leaves the shot, down to
/// the vendor layer or up to the service. Thus retiring waits for the shot's own work only, never for code outside it,
/// and a thread that switches modes from within a callback never waits for itself.
///
/// Callbacks of the vendor layer carry the shot's address as user pointer, which may be stale. They find the block by
/// that address and the shot's class, and never look behind it. Blocks are never freed, only reused when nobody holds
/// them any more, so that looking at one is always allowed. Their number is the largest number of shots that were ever
/// in use at the same time.
class ShotGate {
public:
    /// Tells classes of objects apart: the address of something that is the class's own.
    using Kind = const void*;
    template <typename Class>
    static Kind kindOf() {
        static constexpr char kOwn{};
        return &kOwn;
    }

    /// Takes a closed block for the object `key` of class `kind`; the caller holds it until `giveUp`. Any thread.
    static ShotGate& take(void* key, Kind kind);
    /// Gives the caller's hold up. The block must be closed. Any thread.
    void giveUp() { subHold(); }

    /// How many blocks there are, for tests. Any thread.
    static size_t blocks();

    /// Lets threads in. The object must be fully constructed.
    void publish();
    /// Lets nobody in any more. Threads inside go on.
    void close();
    /// Closes, and waits until nobody is inside; then true. From inside, where it would wait for itself, it is refused
    /// with a line and false: the block is closed, and the object must not be deleted.
    [[nodiscard]] bool retire();

    /// Keeps the block from being reused, for threads that the object starts itself.
    class Hold {
    public:
        explicit Hold(ShotGate& gate) : mGate(gate) { gate.addHold(); }
        Hold(const Hold& other) : Hold(other.mGate) {}
        Hold& operator=(const Hold&) = delete;
        ~Hold() { mGate.giveUp(); }

    private:
        friend class ShotGate;
        ShotGate& mGate;
    };

    /// Being inside, for the length of a block. False when the object was retired: then do not touch it.
    class Entry {
    public:
        /// For trampolines: finds the block of the object that `key` and `kind` name.
        Entry(void* key, Kind kind);
        /// For the owner, which knows that the object lives, and for threads that the object started.
        explicit Entry(ShotGate& gate);
        explicit Entry(const Hold& hold) : Entry(hold.mGate) {}
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        explicit operator bool() const { return mGate != nullptr; }

    private:
        friend class ShotGate;
        void enter(ShotGate* gate);

        ShotGate* mGate = nullptr;
        bool mInside = false;
        Entry* mOuter = nullptr;  // the thread's next outer entry
    };

    /// Being outside, for the length of a call out of the shot. Does nothing on a thread that is not inside the block,
    /// such as one that builds the shot or tears it down.
    class Outside {
    public:
        explicit Outside(ShotGate& gate);
        ~Outside() { back(); }
        Outside(const Outside&) = delete;
        Outside& operator=(const Outside&) = delete;

        /// Steps in again. False when the object was retired meanwhile: return at once without touching it.
        [[nodiscard]] bool comeBack() {
            back();
            return mAlive;
        }

    private:
        void back();

        Entry* mEntry;  // null when there is nothing to step back into
        bool mAlive = true;
    };

private:
    // The state word: bit 31 closed, bits 16 to 30 threads inside, bits 0 to 15 holds on the block. A block that is
    // closed with neither is free.
    static constexpr uint32_t kClosed = 1u << 31;
    static constexpr uint32_t kInsideOne = 1u << 16;
    static constexpr uint32_t kInsideMask = 0x7FFFu << 16;
    static constexpr uint32_t kHoldOne = 1;

    ShotGate() = default;

    bool tryReuse(void* key, Kind kind);
    bool isKeyedTo(void* key, Kind kind) const;
    bool isThisThreadInside() const;
    bool addInside(uint32_t alsoHold);
    void subInside(uint32_t alsoHold);
    void addHold() { mState.fetch_add(kHoldOne, std::memory_order_relaxed); }
    void subHold() { mState.fetch_sub(kHoldOne, std::memory_order_release); }

    static std::atomic<ShotGate*> sFirst;
    static thread_local Entry* sInnermost;

    std::atomic<uint32_t> mState{kClosed};
    std::atomic<void*> mKey{nullptr};
    std::atomic<Kind> mKind{nullptr};
    ShotGate* mNext = nullptr;  // written before the block is linked, then constant

    Mutex mDrainLock;
    Condition mDrained;
};

}  // namespace android
