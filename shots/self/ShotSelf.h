// Self: a still made from the latest preview frame.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <caps/caps.h>

#include <cstdint>
#include <optional>

#include "shots/ShotCallbacks.h"
#include "shots/self/PictureThreads.h"

namespace android {

/// Keeps a copy of the latest preview frame. When a picture is asked for it stops the preview, and a thread of its own
/// makes a raw picture and a JPEG of that copy, both of preview size.
///
/// Limits: the JPEG needs a frame of 4:2:0, planar or semi-planar with V first, with even sides.
///
/// Threads: frames on the vendor layer's threads, operations on the service's, each picture on a thread of its own,
/// which works inside the shot's gate. The shot's picture threads take turns. From `takePicture` until its picture is
/// rendered the copy of the frame stays as it is: frames that arrive meanwhile are delivered but not kept. `mFrameLock`
/// guards the copy and the shared memory; it is never held during a call out.
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

private:
    struct PictureStart;
    struct Picture;

    void Init();
    void Release() REQUIRES(mFrameLock);
    std::optional<size_t> readPreviewMemSize() const;

    bool keepFrame(const sp<IMemory>& mem);
    void expectFrames(size_t size) REQUIRES(mFrameLock);
    void growCopy() REQUIRES(mFrameLock);

    static int beginPictureThread(void* start);
    AfterCall pictureThread(PictureStart& start);
    bool isReady(Picture& picture);
    AfterCall setPreviewFormat(Picture& picture) const;
    sp<IMemory> makeRawPicture(const Picture& picture);
    AfterCall notifyShutter(const Picture& picture);
    bool render(Picture& picture) const;
    sp<IMemory> copyPicture(const Picture& picture);

    // Process-wide, the one self shot's: by its constructor and destructor, and else under its mFrameLock. The picture
    // thread reads the copy without the lock, as nobody writes it while a picture is to be rendered.
    static uint8_t* pPreviewImage;
    static int nPreviewFrameCount;  // frames held back so far

    const int32_t mCapsColorFormat = CAPS_FORMAT_YUV420_SEMIPLANAR;
    sp<MemoryHeapBase> mPictureHeap GUARDED_BY(mFrameLock);
    sp<MemoryBase> mPictureMemory GUARDED_BY(mFrameLock);  // delivered last
    sp<MemoryHeapBase> mRawHeap GUARDED_BY(mFrameLock);

    size_t mFrameSize GUARDED_BY(mFrameLock) = 0;            // bytes of a frame of the preview started last
    size_t mCopySize GUARDED_BY(mFrameLock) = 0;             // bytes behind pPreviewImage
    bool mTooLargeTold GUARDED_BY(mFrameLock) = false;       // of the preview started last
    const sp<PictureThreads> mThreads = new PictureThreads;  // outlives the shot as long as a thread needs it
    Mutex mFrameLock;
};

}  // namespace android
