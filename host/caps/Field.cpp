// Fields: what an effect computes once over a whole picture, at a bounded size, and draws from at any size.

#include "host/caps/Field.h"

namespace kov::caps {

void Sampler::findPlaces(int field, int picture, std::vector<Place>& places) {
    places.resize(static_cast<size_t>(picture));
    const double step = static_cast<double>(field) / picture;
    for (int i = 0; i < picture; ++i) {
        // Pixel centres lie half a pixel from the edge in both.
        const double place = std::clamp((i + 0.5) * step - 0.5, 0.0, field - 1.0);
        const int at = std::min(static_cast<int>(place), std::max(field - 2, 0));
        places[static_cast<size_t>(i)] = {at, static_cast<float>(place - at)};
    }
}

void Sampler::set(cv::Size field, cv::Size picture) {
    if (field == mField && picture == mPicture)
        return;
    mField = field;
    mPicture = picture;
    findPlaces(field.width, picture.width, mColumns);
    findPlaces(field.height, picture.height, mRows);
}

const float* Sampler::row(const cv::Mat& field, int y, std::vector<float>& room) const {
    if (mField == mPicture)
        return field.ptr<float>(y);
    // First between two rows of the field, which is short, then along the picture's row.
    const int width = mField.width;
    room.resize(static_cast<size_t>(mPicture.width) + 2 * static_cast<size_t>(width));
    float* const out = room.data();
    float* const between = out + mPicture.width;
    float* const slope = between + width;
    const Place across = mRows[static_cast<size_t>(y)];
    const float* const above = field.ptr<float>(across.at);
    const float* const below = field.ptr<float>(std::min(across.at + 1, field.rows - 1));
    for (int x = 0; x < width; ++x)
        between[x] = above[x] + (below[x] - above[x]) * across.share;
    for (int x = 0; x + 1 < width; ++x)
        slope[x] = between[x + 1] - between[x];
    slope[width - 1] = 0;
    const Place* const columns = mColumns.data();
    for (int x = 0; x < mPicture.width; ++x)
        out[x] = between[columns[x].at] + slope[columns[x].at] * columns[x].share;
    return out;
}

}  // namespace kov::caps
