// Action: a moving subject, at several moments, in one picture.

#include "shots/action/ShotAction.h"

#include <unistd.h>

#include <utility>

#include "shots/Modes.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAction::kTag);
constexpr ArcJpegUser kJpegUser = {3, kLog, ArcJpegUser::Lines::None};

constexpr int32_t kDone = 100;       // percent
constexpr int32_t kMostSide = 8192;  // of a result that is believed

// Statuses of the step for a frame.
constexpr int kGoesOn = 3;
constexpr int kNoSeries = 4;
constexpr int kDisconnected = 6;
constexpr int kConnected = 7;

enum ActionState { kIdle = 0, kRunning = 1, kStopping = 3 };

}  // namespace

ShotAction::ShotAction(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotAction created: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    Init(mPreviewWidth, mPreviewHeight);
}

ShotAction::~ShotAction() {
    kLog.info("ShotAction destroyed: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    Free();
}

void ShotAction::Init(int width, int height) {
    previewRingIndex = 0;
    previewHeapBase = nullptr;
    mWidth = width;
    mHeight = height;
    if (height < 1 || width < 1)
        kLog.error("unexpected Init(%d, %d)\n", width, height);
    else
        mActionShot.Init(width, height);
}

void ShotAction::Free() {
    previewRingIndex = 0;
    previewHeapBase = nullptr;
    mPreviewMemory.clear();
    mPreviewHeap.clear();
    mActionShot.Free();
}

// --- Commands

status_t ShotAction::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    switch (cmd) {
        case ACTION_SHOT_START_CAPTURE:
            start();
            return NO_ERROR;
        case ACTION_SHOT_CANCEL_CAPTURE:
            cancel();
            break;
        case ACTION_SHOT_STOP_CAPTURE:
            stop();
            break;
        default:
            break;
    }
    return ShotCallbacks::processCommand(cmd, arg1, arg2);
}

void ShotAction::start() {
    if (mCapturing.exchange(true))
        return;
    ++mStarts;
    const AutoMutex held(mEngineLock);
    StartCapture();
}

void ShotAction::StartCapture() {
    mCapturing = true;
    ++mStarts;
    mActionShot.cancelSeries();
    if (!mActionShot.startSeries())
        return;
    mStopped = false;
    mActionState = kRunning;
}

void ShotAction::cancel() {
    ++mCancels;
    const AutoMutex held(mEngineLock);
    ++mCancels;
    mActionShot.cancelSeries();
    mStopped = false;
    mCapturing = false;
    mActionState = kIdle;
}

void ShotAction::stop() {
    const AutoMutex held(mEngineLock);
    if (mCapturing.exchange(false))
        mActionState = kStopping;
}

// --- Messages

void ShotAction::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!haveDataCallbackOrLog())
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && data.get()) {
        processPreviewFrame(data);
        return;
    }
    if (msgType == CAMERA_MSG_COMPRESSED_IMAGE)
        kLog.info("CAMERA_MSG_COMPRESSED_IMAGE");
    (void)sendData(msgType, data);
}

ShotAction::Step ShotAction::HandlePreview(unsigned char* frame) {
    const Step managed = StatusManager();
    if (gone(managed.after) || managed.status != kGoesOn)
        return managed;
    Series series;
    bool goesOn, accepted;
    int status = kGoesOn;
    {
        const AutoMutex held(mEngineLock);
        // Not while the result is being made either: a stop that came since the look at the state is another frame's.
        if (mActionState != kRunning)
            return {AfterCall::GoOn, kNoSeries};
        series = currentSeries();
        const size_t luma = static_cast<size_t>(mWidth) * static_cast<size_t>(mHeight);
        OPT_API_ASImage image = {0, mWidth, mHeight, {frame, frame + luma, nullptr}};
        const bool before = mActionShot.isConnected();
        const int32_t result = mActionShot.handleFrame(image);
        const bool after = mActionShot.isConnected();
        if (before != after)
            status = after ? kConnected : kDisconnected;
        goesOn = result >= 0 && result <= 3;
        accepted = result == 0;
        if (goesOn)
            DrawOnPreviewAcquisition(image);
    }
    if (goesOn)
        return {reportAcquisition(series, accepted), status};
    kLog.error("call StopCapture 3");
    return StopCapture(true, series);
}

ShotAction::Step ShotAction::StatusManager() {
    Series series;
    {
        const AutoMutex held(mEngineLock);
        if (mActionState != kStopping)
            return {AfterCall::GoOn, kGoesOn};
        series = currentSeries();
    }
    return StopCapture(false, series);
}

// --- The result

ShotAction::Step ShotAction::StopCapture(bool byItself, const Series& series) {
    {
        const AutoMutex held(mEngineLock);
        if (mStopped || isOver(series))
            return {AfterCall::GoOn};
        kLog.debug("%s", byItself ? "Stopping acquisition by myself." : "Stopping acquisition manually.");
        mActionState = kStopping;
        mStopped = true;
    }
    if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_BEGIN, 0, 0)))
        return {AfterCall::ShotGone};
    return createResult(series);
}

/// Makes the picture before the application is told of it, and delivers it afterwards: from then on only a cancel can
/// take it away. A cancelled series ends without a word, one that was begun anew as one that failed.
ShotAction::Step ShotAction::createResult(const Series& series) {
    bool complete = false;
    if (gone(createSteps(series, &complete)))
        return {AfterCall::ShotGone};
    std::optional<ArcJpegEncoding> encoding;
    if (complete && gone(encode2ArcJpegData(series, &encoding)))
        return {AfterCall::ShotGone};
    if (isCancelled(series))
        return {AfterCall::GoOn};
    const bool made = encoding && encoding->picture().get();
    if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_END, made, 0)))
        return {AfterCall::ShotGone};
    if (!made)
        return {AfterCall::GoOn, 1};
    if (isCancelled(series))
        return {AfterCall::GoOn};
    return {sendDataIfSet(CAMERA_MSG_COMPRESSED_IMAGE, encoding->picture())};
}

AfterCall ShotAction::createSteps(const Series& series, bool* complete) {
    int32_t progress = 0;
    bool more = true;
    while (more && progress < kDone) {
        {
            const AutoMutex held(mEngineLock);
            if (isOver(series))
                return AfterCall::GoOn;
            more = mActionShot.createResult(&progress, &mResultImage);
        }
        if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_PROGRESS, progress, 0)))
            return AfterCall::ShotGone;
    }
    *complete = progress == kDone;
    return AfterCall::GoOn;
}

AfterCall ShotAction::encode2ArcJpegData(const Series& series, std::optional<ArcJpegEncoding>* encoding) {
    const std::optional<int32_t> quality = readArcJpegQuality();
    if (!quality)
        return AfterCall::ShotGone;
    const AutoMutex held(mEngineLock);  // the image is the library's
    if (isOver(series))
        return AfterCall::GoOn;
    if (!resultIsSound()) {
        kLog.error("a result of %d x %d cannot be", mResultImage.width, mResultImage.height);
        return AfterCall::GoOn;
    }
    const ArcJpegFrame frame = {mResultImage.plane[0], mResultImage.width, mResultImage.height,
                                ARC_FORMAT_YUV420_SEMIPLANAR};
    encoding->emplace(kJpegUser, frame, quality);
    if (!(*encoding)->succeeded())
        kLog.error("the result could not be encoded");
    return AfterCall::GoOn;
}

bool ShotAction::resultIsSound() const {
    return mResultImage.plane[0] && mResultImage.width > 0 && mResultImage.height > 0 &&
           mResultImage.width <= kMostSide && mResultImage.height <= kMostSide;
}

ShotCommon* makeShotAction(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotAction>(hardware);
}

}  // namespace android
