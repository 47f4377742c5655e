// Self: a still made from the latest preview frame.

#include "shots/self/ShotSelf.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "imaging/Caps.h"
#include "imaging/System.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotSelf::kTag);

constexpr int kFramesHeldBack = 2;
constexpr int kNeutral = 128;  // what the copy is filled with before the first frame
constexpr status_t kNoThread = -1;

// The raw picture: the frame, with its sides written over the pixels here, and so many bytes more.
constexpr size_t kRawWidthAt = 4;
constexpr size_t kRawHeightAt = 8;
constexpr size_t kRawExtra = 8;
constexpr size_t kRawLeast = kRawHeightAt + sizeof(int32_t);

struct Free {
    void operator()(uint8_t* bytes) const { std::free(bytes); }
};

}  // namespace

uint8_t* ShotSelf::pPreviewImage = nullptr;
int ShotSelf::nPreviewFrameCount = 0;

/// What a picture's thread is started with. The thread may outlive the shot: it looks at `shot` only from inside its
/// gate.
struct ShotSelf::PictureStart {
    ShotGate::Hold gate;
    ShotSelf* shot;
    sp<PictureThreads> threads;
    PictureThreads::Asked asked;
};

/// A picture that is being made; its thread's.
struct ShotSelf::Picture {
    sp<CameraHardwareInterface> hardware;
    size_t size = 0;  // bytes of the frame
    int32_t width = 0;
    int32_t height = 0;
    sp<MemoryHeapBase> rawHeap;
    std::string pictureFormat;  // the vendor layer's own, empty when it has none
    FrameLayout layout = FrameLayout::SemiPlanar;
    float quality = 0;
    std::unique_ptr<uint8_t[], Free> semiPlanar;  // of a planar frame
    CapsPicture caps;
};

ShotSelf::ShotSelf(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotSelf created: pid=%d", getpid());
    Init();
}

ShotSelf::~ShotSelf() {
    kLog.info("ShotSelf destroyed: pid=%d", getpid());
    {
        const AutoMutex held(mFrameLock);
        std::free(std::exchange(pPreviewImage, nullptr));
        mRawHeap.clear();
        Release();
    }
    mThreads->restoreFormatOnce();
}

void ShotSelf::Init() {
    const size_t size = readPreviewMemSize().value_or(0);
    const AutoMutex held(mFrameLock);
    nPreviewFrameCount = 0;
    expectFrames(size);
}

void ShotSelf::Release() {
    mPictureHeap.clear();
    mPictureMemory.clear();
}

/// Bytes of a preview frame by the vendor layer's present parameters, 0 when that cannot be told; nothing when the shot
/// is gone.
std::optional<size_t> ShotSelf::readPreviewMemSize() const {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return 0;
    CameraParameters params;
    if (gone(callOut([&] { params = hardware->getParameters(); })))
        return std::nullopt;
    return previewFrameSize(params, kLog);
}

// --- The preview

sp<IMemoryHeap> ShotSelf::getRawHeap() {
    const AutoMutex held(mFrameLock);
    return mRawHeap;
}

status_t ShotSelf::startPreview() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return NO_ERROR;
    return startPreviewAfter(hardware, [this](const CameraParameters& params) {
        const size_t size = previewFrameSize(params, kLog);
        const AutoMutex held(mFrameLock);  // a picture sees the sides of the raw heap that it gets
        takePreviewSize(params);
        mRawHeap = os::newHeap(size ? size + kRawExtra : 0);
        expectFrames(size);
    });
}

/// Frames have `size` bytes from now on. A picture that is to be rendered keeps its own.
void ShotSelf::expectFrames(size_t size) {
    mFrameSize = size;
    mTooLargeTold = false;
    if (!mThreads->arePicturesAsked())
        growCopy();
}

/// Makes room for a frame, unless there is.
void ShotSelf::growCopy() {
    if (pPreviewImage && mFrameSize <= mCopySize)
        return;
    std::free(pPreviewImage);
    pPreviewImage = static_cast<uint8_t*>(os::allocate(mFrameSize));
    mCopySize = pPreviewImage ? mFrameSize : 0;
    if (mCopySize)
        std::memset(pPreviewImage, kNeutral, mCopySize);
    else if (mFrameSize && !std::exchange(mTooLargeTold, true))
        kLog.error("no memory to keep a frame of %zu bytes", mFrameSize);
}

void ShotSelf::processDataCallback(int32_t msgType, const sp<IMemory>& mem) {
    if (!admitData(msgType, mem))
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && !keepFrame(mem))
        return;
    (void)sendData(msgType, mem);
}

/// Copies the frame, unless an earlier one is to be rendered. False for a frame that is held back.
bool ShotSelf::keepFrame(const sp<IMemory>& mem) {
    const AutoMutex held(mFrameLock);
    if (nPreviewFrameCount < kFramesHeldBack) {
        ++nPreviewFrameCount;
        return false;
    }
    if (mFrameSize == 0 || mThreads->arePicturesAsked())
        return true;
    const RegionBytes frame = previewBytesOf(mem);
    if (frame && frame.size < mFrameSize)
        tellFault(RegionFault::TooSmall, frame.size, kLog);
    if (!frame || frame.size < mFrameSize)
        return true;
    growCopy();
    if (pPreviewImage)
        std::memcpy(pPreviewImage, frame.data, mFrameSize);
    return true;
}

// --- Pictures

status_t ShotSelf::takePicture() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    if (gone(callOut([&] { hardware->stopPreview(); })))
        return kNoThread;
    std::unique_ptr<PictureStart> start;
    {
        const AutoMutex held(mFrameLock);  // no frame is being kept
        start.reset(new PictureStart{ShotGate::Hold(gate()), this, mThreads, PictureThreads::Asked(mThreads)});
    }
    if (!os::startThread(beginPictureThread, start.get())) {
        kLog.error("the picture's thread cannot be started; there is no picture");
        return kNoThread;
    }
    (void)start.release();  // the thread's now
    return NO_ERROR;
}

int ShotSelf::beginPictureThread(void* argument) {
    const std::unique_ptr<PictureStart> start(static_cast<PictureStart*>(argument));
    const PictureThreads::Turn turn(*start->threads.get());
    const ShotGate::Entry inside(start->gate);
    if (!inside || gone(start->shot->pictureThread(*start)))
        start->threads->restoreFormatOnce();  // the next mode shall not find the preview's format
    return 0;
}

/// Makes the pictures and delivers them; neither when rendering fails.
AfterCall ShotSelf::pictureThread(PictureStart& start) {
    kLog.error("takePicture is called");
    Picture picture;
    picture.hardware = hardwareOrLog();
    if (!picture.hardware.get())
        return AfterCall::GoOn;
    const std::optional<size_t> size = readPreviewMemSize();
    if (!size)
        return AfterCall::ShotGone;
    picture.size = *size;
    if (!isReady(picture))
        return AfterCall::GoOn;
    if (gone(setPreviewFormat(picture)))
        return AfterCall::ShotGone;
    const sp<IMemory> raw = makeRawPicture(picture);
    kLog.warn("pictureThread - mPreviewWidth(%d), mPreviewHeight(%d)", picture.width, picture.height);
    if (gone(notifyShutter(picture)))
        return AfterCall::ShotGone;
    const bool rendered = render(picture);
    start.asked.done();
    if (!rendered)
        return AfterCall::GoOn;
    if (gone(sendDataIfSet(CAMERA_MSG_RAW_IMAGE, raw)))
        return AfterCall::ShotGone;
    if (gone(callOut([&, threads = start.threads] { threads->restoreFormat(picture.pictureFormat); })))
        return AfterCall::ShotGone;
    return sendDataIfSet(CAMERA_MSG_COMPRESSED_IMAGE, copyPicture(picture));
}

/// Whether there is a frame, and a raw heap for it, of the size that is to be read. Then drops the picture before.
bool ShotSelf::isReady(Picture& picture) {
    const AutoMutex held(mFrameLock);
    if (!pPreviewImage) {
        kLog.error("pPreviewImage is null");
        return false;
    }
    picture.rawHeap = mRawHeap;
    if (!picture.rawHeap.get()) {
        kLog.error("mRawHeap is null");
        return false;
    }
    picture.width = mPreviewWidth;
    picture.height = mPreviewHeight;
    const uint64_t read = yuv420FrameSize(picture.width, picture.height);
    const size_t raw = picture.size + kRawExtra;
    if (read > picture.size || picture.size > mCopySize || raw > picture.rawHeap->getSize() || raw < kRawLeast) {
        kLog.error("no whole frame of %zu bytes, %d x %d; start the preview first", picture.size, picture.width,
                   picture.height);
        return false;
    }
    Release();
    return true;
}

/// Gives the vendor layer the preview's format for pictures.
AfterCall ShotSelf::setPreviewFormat(Picture& picture) const {
    return callOut([&picture, threads = mThreads] {
        const CameraParameters params = picture.hardware->getParameters();
        picture.quality = capsJpegQuality(params.getInt(CameraParameters::KEY_JPEG_QUALITY));
        picture.layout = layoutOfFormat(params.getPreviewFormat());
        threads->changeFormat(picture.hardware, params, &picture.pictureFormat);
    });
}

sp<IMemory> ShotSelf::makeRawPicture(const Picture& picture) {
    auto* const raw = static_cast<uint8_t*>(picture.rawHeap->base());
    const AutoMutex held(mFrameLock);
    mPictureMemory.clear();
    mPictureMemory = new MemoryBase(picture.rawHeap, 0, picture.size + kRawExtra);
    std::memcpy(raw, pPreviewImage, picture.size);
    std::memcpy(raw + kRawWidthAt, &picture.width, sizeof picture.width);
    std::memcpy(raw + kRawHeightAt, &picture.height, sizeof picture.height);
    return mPictureMemory;
}

AfterCall ShotSelf::notifyShutter(const Picture& picture) {
    bool enabled;
    if (gone(callOut([&] { enabled = picture.hardware->msgTypeEnabled(CAMERA_MSG_SHUTTER); })))
        return AfterCall::ShotGone;
    return enabled ? sendNotifyIfSet(CAMERA_MSG_SHUTTER, 0, 0) : AfterCall::GoOn;
}

/// Renders the copy of the frame as a JPEG. The library knows semi-planar frames only: a planar one is put in that
/// order first. False, with a line, when that failed.
bool ShotSelf::render(Picture& picture) const {
    uint8_t* frame = pPreviewImage;
    if (picture.layout == FrameLayout::Planar && picture.width % 2 == 0 && picture.height % 2 == 0) {
        picture.semiPlanar.reset(static_cast<uint8_t*>(os::allocate(picture.size)));
        if (!picture.semiPlanar) {
            kLog.error("no memory for the frame in the library's order");
            return false;
        }
        planarToSemiPlanar(frame, picture.width, picture.height, picture.semiPlanar.get());
        frame = picture.semiPlanar.get();
    }
    if (picture.caps.openFrame(frame, picture.size, picture.width, picture.height, mCapsColorFormat)
            .failedWithLine(kLog))
        return false;
    cips* const session = picture.caps.session();
    caps_beginRotate(session);
    caps_setRotate(session, 0);
    caps_endRotate(session);
    caps_setJpegQuality(session, picture.quality);
    return !picture.caps.render(picture.width, picture.height).failedWithLine(kLog);
}

sp<IMemory> ShotSelf::copyPicture(const Picture& picture) {
    const AutoMutex held(mFrameLock);
    picture.caps.copyTo(&mPictureHeap, &mPictureMemory);
    if (mPictureMemory->size() == 0)
        kLog.error("the rendered picture has no bytes");
    return mPictureMemory;
}

ShotCommon* makeShotSelf(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotSelf>(hardware);
}

}  // namespace android
