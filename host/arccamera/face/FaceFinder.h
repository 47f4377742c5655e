// Finding faces in a picture: by the face network, or by a cascade where its weights are not there.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <vector>

namespace kov::arc {

/// A face in a picture.
struct Face {
    cv::Rect2f place;  // a square from the brows to the chin
    float tilt;        // degrees clockwise, as far as the finder tells
};

/// One thread at a time.
class FaceFinder {
public:
    /// Null, with a line in the log, when there is neither network nor cascade.
    static std::unique_ptr<FaceFinder> make();

    virtual ~FaceFinder() = default;

    /// The faces in a picture of luma that are at least `least` pixels high and tilted by about `tilt` degrees.
    virtual std::vector<Face> find(const cv::Mat& luma, float least, float tilt) = 0;

    /// The tilts that are to be tried one after the other.
    virtual const std::vector<float>& tilts() const = 0;
};

}  // namespace kov::arc
