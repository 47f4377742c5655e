// The host's JPEG encoder behind the library's calls, against an independent decoder.

#include <arccamera/jpeg.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace {

constexpr int32_t kJpeg = 2;

class JpegEncoderTest : public ::testing::Test {
protected:
    JpegEncoderTest() {
        EXPECT_EQ(AMCM_Create(nullptr, &manager), 0);
        AMCM_RegisterEx(manager, 0x81002202, 0x2000000, 2, 5, reinterpret_cast<void*>(MEncoder_AJL2Create));
    }
    ~JpegEncoderTest() override { AMCM_Destroy(manager); }

    /// A gradient in luma over one colour, V first, in a block of exactly its size.
    static std::vector<uint8_t> makeFrame(cv::Size size, uint8_t v, uint8_t u) {
        std::vector<uint8_t> frame(static_cast<size_t>(size.area()) * 3 / 2);
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x)
                frame[static_cast<size_t>(y) * size.width + x] =
                    static_cast<uint8_t>(60 + 120 * (x + y) / (size.width + size.height));
        }
        for (size_t i = static_cast<size_t>(size.area()); i < frame.size(); i += 2) {
            frame[i] = v;
            frame[i + 1] = u;
        }
        return frame;
    }
    static MBITMAP bitmapOf(std::vector<uint8_t>& frame, cv::Size size) {
        uint8_t* const chroma = frame.data() + size.area();
        return {ARC_FORMAT_YUV420_SEMIPLANAR,
                size.width,
                size.height,
                {size.width, size.width, size.width},
                {frame.data(), chroma + 1, chroma}};
    }
    static std::vector<uint8_t> contents(MHandle stream) {
        MStreamSeek(stream, 0, 0);
        std::vector<uint8_t> bytes(static_cast<size_t>(MStreamGetSize(stream)));
        EXPECT_EQ(MStreamRead(stream, bytes.data(), static_cast<int32_t>(bytes.size())),
                  static_cast<int32_t>(bytes.size()));
        return bytes;
    }

    MHandle manager = nullptr;
};

TEST_F(JpegEncoderTest, PicturesOfAnyEvenSizeComeBackAsTheyWere) {
    for (const cv::Size size : {cv::Size(640, 480), cv::Size(2, 2), cv::Size(18, 34), cv::Size(1030, 14)}) {
        SCOPED_TRACE(::testing::Message() << size.width << 'x' << size.height);
        constexpr uint8_t kV = 200;
        constexpr uint8_t kU = 90;
        auto frame = makeFrame(size, kV, kU);
        MBITMAP bitmap = bitmapOf(frame, size);
        const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, std::max(4096, 3 * size.area()));
        EXPECT_EQ(MdBitmapSave(manager, stream, kJpeg, &bitmap), 0);
        const cv::Mat decoded = cv::imdecode(contents(stream), cv::IMREAD_COLOR);
        MStreamClose(stream);
        ASSERT_EQ(decoded.size(), size);
        cv::Mat picture;
        cv::cvtColor(decoded, picture, cv::COLOR_BGR2YCrCb);
        const cv::Scalar mean = cv::mean(picture);
        EXPECT_NEAR(mean[1], kV, 2);  // red and blue are not exchanged
        EXPECT_NEAR(mean[2], kU, 2);
        const cv::Mat luma(size, CV_8U, frame.data());
        cv::extractChannel(picture, picture, 0);
        EXPECT_GT(cv::PSNR(luma, picture), 38);
    }
}

TEST_F(JpegEncoderTest, WhatDoesNotFitLeavesTheStreamEmpty) {
    const cv::Size size(320, 240);
    auto frame = makeFrame(size, 128, 128);
    cv::theRNG().state = 3;
    cv::randu(frame, 0, 255);  // hardly compressible
    MBITMAP bitmap = bitmapOf(frame, size);
    const MHandle roomy = MStreamOpenFromMemoryBlock(nullptr, 3 * size.area());
    EXPECT_EQ(MdBitmapSaveEx(manager, roomy, kJpeg, &bitmap, 100, ARC_FORMAT_YUV420_SEMIPLANAR), 0);
    const int32_t needed = MStreamGetSize(roomy);
    MStreamClose(roomy);
    // The address sanitizer watches the stream's block. libjpeg asks for more room when the last byte is taken, so one
    // is kept free.
    for (const int32_t capacity : {1, 100, needed / 2, needed - 1, needed + 1}) {
        const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, capacity);
        const bool saved = MdBitmapSaveEx(manager, stream, kJpeg, &bitmap, 100, ARC_FORMAT_YUV420_SEMIPLANAR) == 0;
        EXPECT_EQ(saved, capacity > needed) << capacity;
        EXPECT_EQ(MStreamGetSize(stream), saved ? needed : 0) << capacity;
        MStreamClose(stream);
    }
}

TEST_F(JpegEncoderTest, WrongCallsAreRefused) {
    const cv::Size size(32, 16);
    auto frame = makeFrame(size, 128, 128);
    MBITMAP bitmap = bitmapOf(frame, size);
    EXPECT_EQ(MStreamOpenFromMemoryBlock(nullptr, 0), nullptr);
    const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, 4096);
    MHandle withoutEncoder = nullptr;
    AMCM_Create(nullptr, &withoutEncoder);
    EXPECT_NE(MdBitmapSave(nullptr, stream, kJpeg, &bitmap), 0);
    EXPECT_NE(MdBitmapSave(withoutEncoder, stream, kJpeg, &bitmap), 0);
    EXPECT_NE(MdBitmapSave(manager, stream, 1, &bitmap), 0);
    bitmap.lWidth = 31;
    EXPECT_NE(MdBitmapSave(manager, stream, kJpeg, &bitmap), 0);
    bitmap.lWidth = 32;
    bitmap.dwPixelArrayFormat = 5;
    EXPECT_NE(MdBitmapSave(manager, stream, kJpeg, &bitmap), 0);
    EXPECT_EQ(MStreamGetSize(stream), 0);
    AMCM_Destroy(withoutEncoder);
    MStreamClose(stream);
}

}  // namespace
