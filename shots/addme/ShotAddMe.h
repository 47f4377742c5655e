// Add-me: two pictures of a scene become one with both people in it.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <vector>

#include "shots/ShotCallbacks.h"
#include "shots/addme/PlusMeInstance.h"

namespace android {

/// Hands the preview and two compressed pictures to the add-me library and delivers its merged picture in place of the
/// second one. Taking a picture is the vendor layer's ordinary operation.
///
/// Limits: pictures and previews of the sizes at the making of the shot, with positive sides; a frame that is smaller
/// is shown without the library.
///
/// Threads: frames and pictures arrive on the vendor layer's threads, commands on the service's; all of them use the
/// library. `mEngineLock` is held for each call of the library and given up for each message to the application.
/// `mMemoryLock` guards the shared memory, from the copy of a frame to its way through the library, so that no other
/// frame is copied over it. It may be taken while `mEngineLock` is held; a frame, which holds it, only tries
/// `mEngineLock` and does without the library when that is busy. `mNoteLock` is a leaf.
class ShotAddMe : public ShotCallbacks<ShotAddMe> {
public:
    static constexpr char kTag[] = "ShotAddMe";

    explicit ShotAddMe(sp<CameraHardwareInterface> hardware);
    ~ShotAddMe() override;

    /// The two slots of preview frames; empty before the first `startPreview` or frame.
    sp<IMemoryHeap> getPreviewHeap() override;
    status_t startPreview() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& mem);

private:
    /// What a step came back with, and its status, which means nothing when the shot is gone.
    struct Step {
        AfterCall after;
        int status = 0;
    };
    /// A command that came during a merge.
    struct Noted {
        int32_t cmd;
        int32_t arg1;
    };

    /// Makes and sets up a new library instance; an older one is freed first.
    void Init() REQUIRES(mEngineLock);
    void FreeCoreMemory() REQUIRES(mEngineLock);
    /// Starts a series of two pictures. It calls the application: the last thing that its caller does with the shot.
    void StartCapture();
    void CancelCapture() REQUIRES(mEngineLock);
    /// 1 puts the first picture's person in front, 0 the second's, anything else the one that is not.
    void SwitchFirstPersonPosition(int position) REQUIRES(mEngineLock);

    /// Carries a cancel or a change of position out, now or, when a merge is under way, after its current step.
    void performOrNote(const Noted& command);
    void perform(const Noted& command) REQUIRES(mEngineLock);
    void performNoted() REQUIRES(mEngineLock);

    void processPreviewFrame(const sp<IMemory>& mem);
    sp<IMemory> copyToSlot(const RegionBytes& frame) REQUIRES(mMemoryLock);
    bool makeSlots(size_t frameSize) REQUIRES(mMemoryLock);
    void feed(const sp<IMemory>& slot) REQUIRES(mMemoryLock);
    /// Shows the library one frame of the preview size.
    void HandlePreview(const PreviewFrame& frame) REQUIRES(mEngineLock);

    void processPicture(const sp<IMemory>& mem);
    /// Hands the library a picture, and after the second makes the result. The status is 13 then, 12 after the first,
    /// else 0 or the library's. `series` tells which one the picture belongs to.
    Step AddFrameJpeg(void* data, unsigned long size, PME_API_Image* image, uint32_t* series);
    AfterCall createResult(uint32_t series);
    bool createStep(uint32_t series, int32_t step) REQUIRES(mEngineLock);
    void endMerge() REQUIRES(mEngineLock);
    sp<IMemory> copyResult(uint32_t series);
    /// The merged JPEG, the library's, and its length; null, with a line, when there is none.
    void* GetPlusMeImage(long* size, bool ready) REQUIRES(mEngineLock);

    // The slot of the latest frame and the start of the slots. Process-wide, touched by one shot at a time: by its
    // constructor and destructor, and else under its mMemoryLock.
    static unsigned nPreviewBufIndex;
    static unsigned char* pPreviewHeapBase;

    bool mCapturing GUARDED_BY(mEngineLock) = false;
    bool mResultReady GUARDED_BY(mEngineLock) = false;
    int32_t mProgress GUARDED_BY(mEngineLock) = 0;  // percent, written by the library
    PlusMeInstance mInstance GUARDED_BY(mEngineLock);
    int32_t mSnapshotCount GUARDED_BY(mEngineLock) = 0;  // 2 while a merge is under way
    sp<MemoryHeapBase> mResultHeap GUARDED_BY(mMemoryLock);
    sp<MemoryBase> mCallbackMemory GUARDED_BY(mMemoryLock);  // handed out last; stays alive after the callback returns
    sp<MemoryHeapBase> mPreviewHeap GUARDED_BY(mMemoryLock);

    uint32_t mSeries GUARDED_BY(mEngineLock) = 0;     // counts freed instances and started series
    size_t mRefusedSize GUARDED_BY(mMemoryLock) = 0;  // of slots that could not be had, told once
    int mMerges GUARDED_BY(mNoteLock) = 0;            // under way
    std::vector<Noted> mNoted GUARDED_BY(mNoteLock);
    Mutex mEngineLock;
    Mutex mMemoryLock;
    Mutex mNoteLock;
};

}  // namespace android
