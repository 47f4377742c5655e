// The looks that pictures can be given.
#pragma once

#include <memory>
#include <opencv2/core.hpp>

#include "host/caps/Picture.h"

namespace kov::caps {

struct Effect {
    enum class Kind { None, Cartoon, ColorSketch, GreySketch, Stamp };
    Kind kind = Kind::None;
    int smoothness = 0;  // of a stamp: 0 to kMostSmoothness
    int threshold = 0;   // of a stamp: luma below which there is ink
};
constexpr int kMostSmoothness = 10;

/// Pixels on the long side at which looks are worked out at most. A frame of a preview is worked out at less, so that
/// it is ready before the next one comes, and drawn at its own size all the same.
constexpr int kFrameDetail = 640;
constexpr int kPictureDetail = 1280;

/// A look of one picture at a time. Whatever needs to see further than a pixel is found when it is prepared, over the
/// whole picture and at a bounded size; drawing then works pixel by pixel, so that bands of a picture meet without a
/// seam. Its memory is kept from one picture to the next.
class Look {
public:
    virtual ~Look() = default;

    /// Works the look out for a picture, which is not read any more afterwards. `detail`: one of the above.
    virtual void prepare(const Picture& picture, const Effect& effect, int detail) = 0;

    /// Draws the rows of the picture from the even `row` on, as many as `band` has. Several threads may draw at a time.
    virtual void draw(Picture& band, int row) const = 0;
};

/// A look of that kind, not prepared; null for none.
std::unique_ptr<Look> makeLook(Effect::Kind kind);

std::unique_ptr<Look> makeCartoon();
std::unique_ptr<Look> makeSketch();
std::unique_ptr<Look> makeStamp();

/// The rows `rows` of the picture with its look (or none), on all processors.
Picture drawBand(const Look* look, const Picture& picture, cv::Range rows);

/// Draws the whole of a picture of `size` into a semi-planar frame of that size, V before U, on all processors.
void drawFrame(const Look& look, cv::Size size, uint8_t* frame);

/// The size at which looks are worked out: that of the picture up to `detail` pixels on the long side.
cv::Size workSize(cv::Size picture, int detail);

/// Half of a work size, where colours are worked out.
cv::Size halved(cv::Size work);

/// Pixels at the work size that one pixel of a 640 x 480 picture takes: the unit of all radii, so that a look is the
/// same at every size.
double workUnit(cv::Size work);

}  // namespace kov::caps
