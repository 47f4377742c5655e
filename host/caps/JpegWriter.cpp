// JPEG from pictures, band by band, through libjpeg-turbo's raw-data interface.

#include "host/caps/JpegWriter.h"
#include "host/pictures/Jpeg420.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <exception>

#include <jpeglib.h>

namespace kov::caps {

namespace {

/// Copies of the rows from `first` on, `count` of them, widened to `width` and lengthened by repeating the edge.
void padRows(const cv::Mat& plane, int first, cv::Mat& rows, JSAMPROW* pointers) {
    for (int row = 0; row < rows.rows; ++row) {
        const uint8_t* const from = plane.ptr(std::min(first + row, plane.rows - 1));
        uint8_t* const to = rows.ptr(row);
        std::copy_n(from, plane.cols, to);
        std::fill(to + plane.cols, to + rows.cols, from[plane.cols - 1]);
        pointers[row] = to;
    }
}

}  // namespace

/// libjpeg's state. Its failures jump back into the operation that called it; no frame between holds an object.
struct JpegWriter::Codec {
    jpeg_compress_struct info = {};
    jpeg_error_mgr errors = {};
    std::jmp_buf recovery;
    jpeg_destination_mgr destination = {};
    uint8_t chunk[1 << 16];
    size_t mostBytes = 0;
    std::vector<uint8_t> stream;
    cv::Mat y, u, v;  // the rows of one row of blocks

    static Codec& of(j_common_ptr info) { return *static_cast<Codec*>(info->client_data); }
    static void onError(j_common_ptr info) { std::longjmp(of(info).recovery, 1); }
    static void keepQuiet(j_common_ptr, int) {}
    static void beginChunk(j_compress_ptr info) {
        Codec& codec = of(reinterpret_cast<j_common_ptr>(info));
        codec.destination.next_output_byte = codec.chunk;
        codec.destination.free_in_buffer = sizeof codec.chunk;
    }
    bool keep(size_t bytes) noexcept {
        if (stream.size() + bytes > mostBytes)
            return false;
        try {
            stream.insert(stream.end(), chunk, chunk + bytes);
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }
    static boolean onFullChunk(j_compress_ptr info) {
        auto* const common = reinterpret_cast<j_common_ptr>(info);
        if (!of(common).keep(sizeof Codec::chunk))
            onError(common);
        beginChunk(info);
        return TRUE;
    }
    static void endChunk(j_compress_ptr info) {
        auto* const common = reinterpret_cast<j_common_ptr>(info);
        Codec& codec = of(common);
        if (!codec.keep(sizeof codec.chunk - codec.destination.free_in_buffer))
            onError(common);
    }

    Codec() {
        info.err = jpeg_std_error(&errors);
        info.client_data = this;
        errors.error_exit = onError;
        errors.emit_message = keepQuiet;
        destination.init_destination = beginChunk;
        destination.empty_output_buffer = onFullChunk;
        destination.term_destination = endChunk;
    }
    ~Codec() { jpeg_destroy_compress(&info); }
    void start(cv::Size size, int quality);
};

void JpegWriter::Codec::start(cv::Size size, int quality) {
    if (setjmp(recovery))
        return;
    jpeg_create_compress(&info);
    info.dest = &destination;
    pictures::setUpJpeg420(info, size.width, size.height, quality);
    jpeg_start_compress(&info, TRUE);
}

JpegWriter::JpegWriter(cv::Size size, int quality, size_t mostBytes) : mCodec(std::make_unique<Codec>()) {
    const int padded = (size.width + kRows - 1) / kRows * kRows;
    mCodec->mostBytes = mostBytes;
    mCodec->y.create(kRows, padded, CV_8U);
    mCodec->u.create(kRows / 2, padded / 2, CV_8U);
    mCodec->v.create(kRows / 2, padded / 2, CV_8U);
    mCodec->start(size, quality);  // when it fails, so does what is written to it
}

JpegWriter::~JpegWriter() = default;

bool JpegWriter::write(const Picture& band) {
    Codec& codec = *mCodec;
    JSAMPROW y[kRows], u[kRows / 2], v[kRows / 2];
    JSAMPARRAY planes[] = {y, u, v};
    if (setjmp(codec.recovery))
        return false;
    for (int row = 0; row < band.y.rows; row += kRows) {
        padRows(band.y, row, codec.y, y);
        padRows(band.u, row / 2, codec.u, u);
        padRows(band.v, row / 2, codec.v, v);
        jpeg_write_raw_data(&codec.info, planes, kRows);
    }
    return true;
}

bool JpegWriter::finish(std::vector<uint8_t>& stream) {
    Codec& codec = *mCodec;
    if (setjmp(codec.recovery))
        return false;
    jpeg_finish_compress(&codec.info);
    stream.swap(codec.stream);
    return true;
}

}  // namespace kov::caps
