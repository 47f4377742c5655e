// Closed libraries under the product, as bad as their contracts let them be. A handle that was given is checked at
// every use. The fakes of the others are in tests/support, and misbehave in the same way.

#include <actionshot/actionshot.h>
#include <arccamera/face.h>
#include <cutils/properties.h>
#include <panoramax/panoramax.h>
#include <plusme/plusme.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/support/Answers.h"
#include "tests/support/Handles.h"

using namespace kov::test;

namespace {

// --- Answers

constexpr int kWidth = 64, kHeight = 48;  // of an image that a library makes
using Pixels = std::vector<uint8_t>;

/// What a rendering in steps says of its progress: it goes on, stands still, runs backwards, or tells what cannot be.
template <typename Number>
Number progress(uint32_t how, Number before, int step) {
    const Number answers[] = {std::clamp<Number>(before + step, 0, 100),
                              before,
                              before,
                              static_cast<Number>(-7),
                              Number{1 << 20},
                              Number{99}};
    return answers[how % std::size(answers)];
}

/// Writes to the first and the last byte of a frame's luma and of its chroma; a frame of one pixel has no chroma.
template <typename Image>
bool touch(const Image& frame) {
    const ptrdiff_t pixels = ptrdiff_t{frame.width} * frame.height;
    for (const ptrdiff_t at : {ptrdiff_t{0}, pixels - 1})
        frame.plane[0][at] ^= 1;
    for (const ptrdiff_t at : {ptrdiff_t{0}, pixels / 2 - 1})
        pixels > 1 ? frame.plane[1][at] ^= 1 : 0;
    return true;
}

/// The image that a library made, in its own memory; it is as large as it says, as long as it can be.
template <typename Image>
void show(uint32_t how, Pixels& pixels, Image* image) {
    *image = {0, kWidth, kHeight, {}};
    if (how > 2)
        (how % 2 ? image->width : image->height) = absurd(how / 2);
    const int64_t area = int64_t{image->width} * image->height;
    pixels.resize(image->width > 0 && area > 0 && area < (1 << 20) ? static_cast<size_t>(area) * 3 / 2 : 1);
    image->plane[0] = how == 2 ? nullptr : pixels.data();
    image->plane[1] = pixels.data() + std::min<int64_t>(pixels.size(), std::max<int64_t>(area, 0));
}

// Entries of a library that do nothing but `what`. One ends well, or else ill; the other has no result. Their
// parameters follow; `of` is the handle.
#define ENTRY(name, what, well, ill, ...)        \
    int32_t name(__VA_ARGS__) {                  \
        const bool done = what;                  \
        return !ask(#name) && done ? well : ill; \
    }
#define QUIET(name, what, ...) \
    void name(__VA_ARGS__) {   \
        what;                  \
    }

}  // namespace

int property_get(const char*, char* value, const char* default_value) {
    const uint32_t how = ask();
    const char* const text = how == 0 ? default_value : how % 2 ? "XSA" : "";
    return std::snprintf(value, PROPERTY_VALUE_MAX, "%s", text);
}

// --- libarccamera.so: faces

namespace {

struct Block {};
struct MemoryManager {};
struct FaceEngine : MayBeMissing {};
struct SmileEngine : MayBeMissing {};

__tag_rect gRectangles[64] = {{2, 2, 20, 20}, {10, 5, 30, 25}, {-5, -5, 500, 500}, {40, 40, 3, 3}, {5, 5, 5, 5}};

/// A list of rectangles: as usual one; else none, none behind a count, or as many as nobody has.
int32_t rectangles(uint32_t how, __tag_rect** list) {
    *list = how == 2 ? nullptr : gRectangles;
    return how < 2 || how % 2 ? numberOf(how % 2 ? how / 2 : how, 1) : static_cast<int32_t>(how % 17);
}

}  // namespace

void* MMemAlloc(MHandle, int32_t size) {
    if (ask() || size < 0)
        return nullptr;
    return keep(std::make_shared<Block>());  // nobody but the library looks into it
}
QUIET(MMemFree, giveBack<Block>(of), MHandle, void* of)
void MMemCpy(void* destination, const void* source, int32_t size) {
    std::memcpy(destination, source, static_cast<size_t>(size));
}
MHandle MMemMgrCreate(void* block, int32_t) {
    use<Block>(block);
    return ask() ? nullptr : keep(std::make_shared<MemoryManager>());
}
QUIET(MMemMgrDestroy, giveBack<MemoryManager>(of), MHandle of)
MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO*, AMFPAF_FACE_RESULT*, MHandle* engine, int32_t,
                                 int32_t, int32_t) {
    return use<MemoryManager>(manager) && make<FaceEngine>(ask(), engine) ? 0 : 5;
}
ENTRY(AMFPAF_SetFaceOutPriority, use<FaceEngine>(of), 0, 5, MHandle of, int32_t)
ENTRY(AMFPAF_SetTrackingFrameNumber, use<FaceEngine>(of), 0, 5, MHandle of, int32_t)
MRESULT AMFPAF_FaceFeatureDetect(MHandle manager, MHandle engine, uint8_t* frame, AMFPAF_FACE_RESULT* result, int32_t,
                                 int32_t, int32_t, int32_t, int32_t) {
    const uint32_t how = ask();
    if (!use<MemoryManager>(manager) || !use<FaceEngine>(engine) || how == 1)
        return 5;
    frame[0] ^= 1;
    result->count = rectangles(how, &result->faces);
    result->info = static_cast<int32_t>(how);
    return 0;
}
ENTRY(AMFPAF_UninitialFaceEngine, giveBack<FaceEngine>(*of), 0, 5, MHandle, MHandle* of, AMFPAF_FACE_RESULT*)
MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t, int32_t) {
    return use<MemoryManager>(manager) && make<SmileEngine>(ask(), engine) ? 0 : 5;
}
MRESULT ASSD_SmileDetect(MHandle manager, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces,
                         ASSD_SMILE_RESULT* result, int32_t, int32_t) {
    const uint32_t how = ask();
    if (!use<MemoryManager>(manager) || !use<SmileEngine>(engine) || how == 1)
        return 5;
    image->plane[0][0] ^= 1;
    for (int32_t i = 0; i < faces->count; ++i)
        gRectangles[i % 8].left = faces->info[i] % 64 + faces->faces[i].left % 64;
    result->ISmileNumber = rectangles(how, &result->smiles);
    result->IFaceNumber = how < 4 ? faces->count : absurd(how / 4);
    return how == 3 ? 5 : 0;
}
ENTRY(ASSD_UninitSmileEngine, giveBack<SmileEngine>(*of), 0, 5, MHandle, MHandle* of)

// --- libPanoraMax1.so

namespace {

struct Panorama : MayBeMissing {
    Pixels image;
    uint32_t added = 0;
};

}  // namespace

int32_t px_init(const px_allocator*, void*, uint32_t, px_instance* instance) {
    return make<Panorama>(ask(), instance) ? 0 : -2;
}
ENTRY(px_setParams, use<Panorama>(of), 0, -3, px_instance of, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
      int32_t, int32_t, float, int32_t)
ENTRY(px_start, use<Panorama>(of), 0, -3, px_instance of)
int32_t px_beginCapture(px_instance instance, int32_t) {
    Panorama* const panorama = use<Panorama>(instance);
    if (panorama)
        panorama->added = 0;
    return ask() || !panorama ? -3 : 0;
}
int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    const uint32_t how = ask();
    *status = {8, use<Panorama>(instance)->added, 0, 1 << how % 4, 0, 0, {}, how == 0 ? 2 : how % 5};
    status->dx = static_cast<int32_t>(how * 7) - 60;
    status->dy = static_cast<int32_t>(how * 37 % 100) - 50;
    if (how > 15)
        status->direction = static_cast<int32_t>(how % 10);
    if (how > 23)
        (how % 2 ? status->max_frames : status->frame_count) = absurd<uint32_t>(how);
    if (how > 27)
        (how % 2 ? status->dx : status->dy) = absurd(how);
    return how != 1 && touch(*frame) ? 0 : -4;
}
int32_t px_addFrame(px_instance instance, const px_image*, uint32_t, px_status* status) {
    const uint32_t how = ask();
    return tell(how, &status->frame_count, use<Panorama>(instance)->added += how == 0) ? 0 : -4;
}
ENTRY(px_endCapture, use<Panorama>(of), 0, -3, px_instance of)
int32_t px_createPanorama(px_instance instance, uint32_t* done) {
    const uint32_t how = ask();
    *done = progress(how, *done, 34);
    return how == 1 || !use<Panorama>(instance) ? -4 : 0;
}
int32_t px_getPanoramaImage(px_instance instance, px_image* image) {
    const uint32_t how = ask();
    if (how != 1)
        show(how, use<Panorama>(instance)->image, image);
    return how == 1 ? -4 : 0;
}
ENTRY(px_abort, use<Panorama>(of), 0, -3, px_instance of)
ENTRY(px_free, giveBack<Panorama>(of), 0, -4, px_instance of)

// --- libActionShot.so

namespace {

struct Action {
    Pixels image;
};

}  // namespace

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions*) {}
int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t, int32_t, void* work_memory, uint32_t size) {
    if (work_memory && size)
        static_cast<uint8_t*>(work_memory)[size - 1] = 1;
    return make<Action>(ask(), engine);
}
QUIET(ActionShot_SetResolution, use<Action>(of), ActionShot_Handle of, int32_t, int32_t)
QUIET(ActionShot_SetSceneCompletionActivationMode, use<Action>(of), ActionShot_Handle of, int32_t)
QUIET(ActionShot_SetConfigurationParameter, use<Action>(of), ActionShot_Handle of, int32_t, int32_t)
int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t** blocks, int32_t count, int32_t size) {
    for (int32_t i = 0; i < count; ++i)
        blocks[i][size - 1] = 1;
    return use<Action>(engine) && !ask();
}
ENTRY(ActionShot_UnsetTempMemory, use<Action>(of), 1, 0, ActionShot_Handle of)
QUIET(ActionShot_CancelSeries, use<Action>(of), ActionShot_Handle of)
ENTRY(ActionShot_StartSeries, use<Action>(of), 1, 0, ActionShot_Handle of)
int32_t ActionShot_IsConnected(ActionShot_Handle engine) {
    return use<Action>(engine) ? numberOf(ask(), 1) : 0;
}
int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    const uint32_t how = use<Action>(engine) && touch(*frame) ? ask() : 0;
    return how == 1 ? 9 : how < 5 ? static_cast<int32_t>(std::max(how, 1U) - 1) : absurd(how);
}
void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle engine, ActionShot_DisplayData* data) {
    const uint32_t how = use<Action>(engine) ? ask() : 0;
    data->count = how < 2 ? static_cast<int32_t>(2 - how) : how % 2 ? absurd(how) : static_cast<int32_t>(how % 130);
    for (int i = 0; i < 128; ++i)
        data->entries[i] = {i + static_cast<int32_t>(how), 3, how > 8 ? absurd(how + i) : i + 20,
                            how > 16 ? absurd(how / 2) : 30, i % 3};
}
int32_t ActionShot_AcquisitionProgress(ActionShot_Handle engine) {
    return use<Action>(engine) ? numberOf(ask(), 50) : 0;
}
int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* done, OPT_API_ASImage* result) {
    const uint32_t how = ask();
    *done = how % 6 == 5 ? 100 : progress(how, *done, 34);
    show(how < 5 ? 0 : how == 11 ? 2 : how, use<Action>(engine)->image, result);
    return how != 1;
}
void ActionShot_Finalize(ActionShot_Handle* engine) {
    giveBack<Action>(*engine);
    *engine = nullptr;
}

// --- libPlusMe.so

namespace {

struct PlusMe {
    std::vector<uint8_t> jpeg = std::vector<uint8_t>(4096);
    long length = 0;
};

thread_local PME_API_Encoder gEncoder = nullptr;

/// A library writes to all of the memory that it is given.
bool fill(void* buffer, size_t size) {
    std::memset(buffer, 1, size);
    return true;
}

}  // namespace

const char* PlusMe_GetVersion(void) {
    return "%n%s";
}
int32_t PlusMe_PreInitialize(int32_t, int32_t, int32_t, int32_t, int32_t, const PME_API_Memory*, int32_t, int32_t,
                             PME_API_Encoder encoder) {
    gEncoder = encoder;
    return ask() ? 3 : 0;
}
size_t PlusMe_GetPermanentBufferSize(void) {
    return numberOf<size_t>(ask(), 4096);
}
int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size) {
    return fill(buffer, size) && make<PlusMe>(ask(), instance) ? 0 : 3;
}
ENTRY(PlusMe_SetConfigurationParameter, use<PlusMe>(of), 0, 3, PME_API_Instance of, int32_t, int32_t)
ENTRY(PlusMe_SetResolution, use<PlusMe>(of), 0, 3, PME_API_Instance of, int32_t, int32_t, int32_t, int32_t)
size_t PlusMe_GetTemporaryBufferSize(void) {
    return numberOf<size_t>(ask(), 4096);
}
ENTRY(PlusMe_SetTempBuffer, use<PlusMe>(of) && fill(buffer, size), 0, 3, PME_API_Instance of, void* buffer, size_t size)
ENTRY(PlusMe_StartCapture, use<PlusMe>(of), 0, 3, PME_API_Instance of)
ENTRY(PlusMe_HandlePreview, use<PlusMe>(of) && touch(*image), 0, 3, PME_API_Instance of, PME_API_Image* image)
int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image*) {
    static_cast<volatile uint8_t*>(jpeg)[size - 1];
    return use<PlusMe>(instance) && !ask() ? 0 : 3;
}
int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* done) {
    PlusMe* const plusMe = use<PlusMe>(instance);
    const uint32_t how = ask();
    *done = progress(how, *done, 50);
    if (*done == 100 && gEncoder) {
        uint8_t frame[34 * 18 * 3 / 2] = {};
        plusMe->length = gEncoder(plusMe->jpeg.data(), how ? 40 : 4096, frame, how % 2 ? 33 : 34, 18);
    }
    return how == 1 ? 4 : 0;
}
int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size) {
    PlusMe* const plusMe = use<PlusMe>(instance);
    const uint32_t how = ask();
    *jpeg = how == 2 ? nullptr : plusMe->jpeg.data();
    *size = how == 0 ? plusMe->length : how == 2 ? 1000 : std::min(absurd(how), 0);
    return how == 1 ? 4 : 0;
}
int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position) {
    return use<PlusMe>(instance) && tell(ask(), position, 0) ? 0 : 3;
}
ENTRY(PlusMe_SwitchFirstPersonPosition, use<PlusMe>(of), 0, 3, PME_API_Instance of)
ENTRY(PlusMe_CancelCapture, use<PlusMe>(of), 0, 3, PME_API_Instance of)
ENTRY(PlusMe_Finalize, giveBack<PlusMe>(*of), 0, 3, PME_API_Instance* of)
