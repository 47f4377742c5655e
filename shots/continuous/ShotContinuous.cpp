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
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"
#include "shots/continuous/ContinuousClock.h"

namespace android {

namespace {

constexpr int64_t kHoldFromMs = 320;  // a frame that comes now or later is held until kIntervalMs and taken
constexpr int64_t kIntervalMs = 360;
constexpr int64_t kStartDelayUs = 500000;  // before the first picture
constexpr int64_t kGapUs = 350000;         // after each picture

constexpr TaggedLog kLog(ShotContinuous::kTag);
constexpr ArcJpegUser kJpegUser = {3, kLog, ArcJpegUser::Lines::FirstAndLast};

/// The library's form of a callback in a log line.
unsigned asHex(const void* pointer) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

}  // namespace

std::atomic<bool> ShotContinuous::encoderKillFlag{false};

/// What an encoder thread is started with. The thread may outlive the shot: it looks at `shot` only from inside its
/// gate.
struct ShotContinuous::EncoderStart {
    ShotGate::Hold gate;
    ShotContinuous* shot;
    sp<BurstEncoder> encoder;
    uint32_t burst;
};

ShotContinuous::ShotContinuous(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotContinuous created: pid=%d", getpid());
    kLog.info("Preview width:%d, height:%d", mPreviewWidth.load(), mPreviewHeight.load());
    mShutter.emplace();
    encoderKillFlag = false;
}

ShotContinuous::~ShotContinuous() {
    kLog.info("ShotContinuous destroyed: pid=%d", getpid());
    const AutoMutex held(mBurstLock);
    if (mEncoderRunning) {
        kLog.error("Killing encoder thread");
        encoderKillFlag = true;
    }
    if (mEncoder.get())
        mEncoder->stop();
    mEncoderRunning = false;
    emptySlots();
    mShutter.reset();
}

status_t ShotContinuous::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    mSpecialSalesCode = ShutterPlayer::hasSpecialSalesCode();  // read before everything else
    return ShotCallbacks::sendCommand(cmd, arg1, arg2);
}

status_t ShotContinuous::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
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
                mShutter->turnOn(mSpecialSalesCode);
            else
                mShutter->turnOff();
            return NO_ERROR;
        default:
            return ShotCommon::sendCommand(cmd, arg1, arg2);
    }
}

// --- The burst

void ShotContinuous::Start() {
    const AutoMutex held(mBurstLock);
    if (mStatus != CSSHOT_STATE_IDLE) {
        kLog.error("Start() is called in wrong state[%d]", mStatus);
        return;
    }
    ++mBurst;  // an encoder that was killed and still runs now knows that nothing here is its own
    encoderKillFlag = false;
    mCSFrameCount = 0;
    mCSEncodeCount = 0;
    mStopPending = false;
    mFirstFrame = true;
    mStatus = CSSHOT_STATE_CAPTURING;
    emptySlots();
}

void ShotContinuous::Terminate() {
    const AutoMutex held(mBurstLock);
    kLog.info("Terminate() - mStatus [%d]", mStatus);
    if (mStatus == CSSHOT_STATE_ENCODING) {
        kLog.error("Terminate() - CSSHOT_STATE_ENCODING");
        encoderKillFlag = true;
        if (mEncoder.get())
            mEncoder->stop();
        mEncoderRunning = false;
    } else {
        ++mBurst;  // also for an encoder that was terminated before and still runs: it must not take this for its end
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

bool ShotContinuous::StopAndEncoding() {
    uint32_t burst = 0;
    int frames = 0;
    {
        const AutoMutex held(mBurstLock);
        if (mStatus != CSSHOT_STATE_CAPTURING) {
            kLog.error("StopAndEncoding() is called in wrong state[%d]", mStatus);
            return true;
        }
        if (mFirstFrame) {
            mStopPending = true;
            return true;
        }
        mStopPending = false;
        mStatus = CSSHOT_STATE_ENCODING;
        burst = mBurst;
        frames = mCSFrameCount;
    }
    return !gone(sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_STOPPED, frames, 0)) && startEncoder(burst);
}

bool ShotContinuous::startEncoder(uint32_t burst) {
    const AutoMutex held(mBurstLock);
    if (mStatus != CSSHOT_STATE_ENCODING || mBurst != burst)
        return true;  // terminated while the application was told
    const sp<BurstEncoder> encoder = new BurstEncoder(mEncoder);
    auto start = std::make_unique<EncoderStart>(EncoderStart{ShotGate::Hold(gate()), this, encoder, burst});
    pthread_t thread;
    if (pthread_create(&thread, nullptr, encodeCSPreview2Jpeg, start.get()) == 0) {
        pthread_detach(thread);
        (void)start.release();  // the thread's now
        mEncoder = encoder;
        mEncoderRunning = true;
        return true;
    }
    kLog.error("the encoder thread cannot be started; the burst is dropped");
    mStatus = CSSHOT_STATE_IDLE;
    mCSFrameCount = 0;
    emptySlots();
    return true;
}

// --- Capturing

void ShotContinuous::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!admitData(msgType, data))
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && !handlePreview(data))
        return;
    (void)sendData(msgType, data);
}

bool ShotContinuous::isCapturing() const {
    return mStatus == CSSHOT_STATE_CAPTURING && mCSFrameCount < kBurstLimit;
}

bool ShotContinuous::handlePreview(const sp<IMemory>& frame) {
    ContinuousClock& clock = ContinuousClock::get();
    Turn turn;
    int64_t elapsed = kIntervalMs;
    {
        const AutoMutex held(mBurstLock);
        if (!isCapturing())
            return true;
        turn = {mBurst, mCSFrameCount};
        if (turn.taken > 0)
            elapsed = (clock.now() - mLastCaptureTime) / 1000000;
        if (elapsed < kHoldFromMs) {
            freeze(frame);
            return true;
        }
    }
    if (elapsed < kIntervalMs && gone(callOut([&] { clock.sleepMicroseconds((kIntervalMs - elapsed) * 1000); })))
        return false;
    return captureNext(frame, turn);
}

/// Takes the frame with a click, unless the capture has ended meanwhile or another thread's frame had the same turn.
bool ShotContinuous::captureNext(const sp<IMemory>& frame, Turn turn) {
    {
        const AutoMutex held(mBurstLock);
        if (!isCapturing() || mBurst != turn.burst)
            return true;
        if (mCSFrameCount != turn.taken) {
            freeze(frame);
            return true;
        }
        mShutter->play();
        mLastCaptureTime = ContinuousClock::get().now();
        if (!take(frame))
            return true;
    }
    if (gone(sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_FRAME_TAKEN, turn.taken + 1, kBurstLimit)))
        return false;
    return turn.taken > 0 || firstTaken(turn.burst);
}

/// Carries out a stop that came before the first frame, now that the application knows of that frame.
bool ShotContinuous::firstTaken(uint32_t burst) {
    {
        const AutoMutex held(mBurstLock);
        if (burst != mBurst)
            return true;
        mFirstFrame = false;
        if (!mStopPending)
            return true;
    }
    return StopAndEncoding();
}

bool ShotContinuous::Capture(const sp<IMemory>& frame) {
    bool taken = false;
    int frames = 0;
    {
        const AutoMutex held(mBurstLock);
        taken = take(frame);
        frames = mCSFrameCount;
    }
    return !taken || !gone(sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_FRAME_TAKEN, frames, kBurstLimit));
}

/// Copies the frame into the next slot.
bool ShotContinuous::take(const sp<IMemory>& frame) {
    kLog.info("Capture() - start - Frame count : %d", mCSFrameCount);
    if (!frame.get() || !frame->pointer()) {
        kLog.error("Capture() - preview frame is NULL");
        return false;
    }
    const size_t size = frame->size();
    kLog.info("Capture() - size : %d", static_cast<int>(size));
    if (mCSFrameCount >= kBurstLimit) {
        kLog.info("HandleCSFrame: mCSFrameCount >= %d", kBurstLimit);
        return false;
    }
    Slot slot = {new MemoryHeapBase(size, 0, nullptr), mPreviewWidth, mPreviewHeight};
    if (slot.heap->getSize() < size) {
        kLog.error("Capture() - no memory for the frame");
        return false;
    }
    std::memcpy(slot.heap->base(), frame->pointer(), size);
    mCSFrameHeap[mCSFrameCount++] = slot;
    return true;
}

/// Shows the frame taken last in place of the current one, as far as both reach.
void ShotContinuous::freeze(const sp<IMemory>& frame) const {
    const sp<MemoryHeapBase> last = mCSFrameCount > 0 ? mCSFrameHeap[mCSFrameCount - 1].heap : nullptr;
    if (last.get() && frame->pointer())
        std::memcpy(frame->pointer(), last->base(), std::min(last->getSize(), frame->size()));
}

// --- Encoding, on the burst's own thread

void* ShotContinuous::encodeCSPreview2Jpeg(void* argument) {
    kLog.error("encodeCSPreview2Jpeg() - start");
    const std::unique_ptr<EncoderStart> start(static_cast<EncoderStart*>(argument));
    if (!start) {
        kLog.error("encodeCSPreview2Jpeg : csInstance == NULL \n");
        return nullptr;
    }
    start->encoder->begin();
    runEncoder(*start);
    start->encoder->end();
    return nullptr;
}

void ShotContinuous::runEncoder(const EncoderStart& start) {
    start.encoder->pause(kStartDelayUs);
    for (int encoded = 0; encodeNext(start, encoded); ++encoded)
        start.encoder->pause(kGapUs);
}

/// Encodes and delivers one frame; false at the end of the burst, of its encoder or of the shot.
bool ShotContinuous::encodeNext(const EncoderStart& start, int encoded) {
    const ShotGate::Entry inside(start.gate);
    if (!inside) {
        encoderKillFlag = false;
        kLog.error("encodeCSPreview2Jpeg() -exit: %d\n", encoded);
        return false;
    }
    Slot slot;
    const Next next = start.shot->nextFrame(start.burst, *start.encoder, encoded, &slot);
    if (next == Next::Complete)
        (void)start.shot->sendNotifyIfSet(CAMERA_MSG_CONTINUOUS_DELIVERED, 0, 0);
    if (next != Next::Encode)
        return false;
    const clock_t begin = std::clock();
    const bool alive = !slot.heap.get() || start.shot->encode2ArcJpegData(slot);
    const float seconds = static_cast<float>(std::clock() - begin) / 1000000.0F;
    kLog.info("encodeCSPreview2Jpeg() - Codec time(%d) : %.8f\n", encoded, static_cast<double>(seconds));
    slot = {};
    if (alive)  // else the next look at the gate ends the thread
        start.shot->releaseSlot(start.burst, encoded);
    return true;
}

/// Fetches the next frame, with a reference of its own, or ends the burst. `encoded`: frames of `burst` so far.
ShotContinuous::Next ShotContinuous::nextFrame(uint32_t burst, const BurstEncoder& encoder, int encoded, Slot* slot) {
    const AutoMutex held(mBurstLock);
    const bool own = burst == mBurst;
    if (own && mCSEncodeCount >= mCSFrameCount) {
        complete();
        return Next::Complete;
    }
    kLog.info("encodeCSPreview2Jpeg() - mCSEncodeCount : [%d]  pthread_self[%d]\n", encoded,
              static_cast<int>(pthread_self()));
    if (!own || encoder.stopped()) {
        if (own)
            encoderKillFlag = false;
        kLog.error("encodeCSPreview2Jpeg() -exit: %d\n", encoded);
        return Next::Exit;
    }
    *slot = mCSFrameHeap[mCSEncodeCount];
    return Next::Encode;
}

bool ShotContinuous::getJpegQuality(int* quality) const {
    const sp<CameraHardwareInterface> hardware = mHardware;
    *quality = kArcJpegQualityWithoutHardware;
    if (!hardware.get())
        return true;
    int parameter = 0;
    const bool alive =
        !gone(callOut([&] { parameter = hardware->getParameters().getInt(CameraParameters::KEY_JPEG_QUALITY); }));
    *quality = arcJpegQuality(parameter);
    return alive;
}

/// Encodes and delivers one frame. False when the shot was retired meanwhile.
bool ShotContinuous::encode2ArcJpegData(const Slot& slot) {
    int quality = 0;
    if (!getJpegQuality(&quality))
        return false;
    if (slot.width <= 0 || slot.height <= 0 || slot.heap->getSize() < yuv420FrameSize(slot.width, slot.height)) {
        kLog.error("encode2ArcJpegData() - the frame is smaller than %d x %d", slot.width, slot.height);
        return true;
    }
    const ArcJpegFrame frame = {static_cast<uint8_t*>(slot.heap->base()), slot.width, slot.height,
                                ARC_FORMAT_YUV420_SEMIPLANAR};
    ArcJpegEncoding encoding(kJpegUser, frame, quality);
    bool alive = true;
    if (encoding.picture().get())
        alive = deliver(encoding.picture());
    encoding.end();
    return alive;
}

bool ShotContinuous::deliver(const sp<IMemory>& picture) {
    const auto to = mCallbacks.data();
    if (to.callback && to.cookie)
        return !gone(sendData(CAMERA_MSG_COMPRESSED_IMAGE, picture));
    kLog.error("encode2ArcJpegData() - mDataCb[0x%X] or mCallbackCookie[0x%X] is null",
               asHex(reinterpret_cast<const void*>(to.callback)), asHex(to.cookie));
    return true;
}

void ShotContinuous::releaseSlot(uint32_t burst, int index) {
    const AutoMutex held(mBurstLock);
    if (burst != mBurst)
        return;
    mCSFrameHeap[index] = {};
    mCSEncodeCount = index + 1;
    kLog.info("encodeCSPreview2Jpeg - start sleep : EC FC[%d %d]\n", mCSEncodeCount, mCSFrameCount);
}

void ShotContinuous::complete() {
    mCSFrameCount = 0;
    mCSEncodeCount = 0;
    kLog.error("encodeCSPreview2Jpeg - Completed jpegEncodePreview\n");
    mEncoderRunning = false;
    mStatus = CSSHOT_STATE_IDLE;
}

ShotCommon* makeShotContinuous(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotContinuous>(hardware);
}

}  // namespace android
