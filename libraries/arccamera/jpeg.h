/* The imaging half of libarccamera.so: a component manager, memory streams, and saving bitmaps as JPEG into them. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* MHandle;
typedef int32_t MRESULT; /* 0 is success */

/* A picture in memory. For 4:2:0 with interleaved chroma, V first: plane 0 is luma, plane 1 points at the first U byte
 * and plane 2 at the first V byte of the same chroma plane. */
typedef struct {
    uint32_t dwPixelArrayFormat;
    int32_t lWidth;    /* pixels */
    int32_t lHeight;   /* pixels */
    int32_t lPitch[3]; /* bytes from row to row */
    uint8_t* pPlane[3];
} MBITMAP;

#ifdef __cplusplus
static_assert(offsetof(MBITMAP, lWidth) == 4 && offsetof(MBITMAP, lHeight) == 8 && offsetof(MBITMAP, lPitch) == 12 &&
                  offsetof(MBITMAP, pPlane) == 24,
              "the library fixes the layout");
static_assert(sizeof(void*) != 4 || sizeof(MBITMAP) == 36, "the library fixes the layout");
#endif

/* 4:2:0 with one plane of interleaved chroma, V first. */
#define ARC_FORMAT_YUV420_SEMIPLANAR 0x70000002u

/* Makes a component manager. `memory_manager` may be null. Writes the handle; returns 0 on success. */
MRESULT AMCM_Create(MHandle memory_manager, MHandle* manager);
/* Registers a component by its factory. */
MRESULT AMCM_RegisterEx(MHandle manager, uint32_t id, uint32_t version, uint32_t kind, uint32_t use, void* factory);
/* Gives a component manager up. Not every release of the library has it: look before calling. */
MRESULT AMCM_Destroy(MHandle manager) __attribute__((weak));

/* The JPEG encoder's factory, only handed to AMCM_RegisterEx. */
void MEncoder_AJL2Create(void);

/* A stream over `capacity` bytes of memory, the library's own when `block` is null. Returns null on failure. */
MHandle MStreamOpenFromMemoryBlock(void* block, int32_t capacity);
/* Moves to `offset` from the start (origin 0). */
int32_t MStreamSeek(MHandle stream, int32_t origin, int32_t offset);
/* Bytes in the stream. */
int32_t MStreamGetSize(MHandle stream);
/* Copies up to `size` bytes from the current place. Returns how many. */
int32_t MStreamRead(MHandle stream, void* destination, int32_t size);
MRESULT MStreamClose(MHandle stream);

/* Saves a bitmap into a stream as `kind` (2 is JPEG), with the library's quality or a given one (0 to 100). */
MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap);
MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap, int32_t quality,
                       uint32_t format);

#ifdef __cplusplus
}
#endif
