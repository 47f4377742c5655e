// Buffers on their way from the camera's thread to a pad's.

#include "tools/gst/BufferQueue.h"

#include <utility>

namespace kov::gst {

using android::AutoMutex;

void BufferQueue::open() {
    const AutoMutex held(mLock);
    mBuffers.clear();
    mFlushing = mEnded = false;
}

void BufferQueue::flush() {
    const AutoMutex held(mLock);
    mBuffers.clear();
    mFlushing = true;
    mChanged.broadcast();
}

void BufferQueue::clear() {
    const AutoMutex held(mLock);
    mBuffers.clear();
}

void BufferQueue::end() {
    const AutoMutex held(mLock);
    mEnded = true;
    mChanged.broadcast();
}

void BufferQueue::setPlaying(bool playing) {
    const AutoMutex held(mLock);
    mPlaying = playing;
    mChanged.broadcast();
}

bool BufferQueue::isOpen() const {
    const AutoMutex held(mLock);
    return !mFlushing && !mEnded;
}

bool BufferQueue::push(BufferPtr buffer) {
    const AutoMutex held(mLock);
    if (mFlushing || mEnded)
        return true;
    mBuffers.push_back(std::move(buffer));
    mChanged.broadcast();
    if (mBuffers.size() <= mMost)
        return true;
    mBuffers.pop_front();
    return false;
}

BufferQueue::Next BufferQueue::pop(BufferPtr* buffer) {
    const AutoMutex held(mLock);
    // An end comes through in a pause too.
    while (!mFlushing && !(mPlaying && !mBuffers.empty()) && !(mEnded && (!mPlaying || mBuffers.empty())))
        mChanged.wait(mLock);
    if (mFlushing)
        return Next::Flushing;
    if (!mPlaying || mBuffers.empty())
        return Next::End;
    *buffer = std::move(mBuffers.front());
    mBuffers.pop_front();
    return Next::Buffer;
}

}  // namespace kov::gst
