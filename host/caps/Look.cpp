// What the looks have in common.

#include "host/caps/Look.h"

#include <algorithm>

namespace kov::caps {

namespace {

constexpr double kUnitSide = 640;
constexpr double kLeastUnit = 0.5;  // lines keep their substance in very small pictures
constexpr int kStripe = 16;         // rows, even: what one thread draws at a time

/// Calls `draw` for stripes of `rows` rows, on all processors.
template <typename Draw>
void forStripes(int rows, Draw draw) {
    cv::parallel_for_({0, (rows + kStripe - 1) / kStripe}, [&](const cv::Range& share) {
        for (int i = share.start; i < share.end; ++i)
            draw(cv::Range(i * kStripe, std::min((i + 1) * kStripe, rows)));
    });
}

}  // namespace

std::unique_ptr<Look> makeLook(Effect::Kind kind) {
    switch (kind) {
        case Effect::Kind::Cartoon:
            return makeCartoon();
        case Effect::Kind::ColorSketch:
        case Effect::Kind::GreySketch:
            return makeSketch();
        case Effect::Kind::Stamp:
            return makeStamp();
        case Effect::Kind::None:
            break;
    }
    return nullptr;
}

Picture drawBand(const Look* look, const Picture& picture, cv::Range rows) {
    if (!look)
        return picture.band(rows);
    Picture band({picture.size().width, rows.size()});
    forStripes(rows.size(), [&](const cv::Range& part) {
        Picture stripe = band.band(part);
        look->draw(stripe, rows.start + part.start);
    });
    return band;
}

void drawFrame(const Look& look, cv::Size size, uint8_t* frame) {
    forStripes(size.height, [&](const cv::Range& rows) {
        Picture stripe;
        stripe.y = lumaOf(frame, size).rowRange(rows);
        stripe.u.create(rows.size() / 2, size.width / 2, CV_8U);
        stripe.v.create(rows.size() / 2, size.width / 2, CV_8U);
        look.draw(stripe, rows.start);
        writeFrame(stripe, rows.start, frame, size);
    });
}

cv::Size workSize(cv::Size picture, int detail) {
    const double factor = std::min(1.0, static_cast<double>(detail) / std::max(picture.width, picture.height));
    return {std::max(1, cvRound(picture.width * factor)), std::max(1, cvRound(picture.height * factor))};
}

cv::Size halved(cv::Size work) {
    return {std::max(1, work.width / 2), std::max(1, work.height / 2)};
}

double workUnit(cv::Size work) {
    return std::max(kLeastUnit, std::max(work.width, work.height) / kUnitSide);
}

}  // namespace kov::caps
