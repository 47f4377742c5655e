// The add-me encoder: what it writes, against TurboJPEG's planar compression at the same settings, and what it refuses.

#include "shots/addme/JpegEncoderAddMe.h"

#include <gtest/gtest.h>
#ifdef KOV_WITH_TURBOJPEG
#include <turbojpeg.h>
#endif

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "tests/support/FakeSystem.h"
#include "tests/support/Recorder.h"

using namespace android;
using namespace kov::test;

namespace {

/// A frame of noise, so that every coefficient counts.
std::vector<uint8_t> noise(unsigned width, unsigned height) {
    std::vector<uint8_t> yuv(size_t{width} * height * 3 / 2);
    std::generate(yuv.begin(), yuv.end(), [random = std::minstd_rand(7)]() mutable { return random() >> 8 & 0x3F; });
    return yuv;
}

/// The stream; empty when the encoder refused.
std::vector<uint8_t> encode(std::vector<uint8_t>& yuv, unsigned width, unsigned height) {
    std::vector<uint8_t> stream(size_t{width} * height * 3 / 2 + 4096);
    const int size =
        jpeg_compress_yuv420sp_AddMe(stream.data(), static_cast<unsigned>(stream.size()), yuv.data(), width, height);
    stream.resize(static_cast<size_t>(size));
    return stream;
}

#ifdef KOV_WITH_TURBOJPEG

/// TurboJPEG's stream: quality 90, the fast DCT, a restart marker after every row of MCUs.
std::vector<uint8_t> byTurboJpeg(const uint8_t* frame, unsigned width, unsigned height) {
    const size_t luma = size_t{width} * height;
    std::vector<uint8_t> chroma[2];  // V, U
    for (size_t i = 0; i < luma / 2; ++i)
        chroma[i % 2].push_back(frame[luma + i]);
    const uint8_t* planes[] = {frame, chroma[1].data(), chroma[0].data()};
    const int columns = static_cast<int>(width);
    const int rows = static_cast<int>(height);
    std::vector<uint8_t> stream(tjBufSize(columns, rows, TJSAMP_420));
    unsigned char* out = stream.data();
    unsigned long size = stream.size();
    const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
    setenv("TJ_RESTART", "1", 1);
    EXPECT_FALSE(tjCompressFromYUVPlanes(encoder.get(), planes, columns, nullptr, rows, TJSAMP_420, &out, &size, 90,
                                         TJFLAG_NOREALLOC | TJFLAG_FASTDCT));
    unsetenv("TJ_RESTART");
    return {out, out + size};
}

// Planes, tables, DCT, padding, restart interval and markers: a change of any of them would show.
TEST(JpegEncoderAddMe, WritesWhatTurboJpegWrites) {
    const unsigned sizes[][2] = {{16, 16}, {640, 480}, {1280, 720}, {2560, 1920}, {48, 80},   {2544, 1904},
                                 {2, 2},   {18, 34},   {24, 8},     {40, 50},     {638, 478}, {30, 1000}};
    for (const auto& [width, height] : sizes) {
        auto frame = noise(width, height);
        EXPECT_TRUE(encode(frame, width, height) == byTurboJpeg(frame.data(), width, height)) << width;
    }
}

#endif

/// The line that says why there is no stream.
Lines refusal(unsigned width, unsigned height, unsigned capacity, const char* reason) {
    return {text("E JpegEncoderAddMe: cannot compress %ux%u into %u bytes: %s", width, height, capacity, reason)};
}

TEST(JpegEncoderAddMe, KeepsToTheCapacityAndRefusesWhatCannotBe) {
    Recorder log;
    auto frame = noise(320, 240);
    const unsigned length = static_cast<unsigned>(encode(frame, 320, 240).size());
    ASSERT_GT(length, 1000U);
    for (const unsigned capacity : {1U, 2U, 20U, 300U, 700U, length / 2, length - 1, length, length + 1}) {
        SCOPED_TRACE(capacity);
        std::vector<uint8_t> stream(100000, 0xA5);
        const bool fits = capacity > length;
        EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(stream.data(), capacity, frame.data(), 320, 240),
                  fits ? static_cast<int>(length) : 0);
        EXPECT_EQ(log.take(), fits ? Lines{} : refusal(320, 240, capacity, "the buffer is full"));
        EXPECT_TRUE(std::all_of(stream.begin() + capacity, stream.end(), [](uint8_t byte) { return byte == 0xA5; }));
    }
    const size_t before = memoryInUse();
    for (unsigned i = 0; i < 20; ++i)
        jpeg_compress_yuv420sp_AddMe(std::array<uint8_t, 100000>().data(), i % 2 ? 100000 : 300, frame.data(), 320,
                                     240);
    log.take();
    EXPECT_LT(memoryInUse(), before + 2000);
    auto longest = noise(2, 65500);
    std::vector<uint8_t> large(1 << 20);
    for (const auto& [width, height] : {std::pair(2U, 65500U), {65500U, 2U}})
        EXPECT_GT(jpeg_compress_yuv420sp_AddMe(large.data(), 1 << 20, longest.data(), width, height), 0);
    uint8_t* const yuv = frame.data();
    uint8_t out[4096];
    std::vector<std::tuple<uint8_t*, unsigned, uint8_t*, unsigned, unsigned>> cases = {
        {out, 0, yuv, 64, 64}, {nullptr, 4096, yuv, 64, 64}, {out, 4096, nullptr, 64, 64}};
    const unsigned sizes[][2] = {{0, 64},    {64, 0},    {63, 64},           {64, 63},
                                 {65502, 2}, {2, 65502}, {16, UINT_MAX - 1}, {1U << 31, 1U << 31}};
    for (const auto& [width, height] : sizes)
        cases.emplace_back(out, 4096, yuv, width, height);
    for (const auto& [to, capacity, from, width, height] : cases) {
        EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(to, capacity, from, width, height), 0);
        EXPECT_EQ(log.take(), refusal(width, height, capacity, "not a frame, or no buffer"));
    }
}

TEST(JpegEncoderAddMe, WorksInEightRowsOfChroma) {
    const unsigned cases[][3] = {{16, 16, 8 * 16},
                                 {2560, 1920, 8 * 2560},
                                 {24, 48, (8 + 16) * 32},  // luma is padded too
                                 {34, 48, (8 + 16) * 48}};
    for (const auto& [width, height, scratch] : cases) {
        SCOPED_TRACE(width);
        auto frame = noise(width, height);
        size_t asked = 0;
        Recorder log;
        fakeSystem().allowsMemory = [&, scratch = scratch](size_t size) { return (asked += size) == scratch; };
        EXPECT_FALSE(encode(frame, width, height).empty());
        fakeSystem().allowsMemory = [](size_t) { return false; };
        EXPECT_TRUE(encode(frame, width, height).empty());
        EXPECT_EQ(log.take(), refusal(width, height, width * height * 3 / 2 + 4096, "no memory"));
        resetFakeSystem();
    }
}

TEST(JpegEncoderAddMe, AnObjectKeepsItsFirstDestination) {
    jpeg_compress_struct info = {};
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    uint8_t first[2], second[4];
    jpeg_mem_dest_AddMe(&info, first, sizeof first);
    jpeg_destination_mgr* const dest = info.dest;
    dest->term_destination = nullptr;
    jpeg_mem_dest_AddMe(&info, second, sizeof second);
    EXPECT_EQ(info.dest, dest);
    EXPECT_EQ(dest->term_destination, term_destination_AddMe);
    EXPECT_EQ(dest->next_output_byte, second);
    ++dest->next_output_byte;
    dest->init_destination(&info);
    EXPECT_EQ(dest->next_output_byte, second);
    EXPECT_EQ(dest->free_in_buffer, sizeof second);
    --dest->free_in_buffer;
    EXPECT_EQ(jpeg_mem_size_AddMe(&info), 0U);
    dest->term_destination(&info);
    EXPECT_EQ(jpeg_mem_size_AddMe(&info), 1U);
    jpeg_destroy_compress(&info);
}

}  // namespace
