// The frames round faces.

#include "shots/smile/ShotSmile.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotSmile::kTag);
constexpr int32_t kThickFromWidth = 640;  // of the preview
}  // namespace

void ShotSmile::DrawHorizontalLine_YUV420_P(sd_image& image, int y, int x0, int x1, uint8_t Y, uint8_t Cb, uint8_t Cr) {
    drawHorizontalLine(overlayImage(image), OverlayLayout::Planar, y, x0, x1, {Y, Cb, Cr});
}

void ShotSmile::DrawVerticalLine_YUV420_P(sd_image& image, int x, int y0, int y1, uint8_t Y, uint8_t Cb, uint8_t Cr) {
    drawVerticalLine(overlayImage(image), OverlayLayout::Planar, x, y0, y1, {Y, Cb, Cr});
}

void ShotSmile::DrawHorizontalLine_YUV420_SP(sd_image& image, int y, int x0, int x1, uint8_t Y, uint8_t C1,
                                             uint8_t C2) {
    drawHorizontalLine(overlayImage(image), OverlayLayout::SemiPlanar, y, x0, x1, {Y, C1, C2});
}

void ShotSmile::DrawVerticalLine_YUV420_SP(sd_image& image, int x, int y0, int y1, uint8_t Y, uint8_t C1, uint8_t C2) {
    drawVerticalLine(overlayImage(image), OverlayLayout::SemiPlanar, x, y0, y1, {Y, C1, C2});
}

bool ShotSmile::drawsThick() const {
    return mPreviewWidth >= kThickFromWidth;
}

void ShotSmile::DrawRectangle_YUV420_P(sd_image& image, int left, int top, int right, int bottom,
                                       sd_color color) const {
    completePlanes(image, OverlayLayout::Planar);
    drawRectangle(overlayImage(image), OverlayLayout::Planar, left, top, right, bottom, overlayColor(color),
                  drawsThick() ? OverlayFrame::Inward4 : OverlayFrame::Inward2);
}

void ShotSmile::DrawRectangle_YUV420_SP(sd_image& image, int left, int top, int right, int bottom,
                                        sd_color color) const {
    completePlanes(image, OverlayLayout::SemiPlanar);
    if (drawsThick())
        kLog.info("mPreviewWidth >= PREVEW_WIDTH_THRESHOLD_TO_DRAW_THICK_LINE");
    drawRectangle(overlayImage(image), OverlayLayout::SemiPlanar, left, top, right, bottom, overlayColor(color),
                  drawsThick() ? OverlayFrame::Inward4 : OverlayFrame::Inward2);
}

void ShotSmile::DrawRectangle(sd_image& image, int left, int top, int right, int bottom, sd_color color) const {
    if (mEngineColorFormat == ARC_FACE_FORMAT_YUV420P)
        DrawRectangle_YUV420_P(image, left, top, right, bottom, color);
    else
        DrawRectangle_YUV420_SP(image, left, top, right, bottom, color);
}

}  // namespace android
