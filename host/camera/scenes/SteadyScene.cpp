// What the scenes share in which the camera is held still.

#include "host/camera/scenes/SteadyScene.h"

#include <algorithm>

#include "host/camera/scenes/Hand.h"
#include "host/camera/scenes/Outdoors.h"

namespace kov::camera {

namespace {
constexpr size_t kMostKept = 12;

int marginPixels(cv::Size size) {
    return static_cast<int>(kSceneMargin * size.height / kViewHeight);
}
}  // namespace

View SteadyScene::wholeView(cv::Size size) {
    const int margin = marginPixels(size);
    return View::around({0, kViewHeight / 2}, size)
        .part({-margin, -margin, size.width + 2 * margin, size.height + 2 * margin});
}

cv::Rect SteadyScene::crop(double seconds, cv::Size size) const {
    const int margin = marginPixels(size);
    const cv::Point2d shift = handShake(seconds, mShake) * (size.height / kViewHeight);
    return {{margin + cvRound(shift.x), margin + cvRound(shift.y)}, size};
}

View SteadyScene::viewAt(double seconds, cv::Size size) const {
    return wholeView(size).part(crop(seconds, size));
}

const cv::Mat& SteadyScene::backdrop(cv::Size size, int state) {
    const auto kept =
        std::find_if(mKept.begin(), mKept.end(), [&](const Kept& k) { return k.size == size && k.state == state; });
    if (kept != mKept.end()) {
        std::rotate(kept, kept + 1, mKept.end());
    } else {
        if (mKept.size() == kMostKept)
            mKept.erase(mKept.begin());
        mKept.push_back({size, state, draw(wholeView(size), state)});
    }
    return mKept.back().picture;
}

}  // namespace kov::camera
