// From the pictures of a source to the formats that a camera delivers.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "host/camera/CameraSettings.h"

namespace kov::camera {

/// Writes `picture` (BGR, even size) as a 4:2:0 frame of width x height x 3 / 2 bytes at `frame`. Keeps its working
/// memory and its codec between frames: one object for each thread.
class FrameWriter {
public:
    FrameWriter();
    ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    bool write(const cv::Mat& picture, PixelLayout layout, uint8_t* frame);

    /// The picture as a baseline JPEG with 4:2:0 chroma; empty when it could not be compressed.
    std::vector<uint8_t> jpeg(const cv::Mat& picture, int quality);

private:
    void* const mCodec;
    std::vector<uint8_t> mChroma;  // U, then V, of the last frame
};

}  // namespace kov::camera
