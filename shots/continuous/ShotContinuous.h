// Continuous: a burst of up to nine frames, encoded in the background.
#pragma once

#include <binder/MemoryHeapBase.h>

#include <atomic>
#include <cstdint>

#include "shots/ShotCallbacks.h"
#include "shots/continuous/EncoderThread.h"
#include "shots/continuous/ShutterPlayer.h"

namespace android {

/// Takes preview frames about every 360 ms between a start and a stop, with a click and a frozen preview between them.
/// After the stop a thread of its own encodes them one by one and delivers each as an ordinary compressed picture.
///
/// Limits: the pictures are right for frames of 4:2:0, semi-planar with V first, and have the preview's size.
///
/// Threads: commands on the service's threads, frames on the vendor layer's, encoding on a thread for each burst. The
/// burst's state is guarded by `mBurstLock`, which is never held during a message to the application or a pause; who
/// comes back from one checks with `mBurst` that the burst is still the same. The encoder thread works on references of
/// its own to the frames, so that emptying a slot never takes one away from under it.
class ShotContinuous : public ShotCallbacks<ShotContinuous> {
public:
    static constexpr char kTag[] = "ShotContinuous";
    static constexpr int kBurstLimit = 9;

    enum Status { CSSHOT_STATE_IDLE = 0, CSSHOT_STATE_CAPTURING = 1, CSSHOT_STATE_ENCODING = 2 };

    explicit ShotContinuous(sp<CameraHardwareInterface> hardware);
    ~ShotContinuous() override;

    status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) override;

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

    /// Begins a burst with clean counts and slots.
    void Start();
    /// Takes a frame into the next slot.
    AfterCall Capture(const sp<IMemory>& frame);
    /// Ends the capture and starts the encoder; before the first frame, once that is taken.
    AfterCall StopAndEncoding();
    /// Abandons the burst. An encoder ends at its next look.
    void Terminate();

    /// The process's request to an encoder thread to end: the number of its burst, 0 for none. Cleared by the thread
    /// that obeys, and by the next burst.
    static std::atomic<uint32_t> encoderKillFlag;

private:
    struct EncoderStart;
    /// A frame of the burst.
    struct Slot {
        sp<MemoryHeapBase> heap;
        int32_t width = 0;  // of the frame
        int32_t height = 0;
    };
    /// What a preview frame was found worth taking for; several threads may find the same.
    struct Turn {
        uint32_t burst = 0;
        int taken = 0;  // frames before it
    };
    /// What the encoder does next.
    enum class Next { Encode, Exit, Complete };

    AfterCall startEncoder(uint32_t burst);
    void emptySlots() REQUIRES(mBurstLock);

    AfterCall handlePreview(const sp<IMemory>& data);
    AfterCall captureNext(const RegionBytes& frame, Turn turn);
    AfterCall captureDone(Turn turn, bool taken);
    bool isCapturing() const REQUIRES(mBurstLock);
    bool take(const RegionBytes& frame) REQUIRES(mBurstLock);
    void freeze(const RegionBytes& frame) const REQUIRES(mBurstLock);

    static void* encodeCSPreview2Jpeg(void* start);
    Next nextFrame(uint32_t burst, Slot* slot);
    AfterCall encode2ArcJpegData(const Slot& slot, uint32_t burst);
    AfterCall deliver(const sp<IMemory>& picture, uint32_t burst);
    void releaseSlot(uint32_t burst, int index);

    static std::atomic<uint32_t> sBursts;  // started so far in the process

    int mStatus GUARDED_BY(mBurstLock) = CSSHOT_STATE_IDLE;
    int mCSFrameCount GUARDED_BY(mBurstLock) = 0;
    int mCSEncodeCount GUARDED_BY(mBurstLock) = 0;
    Slot mCSFrameHeap[kBurstLimit] GUARDED_BY(mBurstLock);
    sp<EncoderThread> mEncoderThread GUARDED_BY(mBurstLock);  // of the last burst that was encoded
    bool mEncoderRunning GUARDED_BY(mBurstLock) = false;
    nsecs_t mLastCaptureTime GUARDED_BY(mBurstLock) = 0;
    bool mFirstFrame GUARDED_BY(mBurstLock) = false;  // until the application was told of the first one
    bool mStopPending GUARDED_BY(mBurstLock) = false;
    ShutterPlayer mShutter;  // guards itself

    uint32_t mBurst GUARDED_BY(mBurstLock) = 0;  // number of the present burst, or that is encoded; 0: none
    mutable Mutex mBurstLock;
};

}  // namespace android
