// Smile: faces are followed in the preview, and the application is told when they smile.
//
// Frames of the preview format yuv420p are planar; those of every other format are taken as semi-planar. Any size goes
// whose frame is really there.
#pragma once

#include <atomic>

#include "imaging/Overlay.h"
#include "shots/ShotCallbacks.h"
#include "shots/smile/SmileEngines.h"

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
/// `mEngineLock` keeps the two apart, and frames from each other; it is given up before the notification.
class ShotSmile : public ShotCallbacks<ShotSmile> {
public:
    static constexpr char kTag[] = "ShotSmile";

    explicit ShotSmile(sp<CameraHardwareInterface> hardware);
    ~ShotSmile() override;

    status_t startPreview() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

private:
    void Init() REQUIRES(mEngineLock);
    void decidePreviewColorFormat() REQUIRES(mEngineLock);

    /// Analyses a preview frame, marks it, and tells the application when the condition is met.
    AfterCall OnPreviewSmileShot(const sp<IMemory>& data);
    /// Whether detection is started and the condition is met.
    bool analyse(const PreviewFrame& frame) REQUIRES(mEngineLock);
    void markFaces() REQUIRES(mEngineLock);
    void markSmiles() REQUIRES(mEngineLock);
    bool conditionMet() const REQUIRES(mEngineLock);

    // Drawing (SmileDrawing.cpp).
    void DrawRectangle(sd_image& image, const __tag_rect& corners, sd_color color) const REQUIRES(mEngineLock);
    void DrawRectangle_YUV420_P(sd_image& image, const __tag_rect& corners, sd_color color) const;
    void DrawRectangle_YUV420_SP(sd_image& image, const __tag_rect& corners, sd_color color) const;
    OverlayFrame frameStyle() const;

    SmileEngines mEngines GUARDED_BY(mEngineLock);
    int32_t m_nFaceNum GUARDED_BY(mEngineLock) = 0;
    __tag_rect mFaceRects[SmileEngines::kMostFaces] GUARDED_BY(mEngineLock) = {};
    int32_t mFaceInfo[SmileEngines::kMostFaces] GUARDED_BY(mEngineLock) = {};
    sd_image mPreviewImage GUARDED_BY(mEngineLock) = {};
    int32_t mEngineColorFormat GUARDED_BY(mEngineLock) = ARC_FACE_FORMAT_YUV420SP;
    std::atomic<int32_t> mDetectionStarted{0};

    Mutex mEngineLock;
};

}  // namespace android
