// Smile: faces are followed in the preview, and the application is told when they smile.

#include "shots/smile/ShotSmile.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "shots/Modes.h"
#include "shots/PreviewFrame.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotSmile::kTag);

constexpr sd_color kFaceColor = 0x00FF00;
constexpr sd_color kSmileColor = 0x0099FF;
constexpr int32_t kGroupAbove = 3;     // faces of which not all need smile
constexpr int32_t kGroupSmiles = 3;    // but so many
constexpr int32_t kNoFaceNumber = -1;  // meets the condition with no number of smiles

}  // namespace

ShotSmile::ShotSmile(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotSmile created: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    Init();
}

ShotSmile::~ShotSmile() {
    kLog.info("ShotSmile destroyed: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    UnInitSmile();
    UnInitFaceTracking();
}

void ShotSmile::decidePreviewColorFormat() {
    mEngineColorFormat = mPreviewFormat == KOV_FORMAT_YUV420P ? ARC_FACE_FORMAT_YUV420P : ARC_FACE_FORMAT_YUV420SP;
}

void ShotSmile::Init() {
    m_nFaceNum = 0;
    decidePreviewColorFormat();
    if (!InitFaceTracking(mPreviewWidth, mPreviewHeight, mEngineColorFormat, 0, kMostFaces)) {
        kLog.debug("InitFaceTracking error");
        return;
    }
    kLog.debug("InitFaceTracking Success");
    if (!InitSmileDetection(mPreviewWidth, mPreviewHeight)) {
        kLog.debug("InitSmileDetection error");
        UnInitFaceTracking();
        return;
    }
    kLog.debug("InitSmileDetection Success WH[%d %d]", mPreviewWidth.load(), mPreviewHeight.load());
}

status_t ShotSmile::startPreview() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    return startPreviewAfter(hardware, [this](const CameraParameters& params) {
        takePreviewSize(params);
        const AutoMutex held(mEngineLock);
        UnInitSmile();
        UnInitFaceTracking();
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
            return ShotCommon::sendCommand(cmd, arg1, arg2);
    }
}

void ShotSmile::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!admitData(msgType, data))
        return;
    if (msgType == CAMERA_MSG_PREVIEW_FRAME) {
        const int32_t width = mPreviewWidth;
        const int32_t height = mPreviewHeight;
        // A frame that is smaller than the preview size says (the size is being changed) is passed on unread.
        const uint64_t needed = yuv420FrameSize(width, height);
        auto* const frame = static_cast<unsigned char*>(data->pointer());
        if (needed > 0 && data->size() >= needed && frame && !OnPreviewSmileShot(width, height, frame))
            return;
    }
    if (msgType == CAMERA_MSG_COMPRESSED_IMAGE)
        kLog.info("CAMERA_MSG_COMPRESSED_IMAGE");
    (void)sendData(msgType, data);
}

bool ShotSmile::OnPreviewSmileShot(int32_t width, int32_t height, unsigned char* frame) {
    {
        const AutoMutex held(mEngineLock);
        if (!analyse(width, height, frame))
            return true;
        kLog.debug("Smile Detection Success - m_nFaceNum(%d), IFaceNumber(%d), ISmileNumber(%d)", m_nFaceNum,
                   mSmileResult.IFaceNumber, mSmileResult.ISmileNumber);
    }
    if (!mCallbacks.notify())
        return true;
    mDetectionStarted = 0;
    return !gone(sendNotifyIfSet(CAMERA_MSG_SMILE_DETECTED, 0, 0));
}

/// Finds faces and, while detection is started, marks them and the smiling ones. True when the condition is met.
bool ShotSmile::analyse(int32_t width, int32_t height, unsigned char* frame) {
    // A detection that fails leaves these as they are, and not those of an earlier frame.
    mSmileResult.IFaceNumber = kNoFaceNumber;
    mSmileResult.ISmileNumber = 0;
    m_nFaceNum = std::max(0, FaceTrackingDetect(width, height, frame, mFaceRects));
    if (m_nFaceNum == 0)
        return false;
    uint8_t* const chroma = frame + static_cast<size_t>(width) * static_cast<size_t>(height);
    mPreviewImage = {width, height, {frame, chroma, nullptr}};
    if (mEngineColorFormat == ARC_FACE_FORMAT_YUV420P)
        mPreviewImage.plane[2] = chroma + static_cast<size_t>(width) * static_cast<size_t>(height) / 4;
    if (mDetectionStarted != 1)
        return false;
    for (int32_t i = 0; i < m_nFaceNum; ++i) {
        const __tag_rect& face = mFaceRects[i];
        DrawRectangle(mPreviewImage, face.left, face.top, face.right, face.bottom, kFaceColor);
    }
    // Whatever a failing engine has left in the result is not looked at.
    if (SmileDetect(width, height, frame, mFaceRects, mFaceInfo, m_nFaceNum) < 0)
        return false;
    for (int32_t i = 0; i < std::min(mSmileResult.ISmileNumber, kMostFaces); ++i) {
        const __tag_rect& smile = mSmileResult.smiles[i];
        DrawRectangle(mPreviewImage, smile.left, smile.top, smile.right, smile.bottom, kSmileColor);
    }
    return conditionMet();
}

/// Every face smiles; of a larger group at least three.
bool ShotSmile::conditionMet() const {
    const int32_t faces = mSmileResult.IFaceNumber;
    const int32_t smiles = mSmileResult.ISmileNumber;
    return faces > kGroupAbove ? smiles >= kGroupSmiles : smiles == faces;
}

ShotCommon* makeShotSmile(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotSmile>(hardware);
}

}  // namespace android
