// Self: a still made from the latest preview frame.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <caps/caps.h>

#include <cstdint>

#include "shots/ShotCallbacks.h"

namespace android {

/// Keeps a copy of the latest preview frame. When a picture is asked for it stops the preview, and a thread of its own
/// makes a raw picture and a JPEG of that copy, both of preview size.
///
/// Threads: frames on the vendor layer's threads, operations on the service's, each picture on a thread of its own.
/// Picture threads of the process take turns, so that no two pictures mix, and each works inside the shot's gate. From
/// `takePicture` until its thread ends the copy of the frame stays as it is: frames that arrive meanwhile are delivered
/// but not kept. `mFrameLock` guards the copy and the shared memory; it is never held during a call out.
class ShotSelf : public ShotCallbacks<ShotSelf> {
public:
    static constexpr char kTag[] = "ShotSelf";

    explicit ShotSelf(sp<CameraHardwareInterface> hardware);
    ~ShotSelf() override;

    /// The raw picture's memory, made by `startPreview`; empty before.
    sp<IMemoryHeap> getRawHeap() override;
    status_t startPreview() override;
    /// 0 when the picture's thread was started, -1 when it could not be.
    status_t takePicture() override;

    void processDataCallback(int32_t msgType, const sp<IMemory>& mem);

    void Init();
    void Release();
    /// Bytes of a preview frame by the vendor layer's present parameters; 0 when that cannot be told. False when the
    /// shot was retired meanwhile.
    [[nodiscard]] bool getPreviewMemSize(size_t* size) const;

    /// Entry of a picture's thread; `start` is what `takePicture` made for it.
    static int beginPictureThread(void* start);
    void pictureThread();

    /// What may run short; a test puts its own in place.
    struct Resources {
        void* (*allocate)(size_t size);
        int (*createThread)(android_thread_func_t entry, void* userData);
    };
    static Resources resources;

private:
    struct PictureStart;
    struct Picture;

    [[nodiscard]] bool makePicture();
    bool isReady(Picture& picture);
    [[nodiscard]] bool setPreviewFormat(Picture& picture) const;
    [[nodiscard]] bool deliver(Picture& picture);
    sp<IMemory> makeRawPicture(const Picture& picture);
    [[nodiscard]] bool notifyShutter(const Picture& picture);
    bool render(Picture& picture) const;
    sp<IMemory> copyPicture(const caps_data& jpeg);
    bool keepFrame(const sp<IMemory>& mem);
    void countPictures(int more);
    void allocateCopy(size_t size) REQUIRES(mFrameLock);

    // Process-wide, the one self shot's: by its constructor and destructor, and else under its mFrameLock. The picture
    // thread reads the copy without the lock, as nobody writes it while a picture is asked for.
    static uint8_t* pPreviewImage;
    static int nPreviewFrameCount;  // frames held back so far

    const int32_t mCapsColorFormat = CAPS_FORMAT_YUV420_SEMIPLANAR;

    Mutex mFrameLock;
    size_t mCopySize GUARDED_BY(mFrameLock) = 0;    // bytes behind pPreviewImage
    int mPicturesAsked GUARDED_BY(mFrameLock) = 0;  // whose threads have not ended
    sp<MemoryHeapBase> mPictureHeap GUARDED_BY(mFrameLock);
    sp<MemoryBase> mPictureMemory GUARDED_BY(mFrameLock);  // delivered last
    sp<MemoryHeapBase> mRawHeap GUARDED_BY(mFrameLock);
};

}  // namespace android
