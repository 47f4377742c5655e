/* libPanoraMax1.so: follows a sweep of the camera and stitches the frames taken on the way. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A 4:2:0 frame with interleaved chroma, V first, rows without padding. */
typedef struct {
    uint32_t format; /* 0 */
    int32_t width;
    int32_t height;
    uint8_t* plane[3]; /* luma; chroma pairs; not used */
} px_image;

/* What the library knows after a frame. Offsets are those of the current frame from the one added last. */
typedef struct {
    uint32_t max_frames;
    uint32_t frame_count; /* frames added so far */
    uint32_t reserved1;
    int32_t direction; /* of the sweep: 1 right, 2 left, 4 up, 8 down, 0 not known yet */
    int32_t dx;        /* pixels */
    int32_t dy;        /* pixels */
    uint32_t reserved2[4];
    uint32_t status; /* 0 position lost, 1 following, 2 frame ready to be added, 3 this frame is added */
} px_status;

#ifdef __cplusplus
static_assert(sizeof(px_status) == 44 && offsetof(px_status, direction) == 12 && offsetof(px_status, status) == 40,
              "the library fixes the layout");
static_assert(offsetof(px_image, width) == 4 && offsetof(px_image, height) == 8, "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(px_image) == 24 && offsetof(px_image, plane) == 12),
              "the library fixes the layout");
#endif

/* Where the library gets its memory. */
typedef struct {
    void* (*allocate)(size_t size);
    void (*release)(void* memory);
} px_allocator;

typedef void* px_instance;

/* All return 0 on success. An instance is used by one thread at a time. */

int32_t px_init(const px_allocator* allocator, void* buffer, uint32_t buffer_size, px_instance* instance);
/* Frame size, twice; the most frames, the frame rate expected and the most memory in bytes. */
int32_t px_setParams(px_instance instance, int32_t width, int32_t height, int32_t rotation, int32_t out_width,
                     int32_t out_height, int32_t mode, int32_t max_frames, int32_t frame_rate, float quality,
                     int32_t memory_budget);
int32_t px_start(px_instance instance);
int32_t px_beginCapture(px_instance instance, int32_t mode);
/* Looks at a frame; the time is in milliseconds and wraps. */
int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t time_ms, px_status* status);
/* Takes the frame that was handled last into the panorama. */
int32_t px_addFrame(px_instance instance, const px_image* frame, uint32_t time_ms, px_status* status);
int32_t px_endCapture(px_instance instance);
/* One step of the stitching; `progress` is in percent, and 100 when it is done. */
int32_t px_createPanorama(px_instance instance, uint32_t* progress);
/* The stitched image, the library's until the instance is freed or captures again. */
int32_t px_getPanoramaImage(px_instance instance, px_image* image);
int32_t px_abort(px_instance instance);
int32_t px_free(px_instance instance);

#ifdef __cplusplus
}
#endif
