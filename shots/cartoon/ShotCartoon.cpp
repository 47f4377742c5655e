// Cartoon: preview and picture with a drawn look.

#include "shots/cartoon/ShotCartoon.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "imaging/SharedPicture.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotCartoon::kTag);

constexpr int32_t kStampSmoothness = 3;
constexpr int32_t kStampThreshold = 100;
constexpr uint32_t kProgressStep = 5;  // percent

uint32_t getCurrentTimeMs() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec) * 1000 + static_cast<uint32_t>(now.tv_usec / 1000);
}

/// 0 for counts that make no sense, such as a total of 0.
uint32_t percentOf(int32_t done, int32_t total) {
    return done >= 0 && total > 0 ? static_cast<uint32_t>(static_cast<double>(done) / total * 100) : 0;
}

}  // namespace

/// A picture on its way through the library. Members are released from the last to the first.
struct ShotCartoon::Picture {
    caps_data jpeg;  // as the vendor layer delivered it
    CapsBuffer rendered;
    CapsStream output;
    CapsStream input;
    CapsSession session;
    int width = 0;  // to render
    int height = 0;
};

ShotCartoon::ShotCartoon(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotCartoon created: pid=%d", getpid());
    Init();
}

ShotCartoon::~ShotCartoon() {
    kLog.info("ShotCartoon destroyed: pid=%d", getpid());
    Release();
}

void ShotCartoon::Init() {
    mEffect = kCartoon;
    Release();
}

void ShotCartoon::Release() {
    const AutoMutex held(mCapsLock);
    releaseLocked();
}

void ShotCartoon::releaseLocked() {
    mPictureHeap.clear();
    mPictureMemory.clear();
    mCapsSrcImage.reset();
    mCapsDstImage.reset();
}

status_t ShotCartoon::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.info("sendCommand %d, %d, %d", cmd, arg1, arg2);
    if (cmd == CARTOON_SHOT_SELECT_EFFECT)
        mEffect = arg1;
    return ShotCommon::sendCommand(cmd, arg1, arg2);
}

// --- Effects

caps_result ShotCartoon::applyEffect(cips* session) const {
    switch (mEffect) {
        case kCartoon:
            return applyEffectCartoon(session);
        case kSketchColor:
            return applyEffectSketchColor(session);
        case kSketchGray:
            return applyEffectSketchGray(session);
        case kStamp:
            return applyEffectStamp(session);
        default:
            return CAPS_SUCCESS;
    }
}

caps_result ShotCartoon::applyEffectCartoon(cips* session) {
    caps_result result = caps_beginCartoon(session);
    if (result == CAPS_SUCCESS)
        result = caps_setCartoon(session, 1);
    if (result == CAPS_SUCCESS)
        result = caps_endCartoon(session);
    return result;
}

caps_result ShotCartoon::applyEffectSketchColor(cips* session) {
    kLog.debug("applyEffectSketchColor");
    caps_applySketch(session, 1);
    return CAPS_SUCCESS;
}

caps_result ShotCartoon::applyEffectSketchGray(cips* session) {
    kLog.debug("applyEffectSketchGray");
    caps_applySketch(session, 0);
    return CAPS_SUCCESS;
}

caps_result ShotCartoon::applyEffectStamp(cips* session) {
    kLog.debug("applyEffectStamp");
    caps_beginStamp(session);
    caps_setStamp(session, kStampSmoothness, kStampThreshold);
    caps_endStamp(session);
    return CAPS_SUCCESS;
}

// --- The data path

void ShotCartoon::processDataCallback(int32_t msgType, const sp<IMemory>& mem) {
    if (!admitData(msgType, mem))
        return;
    if (msgType == CAMERA_MSG_COMPRESSED_IMAGE) {
        processPicture(mem);
        return;
    }
    if (msgType == CAMERA_MSG_PREVIEW_FRAME)
        renderFrame(mem);
    (void)sendData(msgType, mem);
}

/// Frames of other formats than 4:2:0, or of another size than the preview's (which is being changed), go by as they
/// are.
bool ShotCartoon::canRender(const sp<IMemory>& mem, int32_t width, int32_t height) const {
    return width % 2 == 0 && height % 2 == 0 && mPreviewFormat != KOV_FORMAT_YUV420I && mem->size() > 0 &&
           mem->size() == yuv420FrameSize(width, height) && mem->pointer();
}

/// Renders a frame in place. The library knows semi-planar frames only: a planar one is copied as such, and put into
/// its own order again afterwards, with the copy as scratch.
void ShotCartoon::renderFrame(const sp<IMemory>& mem) {
    const int32_t width = mPreviewWidth;
    const int32_t height = mPreviewHeight;
    if (!canRender(mem, width, height))
        return;
    auto* const frame = static_cast<uint8_t*>(mem->pointer());
    const sp<MemoryHeapBase> heap = new MemoryHeapBase(mem->size(), 0, nullptr);
    auto* const copy = static_cast<uint8_t*>(heap->base());
    if (!copy) {
        kLog.error("no memory for a copy of the frame; it is not rendered");
        return;
    }
    const bool planar = mPreviewFormat == KOV_FORMAT_YUV420P;
    if (planar)
        planarToSemiPlanar(frame, width, height, copy);
    else
        std::memcpy(copy, frame, mem->size());
    HandlePreview(width, height, copy, frame);
    {
        const AutoMutex held(mCapsLock);
        mCapsSrcImage.reset();
        mCapsDstImage.reset();
    }
    if (planar) {
        std::memcpy(copy, frame, mem->size());
        semiPlanarToPlanar(copy, width, height, frame);
    }
}

void ShotCartoon::HandlePreview(int width, int height, unsigned char* src, unsigned char* dst) {
    const AutoMutex held(mCapsLock);
    releaseLocked();
    const int32_t stride = capsStride(width, mCapsColorFormat);
    const auto length = static_cast<size_t>(yuv420FrameSize(width, height));
    mCapsSrcImage = createCapsImage(src, length, width, height, stride, mCapsColorFormat);
    mCapsDstImage = createCapsImage(dst, length, width, height, stride, mCapsColorFormat);
    if (!mCapsSrcImage || !mCapsDstImage)
        return;
    if (const CapsSession session = newCapsSession(mCapsSrcImage.get())) {
        applyEffect(session.get());
        caps_renderAsRawToBuffer(session.get(), mCapsDstImage.get(), 0, 0);
    }
}

// --- Pictures

void ShotCartoon::processPicture(const sp<IMemory>& mem) {
    if (!mem->pointer()) {
        sendWithoutMemory(CAMERA_MSG_COMPRESSED_IMAGE, mem);
        return;
    }
    sp<IMemory> rendered;
    {
        Picture picture = {};
        picture.jpeg = {static_cast<int32_t>(mem->size()), static_cast<uint8_t*>(mem->pointer())};
        if (!openPicture(picture) || !readParameters(picture) || !renderPicture(picture))
            return;
        rendered = copyPicture(*picture.rendered);
    }
    (void)sendData(CAMERA_MSG_COMPRESSED_IMAGE, rendered);
}

/// Makes the library's objects and applies the effect. False, with a line, when that failed.
bool ShotCartoon::openPicture(Picture& picture) const {
    const auto failed = [](const char* operation, caps_result result) {
        kLog.error("%s - [%d]", operation, result);
        return false;
    };
    picture.rendered = createCapsBuffer();
    if (!picture.rendered)
        return failed("caps_createBuffer", 0);
    for (const auto& [data, stream] :
         {std::pair(&picture.jpeg, &picture.input), std::pair(picture.rendered.get(), &picture.output)}) {
        caps_stream* made = nullptr;
        const caps_result result = ctstream_createBufferStream(data, 0, &made);
        stream->reset(made);
        if (result != CAPS_SUCCESS || !made)
            return failed("ctstream_createBufferStream", result);
    }
    cips* session = nullptr;
    caps_result result = caps_createSession(picture.input.get(), 1, &session);
    picture.session.reset(session);
    if (result != CAPS_SUCCESS || !session)
        return failed("caps_createSession", result);
    result = applyEffect(session);
    return result == CAPS_SUCCESS || failed("applyEffect", result);
}

/// Reads the size to render and the quality. False without a vendor layer, and when the shot was retired meanwhile.
bool ShotCartoon::readParameters(Picture& picture) {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return false;
    CameraParameters params;
    if (gone(callOut([&] { params = hardware->getParameters(); })))
        return false;
    params.getPictureSize(&picture.width, &picture.height);
    caps_setJpegQuality(picture.session.get(), capsJpegQuality(params.getInt(CameraParameters::KEY_JPEG_QUALITY)));
    return true;
}

/// False when that failed, and when the shot was retired meanwhile.
bool ShotCartoon::renderPicture(Picture& picture) {
    const uint32_t begin = getCurrentTimeMs();
    caps_iterator* made = nullptr;
    caps_result result =
        caps_render(picture.session.get(), picture.output.get(), picture.width, picture.height, 0, 1, &made);
    CapsIterator iterator(made);
    if (result != CAPS_SUCCESS || !iterator) {
        kLog.error("caps_render - [%d]", result);
        return false;
    }
    if (!iterate(std::move(iterator), &result))
        return false;
    kLog.debug(" CAMERA_MSG_COMPRESSED_IMAGE after HandlePreview in %d ms res[%d]",
               static_cast<int>(getCurrentTimeMs() - begin), result);
    return true;
}

/// Renders step by step and tells the application how far it is. `result` is the last step's. False when the shot was
/// retired meanwhile.
bool ShotCartoon::iterate(CapsIterator iterator, caps_result* result) {
    int32_t total = 0;
    int32_t done = 0;
    *result = caps_doNextIteration(iterator.get());
    caps_estimateIterationCount(iterator.get(), &total);
    caps_getCurIterationCount(iterator.get(), &done);
    uint32_t last = 0;
    while (*result == CAPS_SUCCESS) {
        *result = caps_doNextIteration(iterator.get());
        caps_getCurIterationCount(iterator.get(), &done);
        const uint32_t percent = percentOf(done, total);
        if (percent > 100 || percent <= last || percent % kProgressStep != 0)
            continue;
        kLog.debug("For Iteration[%d]", static_cast<int>(percent));
        if (gone(sendNotifyIfSet(CAMERA_MSG_CARTOON_PROGRESS, static_cast<int32_t>(percent), 0)))
            return false;
        last = percent;
    }
    return true;
}

sp<IMemory> ShotCartoon::copyPicture(const caps_data& jpeg) {
    const AutoMutex held(mCapsLock);
    copyToSharedMemory(jpeg.data, jpeg.length > 0 ? static_cast<size_t>(jpeg.length) : 0, &mPictureHeap,
                       &mPictureMemory);
    return mPictureMemory;
}

ShotCommon* makeShotCartoon(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotCartoon>(hardware);
}

}  // namespace android
