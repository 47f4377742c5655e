// A session of the effects engine: one source, the effects on it, and how to render.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <variant>
#include <vector>

#include "host/caps/JpegWriter.h"
#include "host/caps/Look.h"
#include "host/caps/Picture.h"
#include "host/caps/Status.h"

namespace kov::caps {

/// A JPEG in memory. Borrowed.
struct JpegSource {
    const uint8_t* data;
    size_t bytes;
    cv::Size size;
};

/// A semi-planar frame, V before U. Borrowed.
struct FrameSource {
    const uint8_t* data;
    cv::Size size;
};

using Source = std::variant<JpegSource, FrameSource>;

/// A rotation, or an effect.
enum class Edit { Cartoon, Stamp, Rotate };

class Session {
public:
    explicit Session(const Source& source) : mSource(source) {}

    // An edit is begun, set and ended, and counts from then on. Beginning one drops another that was not ended.
    void begin(Edit edit);
    Status setCartoon(bool on);
    Status setStamp(int smoothness, int threshold);
    Status setRotate(int degrees);
    Status end(Edit edit);

    void sketch(bool color);
    Status setQuality(float quality);

    /// The source, turned; nothing when it cannot be decoded. Luma may be the source's own pixels. What is copied goes
    /// into the memory of `room` where that fits.
    std::optional<Picture> read(Picture room = {}) const;
    /// The same at exactly `size` made even, with pixels of its own.
    std::optional<Picture> load(cv::Size size) const;
    /// Size of the source after its rotation.
    cv::Size size() const;
    const Effect& effect() const { return mEffect; }
    int quality() const { return mQuality; }

private:
    Status set(Edit edit, const Effect& effect, int quarters);

    const Source mSource;
    Effect mEffect;
    int mQuarters = 0;  // clockwise
    int mQuality = 90;  // 1 to 100

    std::optional<Edit> mEdit;  // begun and not ended
    bool mEditSet = false;
    Effect mNextEffect;
    int mNextQuarters = 0;
};

/// A picture on its way into a JPEG, in steps.
class Rendering {
public:
    static constexpr int kSteps = 40;  // every second one is a twentieth of the way

    /// `size`: of the JPEG. A stream of more than `mostBytes` fails.
    Rendering(Picture picture, const Session& session, cv::Size size, size_t mostBytes);

    /// One step: Good while more follow, Done with the last; `stream` holds the whole JPEG then. What else it returns,
    /// it returns for good.
    Status step(std::vector<uint8_t>& stream);
    int stepsDone() const { return mSteps; }

private:
    Status work(std::vector<uint8_t>& stream);
    int firstRow(int step) const;

    Picture mPicture;
    const Effect mEffect;
    JpegWriter mWriter;
    std::unique_ptr<Look> mLook;
    int mSteps = 0;
    Status mStatus = Status::Good;
};

/// Renders into a semi-planar frame of the session's size.
Status renderFrame(const Session& session, uint8_t* frame);

}  // namespace kov::caps
