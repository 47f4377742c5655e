// Continuous: a burst of up to nine frames, encoded in the background.
#pragma once

#include <binder/MemoryHeapBase.h>

#include <atomic>
#include <cstdint>
#include <optional>

#include "shots/ShotCallbacks.h"
#include "shots/continuous/BurstEncoder.h"
#include "shots/continuous/ShutterPlayer.h"

namespace android {

/// Takes preview frames about every 360 ms between a start and a stop, with a click and a frozen preview between them.
/// After the stop a thread of its own encodes them one by one and delivers each as an ordinary compressed picture.
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
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

    /// Begins a burst with clean counts and slots.
    void Start();
    /// Takes a frame into the next slot. False when the shot was retired meanwhile.
    [[nodiscard]] bool Capture(const sp<IMemory>& frame);
    /// Ends the capture and starts the encoder; before the first frame, once that is taken. False when the shot was
    /// retired meanwhile.
    [[nodiscard]] bool StopAndEncoding();
    /// Abandons the burst; takes effect also in the middle of the encoder's pauses.
    void Terminate();

    /// The quality that pictures are encoded with. `quality` stays as it is when the shot was retired meanwhile, and
    /// the result is false.
    [[nodiscard]] bool getJpegQuality(int* quality) const;

    /// The process's request to the encoder thread to end; cleared by the thread that obeys, and by the next burst.
    static std::atomic<bool> encoderKillFlag;

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

    static void* encodeCSPreview2Jpeg(void* start);
    static void runEncoder(const EncoderStart& start);
    static bool encodeNext(const EncoderStart& start, int encoded);
    Next nextFrame(uint32_t burst, const BurstEncoder& encoder, int encoded, Slot* slot);
    bool encode2ArcJpegData(const Slot& slot);
    bool deliver(const sp<IMemory>& picture);
    void releaseSlot(uint32_t burst, int index);
    void complete() REQUIRES(mBurstLock);

    bool handlePreview(const sp<IMemory>& frame);
    bool captureNext(const sp<IMemory>& frame, Turn turn);
    bool firstTaken(uint32_t burst);
    bool isCapturing() const REQUIRES(mBurstLock);
    bool take(const sp<IMemory>& frame) REQUIRES(mBurstLock);
    void freeze(const sp<IMemory>& frame) const REQUIRES(mBurstLock);
    void emptySlots() REQUIRES(mBurstLock);
    bool startEncoder(uint32_t burst);

    mutable Mutex mBurstLock;
    int mStatus GUARDED_BY(mBurstLock) = CSSHOT_STATE_IDLE;
    int mCSFrameCount GUARDED_BY(mBurstLock) = 0;
    int mCSEncodeCount GUARDED_BY(mBurstLock) = 0;
    Slot mCSFrameHeap[kBurstLimit] GUARDED_BY(mBurstLock);
    sp<BurstEncoder> mEncoder GUARDED_BY(mBurstLock);  // of the last burst that was encoded
    bool mEncoderRunning GUARDED_BY(mBurstLock) = false;
    nsecs_t mLastCaptureTime GUARDED_BY(mBurstLock) = 0;
    bool mFirstFrame GUARDED_BY(mBurstLock) = false;  // until the application was told of the first one
    bool mStopPending GUARDED_BY(mBurstLock) = false;
    uint32_t mBurst GUARDED_BY(mBurstLock) = 0;  // counts starts, and terminates but for those of an encoder

    std::atomic<bool> mSpecialSalesCode{false};  // as of the latest command
    std::optional<ShutterPlayer> mShutter;       // from construction to destruction; guards itself
};

}  // namespace android
