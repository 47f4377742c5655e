// What the looks have in common.

#include "host/caps/Look.h"

#include <algorithm>

namespace kov::caps {

namespace {

constexpr int kWorkSide = 1280;
constexpr double kUnitSide = 640;
constexpr double kLeastUnit = 0.5;  // lines keep their substance in very small pictures
constexpr int kStripe = 16;         // rows, even: what one thread draws at a time

}  // namespace

std::unique_ptr<Look> makeLook(const Effect& effect, const Picture& picture) {
    switch (effect.kind) {
        case Effect::Kind::Cartoon:
            return makeCartoon(picture);
        case Effect::Kind::ColorSketch:
            return makeSketch(picture, true);
        case Effect::Kind::GreySketch:
            return makeSketch(picture, false);
        case Effect::Kind::Stamp:
            return makeStamp(picture, effect.smoothness, effect.threshold);
        case Effect::Kind::None:
            break;
    }
    return nullptr;
}

Picture drawBand(const Look* look, const Picture& picture, cv::Range rows) {
    if (!look)
        return picture.band(rows);
    Picture band({picture.size().width, rows.size()});
    const int stripes = (rows.size() + kStripe - 1) / kStripe;
    cv::parallel_for_({0, stripes}, [&](const cv::Range& share) {
        for (int i = share.start; i < share.end; ++i) {
            const cv::Range part(i * kStripe, std::min((i + 1) * kStripe, rows.size()));
            Picture stripe = band.band(part);
            look->draw(stripe, rows.start + part.start);
        }
    });
    return band;
}

cv::Size workSize(cv::Size picture) {
    const double factor = std::min(1.0, static_cast<double>(kWorkSide) / std::max(picture.width, picture.height));
    return {std::max(1, cvRound(picture.width * factor)), std::max(1, cvRound(picture.height * factor))};
}

cv::Size halved(cv::Size work) {
    return {std::max(1, work.width / 2), std::max(1, work.height / 2)};
}

double workUnit(cv::Size work) {
    return std::max(kLeastUnit, std::max(work.width, work.height) / kUnitSide);
}

}  // namespace kov::caps
