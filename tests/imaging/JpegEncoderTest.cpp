// The host's JPEG encoder behind the library's calls, against an independent decoder.

#include <arccamera/jpeg.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace {

constexpr int32_t kJpeg = 2;
constexpr uint32_t kFormat = ARC_FORMAT_YUV420_SEMIPLANAR;

class JpegEncoderTest : public ::testing::Test {
protected:
    JpegEncoderTest() {
        EXPECT_EQ(AMCM_Create(nullptr, &manager), 0);
        AMCM_RegisterEx(manager, 0x81002202, 0x2000000, 2, 5, reinterpret_cast<void*>(MEncoder_AJL2Create));
    }
    ~JpegEncoderTest() override { AMCM_Destroy(manager); }

    MHandle manager = nullptr;
};

/// A frame in a block of exactly its size: a gradient in luma over one colour, V first.
struct Frame {
    Frame(int32_t w, int32_t h, uint8_t v, uint8_t u) : bytes(static_cast<size_t>(w * h * 3 / 2)) {
        for (int i = 0; i < w * h * 3 / 2; ++i)
            bytes[i] = static_cast<uint8_t>(i >= w * h ? (i % 2 ? u : v) : 60 + 120 * (i % w + i / w) / (w + h));
        uint8_t* const chroma = bytes.data() + w * h;
        bitmap = {kFormat, w, h, {w, w, w}, {bytes.data(), chroma + 1, chroma}};
    }
    std::vector<uint8_t> bytes;
    MBITMAP bitmap;
};

TEST_F(JpegEncoderTest, PicturesOfAnyEvenSizeComeBackAsTheyWere) {
    for (const cv::Size size : {cv::Size(640, 480), cv::Size(2, 2), cv::Size(18, 34), cv::Size(1030, 14)}) {
        SCOPED_TRACE(::testing::Message() << size.width << 'x' << size.height);
        Frame frame(size.width, size.height, 200, 90);
        const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, std::max(4096, 3 * size.area()));
        EXPECT_EQ(MdBitmapSave(manager, stream, kJpeg, &frame.bitmap), 0);
        std::vector<uint8_t> jpeg(static_cast<size_t>(MStreamGetSize(stream)));
        MStreamSeek(stream, 0, 0);
        MStreamRead(stream, jpeg.data(), static_cast<int32_t>(jpeg.size()));
        MStreamClose(stream);
        const cv::Mat decoded = cv::imdecode(jpeg, cv::IMREAD_COLOR);
        ASSERT_EQ(decoded.size(), size);
        cv::Mat picture;
        cv::cvtColor(decoded, picture, cv::COLOR_BGR2YCrCb);
        const cv::Scalar mean = cv::mean(picture);
        EXPECT_NEAR(mean[1], 200, 2);  // red and blue are not exchanged
        EXPECT_NEAR(mean[2], 90, 2);
        cv::extractChannel(picture, picture, 0);
        EXPECT_GT(cv::PSNR(cv::Mat(size, CV_8U, frame.bytes.data()), picture), 38);
    }
}

TEST_F(JpegEncoderTest, WhatDoesNotFitLeavesTheStreamEmpty) {
    Frame frame(320, 240, 128, 128);
    cv::theRNG().state = 3;
    cv::randu(frame.bytes, 0, 255);  // hardly compressible
    const auto savedIn = [&](int32_t capacity) {
        const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, capacity);
        const bool saved = MdBitmapSaveEx(manager, stream, kJpeg, &frame.bitmap, 100, kFormat) == 0;
        const int32_t size = MStreamGetSize(stream);
        MStreamClose(stream);
        EXPECT_EQ(saved, size > 0) << capacity;
        return size;
    };
    const int32_t needed = savedIn(3 * 320 * 240);
    EXPECT_GT(needed, 0);
    // The address sanitizer watches the stream's block. libjpeg asks for more room when the last byte is taken, so one
    // is kept free.
    EXPECT_EQ(savedIn(needed + 1), needed);
    for (const int32_t capacity : {1, 100, needed / 2, needed - 1})
        EXPECT_EQ(savedIn(capacity), 0) << capacity;
}

}  // namespace
