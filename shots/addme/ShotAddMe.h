// Add-me: two pictures of a scene become one with both people in it.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <plusme/plusme.h>

#include <optional>

#include "shots/ShotCallbacks.h"

namespace android {

/// Hands the preview and two compressed pictures to the add-me library and delivers its merged picture in place of the
/// second one. Taking a picture is the vendor layer's ordinary operation.
///
/// Threads: frames and pictures arrive on the vendor layer's threads, commands on the service's; all of them use the
/// library. `mEngineLock` is held for each call of the library and given up for each message to the application.
/// `mGeneration` tells a merge under way that its series is over: its instance was freed, or another series was
/// started. `mMemoryLock` guards the shared memory; it may be taken while `mEngineLock` is held, never the other way
/// round.
class ShotAddMe : public ShotCallbacks<ShotAddMe> {
public:
    static constexpr char kTag[] = "ShotAddMe";

    explicit ShotAddMe(sp<CameraHardwareInterface> hardware);
    ~ShotAddMe() override;

    /// The two slots of preview frames; empty before the first `startPreview`.
    sp<IMemoryHeap> getPreviewHeap() override;
    status_t startPreview() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& mem);

    /// Makes and sets up a new library instance; an older one is freed first. False when that failed.
    bool Init();
    void FreeCoreMemory();
    /// Starts a series of two pictures. False when that failed, also when the shot was retired meanwhile: it is the
    /// last thing that its caller does with the shot.
    bool StartCapture();
    void CancelCapture();
    /// 1 puts the first picture's person in front, 0 the second's, anything else the one that is not.
    void SwitchFirstPersonPosition(int position);

    /// Shows the library one frame of the preview size.
    bool HandlePreview(unsigned char* frame);
    /// Hands the library a picture, and after the second makes the result: 13 then, 12 after the first, else 0 or the
    /// library's status. Nothing when the shot was retired meanwhile: return at once then.
    [[nodiscard]] std::optional<int> AddFrameJpeg(void* data, unsigned long size, PME_API_Image* image);
    /// The merged JPEG, the library's, and its length; null when there is none. Valid until the library is used again.
    void* GetPlusMeImage(long* size);

private:
    bool initLocked() REQUIRES(mEngineLock);
    bool openInstance() REQUIRES(mEngineLock);
    bool setUpInstance() REQUIRES(mEngineLock);
    bool giveTempBuffer() REQUIRES(mEngineLock);
    void freeLocked() REQUIRES(mEngineLock);
    bool handlePreviewLocked(unsigned char* frame) REQUIRES(mEngineLock);
    void* plusMeImageLocked(long* size) REQUIRES(mEngineLock);

    void processPreviewFrame(const sp<IMemory>& mem);
    void processPicture(const sp<IMemory>& mem);
    sp<IMemory> copyToSlot(const sp<IMemory>& mem);
    void feed(const sp<IMemory>& slot) REQUIRES(mEngineLock);
    [[nodiscard]] bool createResult(uint32_t generation);
    sp<IMemory> copyResult();

    // The slot of the latest frame and the start of the slots. Process-wide, touched by one shot at a time: by its
    // constructor and destructor, and else under its mMemoryLock.
    static unsigned nPreviewBufIndex;
    static unsigned char* pPreviewHeapBase;

    Mutex mEngineLock;
    bool mCapturing GUARDED_BY(mEngineLock) = false;
    bool mResultReady GUARDED_BY(mEngineLock) = false;
    int32_t mProgress GUARDED_BY(mEngineLock) = 0;  // percent, written by the library
    PME_API_Instance mInstance GUARDED_BY(mEngineLock) = nullptr;
    void* mPermanentBuffer GUARDED_BY(mEngineLock) = nullptr;
    void* mTempBuffer GUARDED_BY(mEngineLock) = nullptr;
    int32_t mSnapshotCount GUARDED_BY(mEngineLock) = 0;
    uint32_t mGeneration GUARDED_BY(mEngineLock) = 0;  // counts freed instances and started series

    Mutex mMemoryLock;
    sp<MemoryHeapBase> mResultHeap GUARDED_BY(mMemoryLock);
    sp<MemoryBase> mCallbackMemory GUARDED_BY(mMemoryLock);  // handed out last; stays alive after the callback returns
    sp<MemoryHeapBase> mPreviewHeap GUARDED_BY(mMemoryLock);
};

}  // namespace android
