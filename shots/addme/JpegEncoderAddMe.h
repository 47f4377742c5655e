// JPEG compression of semi-planar frames into a memory buffer, with libjpeg's raw-data interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>  // jpeglib.h needs it

#include <jpeglib.h>

namespace android {

/// A libjpeg destination that writes into one buffer. Belongs to its compress object; the buffer is the caller's.
struct mem_destination_mgr_AddMe {
    jpeg_destination_mgr pub;
    unsigned char* buffer;
    uint32_t bufsize;    // bytes
    uint32_t datacount;  // bytes written; 0 until the stream is terminated
};

static_assert(offsetof(mem_destination_mgr_AddMe, buffer) == sizeof(jpeg_destination_mgr), "in this order");
static_assert(sizeof(void*) != 4 || sizeof(mem_destination_mgr_AddMe) == 32, "in this order");

/// Gives `cinfo` a destination of `size` bytes, at least 1. Called before `jpeg_start_compress`; a destination that the
/// object has from an earlier call is used again.
void jpeg_mem_dest_AddMe(j_compress_ptr cinfo, unsigned char* buffer, unsigned int size);
/// The length of the stream; 0 before `jpeg_finish_compress`.
unsigned int jpeg_mem_size_AddMe(j_compress_ptr cinfo);

// The destination's callbacks.
void init_destination_AddMe(j_compress_ptr cinfo);
/// The buffer is full: starts over and answers FALSE, so that libjpeg gives up.
boolean empty_output_buffer_AddMe(j_compress_ptr cinfo);
void term_destination_AddMe(j_compress_ptr cinfo);

/// Compresses a frame at quality 90 into a baseline JPEG with 4:2:0 sampling and a restart marker after every 16 rows.
///
/// `yuv`: width x height bytes of luma, then height / 2 rows of width / 2 chroma pairs, V before U. Any even width and
/// height up to libjpeg's limit of 65500; the edge is repeated where they are no multiples of 16.
/// `out` takes at most `outSize` - 1 bytes: libjpeg asks for room as soon as the buffer is full.
///
/// Returns the length of the stream in bytes, or 0, with a line in the log, when there is none: a size that is not
/// possible, no memory, a buffer that is too small. Any thread; keeps nothing between calls.
int jpeg_compress_yuv420sp_AddMe(unsigned char* out, unsigned int outSize, unsigned char* yuv, unsigned int width,
                                 unsigned int height);

}  // namespace android
