// Smile: faces are followed in the preview, and the application is told when they smile.

#include "shots/smile/ShotSmile.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "shots/Modes.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotSmile::kTag);

constexpr sd_color kFaceColor = 0x00FF00;
constexpr sd_color kSmileColor = 0x0099FF;
constexpr int32_t kGroupAbove = 3;        // faces of which not all need smile
constexpr int32_t kGroupSmiles = 3;       // but so many
constexpr int32_t kMostSmilesDrawn = 64;  // whatever an engine reports

}  // namespace

ShotSmile::ShotSmile(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotSmile created: pid=%d", getpid());
    Init();
}

ShotSmile::~ShotSmile() {
    kLog.info("ShotSmile destroyed: pid=%d", getpid());
    mEngines.UnInitSmile();
    mEngines.UnInitFaceTracking();
}

void ShotSmile::decidePreviewColorFormat() {
    mEngineColorFormat = mPreviewFormat == KOV_FORMAT_YUV420P ? ARC_FACE_FORMAT_YUV420P : ARC_FACE_FORMAT_YUV420SP;
}

void ShotSmile::Init() {
    decidePreviewColorFormat();
    if (!mEngines.InitFaceTracking(mPreviewWidth, mPreviewHeight, mEngineColorFormat, 0, SmileEngines::kMostFaces)) {
        kLog.debug("InitFaceTracking error");
        return;
    }
    kLog.debug("InitFaceTracking Success");
    if (!mEngines.InitSmileDetection(mPreviewWidth, mPreviewHeight)) {
        kLog.debug("InitSmileDetection error");
        mEngines.UnInitFaceTracking();
        return;
    }
    kLog.debug("InitSmileDetection Success WH[%d %d]", mPreviewWidth.load(), mPreviewHeight.load());
}

status_t ShotSmile::startPreview() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    return startPreviewAfter(hardware, [this](const CameraParameters& params) {
        const AutoMutex held(mEngineLock);
        takePreviewSize(params);
        mEngines.UnInitSmile();
        mEngines.UnInitFaceTracking();
        Init();
        mDetectionStarted = 0;
    });
}

status_t ShotSmile::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.info("ShotSmile::sendCommand %d, %d, %d", cmd, arg1, arg2);
    switch (cmd) {
        case SMILE_SHOT_DETECTION_START:
            kLog.info("SMILE_SHOT_DETECTION_START");
            mDetectionStarted = 1;
            return NO_ERROR;
        case SMILE_SHOT_DETECTION_STOP:
            kLog.info("SMILE_SHOT_DETECTION_STOP");
            mDetectionStarted = 0;
            return NO_ERROR;
        default:
            return ShotCallbacks::processCommand(cmd, arg1, arg2);
    }
}

void ShotSmile::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!admitData(msgType, data))
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME && gone(OnPreviewSmileShot(data)))
        return;
    if (msgType == CAMERA_MSG_COMPRESSED_IMAGE)
        kLog.info("CAMERA_MSG_COMPRESSED_IMAGE");
    (void)sendData(msgType, data);
}

AfterCall ShotSmile::OnPreviewSmileShot(const sp<IMemory>& data) {
    {
        const AutoMutex held(mEngineLock);
        const std::optional<PreviewFrame> frame = previewFrameOf(data);
        if (!frame || !analyse(*frame))
            return AfterCall::GoOn;
        kLog.debug("Smile Detection Success - m_nFaceNum(%d), IFaceNumber(%d), ISmileNumber(%d)", m_nFaceNum,
                   mEngines.smileResult().IFaceNumber, mEngines.smileResult().ISmileNumber);
        // Without anybody to tell, detection goes on.
        if (!mCallbacks.notify())
            return AfterCall::GoOn;
        mDetectionStarted = 0;
    }
    return sendNotifyIfSet(CAMERA_MSG_SMILE_DETECTED, 0, 0);
}

bool ShotSmile::analyse(const PreviewFrame& frame) {
    m_nFaceNum = std::max(0, mEngines.FaceTrackingDetect(frame.width, frame.height, frame.luma, mFaceRects));
    if (m_nFaceNum == 0)
        return false;
    mPreviewImage = {frame.width, frame.height, {frame.luma, frame.chroma, nullptr}};
    if (mDetectionStarted != 1)
        return false;
    markFaces();
    (void)mEngines.SmileDetect(frame.width, frame.height, frame.luma, mFaceRects, mFaceInfo, m_nFaceNum);
    markSmiles();
    return conditionMet();
}

void ShotSmile::markFaces() {
    for (int32_t i = 0; i < m_nFaceNum; ++i)
        DrawRectangle(mPreviewImage, mFaceRects[i], kFaceColor);
}

void ShotSmile::markSmiles() {
    const ASSD_SMILE_RESULT& result = mEngines.smileResult();
    for (int32_t i = 0; i < std::min(result.ISmileNumber, kMostSmilesDrawn); ++i)
        DrawRectangle(mPreviewImage, result.smiles[i], kSmileColor);
}

/// Every face smiles; of a larger group at least three. After a detection that failed: of the faces of the last one
/// that did not.
bool ShotSmile::conditionMet() const {
    const int32_t faces = mEngines.smileResult().IFaceNumber;
    const int32_t smiles = mEngines.smileResult().ISmileNumber;
    return faces > kGroupAbove ? smiles >= kGroupSmiles : smiles == faces;
}

ShotCommon* makeShotSmile(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotSmile>(hardware);
}

}  // namespace android
