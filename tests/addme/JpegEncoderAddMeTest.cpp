// The add-me encoder: what it writes, decoded by libjpeg, and what it refuses.

#include "shots/addme/JpegEncoderAddMe.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "tests/support/FakeSystem.h"
#include "tests/support/Recorder.h"

using namespace android;

namespace {

/// A frame that ends where memory that can be read ends. Smooth in all planes, so that little is lost.
std::unique_ptr<uint8_t, std::function<void(uint8_t*)>> guardedFrame(unsigned width, unsigned height) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t size = size_t{width} * height * 3 / 2;
    const size_t mapped = (size / page + 2) * page;
    void* const base = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    uint8_t* const end = static_cast<uint8_t*>(base) + mapped - page;
    mprotect(end, page, PROT_NONE);
    uint8_t* yuv = end - size;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            *yuv++ = static_cast<uint8_t>(40 + 150 * x / width + 50 * y / height);
    for (unsigned y = 0; y < height / 2; ++y)
        for (unsigned x = 0; x < width; x += 2) {
            *yuv++ = static_cast<uint8_t>(90 + 50 * x / width);
            *yuv++ = static_cast<uint8_t>(200 - 140 * y / height);
        }
    return {end - size, [=](uint8_t*) { munmap(base, mapped); }};
}

/// The stream; empty when the encoder refused.
std::vector<uint8_t> encode(uint8_t* yuv, unsigned width, unsigned height) {
    std::vector<uint8_t> stream(size_t{width} * height * 3 / 2 + 4096);
    const int size =
        jpeg_compress_yuv420sp_AddMe(stream.data(), static_cast<unsigned>(stream.size()), yuv, width, height);
    stream.resize(static_cast<size_t>(size));
    return stream;
}

/// A stream as libjpeg reads it.
struct Decoded {
    std::string header;
    std::vector<uint8_t> pixels;  // Y, Cb, Cr; each chroma sample four times
};

Decoded decode(const std::vector<uint8_t>& stream) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, const_cast<uint8_t*>(stream.data()), stream.size());
    jpeg_read_header(&info, TRUE);
    Decoded out;
    out.header = kov::test::text("%ux%u restart %u%s", info.image_width, info.image_height, info.restart_interval,
                                 info.saw_JFIF_marker ? " JFIF" : "");
    for (int i = 0; i < 3; ++i) {
        const jpeg_component_info& part = info.comp_info[i];
        const UINT16* const steps = info.quant_tbl_ptrs[part.quant_tbl_no]->quantval;
        out.header += kov::test::text(" %d%d:%d-%d", part.h_samp_factor, part.v_samp_factor, steps[0], steps[63]);
    }
    info.out_color_space = JCS_YCbCr;
    info.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&info);
    out.pixels.resize(size_t{info.output_width} * info.output_height * 3);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = &out.pixels[size_t{info.output_scanline} * info.output_width * 3];
        jpeg_read_scanlines(&info, &row, 1);
    }
    EXPECT_EQ(info.err->num_warnings, 0);
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return out;
}

int worstDifference(const uint8_t* yuv, const Decoded& picture, size_t width, size_t height) {
    int worst = 0;
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            const uint8_t* const pixel = &picture.pixels[(y * width + x) * 3];
            const uint8_t* const pair = yuv + (height + y / 2) * width + x / 2 * 2;  // V before U
            worst = std::max({worst, std::abs(yuv[y * width + x] - pixel[0]), std::abs(pair[0] - pixel[2]),
                              std::abs(pair[1] - pixel[1])});
        }
    return worst;
}

int countMarkers(const std::vector<uint8_t>& stream, uint8_t from, uint8_t to) {
    int count = 0;
    for (size_t i = 0; i + 1 < stream.size(); ++i)
        count += stream[i] == 0xFF && stream[i + 1] >= from && stream[i + 1] <= to;
    return count;
}

TEST(JpegEncoderAddMe, WritesTheFrameThatItWasGiven) {
    const unsigned sizes[][2] = {{16, 16}, {640, 480}, {1280, 720}, {2560, 1920}, {48, 80},    {2544, 1904}, {2, 2},
                                 {18, 34}, {24, 8},    {40, 50},    {638, 478},   {1000, 602}, {30, 1000}};
    for (const auto& [width, height] : sizes) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        const auto frame = guardedFrame(width, height);
        const std::vector<uint8_t> stream = encode(frame.get(), width, height);
        ASSERT_FALSE(stream.empty());
        const Decoded picture = decode(stream);
        // Quality 90 of the standard tables, which begin and end so for luma and for chroma.
        EXPECT_EQ(picture.header,
                  kov::test::text("%ux%u restart %u JFIF 22:3-20 11:3-20 11:3-20", width, height, (width + 15) / 16));
        EXPECT_LE(worstDifference(frame.get(), picture, width, height), width * height < 1000 ? 12 : 7);
        EXPECT_EQ(countMarkers(stream, 0xD0, 0xD7), static_cast<int>((height + 15) / 16) - 1);  // restarts
        EXPECT_EQ(countMarkers(stream, 0xC0, 0xC0), 1);                                         // baseline
        EXPECT_EQ(stream.end()[-2] * 256 + stream.back(), 0xFFD9);
    }
}

TEST(JpegEncoderAddMe, RepeatsTheEdge) {
    // One colour to the last pixel: padding of another value would show as ringing in the last blocks.
    const auto frame = guardedFrame(20, 20);
    std::fill_n(frame.get(), 400, 100);
    std::fill_n(frame.get() + 400, 200, 180);
    EXPECT_EQ(worstDifference(frame.get(), decode(encode(frame.get(), 20, 20)), 20, 20), 0);
}

TEST(JpegEncoderAddMe, KeepsToTheCapacity) {
    const auto frame = guardedFrame(320, 240);
    const unsigned length = static_cast<unsigned>(encode(frame.get(), 320, 240).size());
    ASSERT_GT(length, 1000U);
    for (const unsigned capacity : {1U, 2U, 20U, 300U, 700U, length / 2, length - 1, length, length + 1}) {
        SCOPED_TRACE(capacity);
        std::vector<uint8_t> stream(100000, 0xA5);
        EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(stream.data(), capacity, frame.get(), 320, 240),
                  capacity > length ? static_cast<int>(length) : 0);
        EXPECT_TRUE(std::all_of(stream.begin() + capacity, stream.end(), [](uint8_t byte) { return byte == 0xA5; }));
    }
}

TEST(JpegEncoderAddMe, RefusesWhatCannotBe) {
    std::vector<uint8_t> frame(64 * 64 * 3 / 2);
    std::vector<uint8_t> out(4096);
    const unsigned sizes[][2] = {
        {0, 64}, {64, 0}, {63, 64}, {64, 63}, {65536, 16}, {16, UINT_MAX - 1}, {1U << 31, 1U << 31}};
    for (const auto& [width, height] : sizes)
        EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(out.data(), 4096, frame.data(), width, height), 0) << width;
    EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(out.data(), 0, frame.data(), 64, 64), 0);
    EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(nullptr, 4096, frame.data(), 64, 64), 0);
    EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(out.data(), 4096, nullptr, 64, 64), 0);
    EXPECT_GT(jpeg_compress_yuv420sp_AddMe(out.data(), 4096, frame.data(), 64, 64), 0);
}

TEST(JpegEncoderAddMe, WorksInEightRowsOfChroma) {
    const unsigned cases[][3] = {{16, 16, 8 * 16},
                                 {2560, 1920, 8 * 2560},
                                 {24, 48, (8 + 16) * 32},  // luma is padded too
                                 {34, 48, (8 + 16) * 48}};
    for (const auto& [width, height, scratch] : cases) {
        SCOPED_TRACE(width);
        const auto frame = guardedFrame(width, height);
        size_t asked = 0;
        kov::test::fakeSystem().allowsMemory = [&](size_t size) { return (asked += size) == scratch; };
        EXPECT_FALSE(encode(frame.get(), width, height).empty());
        kov::test::fakeSystem().allowsMemory = [](size_t) { return false; };
        EXPECT_TRUE(encode(frame.get(), width, height).empty());
        kov::test::resetFakeSystem();
    }
}

TEST(JpegEncoderAddMe, AnObjectKeepsItsFirstDestination) {
    jpeg_compress_struct info = {};
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    info.image_width = 16;
    info.image_height = 1;
    info.input_components = 1;
    info.in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(&info);
    uint8_t first[2048] = {};
    uint8_t second[2048] = {};
    jpeg_mem_dest_AddMe(&info, first, sizeof first);
    const jpeg_destination_mgr* const dest = info.dest;
    info.dest->term_destination = nullptr;
    jpeg_mem_dest_AddMe(&info, second, sizeof second);
    EXPECT_EQ(info.dest, dest);
    EXPECT_EQ(info.dest->term_destination, term_destination_AddMe);
    jpeg_start_compress(&info, TRUE);
    EXPECT_EQ(jpeg_mem_size_AddMe(&info), 0U);
    JSAMPROW row = first + 1024;  // black
    jpeg_write_scanlines(&info, &row, 1);
    jpeg_finish_compress(&info);
    const unsigned size = jpeg_mem_size_AddMe(&info);
    jpeg_destroy_compress(&info);
    ASSERT_GT(size, 2U);
    EXPECT_EQ(second[size - 1], 0xD9);
    EXPECT_EQ(first[0], 0);
}

}  // namespace
