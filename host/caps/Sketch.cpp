// Sketches: pencil on paper, in grey or with colour washes.

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "host/caps/Field.h"
#include "host/caps/Lines.h"
#include "host/caps/Look.h"

namespace kov::caps {

namespace {

constexpr float kPaper = 252;                      // luma
constexpr float kGraphite = 45;                    // luma of the darkest stroke
constexpr float kLineFrom = 0.5f, kLineTo = 4.5f;  // percent of a line: nothing, and full graphite
constexpr int kTile = 512;                         // pixels of a 640 x 480 picture
constexpr double kTileUnit = 640;                  // pixels on the long side of a picture whose tiles are not enlarged
constexpr double kMostTileScale = 4;
constexpr double kMostContrast = 1.8;
constexpr float kWash = 60;  // luma of the darkest wash below paper

/// Strokes in one direction. A place of the tile is drawn where the picture is darker than the place's value, which
/// spreads over `from` to `to` in shades of 0 (white) to 1 (black).
struct Hatching {
    float from, to;
    float opacity;      // over white paper
    float washOpacity;  // over a wash, which shades already
};
constexpr Hatching kLight = {0.3f, 1.0f, 0.5f, 0.3f};
constexpr Hatching kDark = {0.6f, 1.0f, 0.6f, 0.45f};
constexpr float kSoftness = 0.22f;     // shades to each side over which a stroke fades
constexpr float kLineOnRough = 0.75f;  // of a line's opacity is left where paper takes the least graphite

/// Pencil strokes in one direction, over and over: bytes, each value as frequent as any other.
cv::Mat strokes(double degrees, int length, uint64_t seed) {
    cv::RNG random(seed);
    cv::Mat noise(kTile, kTile, CV_32F);
    random.fill(noise, cv::RNG::NORMAL, 0, 1);
    cv::Mat kernel = cv::Mat::zeros(2 * length + 1, 2 * length + 1, CV_32F);
    const cv::Point middle(length, length);
    const double angle = degrees * CV_PI / 180;
    const cv::Point tip(cvRound(length * std::cos(angle)), cvRound(-length * std::sin(angle)));
    cv::line(kernel, middle - tip, middle + tip, cv::Scalar(1), 1, cv::LINE_8);
    cv::GaussianBlur(kernel, kernel, {3, 3}, 0.6);
    cv::Mat wide, drawn;
    cv::copyMakeBorder(noise, wide, length, length, length, length, cv::BORDER_WRAP);
    cv::filter2D(wide, drawn, CV_32F, kernel);
    drawn = drawn(cv::Rect(length, length, kTile, kTile)).clone();
    cv::Mat grain(kTile, kTile, CV_32F);
    random.fill(grain, cv::RNG::NORMAL, 0, 1);
    cv::Scalar mean, spread;
    cv::meanStdDev(drawn, mean, spread);
    drawn = drawn / spread[0] + grain * 0.25;
    cv::Mat bytes;
    drawn.convertTo(bytes, CV_8U, 36, 128);
    cv::equalizeHist(bytes, bytes);
    return bytes;
}

struct Strokes {
    cv::Mat light = strokes(52, 11, 11);
    cv::Mat dark = strokes(118, 9, 12);
};

const Strokes& allStrokes() {
    static const Strokes* const tiles = new Strokes;  // used by threads that outlive static objects
    return *tiles;
}

cv::Mat tileAt(const cv::Mat& tile, double scale) {
    if (scale == 1)
        return tile;
    cv::Mat result;
    cv::resize(tile, result, {}, scale, scale, cv::INTER_CUBIC);
    return result;
}

class Sketch : public Look {
public:
    void prepare(const Picture& picture, const Effect& effect, int detail) override;
    void draw(Picture& band, int row) const override;

private:
    void prepareTiles(cv::Size picture);
    void drawLuma(cv::Mat& luma, int row) const;
    void drawChroma(Picture& band, int row) const;
    /// How much of the paper a stroke covers.
    float drawn(const Hatching& hatching, float shade, uint8_t place) const {
        const float at = hatching.from + (hatching.to - hatching.from) / 255 * static_cast<float>(place);
        return ramp(shade - at, -kSoftness, kSoftness) * (mColor ? hatching.washOpacity : hatching.opacity);
    }

    bool mColor = false;
    Sampler mSampler;
    Sampler mToChroma;
    cv::Mat mShade;  // 0 paper to 1 darkest
    cv::Mat mLines;
    cv::Mat mU, mV;         // of the wash, about 0, small
    cv::Mat mLight, mDark;  // tiles at the picture's size
    double mTileScale = 0;

    cv::Mat mReduced, mLuma;
    LineFinder mLineFinder;
};

void Sketch::prepareTiles(cv::Size picture) {
    const double scale = std::clamp(std::max(picture.width, picture.height) / kTileUnit, 1.0, kMostTileScale);
    if (scale == mTileScale)
        return;
    mLight = tileAt(allStrokes().light, scale);
    mDark = tileAt(allStrokes().dark, scale);
    mTileScale = scale;
}

void Sketch::prepare(const Picture& picture, const Effect& effect, int detail) {
    const cv::Size work = workSize(picture.size(), detail), small = halved(work);
    const double unit = workUnit(work);
    mColor = effect.kind == Effect::Kind::ColorSketch;
    mSampler.set(work, picture.size());
    mToChroma.set(small, picture.u.size());
    toField(picture.y, work, mReduced, mLuma);
    stretch(mLuma, kMostContrast);
    mLines = mLineFinder.find(mLuma, 0.9 * unit);
    cv::GaussianBlur(mLuma, mShade, {}, 2 * unit);
    mShade.convertTo(mShade, -1, -1 / 255.0, 1);
    prepareTiles(picture.size());
    if (!mColor)
        return;
    for (const auto& [plane, field] : {std::pair(&picture.u, &mU), {&picture.v, &mV}}) {
        cv::resize(*plane, mReduced, small, 0, 0, cv::INTER_AREA);
        mReduced.convertTo(*field, CV_32F, 1, -128);
        cv::GaussianBlur(*field, *field, {}, 1.5 * unit);
    }
}

void Sketch::drawLuma(cv::Mat& luma, int row) const {
    std::vector<float> shadeRoom, lineRoom;
    for (int y = 0; y < luma.rows; ++y) {
        const float* const shade = mSampler.row(mShade, row + y, shadeRoom);
        const float* const lines = mSampler.row(mLines, row + y, lineRoom);
        const uint8_t* const light = mLight.ptr((row + y) % mLight.rows);
        const uint8_t* const dark = mDark.ptr((row + y) % mDark.rows);
        uint8_t* const out = luma.ptr(y);
        for (int x = 0, tile = 0; x < luma.cols; ++x, tile = tile + 1 == mLight.cols ? 0 : tile + 1) {
            const float line = ramp(lines[x], kLineFrom, kLineTo) *
                               (kLineOnRough + (1 - kLineOnRough) / 255 * static_cast<float>(light[tile]));
            const float bare = (1 - drawn(kLight, shade[x], light[tile])) * (1 - drawn(kDark, shade[x], dark[tile]));
            const float paper = mColor ? kPaper - kWash * shade[x] : kPaper;
            out[x] = toByte(kGraphite + (paper - kGraphite) * bare * (1 - line));
        }
    }
}

void Sketch::drawChroma(Picture& band, int row) const {
    if (!mColor) {
        band.u = 128;
        band.v = 128;
        return;
    }
    std::vector<float> uRoom, vRoom;
    for (int y = 0; y < band.u.rows; ++y) {
        const float* const u = mToChroma.row(mU, row / 2 + y, uRoom);
        const float* const v = mToChroma.row(mV, row / 2 + y, vRoom);
        uint8_t* const outU = band.u.ptr(y);
        uint8_t* const outV = band.v.ptr(y);
        for (int x = 0; x < band.u.cols; ++x) {
            outU[x] = toByte(128 + u[x]);
            outV[x] = toByte(128 + v[x]);
        }
    }
}

void Sketch::draw(Picture& band, int row) const {
    drawLuma(band.y, row);
    drawChroma(band, row);
}

}  // namespace

std::unique_ptr<Look> makeSketch() {
    return std::make_unique<Sketch>();
}

}  // namespace kov::caps
