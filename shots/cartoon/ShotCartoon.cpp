// Cartoon: preview and picture with a drawn look.

#include "shots/cartoon/ShotCartoon.h"

#include <unistd.h>

#include <cstring>
#include <utility>

#include "imaging/System.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotCartoon::kTag);

constexpr uint32_t kProgressStep = 5;  // percent

/// 0 for counts that make no sense, and for those that have no percentage up to 100.
uint32_t percentOf(int32_t done, int32_t total) {
    const double percent = static_cast<double>(done) / total * 100;
    return percent >= 0 && percent < 101 ? static_cast<uint32_t>(percent) : 0;
}

}  // namespace

ShotCartoon::ShotCartoon(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotCartoon created: pid=%d", getpid());
    Init();
}

ShotCartoon::~ShotCartoon() {
    kLog.info("ShotCartoon destroyed: pid=%d", getpid());
    const AutoMutex held(mCapsLock);
    Release();
}

void ShotCartoon::Init() {
    mEffect = kCartoon;
    const AutoMutex held(mCapsLock);
    Release();
}

void ShotCartoon::Release() {
    mPictureHeap.clear();
    mPictureMemory.clear();
}

status_t ShotCartoon::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.info("sendCommand %d, %d, %d", cmd, arg1, arg2);
    if (cmd == CARTOON_SHOT_SELECT_EFFECT)
        mEffect = arg1;
    return ShotCallbacks::processCommand(cmd, arg1, arg2);
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

/// Renders a frame in place. The library knows semi-planar frames only: a planar one is copied as such, and put into
/// its own order again afterwards, with the copy as scratch.
void ShotCartoon::renderFrame(const sp<IMemory>& mem) {
    const std::optional<PreviewFrame> frame = previewFrameOf(mem);
    if (!frame || !frame->hasEvenSides() || frame->layout == FrameLayout::Other)
        return;
    const bool planar = frame->layout == FrameLayout::Planar;
    const sp<MemoryHeapBase> heap = os::newHeap(frame->size());
    auto* const copy = heap.get() ? static_cast<uint8_t*>(heap->base()) : nullptr;
    if (copy && planar)
        planarToSemiPlanar(frame->luma, frame->width, frame->height, copy);
    else if (copy)
        std::memcpy(copy, frame->luma, frame->size());

    const AutoMutex held(mCapsLock);
    const CapsOutcome outcome =
        copy ? HandlePreview(frame->width, frame->height, copy, frame->luma) : CapsOutcome{"no memory for the copy", 0};
    if (planar && outcome) {
        const size_t pairs = frame->lumaSize() / 4;
        std::memcpy(copy, frame->chroma, 2 * pairs);
        pairsToPlanes(copy, pairs, frame->chroma);
    }
    if (!outcome && !mFailureTold)
        kLog.error("preview frames are not rendered: %s - [%d]", outcome.failed, outcome.result);
    mFailureTold = !outcome;
}

/// Renders the effect from one frame into another, both semi-planar with V first.
CapsOutcome ShotCartoon::HandlePreview(int width, int height, unsigned char* src, unsigned char* dst) {
    Release();
    const int32_t stride = capsStride(width, mCapsColorFormat);
    const auto length = static_cast<size_t>(yuv420FrameSize(width, height));
    CapsImage dstImage, srcImage;  // the source goes first
    CapsOutcome outcome = createCapsImage(&srcImage, src, length, width, height, stride, mCapsColorFormat);
    if (outcome)
        outcome = createCapsImage(&dstImage, dst, length, width, height, stride, mCapsColorFormat);
    CapsSession session;
    if (outcome)
        outcome = newCapsSession(&session, srcImage.get());
    if (!outcome)
        return outcome;
    (void)applyEffect(session.get());
    const caps_result result = caps_renderAsRawToBuffer(session.get(), dstImage.get(), 0, 0);
    return result == CAPS_SUCCESS ? outcome : CapsOutcome{"caps_renderAsRawToBuffer", result};
}

// --- Pictures

/// Delivers the picture rendered with the effect, or nothing when that failed or the shot was retired meanwhile.
void ShotCartoon::processPicture(const sp<IMemory>& mem) {
    const RegionBytes jpeg = regionBytesOf(mem);
    if (!jpeg) {
        sendWithoutMemory(CAMERA_MSG_COMPRESSED_IMAGE, mem);
        return;
    }
    sp<IMemory> rendered;
    {
        CapsPicture picture;
        if (picture.openJpeg(jpeg.data, jpeg.size).failedWithLine(kLog))
            return;
        if (const caps_result result = applyEffect(picture.session()); result != CAPS_SUCCESS) {
            kLog.error("applyEffect - [%d]", result);
            return;
        }
        const sp<CameraHardwareInterface> hardware = hardwareOrLog();
        CameraParameters params;
        if (!hardware.get() || gone(callOut([&] { params = hardware->getParameters(); })))
            return;
        const auto [width, height] = pictureSizeOf(params);
        caps_setJpegQuality(picture.session(), capsJpegQuality(params.getInt(CameraParameters::KEY_JPEG_QUALITY)));
        const uint32_t begin = getCurrentTimeMs();
        CapsIterator iterator;
        caps_result last = CAPS_SUCCESS;
        if (picture.beginToRender(width, height, &iterator).failedWithLine(kLog) ||
            gone(iterate(std::move(iterator), &last)))
            return;
        kLog.debug(" CAMERA_MSG_COMPRESSED_IMAGE after HandlePreview in %d ms res[%d]",
                   static_cast<int>(getCurrentTimeMs() - begin), last);
        rendered = copyPicture(picture);
    }
    (void)sendData(CAMERA_MSG_COMPRESSED_IMAGE, rendered);
}

/// Renders step by step, whose results are the library's (`last`: that of the last), and tells the application how far
/// it is. Passes the gate at each step, so that a switch ends it however slowly it proceeds.
AfterCall ShotCartoon::iterate(CapsIterator iterator, caps_result* last) {
    int32_t total = 0;
    int32_t done = 0;
    *last = caps_doNextIteration(iterator.get());
    caps_estimateIterationCount(iterator.get(), &total);
    caps_getCurIterationCount(iterator.get(), &done);
    uint32_t told = 0;
    while (*last == CAPS_SUCCESS) {
        *last = caps_doNextIteration(iterator.get());
        caps_getCurIterationCount(iterator.get(), &done);
        const uint32_t percent = percentOf(done, total);
        AfterCall after = AfterCall::GoOn;
        if (percent > told && percent % kProgressStep == 0) {
            kLog.debug("For Iteration[%d]", static_cast<int>(percent));
            after = sendNotifyIfSet(CAMERA_MSG_CARTOON_PROGRESS, static_cast<int32_t>(percent), 0);
            told = percent;
        } else {
            after = passGate();
        }
        if (gone(after))
            return after;
    }
    return AfterCall::GoOn;
}

sp<IMemory> ShotCartoon::copyPicture(const CapsPicture& picture) {
    const AutoMutex held(mCapsLock);
    picture.copyTo(&mPictureHeap, &mPictureMemory);
    if (mPictureMemory->size() == 0)
        kLog.error("the rendered picture has no bytes");
    return mPictureMemory;
}

uint32_t ShotCartoon::getCurrentTimeMs() {
    return os::nowMilliseconds();
}

// --- Effects: each returns what the library answered, or success where that is not looked at

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
        default:  // rendered as it is
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
    caps_setStamp(session, 3, 100);
    caps_endStamp(session);
    return CAPS_SUCCESS;
}

ShotCommon* makeShotCartoon(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotCartoon>(hardware);
}

}  // namespace android
