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

/// A look of one picture. Whatever needs to see further than a pixel is found when it is made, over the whole picture
/// and at a bounded size; drawing then works pixel by pixel, so that bands of a picture meet without a seam.
class Look {
public:
    virtual ~Look() = default;

    /// Draws the rows of the picture from the even `row` on, as many as `band` has. Several threads may draw at a time.
    virtual void draw(Picture& band, int row) const = 0;
};

/// Null for no effect.
std::unique_ptr<Look> makeLook(const Effect& effect, const Picture& picture);

std::unique_ptr<Look> makeCartoon(const Picture& picture);
std::unique_ptr<Look> makeSketch(const Picture& picture, bool color);
std::unique_ptr<Look> makeStamp(const Picture& picture, int smoothness, int threshold);

/// The rows `rows` of the picture with its look (or none), on all processors.
Picture drawBand(const Look* look, const Picture& picture, cv::Range rows);

/// The size at which looks are worked out: that of the picture up to 1280 pixels on the long side.
cv::Size workSize(cv::Size picture);

/// Half of a work size, where colours are worked out.
cv::Size halved(cv::Size work);

/// Pixels at the work size that one pixel of a 640 x 480 picture takes: the unit of all radii, so that a look is the
/// same at every size.
double workUnit(cv::Size work);

}  // namespace kov::caps
