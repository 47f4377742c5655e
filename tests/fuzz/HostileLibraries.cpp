// The closed libraries and the system under the product, as bad as their contracts let them be.

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
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "imaging/System.h"
#include "tests/fuzz/Answers.h"

using kov::test::ask;

namespace {

constexpr size_t kMostMemory = 2 << 20;  // more the machine does not have
constexpr int32_t kAbsurd[] = {-1, INT32_MIN, INT32_MAX, 0, 0x10000, 1 << 20};

int32_t absurd(uint32_t how) {
    return kAbsurd[how % std::size(kAbsurd)];
}

// --- Handles

struct Known {
    const char* kind;
    bool owed;  // it was given with success, and must be given back
    void (*release)(const void* handle);
};

std::mutex gLock;
std::map<const void*, Known> gHandles;

[[noreturn]] void fault(const char* what, const char* kind) {
    std::fprintf(stderr, "%s: %s\n", what, kind);
    std::abort();
}

void remember(const void* handle, const char* kind, bool owed, void (*release)(const void*) = nullptr) {
    const std::lock_guard held(gLock);
    gHandles[handle] = {kind, owed, release};
}

/// A handle that the product hands in must be one that it was given, of that kind, and not given back.
void use(const void* handle, const char* kind, bool mayBeNull = false) {
    if (!handle && mayBeNull)
        return;
    const std::lock_guard held(gLock);
    const auto known = gHandles.find(handle);
    if (known == gHandles.end() || std::strcmp(known->second.kind, kind) != 0)
        fault(handle ? "a handle that is not alive was used" : "a null handle was used", kind);
}

void forget(const void* handle, const char* kind) {
    use(handle, kind);
    const std::lock_guard held(gLock);
    gHandles.erase(handle);
}

/// Makes an object, or not, and says whether it did, or lies: 1 neither; 2 success without a handle; 3 a handle without
/// success. A handle without success is the library's own concern.
template <typename Object, typename Handle>
bool make(uint32_t how, const char* kind, Handle** out) {
    how %= 4;
    if (how == 0 || how == 3) {
        *out = reinterpret_cast<Handle*>(new Object);
        remember(*out, kind, how == 0, [](const void* handle) { delete static_cast<const Object*>(handle); });
    }
    return how == 0 || how == 2;
}

template <typename Object>
void destroy(const void* handle, const char* kind) {
    forget(handle, kind);
    delete static_cast<const Object*>(handle);
}

struct Plain {
    char unused = 0;
};

/// Writes to the first and the last byte of a frame's luma and of its chroma; a frame of one pixel has no chroma.
template <typename Image>
void touch(const Image& frame) {
    const ptrdiff_t pixels = ptrdiff_t{frame.width} * frame.height;
    frame.plane[0][0] ^= 1;
    frame.plane[0][pixels - 1] ^= 1;
    if (pixels < 2)
        return;
    frame.plane[1][0] ^= 1;
    frame.plane[1][pixels / 2 - 1] ^= 1;
}

// --- The clock

std::atomic<int64_t> gMilliseconds{1000000};
std::function<void(std::function<void()>)> gStarter;
std::mutex gThreadsLock;
std::condition_variable gThreadsChanged;
int gThreads = 0;

bool startThread(std::function<void()> work) {
    if (ask("startThread"))
        return false;
    if (gStarter) {
        gStarter(std::move(work));
        return true;
    }
    {
        const std::lock_guard held(gThreadsLock);
        ++gThreads;
    }
    std::thread([work = std::move(work)] {
        work();
        const std::lock_guard held(gThreadsLock);
        --gThreads;
        gThreadsChanged.notify_all();
    }).detach();
    return true;
}

/// Shared memory in the C heap, where a sanitizer sees each byte that is not the heap's.
class PlainHeap : public android::MemoryHeapBase {
public:
    explicit PlainHeap(size_t size) : MemoryHeapBase(0), mBytes(size) {}
    void* getBase() const override { return mBytes.empty() ? nullptr : mBytes.data(); }
    size_t getSize() const override { return mBytes.size(); }

private:
    mutable std::vector<uint8_t> mBytes;
};

}  // namespace

namespace kov::test {

size_t handlesAlive() {
    const std::lock_guard held(gLock);
    size_t owed = 0;
    for (const auto& [handle, known] : gHandles) {
        if (known.owed)
            std::fprintf(stderr, "not given back: %s\n", known.kind);
        owed += known.owed;
    }
    return owed;
}

void dropRefused() {
    const std::lock_guard held(gLock);
    std::erase_if(gHandles, [](const auto& entry) {
        if (!entry.second.owed)
            entry.second.release(entry.first);
        return !entry.second.owed;
    });
}

void advanceClock(int64_t milliseconds) {
    gMilliseconds += milliseconds;
}

void setThreadStarter(std::function<void(std::function<void()>)> starter) {
    gStarter = std::move(starter);
}

void waitForThreads() {
    std::unique_lock held(gThreadsLock);
    gThreadsChanged.wait(held, [] { return gThreads == 0; });
}

}  // namespace kov::test

namespace android::os {

nsecs_t now(int) {
    return gMilliseconds * 1000000;
}

void sleepMicroseconds(int64_t duration) {
    gMilliseconds += duration / 1000;
}

void wait(Condition& condition, Mutex& held, int64_t) {
    condition.waitRelative(held, 1000);
}

void* allocate(size_t size) {
    return ask() || size > kMostMemory ? nullptr : std::malloc(size);
}

sp<MemoryHeapBase> newHeap(size_t size) {
    if (size > 0 && (ask() || size > kMostMemory))
        return nullptr;
    return new PlainHeap(size);
}

bool startThread(void* (*entry)(void*), void* argument) {
    return ::startThread([=] { entry(argument); });
}

bool startThread(android_thread_func_t entry, void* argument) {
    return ::startThread([=] { entry(argument); });
}

}  // namespace android::os

int property_get(const char*, char* value, const char* default_value) {
    const uint32_t how = ask();
    const char* text = how == 0 ? default_value : how % 2 ? "XSA" : "";
    std::strcpy(value, text);
    return static_cast<int>(std::strlen(text));
}

// --- libmedia.so

namespace android {

MediaPlayer::MediaPlayer() : mVoice(nullptr) {}
MediaPlayer::~MediaPlayer() = default;
status_t MediaPlayer::setDataSource(const char*, const KeyedVector<String8, String8>*) {
    return ask() ? -1 : 0;
}
status_t MediaPlayer::setAudioStreamType(int) {
    return ask() ? -1 : 0;
}
status_t MediaPlayer::prepare() {
    return ask() ? -1 : 0;
}
status_t MediaPlayer::setVolume(float, float) {
    return ask() ? -1 : 0;
}
status_t MediaPlayer::seekTo(int) {
    return ask() ? -1 : 0;
}
status_t MediaPlayer::start() {
    return ask() ? -1 : 0;
}
void MediaPlayer::disconnect() {}
float VolumeCustomizer::getSituationVolume(int, int) {
    return ask() ? -1e30F : 1;
}

}  // namespace android

// --- libarccamera.so: pictures

namespace {

struct Stream {
    std::vector<uint8_t> bytes;
    size_t place = 0;
};

Stream* streamOf(MHandle handle) {
    use(handle, "stream");
    return static_cast<Stream*>(handle);
}

MRESULT save(MHandle manager, MHandle stream, const MBITMAP* bitmap, uint32_t how) {
    use(manager, "component manager", true);
    if (how == 1)
        return 7;
    // An encoder reads the whole picture, as far as it can be one.
    uint32_t sum = 0;
    const int64_t pixels = int64_t{bitmap->lWidth} * bitmap->lHeight;
    if (pixels <= 0 || pixels > (1 << 20))
        return 2;
    for (int64_t i = 0; i < pixels; ++i)
        sum += bitmap->pPlane[0][i];
    if (how != 2)  // else an output that was not written
        streamOf(stream)->bytes.assign(100 + sum % 7, 0xD8);
    return how == 3 ? 7 : 0;
}

}  // namespace

MRESULT AMCM_Create(MHandle, MHandle* manager) {
    return make<Plain>(ask(), "component manager", manager) ? 0 : 5;
}
MRESULT AMCM_RegisterEx(MHandle manager, uint32_t, uint32_t, uint32_t, uint32_t, void*) {
    use(manager, "component manager");
    return ask() ? 3 : 0;
}
MRESULT AMCM_Destroy(MHandle manager) {
    destroy<Plain>(manager, "component manager");
    return ask() ? 3 : 0;
}
void MEncoder_AJL2Create(void) {}
MHandle MStreamOpenFromMemoryBlock(void*, int32_t) {
    if (ask())
        return nullptr;
    auto* const stream = new Stream;
    remember(stream, "stream", true);
    return stream;
}
int32_t MStreamSeek(MHandle stream, int32_t, int32_t offset) {
    streamOf(stream)->place = static_cast<size_t>(std::max(offset, 0));
    return ask() ? -1 : 0;
}
int32_t MStreamGetSize(MHandle stream) {
    const uint32_t how = ask();
    const auto size = static_cast<int32_t>(streamOf(stream)->bytes.size());
    return how == 0 ? size : how == 1 ? 0 : absurd(how);
}
int32_t MStreamRead(MHandle handle, void* destination, int32_t size) {
    Stream* const stream = streamOf(handle);
    const uint32_t how = ask();
    if (how == 1)
        return 0;
    const size_t count =
        std::min(static_cast<size_t>(size), stream->bytes.size() - std::min(stream->place, stream->bytes.size()));
    if (count)
        std::memcpy(destination, stream->bytes.data() + stream->place, count);
    stream->place += count;
    return how ? absurd(how) : static_cast<int32_t>(count);
}
MRESULT MStreamClose(MHandle stream) {
    destroy<Stream>(stream, "stream");
    return ask() ? 1 : 0;
}
MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t, MBITMAP* bitmap) {
    return save(manager, stream, bitmap, ask());
}
MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t, MBITMAP* bitmap, int32_t, uint32_t) {
    return save(manager, stream, bitmap, ask());
}

// --- libarccamera.so: faces

namespace {

__tag_rect gRectangles[64] = {{2, 2, 20, 20}, {10, 5, 30, 25}, {-5, -5, 500, 500}, {40, 40, 3, 3}, {5, 5, 5, 5}};

/// A list of rectangles: as usual one; else none, none behind a count, or as many as nobody has.
int32_t rectangles(uint32_t how, __tag_rect** list) {
    *list = how == 2 ? nullptr : gRectangles;
    return how == 0 ? 1 : how == 1 ? 0 : how % 2 ? absurd(how / 2) : static_cast<int32_t>(how % 17);
}

}  // namespace

void* MMemAlloc(MHandle, int32_t size) {
    if (ask() || size < 0)
        return nullptr;
    void* const block = std::malloc(static_cast<size_t>(size));
    remember(block, "block", true);
    return block;
}
void MMemFree(MHandle, void* block) {
    forget(block, "block");
    std::free(block);
}
void MMemCpy(void* destination, const void* source, int32_t size) {
    std::memcpy(destination, source, static_cast<size_t>(size));
}
MHandle MMemMgrCreate(void* block, int32_t) {
    use(block, "block");
    MHandle manager = nullptr;
    make<Plain>(ask() ? 1 : 0, "memory manager", &manager);
    return manager;
}
void MMemMgrDestroy(MHandle manager) {
    destroy<Plain>(manager, "memory manager");
}
MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO*, AMFPAF_FACE_RESULT*, MHandle* engine, int32_t,
                                 int32_t, int32_t) {
    use(manager, "memory manager");
    return make<Plain>(ask(), "face engine", engine) ? 0 : 5;
}
MRESULT AMFPAF_SetFaceOutPriority(MHandle engine, int32_t) {
    use(engine, "face engine", true);
    return ask() ? 5 : 0;
}
MRESULT AMFPAF_SetTrackingFrameNumber(MHandle engine, int32_t) {
    use(engine, "face engine", true);
    return ask() ? 5 : 0;
}
MRESULT AMFPAF_FaceFeatureDetect(MHandle manager, MHandle engine, uint8_t* frame, AMFPAF_FACE_RESULT* result, int32_t,
                                 int32_t, int32_t, int32_t, int32_t) {
    use(manager, "memory manager");
    use(engine, "face engine");
    frame[0] ^= 1;
    const uint32_t how = ask();
    if (how != 1)
        result->count = rectangles(how, &result->faces);
    result->info = static_cast<int32_t>(how);
    return how == 1 ? 5 : 0;
}
MRESULT AMFPAF_UninitialFaceEngine(MHandle, MHandle* engine, AMFPAF_FACE_RESULT*) {
    use(*engine, "face engine", true);
    if (*engine)
        destroy<Plain>(*engine, "face engine");
    return ask() ? 5 : 0;
}
MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t, int32_t) {
    use(manager, "memory manager");
    return make<Plain>(ask(), "smile engine", engine) ? 0 : 5;
}
MRESULT ASSD_SmileDetect(MHandle manager, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces,
                         ASSD_SMILE_RESULT* result, int32_t, int32_t) {
    use(manager, "memory manager");
    use(engine, "smile engine");
    image->plane[0][0] ^= 1;
    for (int32_t i = 0; i < faces->count; ++i)
        gRectangles[i % 8].left = faces->info[i] % 64 + faces->faces[i].left % 64;
    const uint32_t how = ask();
    if (how == 1)
        return 5;
    result->ISmileNumber = rectangles(how, &result->smiles);
    result->IFaceNumber = how < 4 ? faces->count : absurd(how / 4);
    return how == 3 ? 5 : 0;
}
MRESULT ASSD_UninitSmileEngine(MHandle, MHandle* engine) {
    use(*engine, "smile engine", true);
    if (*engine)
        destroy<Plain>(*engine, "smile engine");
    return ask() ? 5 : 0;
}

// --- libPanoraMax1.so

namespace {

struct Panorama {
    std::vector<uint8_t> image = std::vector<uint8_t>(64 * 48 * 3 / 2);
    uint32_t added = 0;
};

Panorama* panoramaOf(px_instance instance) {
    use(instance, "panorama");
    return static_cast<Panorama*>(instance);
}

/// The product calls some operations without an instance too; they then fail.
int32_t panoramaResult(px_instance instance, const char* site = __builtin_FUNCTION()) {
    use(instance, "panorama", true);
    return ask(site) || !instance ? -3 : 0;
}

}  // namespace

int32_t px_init(const px_allocator*, void*, uint32_t, px_instance* instance) {
    return make<Panorama>(ask(), "panorama", instance) ? 0 : -2;
}
int32_t px_setParams(px_instance instance, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                     float, int32_t) {
    return panoramaResult(instance);
}
int32_t px_start(px_instance instance) {
    return panoramaResult(instance);
}
int32_t px_beginCapture(px_instance instance, int32_t) {
    if (instance)
        panoramaOf(instance)->added = 0;
    return panoramaResult(instance);
}
int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    Panorama* const panorama = panoramaOf(instance);
    const uint32_t how = ask();
    if (how == 1)
        return -4;
    touch(*frame);
    status->max_frames = how < 24 ? 8 : static_cast<uint32_t>(absurd(how));
    status->frame_count = how < 26 ? panorama->added : static_cast<uint32_t>(absurd(how / 2));
    status->direction = how < 16 ? 1 << how % 4 : static_cast<int32_t>(how % 10);
    status->dx = how < 28 ? static_cast<int32_t>(how * 7) - 60 : absurd(how);
    status->dy = how < 28 ? static_cast<int32_t>(how * 37 % 100) - 50 : absurd(how / 2);
    status->status = how == 0 ? 2 : how % 5;
    return 0;
}
int32_t px_addFrame(px_instance instance, const px_image*, uint32_t, px_status* status) {
    Panorama* const panorama = panoramaOf(instance);
    const uint32_t how = ask();
    if (how != 1)
        status->frame_count = how ? static_cast<uint32_t>(absurd(how)) : ++panorama->added;
    return how == 1 ? -4 : 0;
}
int32_t px_endCapture(px_instance instance) {
    return panoramaResult(instance);
}
int32_t px_createPanorama(px_instance instance, uint32_t* progress) {
    panoramaOf(instance);
    const uint32_t how = ask();
    const uint32_t answers[] = {std::min(*progress + 34, 100U), *progress, *progress, 0, UINT32_MAX, 99};
    *progress = answers[how % std::size(answers)];
    return how == 1 ? -4 : 0;
}
int32_t px_getPanoramaImage(px_instance instance, px_image* image) {
    Panorama* const panorama = panoramaOf(instance);
    const uint32_t how = ask();
    if (how == 1)
        return -4;
    uint8_t* const pixels = panorama->image.data();
    *image = {0, 64, 48, {pixels, pixels + 64 * 48, nullptr}};
    if (how == 2)
        image->plane[0] = nullptr;
    else if (how > 2)
        (how % 2 ? image->width : image->height) = absurd(how / 2);
    if (how > 2 && image->width > 0 && image->height > 0 && int64_t{image->width} * image->height < (8 << 20)) {
        panorama->image.resize(static_cast<size_t>(image->width) * image->height * 3 / 2);  // it is as large as it says
        image->plane[0] = panorama->image.data();
    }
    return 0;
}
int32_t px_abort(px_instance instance) {
    return panoramaResult(instance);
}
int32_t px_free(px_instance instance) {
    destroy<Panorama>(instance, "panorama");
    return ask() ? -4 : 0;
}

// --- libActionShot.so

namespace {

struct Action {
    void* temp = nullptr;
    uint8_t image[64 * 48 * 3 / 2] = {};
    int frames = 0;
};

Action* actionOf(ActionShot_Handle engine) {
    use(engine, "action engine");
    return static_cast<Action*>(engine);
}

}  // namespace

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions*) {}
int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t, int32_t, void* work_memory, uint32_t size) {
    if (work_memory && size)
        static_cast<uint8_t*>(work_memory)[size - 1] = 1;
    return make<Action>(ask(), "action engine", engine) ? 1 : 0;
}
void ActionShot_SetResolution(ActionShot_Handle engine, int32_t, int32_t) {
    actionOf(engine);
}
void ActionShot_SetSceneCompletionActivationMode(ActionShot_Handle engine, int32_t) {
    actionOf(engine);
}
void ActionShot_SetConfigurationParameter(ActionShot_Handle engine, int32_t, int32_t) {
    actionOf(engine);
}
int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t** blocks, int32_t count, int32_t size) {
    for (int32_t i = 0; i < count; ++i)
        blocks[i][size - 1] = 1;
    actionOf(engine);
    return ask() ? 0 : 1;
}
int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine) {
    actionOf(engine);
    return ask() ? 0 : 1;
}
void ActionShot_CancelSeries(ActionShot_Handle engine) {
    actionOf(engine)->frames = 0;
}
int32_t ActionShot_StartSeries(ActionShot_Handle engine) {
    actionOf(engine);
    return ask() ? 0 : 1;
}
int32_t ActionShot_IsConnected(ActionShot_Handle engine) {
    actionOf(engine);
    const uint32_t how = ask();
    return how < 2 ? static_cast<int32_t>(1 - how) : absurd(how);
}
int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    touch(*frame);
    actionOf(engine);
    const uint32_t how = ask();
    return how == 0 ? 0 : how == 1 ? 9 : how < 5 ? static_cast<int32_t>(how - 1) : absurd(how);
}
void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle engine, ActionShot_DisplayData* data) {
    actionOf(engine);
    const uint32_t how = ask();
    data->count = how < 2 ? static_cast<int32_t>(2 - how) : how % 2 ? absurd(how) : static_cast<int32_t>(how % 130);
    for (int i = 0; i < 128; ++i)
        data->entries[i] = {i + static_cast<int32_t>(how), 3, how > 8 ? absurd(how + i) : i + 20,
                            how > 16 ? absurd(how / 2) : 30, i % 3};
}
int32_t ActionShot_AcquisitionProgress(ActionShot_Handle engine) {
    actionOf(engine);
    const uint32_t how = ask();
    return how ? absurd(how) : 50;
}
int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* progress, OPT_API_ASImage* result) {
    Action* const action = actionOf(engine);
    const uint32_t how = ask();
    const int32_t answers[] = {std::min(std::max(*progress, 0) + 34, 100), *progress, *progress, -7, 1 << 20, 100};
    *progress = answers[how % std::size(answers)];
    *result = {0, 64, 48, {action->image, action->image + 64 * 48, nullptr}};
    if (how == 11)
        result->plane[0] = nullptr;
    else if (how >= 5)
        (how % 2 ? result->width : result->height) = how % 4 == 0 ? 32 : std::min(absurd(how / 2), 0);
    return how != 1;
}
void ActionShot_Finalize(ActionShot_Handle* engine) {
    destroy<Action>(*engine, "action engine");
    *engine = nullptr;
}

// --- libPlusMe.so

namespace {

struct PlusMe {
    std::vector<uint8_t> jpeg = std::vector<uint8_t>(4096);
    long length = 0;
};

thread_local PME_API_Encoder gEncoder = nullptr;

PlusMe* plusMeOf(PME_API_Instance instance) {
    use(instance, "add-me instance");
    return static_cast<PlusMe*>(instance);
}

int32_t plusMeResult(PME_API_Instance instance, const char* site = __builtin_FUNCTION()) {
    plusMeOf(instance);
    return static_cast<int32_t>(ask(site));
}

size_t bufferSize(uint32_t how) {
    return how == 0 ? 4096 : how == 1 ? 0 : static_cast<size_t>(int64_t{absurd(how)});
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
    return bufferSize(ask());
}
int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size) {
    std::memset(buffer, 1, size);
    return make<PlusMe>(ask(), "add-me instance", instance) ? 0 : 3;
}
int32_t PlusMe_SetConfigurationParameter(PME_API_Instance instance, int32_t, int32_t) {
    return plusMeResult(instance);
}
int32_t PlusMe_SetResolution(PME_API_Instance instance, int32_t, int32_t, int32_t, int32_t) {
    return plusMeResult(instance);
}
size_t PlusMe_GetTemporaryBufferSize(void) {
    return bufferSize(ask());
}
int32_t PlusMe_SetTempBuffer(PME_API_Instance instance, void* buffer, size_t size) {
    std::memset(buffer, 1, size);
    return plusMeResult(instance);
}
int32_t PlusMe_StartCapture(PME_API_Instance instance) {
    return plusMeResult(instance);
}
int32_t PlusMe_HandlePreview(PME_API_Instance instance, PME_API_Image* image) {
    touch(*image);
    return plusMeResult(instance);
}
int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image*) {
    static_cast<volatile uint8_t*>(jpeg)[size - 1];
    return plusMeResult(instance);
}
int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* progress) {
    PlusMe* const plusMe = plusMeOf(instance);
    const uint32_t how = ask();
    const int32_t answers[] = {std::min(std::max(*progress, 0) + 50, 100), *progress, *progress, -7, 1 << 20, 99};
    *progress = answers[how % std::size(answers)];
    if (*progress == 100) {
        uint8_t frame[34 * 18 * 3 / 2] = {};
        const unsigned int width = how % 2 ? 33 : 34;
        if (gEncoder)
            plusMe->length = gEncoder(plusMe->jpeg.data(), how ? 40 : 4096, frame, width, 18);
    }
    return how == 1 ? 4 : 0;
}
int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size) {
    PlusMe* const plusMe = plusMeOf(instance);
    const uint32_t how = ask();
    *jpeg = how == 2 ? nullptr : plusMe->jpeg.data();
    *size = how == 0 ? plusMe->length : how == 2 ? 1000 : std::min(absurd(how), 0);
    return how == 1 ? 4 : 0;
}
int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position) {
    const int32_t result = plusMeResult(instance);
    *position = result > 1 ? result : 0;
    return result;
}
int32_t PlusMe_SwitchFirstPersonPosition(PME_API_Instance instance) {
    return plusMeResult(instance);
}
int32_t PlusMe_CancelCapture(PME_API_Instance instance) {
    return plusMeResult(instance);
}
int32_t PlusMe_Finalize(PME_API_Instance* instance) {
    destroy<PlusMe>(*instance, "add-me instance");
    return static_cast<int32_t>(ask());
}

// --- libcaps.so

namespace {

struct Buffer {
    caps_data pair = {};  // what the product sees; stays first
    std::vector<uint8_t> bytes;
};
struct Image {
    caps_image head = {1};
    uint8_t* pixels = nullptr;
    int64_t length = 0;
};

}  // namespace

struct caps_stream {
    caps_data* pair = nullptr;
};
struct cips {
    int unused = 0;
};
struct caps_iterator {
    caps_stream* output = nullptr;
    int done = 0;
};

namespace {

caps_result resultOf(bool made) {
    return made ? CAPS_SUCCESS : 6;
}

/// An operation on a session that may fail.
caps_result onSession(cips* session, const char* site = __builtin_FUNCTION()) {
    use(session, "session");
    return resultOf(!ask(site));
}

void fill(caps_stream* output, uint32_t how) {
    use(output, "caps stream");
    auto* const buffer = reinterpret_cast<Buffer*>(output->pair);
    use(buffer, "buffer");
    buffer->bytes.assign(200, 0xD8);
    buffer->pair = {200, buffer->bytes.data()};
    if (how == 2)
        buffer->pair.data = nullptr;
    else if (how > 2)
        buffer->pair.length = std::min(absurd(how), 0);
}

}  // namespace

int32_t caps_pixelBitSize(int32_t) {
    const uint32_t how = ask();
    return how == 0 ? 12 : how == 1 ? 0 : absurd(how);
}
caps_result caps_createImage(const caps_data* pixels, int32_t, int32_t, int32_t, int32_t, caps_image** image) {
    Image* made = nullptr;
    const bool success = make<Image>(ask(), "image", &made);
    if (made) {
        made->pixels = pixels->data;
        made->length = pixels->length;
        *image = &made->head;
    }
    return resultOf(success);
}
caps_result caps_destroyImage(caps_image* image) {
    if (image->owns_pixels)
        fault("pixels would be released twice", "image");
    destroy<Image>(image, "image");
    return resultOf(!ask());
}
caps_result caps_createBuffer(int32_t, caps_data** buffer) {
    return resultOf(make<Buffer>(ask(), "buffer", buffer));
}
caps_result caps_destroyBuffer(caps_data* buffer) {
    destroy<Buffer>(buffer, "buffer");
    return resultOf(!ask());
}
caps_result ctstream_createBufferStream(caps_data* pair, int32_t, caps_stream** stream) {
    const bool success = make<caps_stream>(ask(), "caps stream", stream);
    if (*stream)
        (*stream)->pair = pair;
    return resultOf(success);
}
caps_result ctstream_destroy(caps_stream* stream) {
    destroy<caps_stream>(stream, "caps stream");
    return resultOf(!ask());
}
caps_result caps_createSession(caps_stream* input, int32_t, cips** session) {
    use(input, "caps stream");
    if (input->pair->length > 0)
        static_cast<volatile uint8_t*>(input->pair->data)[input->pair->length - 1];
    return resultOf(make<cips>(ask(), "session", session));
}
caps_result caps_newSessionWithRaw(caps_image* source, cips** session) {
    use(source, "image");
    return resultOf(make<cips>(ask(), "session", session));
}
caps_result caps_destroySession(cips* session) {
    destroy<cips>(session, "session");
    return resultOf(!ask());
}
caps_result caps_beginCartoon(cips* session) {
    return onSession(session);
}
caps_result caps_setCartoon(cips* session, int32_t) {
    return onSession(session);
}
caps_result caps_endCartoon(cips* session) {
    return onSession(session);
}
caps_result caps_applySketch(cips* session, int32_t) {
    return onSession(session);
}
caps_result caps_beginStamp(cips* session) {
    return onSession(session);
}
caps_result caps_setStamp(cips* session, int32_t, int32_t) {
    return onSession(session);
}
caps_result caps_endStamp(cips* session) {
    return onSession(session);
}
caps_result caps_beginRotate(cips* session) {
    return onSession(session);
}
caps_result caps_setRotate(cips* session, int32_t) {
    return onSession(session);
}
caps_result caps_endRotate(cips* session) {
    return onSession(session);
}
caps_result caps_setJpegQuality(cips* session, float) {
    return onSession(session);
}
caps_result caps_render(cips* session, caps_stream* output, int32_t, int32_t, int32_t, int32_t,
                        caps_iterator** iterator) {
    use(session, "session");
    const uint32_t how = ask();
    if (!iterator) {
        if (how != 1)
            fill(output, how);
        return resultOf(how != 1);
    }
    const bool success = make<caps_iterator>(how, "iterator", iterator);
    if (*iterator)
        (*iterator)->output = output;
    return resultOf(success);
}
caps_result caps_doNextIteration(caps_iterator* iterator) {
    use(iterator, "iterator");
    const uint32_t how = ask();
    if (how == 1)
        return 6;
    if (how == 0 || how > 8)  // else it stands still
        ++iterator->done;
    if (iterator->done < 4)
        return CAPS_SUCCESS;
    fill(iterator->output, how);
    return 6;
}
caps_result caps_estimateIterationCount(caps_iterator* iterator, int32_t* total) {
    use(iterator, "iterator");
    const uint32_t how = ask();
    if (how != 1)
        *total = how ? absurd(how) : 4;
    return resultOf(how != 1);
}
caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done) {
    use(iterator, "iterator");
    const uint32_t how = ask();
    if (how != 1)
        *done = how ? absurd(how) : iterator->done;
    return resultOf(how != 1);
}
caps_result caps_destroyIterator(caps_iterator* iterator) {
    destroy<caps_iterator>(iterator, "iterator");
    return resultOf(!ask());
}
caps_result caps_renderAsRawToBuffer(cips* session, caps_image* destination, int32_t, int32_t) {
    use(session, "session");
    use(destination, "image");
    auto* const image = reinterpret_cast<Image*>(destination);
    const uint32_t how = ask();
    if (how != 1 && image->length > 0)
        std::memset(image->pixels, 7, static_cast<size_t>(image->length));
    return resultOf(how != 1);
}
