/* libActionShot.so: follows a moving subject and composes its moments into one picture. */
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
} OPT_API_ASImage;

/* What to show over the preview: at most 128 entries. */
typedef struct {
    struct {
        int32_t x0;
        int32_t y0;
        int32_t x1;
        int32_t y1;
        int32_t kind; /* 0: where the subject is; 1: where it was taken */
    } entries[128];
    int32_t count;
} ActionShot_DisplayData;

#ifdef __cplusplus
static_assert(sizeof(ActionShot_DisplayData) == 2564 && offsetof(ActionShot_DisplayData, count) == 2560,
              "the library fixes the layout");
static_assert(offsetof(OPT_API_ASImage, width) == 4 && offsetof(OPT_API_ASImage, height) == 8,
              "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(OPT_API_ASImage) == 24 && offsetof(OPT_API_ASImage, plane) == 12),
              "the library fixes the layout");
#endif

typedef struct {
    void* (*copy)(void* destination, const void* source, size_t size);
    void* (*set)(void* destination, int value, size_t size);
} ActionShot_MemoryFunctions;

typedef void* ActionShot_Handle;

/* An engine is used by one thread at a time. */

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions* functions);
/* Makes an engine that keeps its frames in `work_memory`. 1 on success. */
int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t width, int32_t height, void* work_memory,
                              uint32_t work_memory_size);
void ActionShot_SetResolution(ActionShot_Handle engine, int32_t width, int32_t height);
void ActionShot_SetSceneCompletionActivationMode(ActionShot_Handle engine, int32_t mode);
void ActionShot_SetConfigurationParameter(ActionShot_Handle engine, int32_t parameter, int32_t value);
/* Lends `count` blocks of `size` bytes. 1 on success. */
int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t** blocks, int32_t count, int32_t size);
/* 1 on success. */
int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine);
void ActionShot_CancelSeries(ActionShot_Handle engine);
/* Not 0 on success. */
int32_t ActionShot_StartSeries(ActionShot_Handle engine);
/* 1 while the frames hang together. */
int32_t ActionShot_IsConnected(ActionShot_Handle engine);
/* 0: the frame was taken; 1 to 3: the series goes on; anything else: it has ended. */
int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame);
void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle engine, ActionShot_DisplayData* data);
/* Percent of the moments that a series wants. */
int32_t ActionShot_AcquisitionProgress(ActionShot_Handle engine);
/* One step of making the result; 0 when there is no further one. `progress` is in percent, 100 when it is done. The
 * result is the engine's until the next series. */
int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* progress, OPT_API_ASImage* result);
void ActionShot_Finalize(ActionShot_Handle* engine);

#ifdef __cplusplus
}
#endif
