// The add-me encoder: what it writes, decoded by libjpeg, and what it refuses.

#include "shots/addme/JpegEncoderAddMe.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tests/support/MallocWatch.h"

using namespace android;

namespace {

/// Quality 90 of the standard luma and chroma tables.
constexpr int kLumaStep0 = 3;
constexpr int kChromaStep0 = 3;
constexpr int kLumaStep63 = 20;
constexpr int kChromaStep63 = 20;

/// A frame that ends where memory that can be read ends.
class GuardedFrame {
public:
    GuardedFrame(unsigned width, unsigned height) : mSize(size_t{width} * height * 3 / 2) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        mMapped = (mSize + page - 1) / page * page + page;
        mBase =
            static_cast<uint8_t*>(mmap(nullptr, mMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(mBase + mMapped - page, page, PROT_NONE);
        data = mBase + mMapped - page - mSize;
    }
    ~GuardedFrame() { munmap(mBase, mMapped); }
    GuardedFrame(const GuardedFrame&) = delete;
    GuardedFrame& operator=(const GuardedFrame&) = delete;

    uint8_t* data;
    size_t size() const { return mSize; }

private:
    const size_t mSize;
    size_t mMapped;
    uint8_t* mBase;
};

/// Smooth in all planes, so that little is lost.
void paint(uint8_t* yuv, unsigned width, unsigned height) {
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            *yuv++ = static_cast<uint8_t>(40 + 150 * x / width + 50 * y / height);
    for (unsigned y = 0; y < height / 2; ++y)
        for (unsigned x = 0; x < width / 2; ++x) {
            *yuv++ = static_cast<uint8_t>(90 + 100 * x / width);
            *yuv++ = static_cast<uint8_t>(200 - 140 * y / height);
        }
}

/// A stream as libjpeg reads it: the planes in full MCUs, and what the headers say.
struct Decoded {
    unsigned width = 0, height = 0, restart = 0, stride = 0;
    int sampling[3] = {};
    UINT16 first[2] = {}, last[2] = {};
    bool progressive = true, jfif = false;
    std::vector<uint8_t> y, cb, cr;
};

Decoded decode(const std::vector<uint8_t>& stream, size_t size) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, const_cast<uint8_t*>(stream.data()), size);
    jpeg_read_header(&info, TRUE);
    Decoded out;
    out.width = info.image_width;
    out.height = info.image_height;
    out.restart = info.restart_interval;
    out.progressive = info.progressive_mode;
    out.jfif = info.saw_JFIF_marker;
    for (int i = 0; i < 3; ++i)
        out.sampling[i] = info.comp_info[i].h_samp_factor * 10 + info.comp_info[i].v_samp_factor;
    for (int i = 0; i < 2; ++i) {
        out.first[i] = info.quant_tbl_ptrs[i]->quantval[0];
        out.last[i] = info.quant_tbl_ptrs[i]->quantval[63];
    }
    info.raw_data_out = TRUE;
    info.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&info);
    out.stride = (out.width + 15) / 16 * 16;
    const unsigned bands = (out.height + 15) / 16;
    out.y.resize(size_t{out.stride} * bands * 16);
    out.cb.resize(out.y.size() / 4);
    out.cr.resize(out.y.size() / 4);
    for (unsigned band = 0; band < bands; ++band) {
        JSAMPROW rows[3][16];
        for (unsigned i = 0; i < 16; ++i) {
            rows[0][i] = &out.y[size_t{band * 16 + i} * out.stride];
            rows[1][i] = &out.cb[size_t{band * 8 + i % 8} * out.stride / 2];
            rows[2][i] = &out.cr[size_t{band * 8 + i % 8} * out.stride / 2];
        }
        JSAMPARRAY planes[] = {rows[0], rows[1], rows[2]};
        EXPECT_EQ(jpeg_read_raw_data(&info, planes, 16), 16U);
    }
    EXPECT_EQ(info.err->num_warnings, 0);
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return out;
}

int worstDifference(const uint8_t* yuv, const Decoded& picture) {
    int worst = 0;
    const auto look = [&](uint8_t a, uint8_t b) { worst = std::max(worst, std::abs(int{a} - int{b})); };
    for (unsigned y = 0; y < picture.height; ++y)
        for (unsigned x = 0; x < picture.width; ++x)
            look(*yuv++, picture.y[size_t{y} * picture.stride + x]);
    for (unsigned y = 0; y < picture.height / 2; ++y)
        for (unsigned x = 0; x < picture.width / 2; ++x) {
            look(*yuv++, picture.cr[size_t{y} * picture.stride / 2 + x]);
            look(*yuv++, picture.cb[size_t{y} * picture.stride / 2 + x]);
        }
    return worst;
}

int countMarkers(const std::vector<uint8_t>& stream, size_t size, uint8_t from, uint8_t to) {
    int count = 0;
    for (size_t i = 0; i + 1 < size; ++i)
        count += stream[i] == 0xFF && stream[i + 1] >= from && stream[i + 1] <= to;
    return count;
}

TEST(JpegEncoderAddMe, WritesTheFrameThatItWasGiven) {
    for (const auto& [width, height] : {std::pair(16U, 16U),
                                        {640U, 480U},
                                        {1280U, 720U},
                                        {2560U, 1920U},
                                        {48U, 80U},
                                        {2544U, 1904U},
                                        {2U, 2U},
                                        {18U, 34U},
                                        {24U, 8U},
                                        {40U, 50U},
                                        {638U, 478U},
                                        {1000U, 602U},
                                        {30U, 1000U}}) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        const GuardedFrame frame(width, height);
        paint(frame.data, width, height);
        std::vector<uint8_t> stream(frame.size() + 4096);
        const int size = jpeg_compress_yuv420sp_AddMe(stream.data(), static_cast<unsigned>(stream.size()), frame.data,
                                                      width, height);
        ASSERT_GT(size, 0);
        const Decoded picture = decode(stream, static_cast<size_t>(size));
        EXPECT_EQ(picture.width, width);
        EXPECT_EQ(picture.height, height);
        EXPECT_LE(worstDifference(frame.data, picture), width * height < 1000 ? 12 : 7);
        EXPECT_EQ(picture.restart, (width + 15) / 16);
        EXPECT_FALSE(picture.progressive);
        EXPECT_TRUE(picture.jfif);
        EXPECT_EQ(picture.sampling[0] * 10000 + picture.sampling[1] * 100 + picture.sampling[2], 221111);
        EXPECT_EQ(picture.first[0], kLumaStep0);
        EXPECT_EQ(picture.first[1], kChromaStep0);
        EXPECT_EQ(picture.last[0], kLumaStep63);
        EXPECT_EQ(picture.last[1], kChromaStep63);
        const size_t length = static_cast<size_t>(size);
        EXPECT_EQ(countMarkers(stream, length, 0xD0, 0xD7), static_cast<int>((height + 15) / 16) - 1);
        EXPECT_EQ(countMarkers(stream, length, 0xC0, 0xC0), 1);
        EXPECT_EQ(stream[length - 2] * 256 + stream[length - 1], 0xFFD9);
    }
}

TEST(JpegEncoderAddMe, RepeatsTheEdge) {
    // White to the last pixel: padding of another value would show as ringing in the last block.
    const GuardedFrame frame(20, 20);
    std::memset(frame.data, 255, 400);
    std::memset(frame.data + 400, 128, 200);
    std::vector<uint8_t> stream(4096);
    const int size = jpeg_compress_yuv420sp_AddMe(stream.data(), 4096, frame.data, 20, 20);
    const Decoded picture = decode(stream, static_cast<size_t>(size));
    // Three blocks of 8 pixels each way hold the picture; what lies beyond is not decoded.
    for (size_t y = 0; y < 24; ++y)
        for (size_t x = 0; x < 24; ++x)
            EXPECT_GE(picture.y[y * picture.stride + x], 254) << x << ' ' << y;
}

TEST(JpegEncoderAddMe, KeepsToTheCapacity) {
    const GuardedFrame frame(320, 240);
    paint(frame.data, 320, 240);
    std::vector<uint8_t> stream(100000);
    const int size = jpeg_compress_yuv420sp_AddMe(stream.data(), 100000, frame.data, 320, 240);
    ASSERT_GT(size, 1000);
    const unsigned length = static_cast<unsigned>(size);
    for (const unsigned capacity : {1U, 2U, 20U, 300U, 700U, length / 2, length - 1, length, length + 1}) {
        SCOPED_TRACE(capacity);
        std::fill(stream.begin(), stream.end(), 0xA5);
        EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(stream.data(), capacity, frame.data, 320, 240),
                  capacity > length ? size : 0);
        EXPECT_TRUE(std::all_of(stream.begin() + capacity, stream.end(), [](uint8_t byte) { return byte == 0xA5; }));
    }
}

TEST(JpegEncoderAddMe, RefusesWhatCannotBe) {
    std::vector<uint8_t> frame(64 * 64 * 3 / 2);
    std::vector<uint8_t> out(4096);
    const struct {
        uint8_t* out;
        unsigned capacity;
        uint8_t* yuv;
        unsigned width, height;
    } cases[] = {{out.data(), 4096, frame.data(), 0, 64},
                 {out.data(), 4096, frame.data(), 64, 0},
                 {out.data(), 4096, frame.data(), 63, 64},
                 {out.data(), 4096, frame.data(), 64, 63},
                 {out.data(), 4096, frame.data(), 65536, 16},
                 {out.data(), 4096, frame.data(), 16, UINT_MAX - 1},
                 {out.data(), 4096, frame.data(), 1U << 31, 1U << 31},
                 {out.data(), 0, frame.data(), 64, 64},
                 {nullptr, 4096, frame.data(), 64, 64},
                 {out.data(), 4096, nullptr, 64, 64}};
    for (const auto& wrong : cases) {
        EXPECT_EQ(jpeg_compress_yuv420sp_AddMe(wrong.out, wrong.capacity, wrong.yuv, wrong.width, wrong.height), 0)
            << wrong.width << 'x' << wrong.height;
    }
    EXPECT_GT(jpeg_compress_yuv420sp_AddMe(out.data(), 4096, frame.data(), 64, 64), 0);
}

TEST(JpegEncoderAddMe, WorksInEightRowsOfChroma) {
    const struct {
        unsigned width, height;
        size_t scratch;
    } cases[] = {{16, 16, 8 * 16},
                 {640, 480, 8 * 640},
                 {2560, 1920, 8 * 2560},
                 {24, 48, 8 * 32},          // chroma is padded
                 {34, 48, (8 + 16) * 48}};  // and so is luma
    for (const auto& [width, height, scratch] : cases) {
        SCOPED_TRACE(width);
        std::vector<uint8_t> frame(size_t{width} * height * 3 / 2, 99);
        std::vector<uint8_t> out(frame.size() + 4096);
        const auto encode = [&, w = width, h = height] {
            return jpeg_compress_yuv420sp_AddMe(out.data(), static_cast<unsigned>(out.size()), frame.data(), w, h);
        };
        {
            const kov::test::MallocWatch watch;
            EXPECT_GT(encode(), 0);
            EXPECT_EQ(watch.bytes, scratch);
        }
        const kov::test::MallocWatch scarce(scratch - 1);
        EXPECT_EQ(encode(), 0);
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
    uint8_t samples[16] = {};
    JSAMPROW row = samples;
    jpeg_write_scanlines(&info, &row, 1);
    jpeg_finish_compress(&info);
    const unsigned size = jpeg_mem_size_AddMe(&info);
    jpeg_destroy_compress(&info);
    ASSERT_GT(size, 2U);
    EXPECT_EQ(second[size - 1], 0xD9);
    EXPECT_EQ(first[0], 0);
}

}  // namespace
