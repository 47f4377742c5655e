// Self: a still made from the latest preview frame.

#include "shots/self/ShotSelf.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "imaging/Caps.h"
#include "imaging/SharedPicture.h"
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

/// Held by one picture thread of the process at a time, also by one whose shot is gone: it may still have to give the
/// vendor layer its picture format back. A thread that waits here is in no shot's gate, so no switch waits for it.
class PictureTurn {
public:
    PictureTurn() {
        Turns& turns = Turns::get();
        const AutoMutex held(turns.lock);
        while (turns.taken)
            turns.over.wait(turns.lock);
        turns.taken = true;
    }
    ~PictureTurn() {
        Turns& turns = Turns::get();
        const AutoMutex held(turns.lock);
        turns.taken = false;
        turns.over.signal();
    }
    PictureTurn(const PictureTurn&) = delete;
    PictureTurn& operator=(const PictureTurn&) = delete;

private:
    struct Turns {
        Mutex lock;
        Condition over;
        bool taken GUARDED_BY(lock) = false;

        static Turns& get() {
            static Turns* const turns = new Turns;  // a picture thread may outlive static objects
            return *turns;
        }
    };
};

void setPictureFormat(CameraHardwareInterface& hardware, const std::string& format) {
    CameraParameters params = hardware.getParameters();
    if (format.empty())
        params.remove(CameraParameters::KEY_PICTURE_FORMAT);
    else
        params.setPictureFormat(format.c_str());
    hardware.setParameters(params);
}

}  // namespace

ShotSelf::Resources ShotSelf::resources = {std::malloc, androidCreateThread};
uint8_t* ShotSelf::pPreviewImage = nullptr;
int ShotSelf::nPreviewFrameCount = 0;

/// What a picture's thread is started with. The thread may outlive the shot: it looks at `shot` only from inside its
/// gate.
struct ShotSelf::PictureStart {
    ShotGate::Hold gate;
    ShotSelf* shot;
};

/// A picture that is being made; its thread's. The library's objects are released from the last to the first.
struct ShotSelf::Picture {
    sp<CameraHardwareInterface> hardware;
    size_t size = 0;  // bytes of the frame
    int32_t width = 0;
    int32_t height = 0;
    sp<MemoryHeapBase> rawHeap;
    std::string pictureFormat;   // the vendor layer's own, empty when it has none
    bool formatChanged = false;  // it has the preview's instead
    bool planar = false;
    float quality = 0;
    std::unique_ptr<uint8_t[]> semiPlanar;  // of a planar frame
    CapsImage image;
    CapsBuffer rendered;
    CapsStream output;
    CapsSession session;
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
    }
    Release();
}

void ShotSelf::Init() {
    Release();
    size_t size = 0;
    (void)getPreviewMemSize(&size);  // nobody retires a shot that is being made
    const AutoMutex held(mFrameLock);
    nPreviewFrameCount = 0;
    allocateCopy(size);
    mRawHeap.clear();
}

void ShotSelf::allocateCopy(size_t size) {
    std::free(pPreviewImage);
    pPreviewImage = static_cast<uint8_t*>(resources.allocate(size));
    mCopySize = pPreviewImage ? size : 0;
    if (mCopySize)
        std::memset(pPreviewImage, kNeutral, mCopySize);
}

void ShotSelf::Release() {
    const AutoMutex held(mFrameLock);
    mPictureHeap.clear();
    mPictureMemory.clear();
}

bool ShotSelf::getPreviewMemSize(size_t* size) const {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    *size = 0;
    if (!hardware.get())
        return true;
    CameraParameters params;
    const bool alive = !gone(callOut([&] { params = hardware->getParameters(); }));
    *size = previewFrameSize(params, kLog);
    return alive;
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
        takePreviewSize(params);
        const size_t size = previewFrameSize(params, kLog);
        const sp<MemoryHeapBase> heap = new MemoryHeapBase(size ? size + kRawExtra : 0, 0, nullptr);
        const AutoMutex held(mFrameLock);
        mRawHeap = heap;
        // The preview has become larger since the shot was made. A picture under way keeps its frame.
        if (size > mCopySize && mPicturesAsked == 0)
            allocateCopy(size);
    });
}

void ShotSelf::processDataCallback(int32_t msgType, const sp<IMemory>& mem) {
    if (!admitData(msgType, mem))
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && !keepFrame(mem))
        return;
    (void)sendData(msgType, mem);
}

/// Copies the frame, unless a picture is being made of an earlier one. False for a frame that is held back.
bool ShotSelf::keepFrame(const sp<IMemory>& mem) {
    const AutoMutex held(mFrameLock);
    if (nPreviewFrameCount < kFramesHeldBack) {
        ++nPreviewFrameCount;
        return false;
    }
    const void* const frame = mem->pointer();
    if (!frame || mPicturesAsked > 0)
        return true;
    if (mem->size() > mCopySize)
        kLog.error("a frame of %zu bytes is too large to keep", mem->size());
    else
        std::memcpy(pPreviewImage, frame, mem->size());
    return true;
}

// --- Pictures

status_t ShotSelf::takePicture() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    if (gone(callOut([&] { hardware->stopPreview(); })))
        return kNoThread;
    auto start = std::make_unique<PictureStart>(PictureStart{ShotGate::Hold(gate()), this});
    countPictures(1);
    if (resources.createThread(beginPictureThread, start.get()) == 0) {
        countPictures(-1);
        return kNoThread;
    }
    (void)start.release();  // the thread's now
    return NO_ERROR;
}

void ShotSelf::countPictures(int more) {
    const AutoMutex held(mFrameLock);
    mPicturesAsked += more;
}

int ShotSelf::beginPictureThread(void* argument) {
    const std::unique_ptr<PictureStart> start(static_cast<PictureStart*>(argument));
    const PictureTurn turn;
    if (const ShotGate::Entry inside{start->gate})
        start->shot->pictureThread();
    return 0;
}

void ShotSelf::pictureThread() {
    kLog.error("takePicture is called");
    if (makePicture())
        countPictures(-1);
}

/// False when the shot was retired meanwhile.
bool ShotSelf::makePicture() {
    Picture picture;
    picture.hardware = hardwareOrLog();
    if (!picture.hardware.get())
        return true;
    if (!getPreviewMemSize(&picture.size))
        return false;
    if (!isReady(picture))
        return true;
    Release();
    const bool alive = setPreviewFormat(picture) && deliver(picture);
    // The next mode shall not find the preview's format where the picture's was.
    if (!alive && picture.formatChanged)
        setPictureFormat(*picture.hardware.get(), picture.pictureFormat);
    return alive;
}

/// Whether there is a frame, and a raw heap for it, of the size that is to be read.
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
    if (read == 0 || read > picture.size || picture.size > mCopySize ||
        picture.size + kRawExtra > picture.rawHeap->getSize()) {
        kLog.error("no whole frame of %zu bytes, %d x %d; start the preview first", picture.size, picture.width,
                   picture.height);
        return false;
    }
    return true;
}

/// Gives the vendor layer the preview's format for pictures. False when the shot was retired meanwhile.
bool ShotSelf::setPreviewFormat(Picture& picture) const {
    return !gone(callOut([&] {
        CameraParameters params = picture.hardware->getParameters();
        picture.quality = capsJpegQuality(params.getInt(CameraParameters::KEY_JPEG_QUALITY));
        const auto orEmpty = [](const char* format) { return std::string(format ? format : ""); };
        picture.pictureFormat = orEmpty(params.getPictureFormat());
        const std::string previewFormat = orEmpty(params.getPreviewFormat());
        picture.planar = colorFormatFromName(previewFormat.c_str()) == KOV_FORMAT_YUV420P;
        picture.formatChanged = true;
        params.setPictureFormat(previewFormat.c_str());
        picture.hardware->setParameters(params);
    }));
}

/// Makes the pictures and delivers them; neither when rendering fails. False when the shot was retired meanwhile.
bool ShotSelf::deliver(Picture& picture) {
    const sp<IMemory> raw = makeRawPicture(picture);
    kLog.warn("pictureThread - mPreviewWidth(%d), mPreviewHeight(%d)", picture.width, picture.height);
    if (!notifyShutter(picture))
        return false;
    if (!render(picture))
        return true;
    if (gone(sendDataIfSet(CAMERA_MSG_RAW_IMAGE, raw)))
        return false;
    if (gone(callOut([&] { setPictureFormat(*picture.hardware.get(), picture.pictureFormat); })))
        return false;
    picture.formatChanged = false;
    return !gone(sendDataIfSet(CAMERA_MSG_COMPRESSED_IMAGE, copyPicture(*picture.rendered)));
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

/// False when the shot was retired meanwhile.
bool ShotSelf::notifyShutter(const Picture& picture) {
    bool enabled = false;
    if (gone(callOut([&] { enabled = picture.hardware->msgTypeEnabled(CAMERA_MSG_SHUTTER); })))
        return false;
    return !enabled || !gone(sendNotifyIfSet(CAMERA_MSG_SHUTTER, 0, 0));
}

/// Renders the copy of the frame as a JPEG into `picture.rendered`. The library knows semi-planar frames only: a planar
/// one is put in that order first.
bool ShotSelf::render(Picture& picture) const {
    uint8_t* frame = pPreviewImage;
    if (picture.planar && picture.width % 2 == 0 && picture.height % 2 == 0) {
        picture.semiPlanar.reset(new (std::nothrow) uint8_t[picture.size]);
        if (picture.semiPlanar) {
            planarToSemiPlanar(frame, picture.width, picture.height, picture.semiPlanar.get());
            frame = picture.semiPlanar.get();
        }
    }
    const int32_t stride = capsStride(picture.width, mCapsColorFormat);
    picture.image = createCapsImage(frame, picture.size, picture.width, picture.height, stride, mCapsColorFormat);
    picture.rendered = createCapsBuffer();
    if (picture.rendered) {
        caps_stream* output = nullptr;
        ctstream_createBufferStream(picture.rendered.get(), 0, &output);
        picture.output.reset(output);
    }
    if (picture.image)
        picture.session = newCapsSession(picture.image.get());
    caps_result result = 0;
    if (picture.session && picture.output) {
        caps_beginRotate(picture.session.get());
        caps_setRotate(picture.session.get(), 0);
        caps_endRotate(picture.session.get());
        caps_setJpegQuality(picture.session.get(), picture.quality);
        result = caps_render(picture.session.get(), picture.output.get(), picture.width, picture.height, 0, 1, nullptr);
    }
    if (result != CAPS_SUCCESS)
        kLog.error("caps_render - [%d]", result);
    return result == CAPS_SUCCESS;
}

sp<IMemory> ShotSelf::copyPicture(const caps_data& jpeg) {
    const AutoMutex held(mFrameLock);
    copyToSharedMemory(jpeg.data, jpeg.length > 0 ? static_cast<size_t>(jpeg.length) : 0, &mPictureHeap,
                       &mPictureMemory);
    return mPictureMemory;
}

ShotCommon* makeShotSelf(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotSelf>(hardware);
}

}  // namespace android
