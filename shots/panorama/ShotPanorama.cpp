// Panorama: a sweep of the camera becomes one wide picture.

#include "shots/panorama/ShotPanorama.h"

#include <unistd.h>

#include <utility>

#include "imaging/System.h"
#include "shots/Modes.h"
#include "shots/panorama/PanoramaGuide.h"

namespace android {

namespace {

constexpr uint32_t kStatusReady = 2;
constexpr uint32_t kStatusAdd = 3;
constexpr uint32_t kStitched = 100;  // percent

constexpr TaggedLog kLog(ShotPanorama::kTag);
constexpr ArcJpegUser kJpegUser = {5, kLog, ArcJpegUser::Lines::All};

/// Frames for which a line was written; the process's.
std::atomic<uint32_t> gLoggedFrames{0};

unsigned long asLong(uint32_t value) {
    return value;
}

/// Writes the line of a frame that was looked at: one for each new number of frames.
void logHandled(const px_status& status) {
    uint32_t logged = status.frame_count;
    if (gLoggedFrames.compare_exchange_strong(logged, logged + 1))
        kLog.warn("HandleFrame %lu rc=%d, status=%d of %lu", asLong(logged), 0, static_cast<int>(status.status),
                  asLong(status.max_frames));
}

/// Whether an image can be what the library says: one that is there, and no larger than the library's memory.
bool imageIsSound(const unsigned char* image, int width, int height) {
    return image && width > 0 && height > 0 && yuv420FrameSize(width, height) <= kPanoramaMemoryBudget;
}

}  // namespace

ShotPanorama::ShotPanorama(sp<CameraHardwareInterface> hardware)
    : ShotCallbacks(std::move(hardware)),
      mFrameWidth(mPreviewWidth),
      mFrameHeight(mPreviewHeight),
      mStartWidth(mPreviewWidth),
      mStartHeight(mPreviewHeight) {
    kLog.info("ShotPanorama created: pid=%d", getpid());
}

ShotPanorama::~ShotPanorama() {
    kLog.info("ShotPanorama destroyed: pid=%d", getpid());
    Free();
}

// --- Commands

status_t ShotPanorama::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.info("ShotPanorama::sendCommand %d, %d, %d", cmd, arg1, arg2);
    Stitch begun;
    switch (cmd) {
        case PANORAMA_SHOT_START:
            kLog.info("PANORAMA_SHOT_START");
            begun = startOrStop();
            break;
        case PANORAMA_SHOT_STOP: {
            kLog.info("PANORAMA_SHOT_STOP");
            const AutoTurn held(mEngineLock);
            if (!stitching())
                begun = endCapture();
            break;
        }
        case PANORAMA_SHOT_CANCEL: {
            kLog.info("PANORAMA_SHOT_CANCEL");
            const AutoTurn held(mEngineLock);
            CancelCapture();
            break;
        }
        default:
            return ShotCallbacks::processCommand(cmd, arg1, arg2);
    }
    if (begun)
        (void)stitch(*begun);
    return NO_ERROR;
}

ShotPanorama::Stitch ShotPanorama::startOrStop() {
    const AutoTurn held(mEngineLock);
    if (stitching())
        return std::nullopt;
    if (mCapturing)
        return endCapture();
    StartCapture();
    return std::nullopt;
}

/// Whether a stitch is under way on another thread, or further out on this one; then writes a line.
bool ShotPanorama::stitching() const {
    if (mStitching)
        kLog.warn("the panorama is being stitched; that goes on");
    return mStitching;
}

void ShotPanorama::StartCapture() {
    kLog.warn("Starting panorama\n");
    mPxStatus = {};
    initForPreview();
    mProgress = 0;  // also when there is no frame size to make an instance for
    mAutoStopArmed = true;
    if (!mInstance.beginCapture())
        mInstanceReady = false;
    mCapturing = true;
}

void ShotPanorama::CancelCapture() {
    mInstance.abort();
    Free();
    mPxStatus = {};
    initForPreview();
}

/// Ends the capture; what there is to stitch.
ShotPanorama::Stitch ShotPanorama::endCapture() {
    kLog.warn("Stopping panorama\n");
    mCapturing = false;
    mStitching = mInstance.endCapture();
    if (mStitching)
        return mGeneration;
    mInstanceReady = false;
    return std::nullopt;
}

// --- The library's instance

void ShotPanorama::initForPreview() {
    mStartWidth = mPreviewWidth;
    mStartHeight = mPreviewHeight;
    Init(mStartWidth, mStartHeight, false);
}

void ShotPanorama::Init(int width, int height, bool noAutoAdd) {
    kLog.warn("init");
    mNoAutoAdd = noAutoAdd;
    if (mCapturing && width == mFrameWidth && height == mFrameHeight) {
        kLog.error("ignore Init(%d, %d) while capturing\n", width, height);
        return;
    }
    if (height <= 0 || width <= 0) {
        kLog.error("unexpected Init(%d, %d)\n", width, height);
        return Free();
    }
    forgetCapture();
    mAutoStopArmed = false;
    mToldUnfit = false;
    mProgress = 0;
    if (mInstance.exists())
        Free();
    if (!mInstance.create(width, height))
        return Free();
    mFrameWidth = width;
    mFrameHeight = height;
    if (!mInstance.start(width, height))
        return Free();
    mInstanceReady = true;
}

void ShotPanorama::Free() {
    kLog.warn("free");
    forgetCapture();
    mInstance.destroy();
}

void ShotPanorama::forgetCapture() {
    mInstanceReady = false;
    mCapturing = false;
    mStitching = false;
    ++mGeneration;
}

// --- Frames

void ShotPanorama::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!haveDataCallbackOrLog())
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && data.get() && mCapturing && gone(captureFrame(data)))
        return;
    (void)sendData(msgType, data);
}

/// Hands a frame to the library, tells the application of it, and marks it.
AfterCall ShotPanorama::captureFrame(const sp<IMemory>& frame) {
    Handled handled;
    Stitch begun;
    {
        const AutoTurn held(mEngineLock);
        // A stop or a cancel may have come while the lock was waited for; the fresh instance is not for this frame.
        if (!mCapturing)
            return AfterCall::GoOn;
        handled = HandlePreview(frame);
        if (handled.how == Handled::BufferFull)
            begun = endCapture();
    }
    if (begun)
        return stitch(*begun);
    if (handled.how == Handled::Added && gone(tellAdded(handled)))
        return AfterCall::ShotGone;
    if (handled.how == Handled::Analysed || handled.how == Handled::Added)
        PanoramaGuide(handled.status, handled.image.width, handled.image.height).draw(handled.image);
    return AfterCall::GoOn;
}

ShotPanorama::Handled ShotPanorama::HandlePreview(const sp<IMemory>& frame) {
    Handled handled;
    if (!mInstanceReady || !fitsInstance())
        return handled;
    const std::optional<PreviewFrame> bytes = previewFrameOf(frame, mFrameWidth, mFrameHeight);
    if (!bytes || mProgress != 0)
        return handled;
    if (mPxStatus.max_frames != 0 && mPxStatus.frame_count >= mPxStatus.max_frames) {
        if (!mAutoStopArmed)
            return handled;
        mAutoStopArmed = false;
        kLog.warn("HandleFrame skipped, frames buffer full %lu of %lu", asLong(mPxStatus.frame_count),
                  asLong(mPxStatus.max_frames));
        handled.how = Handled::BufferFull;
        return handled;
    }
    handled.image = {0, bytes->width, bytes->height, {bytes->luma, bytes->chroma, nullptr}};
    analyse(&handled);
    handled.generation = mGeneration;
    handled.status = mPxStatus;
    return handled;
}

/// Whether the preview has the frames that the instance was made for; writes a line once when it has not.
bool ShotPanorama::fitsInstance() {
    if (mPreviewWidth == mStartWidth && mPreviewHeight == mStartHeight && mPreviewLayout == FrameLayout::SemiPlanar)
        return true;
    if (!std::exchange(mToldUnfit, true))
        kLog.error(
            "preview frames are not semi-planar 4:2:0 of %d x %d, as the capture wants them; they are passed on "
            "as they are",
            mStartWidth, mStartHeight);
    return false;
}

/// Hands the frame's image to the library, and adds it when that says so.
void ShotPanorama::analyse(Handled* frame) {
    const uint32_t time = os::nowMilliseconds();
    if (!mInstance.handleFrame(frame->image, time, &mPxStatus))
        return;
    logHandled(mPxStatus);
    frame->adding = os::nowMilliseconds();
    if (!mNoAutoAdd && mPxStatus.status == kStatusReady)
        mPxStatus.status = kStatusAdd;
    frame->how = mPxStatus.status == kStatusAdd ? Handled::Added : Handled::Analysed;
    if (frame->how == Handled::Added)
        (void)mInstance.addFrame(frame->image, time, &mPxStatus);  // counts also when it failed
}

AfterCall ShotPanorama::tellAdded(const Handled& frame) {
    if (gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_FRAME_ADDED, 0, 0)))
        return AfterCall::ShotGone;
    bool first;
    {
        const AutoTurn held(mEngineLock);
        first = frame.generation == mGeneration && mPxStatus.frame_count == 1;
    }
    if (first && gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_FIRST_FRAME, 0, 0)))
        return AfterCall::ShotGone;
    kLog.warn("capture duration %lu ms\n", asLong(os::nowMilliseconds() - frame.adding));
    return AfterCall::GoOn;
}

// --- Stitching

/// Runs the library's steps, with a message to the application after each, and delivers the result.
AfterCall ShotPanorama::stitch(uint32_t generation) {
    const uint32_t begin = os::nowMilliseconds();
    std::optional<ArcJpegEncoding> encoding;
    for (;;) {
        uint32_t progress;
        switch (takeStep(generation, begin, &progress, &encoding)) {
            case Step::Dropped:
                return AfterCall::GoOn;
            case Step::Failed:
                return sendNotifyIfSet(CAMERA_MSG_PANORAMA_ERROR, 0, 0);
            case Step::Done:
                return encoding ? deliverPanorama(*encoding) : AfterCall::GoOn;
            case Step::Taken:
                break;
        }
        if (gone(sendNotifyIfSet(CAMERA_MSG_PANORAMA_PROGRESS, static_cast<int32_t>(progress), 0)))
            return AfterCall::ShotGone;
        kLog.warn("px_createPanorama at %lu%%, time %lu ms\n", asLong(progress), asLong(os::nowMilliseconds() - begin));
    }
}

/// One step of the library, or after the last one the encoding: the image is the library's, so the lock is held until
/// the picture is made.
ShotPanorama::Step ShotPanorama::takeStep(uint32_t generation, uint32_t begin, uint32_t* progress,
                                          std::optional<ArcJpegEncoding>* encoding) {
    const AutoTurn held(mEngineLock);
    if (generation != mGeneration)
        return Step::Dropped;
    if (mProgress >= kStitched) {
        encodePanorama(encoding);
        return Step::Done;
    }
    const int32_t rc = mInstance.createPanorama(&mProgress);
    *progress = mProgress;
    if (rc == 0)
        return Step::Taken;
    kLog.error("px_createPanorama at %lu%%, time %lu ms rc = %d\n", asLong(mProgress),
               asLong(os::nowMilliseconds() - begin), rc);
    mInstanceReady = false;
    mStitching = false;
    return Step::Failed;
}

AfterCall ShotPanorama::deliverPanorama(ArcJpegEncoding& encoding) {
    const bool succeeded = encoding.succeeded();
    AfterCall after = AfterCall::GoOn;
    if (encoding.picture().get())
        after = sendDataIfSet(CAMERA_MSG_COMPRESSED_IMAGE, encoding.picture());
    encoding.end();
    if (!succeeded)
        kLog.error("the panorama could not be encoded; there is no picture of it");
    return after;
}

void ShotPanorama::encodePanorama(std::optional<ArcJpegEncoding>* encoding) {
    mStitching = false;
    int width, height;
    unsigned char* const image = GetPanoramaImage(width, height);
    kLog.warn("size is %d %d", width, height);
    if (imageIsSound(image, width, height))
        encoding->emplace(kJpegUser, ArcJpegFrame{image, width, height, ARC_FORMAT_YUV420_SEMIPLANAR}, std::nullopt);
    else if (mInstanceReady)
        kLog.error("the library's panorama cannot be an image; there is no picture of it");
}

unsigned char* ShotPanorama::GetPanoramaImage(int& width, int& height) {
    width = -1;
    height = -1;
    if (!mInstanceReady)
        return nullptr;
    px_image image = {};
    if (!mInstance.getImage(&image)) {
        mInstanceReady = false;
        return nullptr;
    }
    width = image.width;
    height = image.height;
    return image.plane[0];
}

ShotCommon* makeShotPanorama(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotPanorama>(hardware);
}

}  // namespace android
