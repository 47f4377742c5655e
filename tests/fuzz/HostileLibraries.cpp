// The closed libraries under the product, as bad as their contracts let them be.

#include "tests/fuzz/HostileLibraries.h"

#include <actionshot/actionshot.h>
#include <arccamera/face.h>
#include <arccamera/jpeg.h>
#include <caps/caps.h>
#include <cutils/properties.h>
#include <media/mediaplayer.h>
#include <panoramax/panoramax.h>
#include <plusme/plusme.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "tests/fuzz/Answers.h"

using kov::test::ask;

namespace {

// --- Answers

constexpr int kWidth = 64, kHeight = 48;  // of an image that a library makes
using Pixels = std::vector<uint8_t>;

/// A number that nobody expects.
template <typename Number = int32_t>
Number absurd(uint32_t how) {
    constexpr int32_t kAbsurd[] = {-1, INT32_MIN, INT32_MAX, 0, 0x10000, 1 << 20};
    return static_cast<Number>(kAbsurd[how % std::size(kAbsurd)]);
}

/// The number that a call tells: as usual, none where it fails plainly, else one that nobody expects.
template <typename Number>
Number numberOf(uint32_t how, Number usual) {
    return how == 0 ? usual : how == 1 ? Number{0} : absurd<Number>(how);
}

/// The same for a call that has a result of its own, and leaves the number as it was where it fails.
template <typename Number>
bool tell(uint32_t how, Number* number, Number usual) {
    if (how != 1)
        *number = numberOf(how, usual);
    return how != 1;
}

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
    pixels.resize(image->width > 0 && area > 0 && area < (8 << 20) ? static_cast<size_t>(area) * 3 / 2 : 1);
    image->plane[0] = how == 2 ? nullptr : pixels.data();
    image->plane[1] = pixels.data() + std::min<int64_t>(pixels.size(), std::max<int64_t>(area, 0));
}

// --- Handles

struct Known {
    const std::type_info* type;
    std::shared_ptr<void> object;
    bool owed;  // it was given with success, and must be given back
};
std::mutex gLock;
std::map<const void*, Known> gHandles;

/// An object that the product may do without: some operations are called with a null handle then, and fail.
struct MayBeMissing {};

/// The object of a handle that the product hands in: it must be one of that class that was given, and not given back.
template <typename Object>
Object* use(const void* handle) {
    if (!handle && std::is_base_of_v<MayBeMissing, Object>)
        return nullptr;
    const std::lock_guard held(gLock);
    const auto known = gHandles.find(handle);
    if (known == gHandles.end() || *known->second.type != typeid(Object)) {
        std::fprintf(stderr, "a handle that is %s: %s\n", handle ? "not alive" : "null", typeid(Object).name());
        std::abort();
    }
    return static_cast<Object*>(known->second.object.get());
}

template <typename Object>
bool giveBack(const void* handle) {
    if (!use<Object>(handle))
        return false;
    const std::lock_guard held(gLock);
    return gHandles.erase(handle) == 1;
}

template <typename Object>
Object* keep(std::shared_ptr<Object> object, bool owed = true) {
    const std::lock_guard held(gLock);
    gHandles[object.get()] = {&typeid(Object), object, owed};
    return object.get();
}

/// Makes an object, or not, and says whether it did, or lies: 1 neither; 2 success without a handle; 3 a handle without
/// success.
template <typename Object, typename Handle>
bool make(uint32_t how, Handle* handle) {
    if (how % 4 == 0 || how % 4 == 3)
        *handle = reinterpret_cast<Handle>(keep(std::make_shared<Object>(), how % 4 == 0));
    return how % 4 == 0 || how % 4 == 2;
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

int kov::test::handlesOwed() {
    const std::lock_guard held(gLock);
    std::erase_if(gHandles, [](const auto& entry) { return !entry.second.owed; });
    for (const auto& [handle, known] : gHandles)
        std::fprintf(stderr, "not given back: %s\n", known.type->name());
    return static_cast<int>(gHandles.size());
}

int property_get(const char*, char* value, const char* default_value) {
    const uint32_t how = ask();
    std::strcpy(value, how == 0 ? default_value : how % 2 ? "XSA" : "");
    return static_cast<int>(std::strlen(value));
}

// --- libmedia.so

namespace android {

MediaPlayer::MediaPlayer() : mVoice(nullptr) {}
MediaPlayer::~MediaPlayer() = default;
using Headers = KeyedVector<String8, String8>;
ENTRY(MediaPlayer::setDataSource, true, 0, -1, const char*, const Headers*)
ENTRY(MediaPlayer::setAudioStreamType, true, 0, -1, int)
ENTRY(MediaPlayer::prepare, true, 0, -1)
ENTRY(MediaPlayer::setVolume, true, 0, -1, float, float)
ENTRY(MediaPlayer::seekTo, true, 0, -1, int)
ENTRY(MediaPlayer::start, true, 0, -1)
void MediaPlayer::disconnect() {}
float VolumeCustomizer::getSituationVolume(int, int) {
    return ask() ? -1e30F : 1;
}

}  // namespace android

// --- libarccamera.so: pictures

namespace {

struct ComponentManager : MayBeMissing {};
struct Stream {
    std::vector<uint8_t> bytes;
    size_t place = 0;
};

/// An encoder reads the whole picture, as far as it can be one.
MRESULT save(MHandle manager, MHandle stream, const MBITMAP* bitmap, uint32_t how) {
    use<ComponentManager>(manager);
    const int64_t pixels = int64_t{bitmap->lWidth} * bitmap->lHeight;
    if (how == 1 || pixels <= 0 || pixels > (1 << 20))
        return 7;
    uint32_t sum = 0;
    for (int64_t i = 0; i < pixels; ++i)
        sum += bitmap->pPlane[0][i];
    if (how != 2)  // else an output that was not written
        use<Stream>(stream)->bytes.assign(100 + sum % 7, 0xD8);
    return how == 3 ? 7 : 0;
}

}  // namespace

MRESULT AMCM_Create(MHandle, MHandle* manager) {
    return make<ComponentManager>(ask(), manager) ? 0 : 5;
}
ENTRY(AMCM_RegisterEx, use<ComponentManager>(of), 0, 3, MHandle of, uint32_t, uint32_t, uint32_t, uint32_t, void*)
ENTRY(AMCM_Destroy, giveBack<ComponentManager>(of), 0, 3, MHandle of)
void MEncoder_AJL2Create(void) {}
MHandle MStreamOpenFromMemoryBlock(void*, int32_t) {
    return ask() ? nullptr : keep(std::make_shared<Stream>());
}
int32_t MStreamSeek(MHandle stream, int32_t, int32_t offset) {
    use<Stream>(stream)->place = static_cast<size_t>(std::max(offset, 0));
    return ask() ? -1 : 0;
}
int32_t MStreamGetSize(MHandle stream) {
    return numberOf(ask(), static_cast<int32_t>(use<Stream>(stream)->bytes.size()));
}
int32_t MStreamRead(MHandle handle, void* destination, int32_t size) {
    Stream* const stream = use<Stream>(handle);
    const uint32_t how = ask();
    const size_t left = stream->bytes.size() - std::min(stream->place, stream->bytes.size());
    const size_t count = how == 1 ? 0 : std::min(static_cast<size_t>(size), left);
    std::copy_n(stream->bytes.begin() + (stream->bytes.size() - left), count, static_cast<uint8_t*>(destination));
    stream->place += count;
    return numberOf(how, static_cast<int32_t>(count));
}
ENTRY(MStreamClose, giveBack<Stream>(of), 0, 1, MHandle of)
MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t, MBITMAP* bitmap) {
    return save(manager, stream, bitmap, ask());
}
MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t, MBITMAP* bitmap, int32_t, uint32_t) {
    return save(manager, stream, bitmap, ask());
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
    return keep(std::shared_ptr<Block>(static_cast<Block*>(std::malloc(static_cast<size_t>(size))), std::free));
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

// --- libcaps.so

namespace {

constexpr caps_result kFailed = 6;

struct Buffer {
    caps_data pair = {};  // what the product sees; stays first
    std::vector<uint8_t> bytes;
};
struct Image {
    caps_image head = {1};  // stays first
    caps_data pixels = {};
};

}  // namespace

struct caps_stream {
    caps_data* pair;
};
struct cips {};
struct caps_iterator {
    caps_stream* output;
    int done;
};

namespace {

void fill(caps_stream* output, uint32_t how) {
    auto* const buffer = use<Buffer>(use<caps_stream>(output)->pair);
    buffer->bytes.assign(200, 0xD8);
    buffer->pair = {how > 2 ? std::min(absurd(how), 0) : 200, how == 2 ? nullptr : buffer->bytes.data()};
}

}  // namespace

int32_t caps_pixelBitSize(int32_t) {
    return numberOf(ask(), 12);
}
caps_result caps_createImage(const caps_data* pixels, int32_t, int32_t, int32_t, int32_t, caps_image** image) {
    const bool success = make<Image>(ask(), image);
    if (*image)
        use<Image>(*image)->pixels = *pixels;
    return success ? CAPS_SUCCESS : kFailed;
}
// Pixels that it owned the library would release too: as bad as no image.
ENTRY(caps_destroyImage, giveBack<Image>(of->owns_pixels ? nullptr : of), CAPS_SUCCESS, kFailed, caps_image* of)
caps_result caps_createBuffer(int32_t, caps_data** buffer) {
    return make<Buffer>(ask(), buffer) ? CAPS_SUCCESS : kFailed;
}
ENTRY(caps_destroyBuffer, giveBack<Buffer>(of), CAPS_SUCCESS, kFailed, caps_data* of)
caps_result ctstream_createBufferStream(caps_data* pair, int32_t, caps_stream** stream) {
    const bool success = make<caps_stream>(ask(), stream);
    if (*stream)
        (*stream)->pair = pair;
    return success ? CAPS_SUCCESS : kFailed;
}
ENTRY(ctstream_destroy, giveBack<caps_stream>(of), CAPS_SUCCESS, kFailed, caps_stream* of)
caps_result caps_createSession(caps_stream* input, int32_t, cips** session) {
    const caps_data* const source = use<caps_stream>(input)->pair;
    if (source->length > 0)
        static_cast<volatile uint8_t*>(source->data)[source->length - 1];
    return make<cips>(ask(), session) ? CAPS_SUCCESS : kFailed;
}
caps_result caps_newSessionWithRaw(caps_image* source, cips** session) {
    return use<Image>(source) && make<cips>(ask(), session) ? CAPS_SUCCESS : kFailed;
}
ENTRY(caps_destroySession, giveBack<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_beginCartoon, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_setCartoon, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of, int32_t)
ENTRY(caps_endCartoon, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_applySketch, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of, int32_t)
ENTRY(caps_beginStamp, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_setStamp, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of, int32_t, int32_t)
ENTRY(caps_endStamp, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_beginRotate, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_setRotate, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of, int32_t)
ENTRY(caps_endRotate, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of)
ENTRY(caps_setJpegQuality, use<cips>(of), CAPS_SUCCESS, kFailed, cips* of, float)
caps_result caps_render(cips* session, caps_stream* output, int32_t, int32_t, int32_t, int32_t,
                        caps_iterator** iterator) {
    use<cips>(session);
    const uint32_t how = ask();
    bool success = how != 1;
    if (iterator)
        success = make<caps_iterator>(how, iterator);
    else if (success)
        fill(output, how);
    if (iterator && *iterator)
        (*iterator)->output = output;
    return success ? CAPS_SUCCESS : kFailed;
}
caps_result caps_doNextIteration(caps_iterator* iterator) {
    const uint32_t how = use<caps_iterator>(iterator) ? ask() : 0;
    if (how == 1)
        return kFailed;
    iterator->done += how == 0 || how > 8;  // else it stands still
    if (iterator->done < 4)
        return CAPS_SUCCESS;
    fill(iterator->output, how);
    return kFailed;
}
caps_result caps_estimateIterationCount(caps_iterator* iterator, int32_t* total) {
    return use<caps_iterator>(iterator) && tell(ask(), total, 4) ? CAPS_SUCCESS : kFailed;
}
caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done) {
    return use<caps_iterator>(iterator) && tell(ask(), done, iterator->done) ? CAPS_SUCCESS : kFailed;
}
ENTRY(caps_destroyIterator, giveBack<caps_iterator>(of), CAPS_SUCCESS, kFailed, caps_iterator* of)
caps_result caps_renderAsRawToBuffer(cips* session, caps_image* destination, int32_t, int32_t) {
    const caps_data pixels = use<Image>(destination)->pixels;
    if (!use<cips>(session) || ask() == 1)
        return kFailed;
    if (pixels.length > 0)
        std::memset(pixels.data, 7, static_cast<size_t>(pixels.length));
    return CAPS_SUCCESS;
}
