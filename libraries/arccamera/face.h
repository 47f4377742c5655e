/* The face half of libarccamera.so: memory managers, face tracking and smile detection. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* MHandle;
typedef int32_t MRESULT; /* 0 is success */

/* Pixels, all sides inclusive. */
typedef struct __tag_rect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} __tag_rect;

/* The frames that a face engine is made for. */
typedef struct {
    int32_t width;
    int32_t height;
    int32_t format; /* ARC_FACE_FORMAT_... */
    int32_t stride; /* bytes */
} AMFPAF_IMAGE_INFO;

/* What a face engine found; the rectangles are the engine's, valid until its next call. */
typedef struct {
    __tag_rect* faces;
    int32_t count;
    int32_t info; /* one value for the frame, which the smile engine wants for each face */
} AMFPAF_FACE_RESULT;

typedef struct {
    int32_t width;
    int32_t height;
    int32_t format;
    int32_t stride[4]; /* bytes */
    uint8_t* plane[4];
} ASSD_IMAGE;

typedef struct {
    __tag_rect* faces;
    int32_t* info;
    int32_t count;
} ASSD_FACE_INPUT;

/* What a smile engine found; the rectangles (ISmileNumber of them) are the engine's, valid until its next call. */
typedef struct {
    __tag_rect* smiles;
    int32_t reserved;
    int32_t IFaceNumber;  /* faces examined */
    int32_t ISmileNumber; /* faces found smiling */
} ASSD_SMILE_RESULT;

#ifdef __cplusplus
static_assert(sizeof(__tag_rect) == 16 && sizeof(AMFPAF_IMAGE_INFO) == 16, "the library fixes the layout");
static_assert(offsetof(ASSD_IMAGE, stride) == 12, "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(AMFPAF_FACE_RESULT) == 12 && sizeof(ASSD_FACE_INPUT) == 12),
              "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(ASSD_IMAGE) == 44 && offsetof(ASSD_IMAGE, plane) == 28),
              "the library fixes the layout");
static_assert(sizeof(void*) != 4 || (sizeof(ASSD_SMILE_RESULT) == 16 && offsetof(ASSD_SMILE_RESULT, IFaceNumber) == 8),
              "the library fixes the layout");
#endif

#define ARC_FACE_FORMAT_YUV420P 5   /* planar 4:2:0 */
#define ARC_FACE_FORMAT_YUV420SP 10 /* semi-planar 4:2:0 */

void* MMemAlloc(MHandle manager, int32_t size);
void MMemFree(MHandle manager, void* block);
void MMemCpy(void* destination, const void* source, int32_t size);
/* A memory manager over a caller's block, for one engine. Null on failure. */
MHandle MMemMgrCreate(void* block, int32_t size);
void MMemMgrDestroy(MHandle manager);

/* Makes an engine in the manager's memory. */
MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO* image, AMFPAF_FACE_RESULT* result, MHandle* engine,
                                 int32_t mode, int32_t scale, int32_t max_faces);
MRESULT AMFPAF_SetFaceOutPriority(MHandle engine, int32_t priority);
/* How many frames are tracked between two full detections; 0 detects in every frame. */
MRESULT AMFPAF_SetTrackingFrameNumber(MHandle engine, int32_t frames);
MRESULT AMFPAF_FaceFeatureDetect(MHandle manager, MHandle engine, uint8_t* frame, AMFPAF_FACE_RESULT* result, int32_t,
                                 int32_t, int32_t, int32_t, int32_t);
MRESULT AMFPAF_UninitialFaceEngine(MHandle manager, MHandle* engine, AMFPAF_FACE_RESULT* result);

MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t mode, int32_t height);
MRESULT ASSD_SmileDetect(MHandle manager, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces,
                         ASSD_SMILE_RESULT* result, int32_t, int32_t);
MRESULT ASSD_UninitSmileEngine(MHandle manager, MHandle* engine);

#ifdef __cplusplus
}
#endif
