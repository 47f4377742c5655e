// Action: a moving subject, at several moments, in one picture.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <atomic>
#include <optional>

#include "imaging/ArcJpegEncoder.h"
#include "shots/ShotCallbacks.h"
#include "shots/action/ActionEngine.h"

namespace android {

/// 0xRRGGBB.
using ax_color = uint32_t;

/// Feeds the preview to the action-shot library, shows the application its own copy of each frame with the library's
/// guides, and delivers the composed picture as an ordinary compressed one.
///
/// Limits: the library gets frames of the preview's size at the making of the shot, with positive sides; frames that
/// are smaller are shown without it. What does not fit a third of the preview heap is passed on as it came.
///
/// Threads: frames arrive on the vendor layer's thread, commands on the service's; both use the library. `mEngineLock`
/// guards it and the state, and is given up for every message to the application. A series that was cancelled or begun
/// anew while its result was being made ends there (`Series` tells).
class ShotAction : public ShotCallbacks<ShotAction> {
public:
    static constexpr char kTag[] = "ShotAction";

    explicit ShotAction(sp<CameraHardwareInterface> hardware);
    ~ShotAction() override;

    sp<IMemoryHeap> getPreviewHeap() override;
    status_t startPreview() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

protected:
    /// What a step came back with, and its status, which means nothing when the shot is gone.
    struct Step {
        AfterCall after;
        int status = 0;
    };
    /// The step for each frame, on its copy in the own heap.
    Step HandlePreview(unsigned char* frame);

private:
    /// How often a series was begun or cancelled so far: counted when the command comes, so that long work learns of it
    /// at once, and again when it is carried out, so that work which began in between learns of it too.
    struct Series {
        uint32_t starts;
        uint32_t cancels;
    };

    void Init(int width, int height) REQUIRES(mEngineLock);
    void Free() REQUIRES(mEngineLock);

    void start();
    void StartCapture() REQUIRES(mEngineLock);
    void cancel();
    void stop();

    void processPreviewFrame(const sp<IMemory>& data);
    /// The frame's copy in the next place of the own heap, which is that frame's from then on; empty when it does not
    /// fit there.
    sp<MemoryBase> copyToRing(const RegionBytes& bytes);
    /// Carries out a stop that the application has asked for; else a status of 3.
    Step StatusManager();
    void DrawOnPreviewAcquisition(OPT_API_ASImage& image) REQUIRES(mEngineLock);
    static void DrawRectangle(OPT_API_ASImage& image, int left, int top, int right, int bottom, ax_color color);
    /// Tells the application of a frame that was handled.
    AfterCall reportAcquisition(const Series& series, bool accepted);

    /// Ends the series, makes the result and delivers it; does nothing when the series is another one by now. Status 0,
    /// or 1 when the result could not be made.
    Step StopCapture(bool byItself, const Series& series);
    Step createResult(const Series& series);
    /// `complete` tells whether the library has finished the image.
    AfterCall createSteps(const Series& series, bool* complete);
    /// Fills `encoding` when the image can be believed and is still there.
    AfterCall encode2ArcJpegData(const Series& series, std::optional<ArcJpegEncoding>* encoding);
    bool resultIsSound() const REQUIRES(mEngineLock);

    Series currentSeries() const { return {mStarts, mCancels}; }
    bool isCancelled(const Series& series) const { return series.cancels != mCancels; }
    bool isOver(const Series& series) const { return series.starts != mStarts || isCancelled(series); }

    // The process's: base of the preview heap, and the place in it that the next frame goes to.
    static std::atomic<uint8_t*> previewHeapBase;
    static std::atomic<int> previewRingIndex;

    std::atomic<bool> mCapturing{false};
    int mWidth GUARDED_BY(mEngineLock) = 0;
    int mHeight GUARDED_BY(mEngineLock) = 0;
    ActionEngine mActionShot GUARDED_BY(mEngineLock);
    bool mStopped GUARDED_BY(mEngineLock) = false;
    OPT_API_ASImage mResultImage GUARDED_BY(mEngineLock) = {};
    sp<MemoryBase> mPreviewMemory GUARDED_BY(mEngineLock);
    sp<MemoryHeapBase> mPreviewHeap GUARDED_BY(mEngineLock);
    int mActionState GUARDED_BY(mEngineLock) = 0;
    bool mUnfitTold GUARDED_BY(mEngineLock) = false;  // since the last start of the preview
    std::atomic<uint32_t> mStarts{0};
    std::atomic<uint32_t> mCancels{0};
    Mutex mEngineLock;
};

}  // namespace android
