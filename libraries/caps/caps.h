/* libcaps.so: effects on pictures, and JPEG in and out. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What an operation returns. Everything but CAPS_SUCCESS is a failure, or the end of an iteration. */
typedef int32_t caps_result;
#define CAPS_SUCCESS (-255)

/* The colour format of raw frames: 4:2:0, luma rows without padding, then interleaved chroma pairs, V first. */
#define CAPS_FORMAT_YUV420_SEMIPLANAR 4380

/* Bytes in memory, the caller's or (a buffer of caps_createBuffer) the library's. */
typedef struct {
    int32_t length;
    uint8_t* data;
} caps_data;

/* The head of an image; what follows is the library's. `owns_pixels` is read by caps_destroyImage alone: when it is not
 * 0, the pixels are released with the image. Whoever lent the pixels clears it before. */
typedef struct {
    uint32_t owns_pixels;
} caps_image;

typedef struct cips cips; /* a session: one source, the effects on it, and how to render */
typedef struct caps_stream caps_stream;
typedef struct caps_iterator caps_iterator; /* a rendering under way */

#ifdef __cplusplus
static_assert(sizeof(void*) != 4 || (sizeof(caps_data) == 8 && offsetof(caps_data, data) == 4),
              "the library fixes the layout");
static_assert(offsetof(caps_image, owns_pixels) == 0, "the library fixes the layout");
#endif

/* An object is used by one thread at a time; different objects may be used by several. Objects that are handed to an
 * operation are borrowed until the session that uses them is destroyed. */

/* Bits of a pixel in a colour format; 0 for one that is not known. */
int32_t caps_pixelBitSize(int32_t format);

/* An image over the caller's pixels, which stay the caller's. Both sides are even; `stride`: bytes of a luma row, which
 * is the width; the pair's length: exactly a frame's. The pair itself is read during the call alone. */
caps_result caps_createImage(const caps_data* pixels, int32_t width, int32_t height, int32_t stride, int32_t format,
                             caps_image** image);
caps_result caps_destroyImage(caps_image* image);

/* An empty buffer that a rendering fills. Read it as it stands; its bytes stay the library's. `capacity`: the most
 * bytes that it may hold, 0 for as many as are needed. */
caps_result caps_createBuffer(int32_t capacity, caps_data** buffer);
caps_result caps_destroyBuffer(caps_data* buffer);

/* A stream to read the bytes of a pair from, or to write into a buffer of caps_createBuffer. `mode`: 0. */
caps_result ctstream_createBufferStream(caps_data* buffer, int32_t mode, caps_stream** stream);
caps_result ctstream_destroy(caps_stream* stream);

/* A session over a JPEG (`mode`: 1), or over an image. */
caps_result caps_createSession(caps_stream* input, int32_t mode, cips** session);
caps_result caps_newSessionWithRaw(caps_image* source, cips** session);
caps_result caps_destroySession(cips* session);

/* Effects of a session. Each replaces the effect before it; a rotation goes with any of them. What is begun, set and
 * ended counts from its end on. */
caps_result caps_beginCartoon(cips* session);
caps_result caps_setCartoon(cips* session, int32_t on);
caps_result caps_endCartoon(cips* session);
caps_result caps_applySketch(cips* session, int32_t color); /* 1 in colour, 0 in grey */
caps_result caps_beginStamp(cips* session);
caps_result caps_setStamp(cips* session, int32_t smoothness, int32_t threshold); /* 0 to 10; luma, 0 to 255 */
caps_result caps_endStamp(cips* session);
caps_result caps_beginRotate(cips* session);
caps_result caps_setRotate(cips* session, int32_t degrees); /* clockwise, a multiple of 90 */
caps_result caps_endRotate(cips* session);

caps_result caps_setJpegQuality(cips* session, float quality); /* 0 to 1 */

/* Renders as a JPEG of width x height pixels, whatever the size of the source. `flags`: 0, `mode`: 1. With the address
 * of an iterator the rendering proceeds by caps_doNextIteration, and the stream is complete when that no longer returns
 * CAPS_SUCCESS; with null it is done before the call returns. The stream's buffer is empty until then. */
caps_result caps_render(cips* session, caps_stream* output, int32_t width, int32_t height, int32_t flags, int32_t mode,
                        caps_iterator** iterator);
/* One step. CAPS_SUCCESS while more follow. */
caps_result caps_doNextIteration(caps_iterator* iterator);
caps_result caps_estimateIterationCount(caps_iterator* iterator, int32_t* total);
caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done);
caps_result caps_destroyIterator(caps_iterator* iterator);

/* Renders into the pixels of an image of the source's size after its rotation; they may be the source's own. `flags`
 * and `mode`: 0. */
caps_result caps_renderAsRawToBuffer(cips* session, caps_image* destination, int32_t flags, int32_t mode);

#ifdef __cplusplus
}
#endif
