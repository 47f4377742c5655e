// Continuous: a burst of up to nine frames, encoded in the background.

#include "shots/continuous/ShotContinuous.h"

#include <arccamera/jpeg.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "imaging/ArcJpegEncoder.h"
#include "imaging/System.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"

namespace android {

namespace {

constexpr int64_t kHoldFromMs = 320;  // a frame that comes now or later is held until kIntervalMs and taken
constexpr int64_t kIntervalMs = 360;
constexpr int64_t kStartDelayUs = 500000;  // before the first picture
constexpr int64_t kGapUs = 350000;         // after each picture

constexpr TaggedLog kLog(ShotContinuous::kTag);
constexpr ArcJpegUser kJpegUser = {3, kLog, ArcJpegUser::Lines::FirstAndLast};

nsecs_t now() {
    return os::now(SYSTEM_TIME_MONOTONIC);
}

/// The library's form of a callback in a log line.
unsigned asHex(const void* pointer) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

}  // namespace

std::atomic<uint32_t> ShotContinuous::encoderKillFlag{0};
std::atomic<uint32_t> ShotContinuous::sBursts{0};

/// What an encoder thread is started with. The thread may outlive the shot: it looks at `shot` only from inside its
/// gate.
struct ShotContinuous::EncoderStart {
    ShotGate::Hold gate;
    ShotContinuous* shot;
    uint32_t burst;
    sp<EncoderThread> before;  // of the burst before; empty when there was none
    sp<EncoderThread> thread;
};

ShotContinuous::ShotContinuous(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotContinuous created: pid=%d", getpid());
    kLog.info("Preview width:%d, height:%d", mPreviewWidth.load(), mPreviewHeight.load());
    mShutter.begin();
    encoderKillFlag = 0;
}

ShotContinuous::~ShotContinuous() {
    kLog.info("ShotContinuous destroyed: pid=%d", getpid());
    const AutoMutex held(mBurstLock);
    if (mEncoderRunning) {
        kLog.error("Killing encoder thread");
        encoderKillFlag = mBurst;
    }
    mEncoderRunning = false;
    emptySlots();
    mShutter.turnOff();
}

status_t ShotContinuous::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    const bool special = ShutterPlayer::hasSpecialSalesCode();  // read before everything else
    if (!hardwareOrLog().get())
        return INVALID_OPERATION;
    kLog.info("ShotContinuous::sendCommand %d, %d, %d", cmd, arg1, arg2);
    switch (cmd) {
        case CONTINUOUS_SHOT_START_CAPTURE:
            kLog.info("CONTINUOUS_SHOT_START_CAPTURE");
            Start();
            return NO_ERROR;
        case CONTINUOUS_SHOT_STOP_CAPTURE:
            kLog.info("CONTINUOUS_SHOT_STOP_CAPTURE");
            (void)StopAndEncoding();
            return NO_ERROR;
        case CONTINUOUS_SHOT_TERMINATE:
            kLog.info("CONTINUOUS_SHOT_TERMINATE");
            Terminate();
            return NO_ERROR;
        case CONTINUOUS_SHOT_SOUND:
            kLog.info("CONTINUOUS_SHOT_SOUND %d", arg1);
            if (arg1 > 0)
                mShutter.turnOn(special);
            else
                mShutter.turnOff();
            return NO_ERROR;
        default:
            return ShotCallbacks::processCommand(cmd, arg1, arg2);
    }
}

// --- The burst

void ShotContinuous::Start() {
    const AutoMutex held(mBurstLock);
    if (mStatus != CSSHOT_STATE_IDLE) {
        kLog.error("Start() is called in wrong state[%d]", mStatus);
        return;
    }
    mBurst = ++sBursts;  // an encoder that was killed and still runs now knows that nothing here is its own
    encoderKillFlag = 0;
    mCSFrameCount = 0;
    mCSEncodeCount = 0;
    mStopPending = false;
    mFirstFrame = true;
    mStatus = CSSHOT_STATE_CAPTURING;
    emptySlots();
}

AfterCall ShotContinuous::StopAndEncoding() {
    uint32_t burst;
    int frames;
    {
        const AutoMutex held(mBurstLock);
        if (mStatus != CSSHOT_STATE_CAPTURING) {
            kLog.error("StopAndEncoding() is called in wrong state[%d]", mStatus);
            return AfterCall::GoOn;
        }
        if (mFirstFrame) {
            mStopPending = true;
            return AfterCall::GoOn;
        }
        mStopPending = false;
        mStatus = CSSHOT_STATE_ENCODING;
        burst = mBurst;
        frames = mCSFrameCount;
    }
    if (gone(sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_STOPPED, frames, 0)))
        return AfterCall::ShotGone;
    return startEncoder(burst);
}

/// Starts the burst's thread. When there is none, the burst is dropped, and the application told that no picture comes.
AfterCall ShotContinuous::startEncoder(uint32_t burst) {
    {
        const AutoMutex held(mBurstLock);
        if (mStatus != CSSHOT_STATE_ENCODING || mBurst != burst)
            return AfterCall::GoOn;  // terminated while the application was told
        const sp<EncoderThread> thread = new EncoderThread;
        std::unique_ptr<EncoderStart> start(
            new EncoderStart{ShotGate::Hold(gate()), this, burst, mEncoderThread, thread});
        if (os::startThread(encodeCSPreview2Jpeg, start.get())) {
            (void)start.release();  // the thread's now
            mEncoderThread = thread;
            mEncoderRunning = true;
            return AfterCall::GoOn;
        }
        kLog.error("the encoder thread cannot be started; the burst is dropped");
        mStatus = CSSHOT_STATE_IDLE;
        mCSFrameCount = 0;
        emptySlots();
    }
    return sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_DELIVERED, 0, 0);
}

void ShotContinuous::Terminate() {
    const AutoMutex held(mBurstLock);
    kLog.info("Terminate() - mStatus [%d]", mStatus);
    if (mStatus == CSSHOT_STATE_ENCODING) {
        kLog.error("Terminate() - CSSHOT_STATE_ENCODING");
        encoderKillFlag = mBurst;
        mEncoderRunning = false;
    } else {
        mBurst = 0;  // also for an encoder that was terminated before and still runs: it must not take this for its end
        emptySlots();
        mCSFrameCount = 0;
        mCSEncodeCount = 0;
    }
    mStatus = CSSHOT_STATE_IDLE;
    mStopPending = false;
    mFirstFrame = false;
}

void ShotContinuous::emptySlots() {
    for (Slot& slot : mCSFrameHeap)
        slot = {};
}

// --- Capturing

void ShotContinuous::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!admitData(msgType, data))
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && gone(handlePreview(data)))
        return;
    (void)sendData(msgType, data);
}

bool ShotContinuous::isCapturing() const {
    return mStatus == CSSHOT_STATE_CAPTURING && mCSFrameCount < kBurstLimit;
}

AfterCall ShotContinuous::handlePreview(const sp<IMemory>& data) {
    RegionBytes frame;
    Turn turn;
    int64_t elapsed = kIntervalMs;
    {
        const AutoMutex held(mBurstLock);
        if (!isCapturing())
            return AfterCall::GoOn;
        frame = previewBytesOf(data);
        if (!frame)
            return AfterCall::GoOn;
        turn = {mBurst, mCSFrameCount};
        if (!mFirstFrame || turn.taken > 0)
            elapsed = (now() - mLastCaptureTime) / 1000000;
        if (elapsed < kHoldFromMs) {
            freeze(frame);
            return AfterCall::GoOn;
        }
    }
    if (elapsed < kIntervalMs && gone(callOut([=] { os::sleepMicroseconds((kIntervalMs - elapsed) * 1000); })))
        return AfterCall::ShotGone;
    return captureNext(frame, turn);
}

/// Takes the frame with a click, unless the capture has ended meanwhile or another thread's frame had the same turn.
AfterCall ShotContinuous::captureNext(const RegionBytes& frame, Turn turn) {
    bool taken;
    {
        const AutoMutex held(mBurstLock);
        if (!isCapturing() || mBurst != turn.burst)
            return AfterCall::GoOn;
        if (mCSFrameCount != turn.taken) {
            freeze(frame);
            return AfterCall::GoOn;
        }
        mShutter.play();
        mLastCaptureTime = now();
        taken = take(frame);
    }
    return captureDone(turn, taken);
}

AfterCall ShotContinuous::Capture(const sp<IMemory>& frame) {
    Turn turn;
    bool taken;
    {
        const AutoMutex held(mBurstLock);
        turn = {mBurst, mCSFrameCount};
        taken = take(regionBytesOf(frame));
    }
    return captureDone(turn, taken);
}

/// Tells the application of the frame, if it was taken, and carries out a stop that came before the first one.
AfterCall ShotContinuous::captureDone(Turn turn, bool taken) {
    if (taken && gone(sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_FRAME_TAKEN, turn.taken + 1, kBurstLimit)))
        return AfterCall::ShotGone;
    {
        const AutoMutex held(mBurstLock);
        if (turn.burst != mBurst)
            return AfterCall::GoOn;
        mFirstFrame = false;
        if (!mStopPending)
            return AfterCall::GoOn;
    }
    return StopAndEncoding();
}

/// Copies the frame into the next slot.
bool ShotContinuous::take(const RegionBytes& frame) {
    kLog.info("Capture() - start - Frame count : %d", mCSFrameCount);
    if (!frame) {
        kLog.error("Capture() - preview frame is NULL");
        return false;
    }
    kLog.info("Capture() - size : %d", static_cast<int>(frame.size));
    if (mCSFrameCount >= kBurstLimit) {
        kLog.info("HandleCSFrame: mCSFrameCount >= %d", kBurstLimit);
        return false;
    }
    const Slot slot = {os::newHeap(frame.size), mPreviewWidth, mPreviewHeight};
    if (!slot.heap.get()) {
        kLog.error("Capture() - no memory for the frame");
        return false;
    }
    std::memcpy(slot.heap->base(), frame.data, frame.size);
    mCSFrameHeap[mCSFrameCount++] = slot;
    return true;
}

/// Shows the frame taken last in place of the current one, as far as both reach.
void ShotContinuous::freeze(const RegionBytes& frame) const {
    const sp<MemoryHeapBase> last = mCSFrameCount > 0 ? mCSFrameHeap[mCSFrameCount - 1].heap : nullptr;
    if (last.get())
        std::memcpy(frame.data, last->base(), std::min(last->getSize(), frame.size));
}

// --- Encoding, on the burst's own thread

void* ShotContinuous::encodeCSPreview2Jpeg(void* argument) {
    kLog.error("encodeCSPreview2Jpeg() - start");
    const std::unique_ptr<EncoderStart> start(static_cast<EncoderStart*>(argument));
    if (!start) {
        kLog.error("encodeCSPreview2Jpeg : csInstance == NULL \n");
        return nullptr;
    }
    os::sleepMicroseconds(kStartDelayUs);
    if (start->before.get())
        start->before->waitUntilEnded();
    start->before.clear();
    for (int encoded = 0;; ++encoded) {
        {
            const ShotGate::Entry inside(start->gate);
            Slot slot;
            const Next next = inside ? start->shot->nextFrame(start->burst, &slot) : Next::Exit;
            if (next == Next::Complete) {
                (void)start->shot->sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_DELIVERED, 0, 0);
                break;
            }
            kLog.info("encodeCSPreview2Jpeg() - mCSEncodeCount : [%d]  pthread_self[%d]\n", encoded,
                      static_cast<int>(pthread_self()));
            if (next == Next::Exit) {
                kLog.error("encodeCSPreview2Jpeg() -exit: %d\n", encoded);
                encoderKillFlag.compare_exchange_strong(start->burst, 0);
                break;
            }
            const clock_t begin = std::clock();
            const AfterCall after = start->shot->encode2ArcJpegData(slot, start->burst);
            const float seconds = static_cast<float>(std::clock() - begin) / 1000000.0F;
            kLog.info("encodeCSPreview2Jpeg() - Codec time(%d) : %.8f\n", encoded, static_cast<double>(seconds));
            slot = {};
            if (!gone(after))  // else the next look at the gate ends the thread
                start->shot->releaseSlot(start->burst, encoded);
        }
        os::sleepMicroseconds(kGapUs);
    }
    start->thread->end();
    return nullptr;
}

/// Looks for the next frame of `burst` and fetches it, with a reference of its own, or ends the burst.
ShotContinuous::Next ShotContinuous::nextFrame(uint32_t burst, Slot* slot) {
    const AutoMutex held(mBurstLock);
    if (burst != mBurst)
        return Next::Exit;
    if (mCSEncodeCount >= mCSFrameCount) {
        mCSFrameCount = 0;
        mCSEncodeCount = 0;
        kLog.error("encodeCSPreview2Jpeg - Completed jpegEncodePreview\n");
        mEncoderRunning = false;
        mStatus = CSSHOT_STATE_IDLE;
        return Next::Complete;
    }
    if (encoderKillFlag == burst)
        return Next::Exit;
    *slot = mCSFrameHeap[mCSEncodeCount];
    return Next::Encode;
}

/// Encodes and delivers one frame.
AfterCall ShotContinuous::encode2ArcJpegData(const Slot& slot, uint32_t burst) {
    const std::optional<int32_t> quality = readArcJpegQuality();
    if (!quality)
        return AfterCall::ShotGone;
    const uint64_t needed = yuv420FrameSize(slot.width, slot.height);
    if (needed == 0 || slot.heap->getSize() < needed) {
        kLog.error("encode2ArcJpegData() - the frame is smaller than %d x %d", slot.width, slot.height);
        return AfterCall::GoOn;
    }
    const ArcJpegFrame frame = {static_cast<uint8_t*>(slot.heap->base()), slot.width, slot.height,
                                ARC_FORMAT_YUV420_SEMIPLANAR};
    ArcJpegEncoding encoding(kJpegUser, frame, quality);
    const bool succeeded = encoding.succeeded();
    AfterCall after = AfterCall::GoOn;
    if (encoding.picture().get())
        after = deliver(encoding.picture(), burst);
    encoding.end();
    if (!succeeded)
        kLog.error("encode2ArcJpegData() - a frame of the burst gave no picture");
    return after;
}

/// Sends the picture, unless another burst has begun since its own was abandoned.
AfterCall ShotContinuous::deliver(const sp<IMemory>& picture, uint32_t burst) {
    {
        const AutoMutex held(mBurstLock);
        if (burst != mBurst)
            return AfterCall::GoOn;
    }
    const auto to = mCallbacks.data();
    if (to.callback && to.cookie)
        return sendData(CAMERA_MSG_COMPRESSED_IMAGE, picture);
    kLog.error("encode2ArcJpegData() - mDataCb[0x%X] or mCallbackCookie[0x%X] is null",
               asHex(reinterpret_cast<const void*>(to.callback)), asHex(to.cookie));
    return passGate();
}

void ShotContinuous::releaseSlot(uint32_t burst, int index) {
    const AutoMutex held(mBurstLock);
    if (burst != mBurst)
        return;
    mCSFrameHeap[index] = {};
    mCSEncodeCount = index + 1;
    kLog.info("encodeCSPreview2Jpeg - start sleep : EC FC[%d %d]\n", mCSEncodeCount, mCSFrameCount);
}

ShotCommon* makeShotContinuous(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotContinuous>(hardware);
}

}  // namespace android
