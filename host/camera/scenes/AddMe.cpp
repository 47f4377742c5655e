// The scene of two people who photograph each other at the same place.

#include "host/camera/scenes/AddMe.h"

#include <opencv2/imgproc.hpp>

#include "host/camera/scenes/Outdoors.h"
#include "host/camera/scenes/Person.h"

namespace kov::camera {

namespace {

constexpr double kSecondTurn = 0.6;  // degrees
const cv::Point2d kSecondShift(6, -3.5);

struct Standing {
    cv::Point2d feet;
    double height;
    Look look;
};

const Standing& person(int act) {
    static const Standing kPeople[] = {
        {{-165, 446}, 330, {rgb(0xEFC3A0), rgb(0x7A4A22), rgb(0xD8A23A), rgb(0x3B4A5A), rgb(0x5A3422), true}},
        {{160, 450}, 350, {rgb(0xC99873), rgb(0x1F1A18), rgb(0x2F7A5E), rgb(0x6A5A48), rgb(0x26221F), false}},
    };
    return kPeople[act];
}

/// From where the second picture sees things to where the first saw them, in pixels of a view.
cv::Matx23d turned(const View& view) {
    const cv::Point2d centre = view.toPixels({0, kViewHeight / 2});
    cv::Matx23d matrix = cv::getRotationMatrix2D(centre, kSecondTurn, 1);
    matrix(0, 2) += kSecondShift.x * view.scale;
    matrix(1, 2) += kSecondShift.y * view.scale;
    return matrix;
}

}  // namespace

SceneInfo AddMe::info() {
    return {"addme", "a street with a person on the left; after a picture, another one on the right", "shake=0"};
}

AddMe::AddMe(SourceOptions& options) : SteadyScene(options.number("shake", 0, 0, kSceneMargin)) {}

cv::Matx23d AddMe::movement(cv::Size size) {
    return turned(View::around({0, kViewHeight / 2}, size));
}

cv::Mat AddMe::draw(const View& view, int state) {
    // Drawn larger than needed, so that the turned camera still sees the street at its corners.
    View wide = view;
    const int more = cvCeil(kSceneMargin * view.scale);
    wide.origin -= cv::Point2d(more, more) / view.scale;
    wide.size += cv::Size(2 * more, 2 * more);
    Canvas canvas(drawStreet(wide), wide);
    const Standing& standing = person(state);
    drawStander(canvas, standing.feet, standing.height, standing.look);
    cv::Mat picture = canvas.picture();
    if (state == 1)
        cv::warpAffine(picture, picture, turned(wide), wide.size, cv::INTER_CUBIC, cv::BORDER_REPLICATE);
    return picture(cv::Rect({more, more}, view.size)).clone();
}

cv::Rect AddMe::personBox(int act, cv::Size size) const {
    cv::Mat shape = cv::Mat::zeros(size, CV_8UC3);
    Canvas canvas(shape, viewAt(0, size));
    const Standing& standing = person(act);
    drawStander(canvas, standing.feet, standing.height, Look::mask());
    cv::Mat mask;
    cv::extractChannel(shape, mask, 1);
    if (act == 1)
        cv::warpAffine(mask, mask, movement(size), size);
    return cv::boundingRect(mask > 0);
}

}  // namespace kov::camera
