// Fields: what an effect computes once over a whole picture, at a bounded size, and draws from at any size.

#include "host/caps/Field.h"

namespace kov::caps {

std::vector<Sampler::Place> Sampler::places(int field, int picture) {
    std::vector<Place> all(picture);
    const double step = static_cast<double>(field) / picture;
    for (int i = 0; i < picture; ++i) {
        // Pixel centres lie half a pixel from the edge in both.
        const double place = std::clamp((i + 0.5) * step - 0.5, 0.0, field - 1.0);
        const int at = std::min(static_cast<int>(place), std::max(field - 2, 0));
        all[i] = {at, static_cast<float>(place - at)};
    }
    return all;
}

Sampler::Sampler(cv::Size field, cv::Size picture)
    : mPicture(picture),
      mSame(field == picture),
      mColumns(mSame ? std::vector<Place>() : places(field.width, picture.width)),
      mRows(mSame ? std::vector<Place>() : places(field.height, picture.height)) {}

const float* Sampler::row(const cv::Mat& field, int y, std::vector<float>& room) const {
    if (mSame)
        return field.ptr<float>(y);
    room.resize(mPicture.width);
    const Place across = mRows[y];
    const float* const above = field.ptr<float>(across.at);
    const float* const below = field.ptr<float>(std::min(across.at + 1, field.rows - 1));
    const int next = field.cols > 1 ? 1 : 0;
    for (int x = 0; x < mPicture.width; ++x) {
        const Place place = mColumns[x];
        const float* const a = above + place.at;
        const float* const b = below + place.at;
        const float upper = a[0] + (a[next] - a[0]) * place.share;
        const float lower = b[0] + (b[next] - b[0]) * place.share;
        room[x] = upper + (lower - upper) * across.share;
    }
    return room.data();
}

}  // namespace kov::caps
