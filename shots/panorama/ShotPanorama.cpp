// Panorama: a sweep of the camera becomes one wide picture.

#include "shots/panorama/ShotPanorama.h"

#include <arccamera/jpeg.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "imaging/ArcJpegEncoder.h"
#include "imaging/Overlay.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"

namespace android {

namespace {

constexpr int32_t kMostFrames = 8;
constexpr int32_t kFrameRate = 15;
constexpr float kStitchQuality = 15.0F;
constexpr int32_t kMemoryBudget = 100 * 1024 * 1024;
constexpr int kGuideInset = 10;
constexpr uint32_t kStatusReady = 2;
constexpr uint32_t kStatusAdd = 3;
constexpr uint32_t kStitched = 100;  // percent

const px_allocator kAllocator = {malloc, free};

/// Frames for which a line was written; the process's.
std::atomic<uint32_t> gLoggedFrames{0};

uint32_t nowMs() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec) * 1000 + static_cast<uint32_t>(now.tv_usec / 1000);
}

/// Whatever offset the library reports.
int clampedSum(int32_t offset, int32_t position) {
    const int64_t sum = int64_t{offset} + position;
    return static_cast<int>(std::clamp<int64_t>(sum, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

unsigned long asLong(uint32_t value) {
    return value;
}

constexpr TaggedLog kLog(ShotPanorama::kTag);
constexpr ArcJpegUser kJpegUser = {5, kLog, ArcJpegUser::Lines::All};

}  // namespace

ShotPanorama::ShotPanorama(sp<CameraHardwareInterface> hardware)
    : ShotCallbacks(std::move(hardware)), mFrameWidth(mPreviewWidth), mFrameHeight(mPreviewHeight) {
    kLog.info("ShotPanorama created: pid=%d", getpid());
}

ShotPanorama::~ShotPanorama() {
    kLog.info("ShotPanorama destroyed: pid=%d", getpid());
    Free();
}

status_t ShotPanorama::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.info("ShotPanorama::sendCommand %d, %d, %d", cmd, arg1, arg2);
    switch (cmd) {
        case PANORAMA_SHOT_START:
            kLog.info("PANORAMA_SHOT_START");
            if (mCapturing)
                (void)StopCapture();
            else
                StartCapture();
            return NO_ERROR;
        case PANORAMA_SHOT_STOP:
            kLog.info("PANORAMA_SHOT_STOP");
            mCapturing = false;
            (void)StopCapture();
            return NO_ERROR;
        case PANORAMA_SHOT_CANCEL:
            kLog.info("PANORAMA_SHOT_CANCEL");
            CancelCapture();
            return NO_ERROR;
        default:
            return ShotCommon::sendCommand(cmd, arg1, arg2);
    }
}

void ShotPanorama::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && data.get() && mCapturing && mCallbacks.data()) {
        auto* const frame = static_cast<unsigned char*>(data->pointer());
        if (frame && !HandlePreview(frame, data->size(), true))
            return;
    }
    (void)sendData(msgType, data);
}

// --- The library's instance

void ShotPanorama::Init(int width, int height, bool noAutoAdd) {
    const AutoMutex held(mEngineLock);
    initLocked(width, height, noAutoAdd);
}

void ShotPanorama::initLocked(int width, int height, bool noAutoAdd) {
    kLog.warn("init");
    mNoAutoAdd = noAutoAdd;
    if (mCapturing && width == mFrameWidth && height == mFrameHeight) {
        kLog.error("ignore Init(%d, %d) while capturing\n", width, height);
        return;
    }
    if (height <= 0 || width <= 0) {
        kLog.error("unexpected Init(%d, %d)\n", width, height);
        freeLocked();
        return;
    }
    mInstanceReady = false;
    mCapturing = false;
    mImageReady = false;
    mAutoStopArmed = false;
    mCancelRequested = false;
    mProgress = 0;
    if (mInstance)
        freeLocked();
    mInstanceReady = openInstance(width, height);
    if (!mInstanceReady)
        freeLocked();
}

bool ShotPanorama::openInstance(int width, int height) {
    int32_t rc = px_init(&kAllocator, nullptr, 0, &mInstance);
    if (rc != 0 || !mInstance) {
        kLog.error("px_init failed rc = %d\n", rc);
        return false;
    }
    kLog.warn("px_init(%dx%d) ok for buffer %p instance %p\n", width, height, static_cast<void*>(nullptr), mInstance);
    mFrameWidth = width;
    mFrameHeight = height;
    rc = px_setParams(mInstance, width, height, 0, width, height, 0, kMostFrames, kFrameRate, kStitchQuality,
                      kMemoryBudget);
    if (rc != 0) {
        kLog.error("px_setParams rc = %d\n", rc);
        return false;
    }
    rc = px_start(mInstance);
    if (rc != 0)
        kLog.error("px_start rc = %d\n", rc);
    return rc == 0;
}

void ShotPanorama::Free() {
    const AutoMutex held(mEngineLock);
    freeLocked();
}

void ShotPanorama::freeLocked() {
    kLog.warn("free");
    mInstanceReady = false;
    mCapturing = false;
    mImageReady = false;
    mCancelRequested = false;
    mStitching = false;
    ++mGeneration;
    if (!mInstance)
        return;
    const int32_t rc = px_free(mInstance);
    if (rc != 0)
        kLog.error("px_free(%p) = %d\n", mInstance, rc);
    mInstance = nullptr;
}

// --- Capturing

void ShotPanorama::StartCapture() {
    const AutoMutex held(mEngineLock);
    kLog.warn("Starting panorama\n");
    mPxStatus = {};
    initLocked(mPreviewWidth, mPreviewHeight, false);
    mProgress = 0;
    const int32_t rc = px_beginCapture(mInstance, 0);
    mAutoStopArmed = true;
    if (rc != 0) {
        kLog.error("px_beginCapture rc = %d\n", rc);
        mInstanceReady = false;
    }
    mCapturing = true;
}

void ShotPanorama::CancelCapture() {
    mCancelRequested = true;
    const AutoMutex held(mEngineLock);
    px_abort(mInstance);
    freeLocked();
    mPxStatus = {};
    initLocked(mPreviewWidth, mPreviewHeight, false);
}

px_image ShotPanorama::describe(unsigned char* frame) const {
    px_image image = {};
    image.width = mFrameWidth;
    image.height = mFrameHeight;
    image.plane[0] = frame;
    image.plane[1] = frame + static_cast<size_t>(image.width) * static_cast<size_t>(image.height);
    return image;
}

bool ShotPanorama::fitsInstance(size_t bytes) const {
    return mPreviewWidth == mFrameWidth && mPreviewHeight == mFrameHeight &&
           bytes >= yuv420FrameSize(mFrameWidth, mFrameHeight);
}

bool ShotPanorama::HandlePreview(unsigned char* frame, size_t bytes, bool draw) {
    px_image image;
    Handled handled;
    bool first = false;
    uint32_t generation = 0;
    uint32_t begin = 0;
    {
        const AutoMutex held(mEngineLock);
        // A stop may have come between the caller's look at `mCapturing` and this lock.
        if (!mInstanceReady || mStitching || !fitsInstance(bytes))
            return true;
        image = describe(frame);
        handled = analyse(image, &begin);
        first = mPxStatus.frame_count == 1;
        generation = mGeneration;
        if (handled == Handled::BufferFull && !endCapture())
            return true;
    }
    if (handled == Handled::BufferFull)
        return stitch(generation);
    if (handled == Handled::Added) {
        if (gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_FRAME_ADDED, 0, 0)))
            return false;
        if (first && gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_FIRST_FRAME, 0, 0)))
            return false;
        kLog.warn("capture duration %lu ms\n", asLong(nowMs() - begin));
    }
    if (draw && handled != Handled::Skipped) {
        const AutoMutex held(mEngineLock);
        if (generation == mGeneration)
            drawGuide(image);
    }
    return true;
}

/// Writes to `adding` the time before the frame is added.
ShotPanorama::Handled ShotPanorama::analyse(px_image& image, uint32_t* adding) {
    if (mProgress != 0)
        return Handled::Skipped;
    if (mPxStatus.max_frames != 0 && mPxStatus.frame_count >= mPxStatus.max_frames) {
        if (!mAutoStopArmed)
            return Handled::Skipped;
        mAutoStopArmed = false;
        kLog.warn("HandleFrame skipped, frames buffer full %lu of %lu", asLong(mPxStatus.frame_count),
                  asLong(mPxStatus.max_frames));
        return Handled::BufferFull;
    }
    const uint32_t time = nowMs();
    int32_t rc = px_handleFrame(mInstance, &image, time, &mPxStatus);
    if (rc != 0) {
        kLog.error("HandleFrame rc=%d\n", rc);
        return Handled::Skipped;
    }
    if (const uint32_t logged = gLoggedFrames; logged == mPxStatus.frame_count) {
        kLog.warn("HandleFrame %lu rc=%d, status=%d of %lu", asLong(logged), rc, static_cast<int>(mPxStatus.status),
                  asLong(mPxStatus.max_frames));
        gLoggedFrames = logged + 1;
    }
    *adding = nowMs();
    if (!mNoAutoAdd && mPxStatus.status == kStatusReady)
        mPxStatus.status = kStatusAdd;
    if (mPxStatus.status != kStatusAdd)
        return Handled::Analysed;
    rc = px_addFrame(mInstance, &image, time, &mPxStatus);
    if (rc != 0)
        kLog.error("px_addFrame rc = %d\n", rc);
    return Handled::Added;
}

// --- Stitching

bool ShotPanorama::StopCapture() {
    uint32_t generation = 0;
    {
        const AutoMutex held(mEngineLock);
        if (mStitching || !endCapture())
            return true;
        generation = mGeneration;
    }
    return stitch(generation);
}

/// True when there is something to stitch.
bool ShotPanorama::endCapture() {
    kLog.warn("Stopping panorama\n");
    const int32_t rc = px_endCapture(mInstance);
    mCapturing = false;
    mStitching = rc == 0;
    if (mStitching)
        return true;
    kLog.error("px_endCapture rc = %d\n", rc);
    mInstanceReady = false;
    mImageReady = false;
    return false;
}

/// Runs the library's steps, with a message to the application after each, and delivers the result. Whoever frees the
/// instance meanwhile ends it, and so does a cancel that waits for the lock, which it might not get between two steps.
bool ShotPanorama::stitch(uint32_t generation) {
    const uint32_t begin = nowMs();
    for (;;) {
        uint32_t progress = 0;
        int32_t rc = 0;
        {
            const AutoMutex held(mEngineLock);
            if (generation != mGeneration || mCancelRequested || mProgress >= kStitched)
                break;
            rc = px_createPanorama(mInstance, &mProgress);
            progress = mProgress;
            if (rc != 0) {
                kLog.error("px_createPanorama at %lu%%, time %lu ms rc = %d\n", asLong(progress),
                           asLong(nowMs() - begin), rc);
                mInstanceReady = false;
                mImageReady = false;
                mStitching = false;
            }
        }
        if (rc != 0)
            return !gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_ERROR, 0, 0));
        if (gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_PROGRESS, static_cast<int32_t>(progress), 0)))
            return false;
        kLog.warn("px_createPanorama at %lu%%, time %lu ms\n", asLong(progress), asLong(nowMs() - begin));
    }
    return deliverPanorama(generation);
}

bool ShotPanorama::deliverPanorama(uint32_t generation) {
    std::optional<ArcJpegEncoding> encoding;
    encodePanorama(generation, encoding);
    if (!encoding)
        return true;
    bool alive = true;
    if (encoding->picture().get())
        alive = !gone(sendDataIfSet(CAMERA_MSG_COMPRESSED_IMAGE, encoding->picture()));
    encoding->end();
    return alive;
}

/// The image is the library's, so the lock is held until the picture is made.
void ShotPanorama::encodePanorama(uint32_t generation, std::optional<ArcJpegEncoding>& encoding) {
    const AutoMutex held(mEngineLock);
    if (generation != mGeneration)
        return;
    mStitching = false;
    if (mCancelRequested)
        freeLocked();
    mImageReady = true;
    int width = 0;
    int height = 0;
    unsigned char* const image = panoramaImageLocked(width, height);
    kLog.warn("size is %d %d", width, height);
    if (image)
        encoding.emplace(kJpegUser, ArcJpegFrame{image, width, height, ARC_FORMAT_YUV420_SEMIPLANAR}, std::nullopt);
}

unsigned char* ShotPanorama::GetPanoramaImage(int& width, int& height) {
    const AutoMutex held(mEngineLock);
    return panoramaImageLocked(width, height);
}

unsigned char* ShotPanorama::panoramaImageLocked(int& width, int& height) {
    width = -1;
    height = -1;
    if (!mInstanceReady || !mImageReady)
        return nullptr;
    px_image image = {};
    const int32_t rc = px_getPanoramaImage(mInstance, &image);
    if (rc != 0) {
        kLog.error("px_getPanoramaImage rc = %d\n", rc);
        mInstanceReady = false;
        return nullptr;
    }
    width = image.width;
    height = image.height;
    return image.plane[0];
}

// --- The guide

void ShotPanorama::drawGuide(px_image& image) {
    if (image.width < kPanoramaLeastMarkedSide || image.height < kPanoramaLeastMarkedSide)
        return;
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    GetRectToDraw(left, top, right, bottom);
    const px_color color = GetRectColor();
    const px_direction arrows = GetArrows();
    DrawRectangle(image, left, top, right, bottom, color);
    DrawFadingArrows(image, arrows);
}

void ShotPanorama::GetRectToDraw(int& left, int& top, int& right, int& bottom) const {
    left = clampedSum(mPxStatus.dx, kGuideInset);
    top = clampedSum(mPxStatus.dy, kGuideInset);
    right = clampedSum(mPxStatus.dx, mFrameWidth - 1 - kGuideInset);
    bottom = clampedSum(mPxStatus.dy, mFrameHeight - 1 - kGuideInset);
}

px_color ShotPanorama::GetRectColor() const {
    return panoramaRectColor(mPxStatus.status);
}

px_direction ShotPanorama::GetArrows() const {
    return panoramaArrows(mPxStatus);
}

void ShotPanorama::DrawHorizontalLine(px_image& image, int y, int x0, int x1, uint8_t Y, uint8_t C1, uint8_t C2) {
    drawHorizontalLine(overlayImage(image), OverlayLayout::SemiPlanar, y, x0, x1, {Y, C1, C2});
}

void ShotPanorama::DrawVerticalLine(px_image& image, int x, int y0, int y1, uint8_t Y, uint8_t C1, uint8_t C2) {
    drawVerticalLine(overlayImage(image), OverlayLayout::SemiPlanar, x, y0, y1, {Y, C1, C2});
}

void ShotPanorama::DrawRectangle(px_image& image, int left, int top, int right, int bottom, px_color color) {
    if (color == kPanoramaNoColor)
        return;
    completePlanes(image, OverlayLayout::SemiPlanar);
    drawRectangle(overlayImage(image), OverlayLayout::SemiPlanar, left, top, right, bottom, overlayColor(color),
                  OverlayFrame::Outward2);
}

void ShotPanorama::DrawHorizontalLineMixed(px_image& image, int y, int x0, int length, uint8_t Y, uint8_t C1,
                                           uint8_t C2, int alpha) {
    blendHorizontalSpan(overlayImage(image), y, x0, length, {Y, C1, C2}, alpha);
}

ShotCommon* makeShotPanorama(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotPanorama>(hardware);
}

}  // namespace android
