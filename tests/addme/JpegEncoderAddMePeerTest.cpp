// The add-me encoder against TurboJPEG's planar compression at the same settings.

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "shots/addme/JpegEncoderAddMe.h"

namespace {

/// Noise of some size, so that every coefficient counts.
std::vector<uint8_t> detailedFrame(int width, int height) {
    cv::Mat all(height * 3 / 2, width, CV_8U);
    cv::theRNG().state = 7;
    cv::randu(all, 0, 255);
    cv::GaussianBlur(all, all, {3, 3}, 0.8);
    return {all.datastart, all.dataend};
}

/// Quality 90, the fast DCT, a restart marker after every row of MCUs.
std::vector<uint8_t> byTurboJpeg(const std::vector<uint8_t>& frame, int width, int height) {
    std::vector<uint8_t> chroma[2];  // V, U
    for (size_t i = frame.size() / 3 * 2; i < frame.size(); ++i)
        chroma[i % 2].push_back(frame[i]);
    const uint8_t* planes[] = {frame.data(), chroma[1].data(), chroma[0].data()};
    std::vector<uint8_t> stream(tjBufSize(width, height, TJSAMP_420));
    unsigned char* out = stream.data();
    unsigned long size = stream.size();
    const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
    setenv("TJ_RESTART", "1", 1);
    EXPECT_FALSE(tjCompressFromYUVPlanes(encoder.get(), planes, width, nullptr, height, TJSAMP_420, &out, &size, 90,
                                         TJFLAG_NOREALLOC | TJFLAG_FASTDCT));
    unsetenv("TJ_RESTART");
    return {out, out + size};
}

// Tables, DCT, padding, restart interval and markers: a change of any of them would show.
TEST(JpegEncoderAddMe, WritesWhatTurboJpegWrites) {
    for (const auto& [width, height] : {std::pair(16U, 16U), {640, 480}, {48, 80}, {24, 40}, {34, 18}, {638, 362}}) {
        auto frame = detailedFrame(width, height);
        std::vector<uint8_t> stream(frame.size() * 2 + 4096);
        const int size = android::jpeg_compress_yuv420sp_AddMe(stream.data(), static_cast<unsigned>(stream.size()),
                                                               frame.data(), width, height);
        stream.resize(static_cast<size_t>(size));
        EXPECT_TRUE(stream == byTurboJpeg(frame, width, height)) << width;
    }
}

}  // namespace
