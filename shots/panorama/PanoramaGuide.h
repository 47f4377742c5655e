// The guide that is drawn over the preview during a sweep: where its lines and arrows are.
#pragma once

#include <panoramax/panoramax.h>

#include <cstdint>

namespace android {

/// 0xRRGGBB; kPanoramaNoColor draws nothing.
using px_color = uint32_t;
constexpr px_color kPanoramaNoColor = 0xFFFF;

/// The arrow to draw: bits 1 right, 2 left, 4 up, 8 down; 0 none.
using px_direction = int32_t;

/// The guide of one frame, by what the library said of that frame.
class PanoramaGuide {
public:
    PanoramaGuide(const px_status& status, int32_t width, int32_t height)
        : mPxStatus(status), mFrameWidth(width), mFrameHeight(height) {}

    /// The frame's outline 10 pixels further in, shifted by its offset.
    void GetRectToDraw(int& left, int& top, int& right, int& bottom) const;
    px_color GetRectColor() const;
    /// Towards the offset.
    px_direction GetArrows() const;

    /// Draws the rectangle, then the arrows, into the frame. Frames with a side below 64 pixels are not marked.
    void draw(px_image& image) const;

private:
    const px_status mPxStatus;
    const int32_t mFrameWidth;
    const int32_t mFrameHeight;
};

/// Blends the arrow into a frame of at least 64 x 64 pixels, with the next opacity of the pulse. The pulse is the
/// process's and goes on with every call, also when there is no arrow.
void DrawFadingArrows(const px_image& image, px_direction code);

}  // namespace android
