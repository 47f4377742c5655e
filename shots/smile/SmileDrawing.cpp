// The frames round faces.

#include "shots/smile/ShotSmile.h"

namespace android {

namespace {
constexpr TaggedLog kLog(ShotSmile::kTag);
constexpr int32_t kThickFromWidth = 640;  // of the preview
}  // namespace

OverlayFrame ShotSmile::frameStyle() const {
    return mPreviewWidth >= kThickFromWidth ? OverlayFrame::Inward4 : OverlayFrame::Inward2;
}

void ShotSmile::DrawRectangle_YUV420_P(sd_image& image, const __tag_rect& corners, sd_color color) const {
    completePlanes(image, OverlayLayout::Planar);
    drawRectangle(overlayImage(image), OverlayLayout::Planar, corners.left, corners.top, corners.right, corners.bottom,
                  overlayColor(color), frameStyle());
}

void ShotSmile::DrawRectangle_YUV420_SP(sd_image& image, const __tag_rect& corners, sd_color color) const {
    completePlanes(image, OverlayLayout::SemiPlanar);
    if (frameStyle() == OverlayFrame::Inward4)
        kLog.info("mPreviewWidth >= PREVEW_WIDTH_THRESHOLD_TO_DRAW_THICK_LINE");
    drawRectangle(overlayImage(image), OverlayLayout::SemiPlanar, corners.left, corners.top, corners.right,
                  corners.bottom, overlayColor(color), frameStyle());
}

void ShotSmile::DrawRectangle(sd_image& image, const __tag_rect& corners, sd_color color) const {
    if (mEngineColorFormat == ARC_FACE_FORMAT_YUV420P)
        DrawRectangle_YUV420_P(image, corners, color);
    else
        DrawRectangle_YUV420_SP(image, corners, color);
}

}  // namespace android
