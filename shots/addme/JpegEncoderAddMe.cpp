// JPEG compression of semi-planar frames into a memory buffer, with libjpeg's raw-data interface.

#include "shots/addme/JpegEncoderAddMe.h"

#include <jerror.h>

#include <algorithm>
#include <climits>
#include <csetjmp>
#include <cstdlib>
#include <cstring>

#include "imaging/System.h"
#include "imaging/TaggedLog.h"

namespace android {

static_assert(JPEG_LIB_VERSION == 62, "written for the 6b interface");

namespace {

constexpr TaggedLog kLog("JpegEncoderAddMe");
constexpr int kQuality = 90;
constexpr unsigned int kBand = 16;  // luma rows and columns of an MCU
constexpr unsigned int kChromaRows = kBand / 2;

/// libjpeg's error manager with a way back. What `error_exit` jumps over has no destructors.
struct ErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf back;
};

void logFailure(unsigned int width, unsigned int height, unsigned int capacity, const char* reason) {
    kLog.error("cannot compress %ux%u into %u bytes: %s", width, height, capacity, reason);
}

[[noreturn]] void errorExit(j_common_ptr cinfo) {
    std::longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->back, 1);
}

mem_destination_mgr_AddMe* destination(j_compress_ptr cinfo) {
    return reinterpret_cast<mem_destination_mgr_AddMe*>(cinfo->dest);
}

void rewind(mem_destination_mgr_AddMe* dest) {
    dest->pub.next_output_byte = dest->buffer;
    dest->pub.free_in_buffer = dest->bufsize;
}

/// A frame with all that its compression needs. Set up before the way back is, and not changed afterwards.
struct Frame {
    const unsigned char* yuv;
    unsigned int width;
    unsigned int height;
    unsigned int paddedWidth;  // to whole MCUs
    unsigned char* chroma;     // scratch of kChromaRows rows of each plane: Cb, then Cr
    unsigned char* luma;       // scratch of kBand rows; null when libjpeg can read the rows of the frame itself

    const unsigned char* lumaRow(unsigned int row) const { return yuv + size_t{width} * std::min(row, height - 1); }
    const unsigned char* chromaRow(unsigned int row) const {
        return yuv + size_t{width} * (size_t{height} + std::min(row, height / 2 - 1));
    }
    unsigned char* cbRow(unsigned int row) const { return chroma + size_t{row} * paddedWidth / 2; }
    unsigned char* crRow(unsigned int row) const { return cbRow(row) + size_t{kBand / 4} * paddedWidth; }
};

bool isPossible(unsigned int width, unsigned int height) {
    return width >= 2 && height >= 2 && width % 2 == 0 && height % 2 == 0 && width <= JPEG_MAX_DIMENSION &&
           height <= JPEG_MAX_DIMENSION && uint64_t{width} * height * 3 / 2 <= PTRDIFF_MAX;
}

bool allocate(Frame& frame) {
    const bool copyLuma = frame.paddedWidth != frame.width;  // libjpeg reads up to the end of an MCU
    const size_t chromaBytes = size_t{kChromaRows} * frame.paddedWidth;
    frame.chroma =
        static_cast<unsigned char*>(os::allocate(chromaBytes + (copyLuma ? size_t{kBand} * frame.paddedWidth : 0)));
    frame.luma = frame.chroma && copyLuma ? frame.chroma + chromaBytes : nullptr;
    return frame.chroma != nullptr;
}

void separateChroma(const unsigned char* __restrict pairs, unsigned char* __restrict cb, unsigned char* __restrict cr,
                    unsigned int count, unsigned int padded) {
    for (unsigned int k = 0; k < count; ++k) {
        cr[k] = pairs[2 * k];
        cb[k] = pairs[2 * k + 1];
    }
    std::memset(cr + count, cr[count - 1], padded - count);
    std::memset(cb + count, cb[count - 1], padded - count);
}

unsigned char* lumaRowForLibjpeg(const Frame& frame, unsigned int top, unsigned int row) {
    const unsigned char* const source = frame.lumaRow(top + row);
    if (!frame.luma)
        return const_cast<unsigned char*>(source);  // libjpeg only reads it
    unsigned char* const copy = frame.luma + size_t{row} * frame.paddedWidth;
    std::memcpy(copy, source, frame.width);
    std::memset(copy + frame.width, source[frame.width - 1], frame.paddedWidth - frame.width);
    return copy;
}

void setParameters(j_compress_ptr cinfo, unsigned int width, unsigned int height) {
    cinfo->image_width = width;
    cinfo->image_height = height;
    cinfo->input_components = 3;
    jpeg_set_defaults(cinfo);
    jpeg_set_colorspace(cinfo, JCS_YCbCr);
    cinfo->raw_data_in = TRUE;
    cinfo->restart_in_rows = 1;
    for (int i = 0; i < 3; ++i) {
        cinfo->comp_info[i].h_samp_factor = i == 0 ? 2 : 1;
        cinfo->comp_info[i].v_samp_factor = i == 0 ? 2 : 1;
    }
    jpeg_set_quality(cinfo, kQuality, TRUE);
    cinfo->dct_method = JDCT_IFAST;
}

void writeBands(j_compress_ptr cinfo, const Frame& frame) {
    JSAMPROW luma[kBand];
    JSAMPROW cb[kChromaRows];
    JSAMPROW cr[kChromaRows];
    JSAMPARRAY planes[] = {luma, cb, cr};
    for (unsigned int i = 0; i < kChromaRows; ++i) {
        cb[i] = frame.cbRow(i);
        cr[i] = frame.crRow(i);
    }
    for (unsigned int top = 0; top < frame.height; top += kBand) {
        for (unsigned int i = 0; i < kBand; ++i)
            luma[i] = lumaRowForLibjpeg(frame, top, i);
        for (unsigned int i = 0; i < kChromaRows; ++i)
            separateChroma(frame.chromaRow(top / 2 + i), cb[i], cr[i], frame.width / 2, frame.paddedWidth / 2);
        if (jpeg_write_raw_data(cinfo, planes, kBand) != kBand)
            ERREXIT(cinfo, JERR_CANT_SUSPEND);  // the destination is full
    }
}

/// The length of the stream, or 0. Releases all that libjpeg holds.
unsigned int compress(const Frame& frame, unsigned char* out, unsigned int outSize) {
    ErrorManager errors;
    jpeg_compress_struct cinfo = {};
    cinfo.err = jpeg_std_error(&errors.pub);
    errors.pub.error_exit = errorExit;
    if (setjmp(errors.back)) {  // NOLINT: libjpeg's own way to recover
        char reason[JMSG_LENGTH_MAX] = "the buffer is full";
        if (errors.pub.msg_code != JERR_CANT_SUSPEND)
            errors.pub.format_message(reinterpret_cast<j_common_ptr>(&cinfo), reason);
        logFailure(frame.width, frame.height, outSize, reason);
        jpeg_destroy_compress(&cinfo);
        return 0;
    }
    jpeg_create_compress(&cinfo);
    setParameters(&cinfo, frame.width, frame.height);
    jpeg_mem_dest_AddMe(&cinfo, out, outSize);
    jpeg_start_compress(&cinfo, TRUE);
    writeBands(&cinfo, frame);
    jpeg_finish_compress(&cinfo);
    const unsigned int size = jpeg_mem_size_AddMe(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return size;
}

}  // namespace

void jpeg_mem_dest_AddMe(j_compress_ptr cinfo, unsigned char* buffer, unsigned int size) {
    if (!cinfo->dest) {
        cinfo->dest = static_cast<jpeg_destination_mgr*>(cinfo->mem->alloc_small(
            reinterpret_cast<j_common_ptr>(cinfo), JPOOL_PERMANENT, sizeof(mem_destination_mgr_AddMe)));
    }
    mem_destination_mgr_AddMe* const dest = destination(cinfo);
    dest->pub.init_destination = init_destination_AddMe;
    dest->pub.empty_output_buffer = empty_output_buffer_AddMe;
    dest->pub.term_destination = term_destination_AddMe;
    dest->buffer = buffer;
    dest->bufsize = size;
    init_destination_AddMe(cinfo);
}

void init_destination_AddMe(j_compress_ptr cinfo) {
    rewind(destination(cinfo));
    destination(cinfo)->datacount = 0;
}

boolean empty_output_buffer_AddMe(j_compress_ptr cinfo) {
    rewind(destination(cinfo));
    return FALSE;
}

void term_destination_AddMe(j_compress_ptr cinfo) {
    mem_destination_mgr_AddMe* const dest = destination(cinfo);
    dest->datacount = dest->bufsize - static_cast<uint32_t>(dest->pub.free_in_buffer);
}

unsigned int jpeg_mem_size_AddMe(j_compress_ptr cinfo) {
    return destination(cinfo)->datacount;
}

int jpeg_compress_yuv420sp_AddMe(unsigned char* out, unsigned int outSize, unsigned char* yuv, unsigned int width,
                                 unsigned int height) {
    if (!out || outSize == 0 || !yuv || !isPossible(width, height)) {
        logFailure(width, height, outSize, "not a frame, or no buffer");
        return 0;
    }
    Frame frame = {yuv, width, height, (width + kBand - 1) / kBand * kBand, nullptr, nullptr};
    if (!allocate(frame)) {
        logFailure(width, height, outSize, "no memory");
        return 0;
    }
    // The result is an int, so no more than that is written.
    const unsigned int size = compress(frame, out, std::min<unsigned int>(outSize, INT_MAX));
    std::free(frame.chroma);
    return static_cast<int>(size);
}

}  // namespace android
