// Buffers on their way from the camera's thread to a pad's.
#pragma once

#include <kov/annotations.h>
#include <utils/threads.h>

#include <cstddef>
#include <deque>

#include "tools/gst/Pointers.h"

namespace kov::gst {

/// Bounded: nobody waits to put a buffer in, the oldest goes for it. One thread takes them out, and only while the
/// pipeline plays. Any thread for everything else.
class BufferQueue {
public:
    enum class Next { Buffer, End, Flushing };

    explicit BufferQueue(size_t most) : mMost(most) {}

    /// Empty and open. Until then it is flushing.
    void open();
    /// Drops everything, takes nothing more, and ends the wait of `pop`.
    void flush();
    /// Drops what waits.
    void clear();
    /// Takes nothing more; after what waits comes the end.
    void end();
    void setPlaying(bool playing);

    /// Whether a buffer would be taken now.
    bool isOpen() const;
    /// False when the oldest buffer had to go for this one.
    bool push(BufferPtr buffer);
    /// Waits for the next one.
    Next pop(BufferPtr* buffer);

private:
    const size_t mMost;
    mutable android::Mutex mLock;  // a leaf
    android::Condition mChanged;
    std::deque<BufferPtr> mBuffers GUARDED_BY(mLock);
    bool mPlaying GUARDED_BY(mLock) = false;
    bool mFlushing GUARDED_BY(mLock) = true;
    bool mEnded GUARDED_BY(mLock) = false;
};

}  // namespace kov::gst
