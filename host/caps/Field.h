// Fields: what an effect computes once over a whole picture, at a bounded size, and draws from at any size.
#pragma once

#include <algorithm>
#include <opencv2/core.hpp>
#include <vector>

namespace kov::caps {

/// Reads float fields along the rows of pictures of another size, by bilinear interpolation. Threads may share one.
class Sampler {
public:
    /// From fields of the size `field` to pictures of the size `picture`.
    void set(cv::Size field, cv::Size picture);

    /// Row `y` of the picture as `field`, which has the field size, gives it: a row of the field itself, or in `room`.
    const float* row(const cv::Mat& field, int y, std::vector<float>& room) const;

private:
    struct Place {
        int at;       // the place before
        float share;  // of the place after
    };
    static void findPlaces(int field, int picture, std::vector<Place>& places);

    cv::Size mField;
    cv::Size mPicture;
    std::vector<Place> mColumns;
    std::vector<Place> mRows;
};

/// 0 up to `from`, 1 from `to` on, a straight line between.
inline float ramp(float value, float from, float to) {
    return std::clamp((value - from) * (1 / (to - from)), 0.0f, 1.0f);
}

inline uint8_t toByte(float value) {
    return static_cast<uint8_t>(static_cast<int>(std::clamp(value + 0.5f, 0.0f, 255.0f)));
}

/// Calls `work` for every row from 0 to before `rows`, on all processors.
template <typename Work>
void forRows(int rows, Work work) {
    cv::parallel_for_({0, rows}, [&](const cv::Range& part) {
        for (int y = part.start; y < part.end; ++y)
            work(y);
    });
}

}  // namespace kov::caps
