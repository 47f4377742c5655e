/* libPlusMe.so: merges two pictures of a scene, each with another person in it. */
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
    uint8_t* plane[3]; /* luma; chroma pairs; null */
} PME_API_Image;

/* What PlusMe_HandlePreview reads: the frame, and directly behind it the time of day at which it came. */
typedef struct {
    PME_API_Image image;
    long seconds;
    long microseconds;
} PME_API_TimedImage;

/* The library moves memory with the caller's functions. */
typedef struct {
    void* (*copy)(void* to, const void* from, size_t size);
    void* (*fill)(void* to, int value, size_t size);
} PME_API_Memory;

#ifdef __cplusplus
static_assert(offsetof(PME_API_Image, width) == 4 && offsetof(PME_API_Image, height) == 8,
              "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(PME_API_Image) == 24 && offsetof(PME_API_Image, plane) == 12),
              "the library fixes the layout");
static_assert(offsetof(PME_API_TimedImage, seconds) == sizeof(PME_API_Image), "the time follows the image directly");
static_assert(sizeof(void*) != 4 ||
                  (sizeof(PME_API_TimedImage) == 32 && offsetof(PME_API_TimedImage, microseconds) == 28),
              "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(PME_API_Memory) == 8 && offsetof(PME_API_Memory, fill) == 4),
              "the library fixes the layout");
#endif

/* Compresses a frame of V-before-U chroma into `out`; returns the length of the stream, 0 for failure. */
typedef int (*PME_API_Encoder)(unsigned char* out, unsigned int capacity, unsigned char* yuv, unsigned int width,
                               unsigned int height);

typedef void* PME_API_Instance;

/* Operations return 0 on success, unless said otherwise. An instance is used by one thread at a time. */

const char* PlusMe_GetVersion(void);

/* Once before everything else, for the process: the largest picture and preview, the functions to use. The other
 * numbers are passed as they stand. */
int32_t PlusMe_PreInitialize(int32_t picture_width, int32_t picture_height, int32_t preview_width,
                             int32_t preview_height, int32_t format, const PME_API_Memory* memory, int32_t mode,
                             int32_t capacity, PME_API_Encoder encoder);

/* Bytes of working memory that an instance needs for all its life; 0 for failure. The memory stays the caller's. */
size_t PlusMe_GetPermanentBufferSize(void);
int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size);
int32_t PlusMe_SetConfigurationParameter(PME_API_Instance instance, int32_t parameter, int32_t value);
int32_t PlusMe_SetResolution(PME_API_Instance instance, int32_t picture_width, int32_t picture_height,
                             int32_t preview_width, int32_t preview_height);
/* Bytes of memory for the pictures of the resolution that was set last; 0 for failure. */
size_t PlusMe_GetTemporaryBufferSize(void);
int32_t PlusMe_SetTempBuffer(PME_API_Instance instance, void* buffer, size_t size);

int32_t PlusMe_StartCapture(PME_API_Instance instance);
/* The image of a PME_API_TimedImage. */
int32_t PlusMe_HandlePreview(PME_API_Instance instance, PME_API_Image* image);
/* A picture, which is read before the call returns. `image` is the same picture uncompressed, or null. */
int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image* image);
/* One step of the merge; `progress` is in percent, and 100 when it is done. */
int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* progress);
/* The merged picture, the library's until the instance captures again or ends. */
int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size);
/* Which picture is in front where both show a person: 0 the first, 1 the second. */
int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position);
int32_t PlusMe_SwitchFirstPersonPosition(PME_API_Instance instance);
int32_t PlusMe_CancelCapture(PME_API_Instance instance);
/* Ends the instance and sets it to null. */
int32_t PlusMe_Finalize(PME_API_Instance* instance);

#ifdef __cplusplus
}
#endif
