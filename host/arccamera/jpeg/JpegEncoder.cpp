// JPEG from 4:2:0 frames with interleaved chroma, through libjpeg-turbo's raw-data interface.

#include "host/arccamera/jpeg/JpegEncoder.h"
#include "host/pictures/Jpeg420.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include <jpeglib.h>

namespace kov::arc {

namespace {

constexpr int kBandRows = 16;  // luma rows of one row of MCUs
constexpr int kMostSide = 65500;

/// libjpeg's error handler, with the place to return to.
struct ErrorHandler {
    jpeg_error_mgr base;
    std::jmp_buf recovery;
};

void onError(j_common_ptr info) {
    std::longjmp(reinterpret_cast<ErrorHandler*>(info->err)->recovery, 1);
}

void keepQuiet(j_common_ptr, int) {}

/// Writes into the caller's block; a picture that does not fit is an error.
struct BlockDestination {
    jpeg_destination_mgr base;
    uint8_t* block;
    size_t capacity;
};

void beginBlock(j_compress_ptr info) {
    auto* destination = reinterpret_cast<BlockDestination*>(info->dest);
    destination->base.next_output_byte = destination->block;
    destination->base.free_in_buffer = destination->capacity;
}

boolean onFullBlock(j_compress_ptr info) {
    onError(reinterpret_cast<j_common_ptr>(info));
    return FALSE;
}

void endBlock(j_compress_ptr) {}

/// One row of MCUs: pointers to luma rows, and separated chroma.
class Band {
public:
    explicit Band(const SemiPlanarFrame& frame)
        : mFrame(frame), mPaddedWidth((frame.width + kBandRows - 1) / kBandRows * kBandRows) {
        const size_t chromaRow = static_cast<size_t>(mPaddedWidth) / 2;
        mChroma.resize(chromaRow * kBandRows);
        for (int row = 0; row < kBandRows / 2; ++row) {
            mCb[row] = mChroma.data() + chromaRow * row;
            mCr[row] = mChroma.data() + chromaRow * (row + kBandRows / 2);
        }
        // Rows whose width is no multiple of 16 are copied, so that nothing beside the frame is read.
        if (mPaddedWidth != frame.width)
            mLumaCopy.resize(static_cast<size_t>(mPaddedWidth) * kBandRows);
    }

    void load(int firstRow) {
        for (int row = 0; row < kBandRows; ++row)
            mLuma[row] = lumaRow(std::min(firstRow + row, mFrame.height - 1), row);
        for (int row = 0; row < kBandRows / 2; ++row)
            separate(std::min(firstRow / 2 + row, mFrame.height / 2 - 1), row);
    }
    JSAMPIMAGE planes() { return mPlanes; }

private:
    JSAMPROW lumaRow(int source, int row) {
        auto* from = const_cast<JSAMPROW>(mFrame.luma) + static_cast<size_t>(source) * mFrame.lumaPitch;
        if (mLumaCopy.empty())
            return from;
        JSAMPROW to = mLumaCopy.data() + static_cast<size_t>(mPaddedWidth) * row;
        std::memcpy(to, from, mFrame.width);
        std::memset(to + mFrame.width, from[mFrame.width - 1], mPaddedWidth - mFrame.width);
        return to;
    }

    void separate(int source, int row) {
        const uint8_t* pair = mFrame.chroma + static_cast<size_t>(source) * mFrame.chromaPitch;
        uint8_t* const cb = mCb[row];
        uint8_t* const cr = mCr[row];
        const int pairs = mFrame.width / 2;
        for (int i = 0; i < pairs; ++i) {
            cr[i] = pair[2 * i];
            cb[i] = pair[2 * i + 1];
        }
        for (int i = pairs; i < mPaddedWidth / 2; ++i) {
            cr[i] = cr[pairs - 1];
            cb[i] = cb[pairs - 1];
        }
    }

    const SemiPlanarFrame& mFrame;
    const int mPaddedWidth;
    std::vector<uint8_t> mChroma;
    std::vector<uint8_t> mLumaCopy;
    JSAMPROW mLuma[kBandRows] = {};
    JSAMPROW mCb[kBandRows / 2] = {};
    JSAMPROW mCr[kBandRows / 2] = {};
    JSAMPARRAY mPlanes[3] = {mLuma, mCb, mCr};
};

}  // namespace

size_t encodeJpeg(const SemiPlanarFrame& frame, int quality, uint8_t* destination, size_t capacity) {
    if (frame.width <= 0 || frame.height <= 0 || frame.width % 2 || frame.height % 2 || frame.width > kMostSide ||
        frame.height > kMostSide || capacity == 0)
        return 0;
    Band band(frame);
    jpeg_compress_struct info;
    ErrorHandler errors;
    info.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = onError;
    errors.base.emit_message = keepQuiet;
    BlockDestination block = {{}, destination, capacity};
    block.base.init_destination = beginBlock;
    block.base.empty_output_buffer = onFullBlock;
    block.base.term_destination = endBlock;

    if (setjmp(errors.recovery)) {
        jpeg_destroy_compress(&info);
        return 0;
    }
    jpeg_create_compress(&info);
    info.dest = &block.base;
    pictures::setUpJpeg420(info, frame.width, frame.height, quality);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        band.load(static_cast<int>(info.next_scanline));
        jpeg_write_raw_data(&info, band.planes(), kBandRows);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return capacity - block.base.free_in_buffer;
}

}  // namespace kov::arc
