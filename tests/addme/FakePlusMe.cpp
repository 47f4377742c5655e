// libPlusMe.so for tests: records its calls and answers from a script.

#include "tests/addme/FakePlusMe.h"

#include <cstring>

#include "shots/addme/JpegEncoderAddMe.h"
#include "tests/support/ScriptedCall.h"

using namespace kov::test;

namespace {

struct PlusMe {
    std::vector<uint8_t> jpeg = std::vector<uint8_t>(4096);
    long length = 0;
};

thread_local PME_API_Encoder gEncoder = nullptr;

/// The operation is the one that this is called from.
int32_t call(const std::string& arguments, bool fails, const char* from = __builtin_FUNCTION()) {
    const std::string name = from + std::strlen("PlusMe_");
    return scriptedCall(gFakePlusMe, name, "pm." + name + arguments, fails ? 3 : 0);
}
int32_t call(PME_API_Instance instance, const std::string& arguments, bool fails,
             const char* from = __builtin_FUNCTION()) {
    use<PlusMe>(instance);
    return call(arguments, fails, from);
}

}  // namespace

const char* PlusMe_GetVersion() {
    return "version 100%d%n%s";  // not a format
}

int32_t PlusMe_PreInitialize(int32_t width, int32_t height, int32_t view_width, int32_t view_height, int32_t format,
                             const PME_API_Memory* memory, int32_t mode, int32_t capacity, PME_API_Encoder encoder) {
    gEncoder = encoder;
    const bool known =
        memory->copy == memcpy && memory->fill == memset && encoder == android::jpeg_compress_yuv420sp_AddMe;
    return call(spaced(width, height, view_width, view_height, format, mode, capacity) + (known ? "" : " odd"), ask());
}

size_t PlusMe_GetPermanentBufferSize() {
    call("", false);
    return numberOf(ask(), gFakePlusMe.permanentSize);
}

int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size) {
    std::memset(buffer, 1, size);
    const uint32_t how = ask();
    const int32_t result = call(spaced(size), false);
    *instance = nullptr;
    return make<PlusMe>(result ? 1 : how, instance) ? 0 : std::max(result, 3);
}

int32_t PlusMe_SetConfigurationParameter(PME_API_Instance instance, int32_t parameter, int32_t value) {
    const auto& results = gFakePlusMe.configureResults;
    const int32_t result = call(instance, spaced(parameter, value), ask());
    return results.contains(parameter) ? results.at(parameter) : result;
}

int32_t PlusMe_SetResolution(PME_API_Instance instance, int32_t width, int32_t height, int32_t view_width,
                             int32_t view_height) {
    return call(instance, spaced(width, height, view_width, view_height), ask());
}

size_t PlusMe_GetTemporaryBufferSize() {
    call("", false);
    return numberOf(ask(), gFakePlusMe.tempSize);
}

int32_t PlusMe_SetTempBuffer(PME_API_Instance instance, void* buffer, size_t size) {
    std::memset(buffer, 2, size);
    return call(instance, spaced(size), ask());
}

int32_t PlusMe_HandlePreview(PME_API_Instance instance, PME_API_Image* image) {
    const auto* const timed = reinterpret_cast<PME_API_TimedImage*>(image);
    touch(*image);
    return call(instance, described(*image) + text(" at %ld.%06ld", timed->seconds, timed->microseconds), ask());
}

int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image* image) {
    const auto* const bytes = static_cast<volatile uint8_t*>(jpeg);
    const bool whole = bytes[0] == bytes[size - 1];
    return call(instance, text(" %lu of %d%s", size, bytes[0], image || !whole ? " odd" : ""), ask());
}

int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* progress) {
    PlusMe* const plusMe = use<PlusMe>(instance);
    const uint32_t how = ask();
    const int32_t before = *progress;
    *progress = progressOf(gFakePlusMe.progress, how, before, 50);
    if (*progress == 100 && gAnswers && gEncoder) {
        uint8_t frame[34 * 18 * 3 / 2] = {};
        plusMe->length = gEncoder(plusMe->jpeg.data(), how ? 40 : 4096, frame, how % 2 ? 33 : 34, 18);
    }
    return call(instance, text(" from %d", before), how == 1);
}

int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size) {
    PlusMe* const plusMe = use<PlusMe>(instance);
    const uint32_t how = ask();
    *jpeg = gAnswers ? static_cast<void*>(plusMe->jpeg.data()) : gFakePlusMe.jpeg.data();
    *size = gAnswers ? plusMe->length : static_cast<long>(gFakePlusMe.jpeg.size());
    if (how == 2)
        *jpeg = nullptr;
    if (how)
        *size = how == 2 ? 1000 : std::min(absurd(how), 0);
    return call(instance, "", how == 1);
}

int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position) {
    const bool told = tell(ask(), position, gFakePlusMe.position);
    return call(instance, "", !told);
}

int32_t PlusMe_Finalize(PME_API_Instance* instance) {
    const int32_t result = call(*instance, "", ask());
    giveBack<PlusMe>(*instance);
    return result;
}

#define PLUSME_OPERATION(name)                         \
    int32_t PlusMe_##name(PME_API_Instance instance) { \
        return call(instance, "", ask());              \
    }
PLUSME_OPERATION(StartCapture)
PLUSME_OPERATION(SwitchFirstPersonPosition)
PLUSME_OPERATION(CancelCapture)
