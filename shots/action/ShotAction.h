// Action: a moving subject, at several moments, in one picture.
#pragma once

#include <actionshot/actionshot.h>
#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <atomic>
#include <optional>

#include "shots/ShotCallbacks.h"

namespace android {

/// 0xRRGGBB.
using ax_color = uint32_t;

/// Feeds the preview to the action-shot library, shows the application its own copy of each frame with the library's
/// guides, and delivers the composed picture as an ordinary compressed one.
///
/// Threads: frames arrive on the vendor layer's thread, commands on the service's; both use the library. `mEngineLock`
/// guards it and the state, and is given up for every message to the application. A series that was cancelled or begun
/// anew while its result was being made ends there (`mSeries` tells).
class ShotAction : public ShotCallbacks<ShotAction> {
public:
    static constexpr char kTag[] = "ShotAction";
    static constexpr uint32_t kBlockSize = 460800;  // bytes: one 640 x 480 frame
    static constexpr int kTempBlocks = 15;

    explicit ShotAction(sp<CameraHardwareInterface> hardware);
    ~ShotAction() override;

    sp<IMemoryHeap> getPreviewHeap() override;
    status_t startPreview() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

    /// Sets the library up. Called once, by the constructor.
    void Init(int width, int height) REQUIRES(mEngineLock);
    void Free() REQUIRES(mEngineLock);
    bool createTempBuffer() REQUIRES(mEngineLock);
    bool releaseTempBuffer() REQUIRES(mEngineLock);
    void StartCapture() REQUIRES(mEngineLock);

    /// The step for each frame, on its copy in the shot's own heap. Nothing when the shot was retired meanwhile.
    [[nodiscard]] std::optional<int> HandlePreview(unsigned char* frame);

    static void DrawHorizontalLine(OPT_API_ASImage& image, int y, int x0, int x1, uint8_t Y, uint8_t C1, uint8_t C2);
    static void DrawVerticalLine(OPT_API_ASImage& image, int x, int y0, int y1, uint8_t Y, uint8_t C1, uint8_t C2);
    static void DrawRectangle(OPT_API_ASImage& image, int left, int top, int right, int bottom, ax_color color);

    Mutex& engineLock() RETURN_CAPABILITY(mEngineLock) { return mEngineLock; }

    /// Where memory comes from; a test puts its own in place to run short of it.
    struct Allocators {
        void* (*work)(size_t size);
        uint8_t* (*block)(size_t size);
    };
    static Allocators allocators;

    /// The process's: base of the preview heap, and the place in it that the next frame goes to.
    static std::atomic<uint8_t*> previewHeapBase;
    static std::atomic<int> previewRingIndex;

private:
    /// Carries out a stop that the application has asked for. Results as those of `HandlePreview`.
    [[nodiscard]] std::optional<int> StatusManager();
    /// Ends the series that `series` numbers, makes the result and delivers it; does nothing when it has been cancelled
    /// or begun anew meanwhile. 0, or 1 when the result could not be made; nothing when the shot was retired meanwhile.
    [[nodiscard]] std::optional<int> StopCapture(bool byItself, uint32_t series);
    bool handleFrame(OPT_API_ASImage& image, int* result) REQUIRES(mEngineLock);
    void DrawOnPreviewAcquisition(OPT_API_ASImage& image) REQUIRES(mEngineLock);
    [[nodiscard]] bool reportAcquisition(uint32_t series, bool accepted);
    void cancel();
    void allocateWorkMemory() REQUIRES(mEngineLock);
    void configure() REQUIRES(mEngineLock);
    std::optional<int> createResult(uint32_t series);
    std::optional<int> deliverResult(uint32_t series);
    bool resultIsSound() const REQUIRES(mEngineLock);
    /// The frame's copy in the next place of the own heap, which is that frame's from then on; empty when it does not
    /// fit there.
    sp<MemoryBase> copyToRing(const sp<IMemory>& frame) REQUIRES(mEngineLock);

    mutable Mutex mEngineLock;
    bool mCapturing GUARDED_BY(mEngineLock) = false;
    bool mSeriesStarted GUARDED_BY(mEngineLock) = false;
    bool mImageReady GUARDED_BY(mEngineLock) = false;
    int mHandleFrameResult GUARDED_BY(mEngineLock) = 0;
    unsigned mWorkBlockCount GUARDED_BY(mEngineLock) = 0;
    int mWidth GUARDED_BY(mEngineLock) = 0;
    int mHeight GUARDED_BY(mEngineLock) = 0;
    ActionShot_Handle mActionShot GUARDED_BY(mEngineLock) = nullptr;
    uint32_t mWorkMemSize GUARDED_BY(mEngineLock) = 0;
    uint8_t* mWorkMem GUARDED_BY(mEngineLock) = nullptr;
    uint8_t* mTempBuffer[kTempBlocks] GUARDED_BY(mEngineLock) = {};
    bool mTempBufferSet GUARDED_BY(mEngineLock) = false;
    int mProgress GUARDED_BY(mEngineLock) = 0;
    bool mStopped GUARDED_BY(mEngineLock) = false;
    bool mStarted GUARDED_BY(mEngineLock) = false;
    OPT_API_ASImage mResultImage GUARDED_BY(mEngineLock) = {};
    uint8_t* mPreviewCopy GUARDED_BY(mEngineLock) = nullptr;
    sp<MemoryBase> mPreviewMemory GUARDED_BY(mEngineLock);
    sp<MemoryHeapBase> mPreviewHeap GUARDED_BY(mEngineLock);
    int mActionState GUARDED_BY(mEngineLock) = 0;
    uint32_t mSeries GUARDED_BY(mEngineLock) = 0;  // counts starts and cancels
};

}  // namespace android
