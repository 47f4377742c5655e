// JPEG from pictures, band by band, through libjpeg-turbo's raw-data interface.
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <vector>

#include "host/caps/Picture.h"

namespace kov::caps {

/// Compresses one picture: baseline, 4:2:0.
class JpegWriter {
public:
    static constexpr int kRows = 16;  // bands begin at multiples of this

    /// `size`: of the picture in the stream; its bands have that width made even. `quality`: 1 to 100. A stream of
    /// more than `mostBytes` fails.
    JpegWriter(cv::Size size, int quality, size_t mostBytes);
    ~JpegWriter();
    JpegWriter(const JpegWriter&) = delete;
    JpegWriter& operator=(const JpegWriter&) = delete;

    /// The next band: a multiple of `kRows`, or what is left. False when it failed; the writer is of no use then.
    bool write(const Picture& band);
    /// After the last band: the whole stream into `stream`. False when it failed.
    bool finish(std::vector<uint8_t>& stream);

private:
    struct Codec;
    const std::unique_ptr<Codec> mCodec;
};

}  // namespace kov::caps
