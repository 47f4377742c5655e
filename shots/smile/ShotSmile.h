// Smile: faces are followed in the preview, and the application is told when they smile.
#pragma once

#include <arccamera/face.h>

#include <atomic>

#include "imaging/Overlay.h"
#include "shots/ShotCallbacks.h"

namespace android {

/// 0xRRGGBB.
using sd_color = uint32_t;

/// A frame as the drawing operations see it.
struct sd_image {
    int32_t width;
    int32_t height;
    uint8_t* plane[3];
};

/// Follows faces in every preview frame. While detection is started it frames them, and those that smile, in the frame,
/// and sends one notification when all of them smile (or three of a larger group).
///
/// Threads: frames arrive on the vendor layer's thread; `startPreview` makes the engines anew on the service's.
/// `mEngineLock` keeps the two apart; it is given up before the notification. The members of the engine binding
/// (SmileEngines.cpp) and of the drawing (SmileDrawing.cpp) want it held.
class ShotSmile : public ShotCallbacks<ShotSmile> {
public:
    static constexpr char kTag[] = "ShotSmile";
    static constexpr int32_t kMostFaces = 3;

    explicit ShotSmile(sp<CameraHardwareInterface> hardware);
    ~ShotSmile() override;

    status_t startPreview() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

    /// Makes the engines for the current preview size and format.
    void Init() REQUIRES(mEngineLock);
    void decidePreviewColorFormat() REQUIRES(mEngineLock);
    /// Analyses one frame of the preview's size and marks it. False when the shot was retired meanwhile.
    [[nodiscard]] bool OnPreviewSmileShot(int32_t width, int32_t height, unsigned char* frame);

    // The engines. Each operation answers 1 or 0 (initialisation), or -1 or a number of faces (detection).
    int32_t InitFaceTracking(int32_t width, int32_t height, int32_t colorFormat, int32_t noTracking, int32_t maxFaces)
        REQUIRES(mEngineLock);
    /// `faces`: room for kMostFaces.
    int32_t FaceTrackingDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces)
        REQUIRES(mEngineLock);
    void UnInitFaceTracking() REQUIRES(mEngineLock);
    int32_t InitSmileDetection(int32_t width, int32_t height) REQUIRES(mEngineLock);
    /// `faceInfo`: room for kMostFaces; filled here.
    int32_t SmileDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces, int32_t* faceInfo,
                        int32_t faceCount) REQUIRES(mEngineLock);
    void UnInitSmile() REQUIRES(mEngineLock);

    // Drawing.
    static void DrawHorizontalLine_YUV420_P(sd_image& image, int y, int x0, int x1, uint8_t Y, uint8_t Cb, uint8_t Cr);
    static void DrawVerticalLine_YUV420_P(sd_image& image, int x, int y0, int y1, uint8_t Y, uint8_t Cb, uint8_t Cr);
    static void DrawHorizontalLine_YUV420_SP(sd_image& image, int y, int x0, int x1, uint8_t Y, uint8_t C1, uint8_t C2);
    static void DrawVerticalLine_YUV420_SP(sd_image& image, int x, int y0, int y1, uint8_t Y, uint8_t C1, uint8_t C2);
    void DrawRectangle_YUV420_P(sd_image& image, int left, int top, int right, int bottom, sd_color color) const;
    void DrawRectangle_YUV420_SP(sd_image& image, int left, int top, int right, int bottom, sd_color color) const;
    void DrawRectangle(sd_image& image, int left, int top, int right, int bottom, sd_color color) const
        REQUIRES(mEngineLock);

    Mutex& engineLock() RETURN_CAPABILITY(mEngineLock) { return mEngineLock; }

private:
    bool analyse(int32_t width, int32_t height, unsigned char* frame) REQUIRES(mEngineLock);
    bool conditionMet() const REQUIRES(mEngineLock);
    bool drawsThick() const;

    Mutex mEngineLock;

    void* mFaceMemBlock GUARDED_BY(mEngineLock) = nullptr;
    MHandle mFaceMemMgr GUARDED_BY(mEngineLock) = nullptr;
    MHandle mFaceEngine GUARDED_BY(mEngineLock) = nullptr;
    AMFPAF_FACE_RESULT mFaceResult GUARDED_BY(mEngineLock) = {};
    AMFPAF_IMAGE_INFO mFaceImageInfo GUARDED_BY(mEngineLock) = {};
    MHandle mSmileEngine GUARDED_BY(mEngineLock) = nullptr;
    ASSD_SMILE_RESULT mSmileResult GUARDED_BY(mEngineLock) = {};
    ASSD_IMAGE mSmileImage GUARDED_BY(mEngineLock) = {};
    void* mSmileMemBlock GUARDED_BY(mEngineLock) = nullptr;
    MHandle mSmileMemMgr GUARDED_BY(mEngineLock) = nullptr;

    int32_t m_nFaceNum GUARDED_BY(mEngineLock) = 0;
    __tag_rect mFaceRects[kMostFaces] GUARDED_BY(mEngineLock) = {};
    int32_t mFaceInfo[kMostFaces] GUARDED_BY(mEngineLock) = {};
    sd_image mPreviewImage GUARDED_BY(mEngineLock) = {};
    int32_t mEngineColorFormat GUARDED_BY(mEngineLock) = ARC_FACE_FORMAT_YUV420SP;
    std::atomic<int32_t> mDetectionStarted{0};
};

}  // namespace android
