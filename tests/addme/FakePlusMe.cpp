// libPlusMe.so for unit tests: records its calls and answers from a script.

#include "tests/addme/FakePlusMe.h"

#include <cstring>
#include <utility>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

FakePlusMe& kov::test::fakePlusMe() {
    static FakePlusMe fake;
    return fake;
}

namespace {

char gHandles[1000];
size_t gMade = 0;
PME_API_Instance gInstance = nullptr;  // the living one

/// The operation is the one that this is called from.
int32_t call(void* instance = gInstance, const std::string& arguments = "", const char* from = __builtin_FUNCTION()) {
    const std::string name = from + std::strlen("PlusMe_");
    return scriptedCall(fakePlusMe(), name,
                        "pm." + name + (instance == gInstance ? "" : " wrong instance") + arguments);
}

}  // namespace

const char* PlusMe_GetVersion() {
    return "version 100%d";  // not a format
}

int32_t PlusMe_PreInitialize(int32_t width, int32_t height, int32_t view_width, int32_t view_height, int32_t format,
                             const PME_API_Memory* memory, int32_t mode, int32_t capacity, PME_API_Encoder encoder) {
    fakePlusMe().encoder = memory->copy == memcpy && memory->fill == memset ? encoder : nullptr;
    return call(gInstance, spaced(width, height, view_width, view_height, format, mode, capacity));
}

size_t PlusMe_GetPermanentBufferSize() {
    return call() == 0 ? fakePlusMe().permanentSize : 0;
}

int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size) {
    std::memset(buffer, 1, size);
    *instance = gInstance = fakePlusMe().results.contains("Initialize") ? nullptr : &gHandles[gMade++];
    return call(gInstance, spaced(size));
}

int32_t PlusMe_SetConfigurationParameter(PME_API_Instance instance, int32_t parameter, int32_t value) {
    return call(instance, spaced(parameter, value)) + fakePlusMe().configureResults[parameter];
}

int32_t PlusMe_SetResolution(PME_API_Instance instance, int32_t width, int32_t height, int32_t view_width,
                             int32_t view_height) {
    return call(instance, spaced(width, height, view_width, view_height));
}

size_t PlusMe_GetTemporaryBufferSize() {
    return call() == 0 ? fakePlusMe().tempSize : 0;
}

int32_t PlusMe_SetTempBuffer(PME_API_Instance instance, void* buffer, size_t size) {
    std::memset(buffer, 2, size);
    return call(instance, spaced(size));
}

int32_t PlusMe_HandlePreview(PME_API_Instance instance, PME_API_Image* image) {
    const auto* const timed = reinterpret_cast<PME_API_TimedImage*>(image);
    fakePlusMe().seconds = timed->seconds;
    fakePlusMe().microseconds = timed->microseconds;
    return call(instance, described(*image));
}

int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image* image) {
    const auto* const bytes = static_cast<uint8_t*>(jpeg);
    return call(instance, text(" %lu of %d%s", size, bytes[0], image || bytes[0] != bytes[size - 1] ? " odd" : ""));
}

int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* progress) {
    auto& steps = fakePlusMe().progress;
    const int32_t before = std::exchange(*progress, steps.front());
    steps.erase(steps.begin(), steps.begin() + (steps.size() > 1));
    return call(instance, text(" from %d", before));
}

int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size) {
    *jpeg = fakePlusMe().jpeg.data();
    *size = static_cast<long>(fakePlusMe().jpeg.size());
    return call(instance);
}

int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position) {
    *position = fakePlusMe().position;
    return call(instance);
}

int32_t PlusMe_Finalize(PME_API_Instance* instance) {
    const int32_t result = call(*instance);
    gInstance = nullptr;
    return result;
}

#define PLUSME_OPERATION(name)                         \
    int32_t PlusMe_##name(PME_API_Instance instance) { \
        return call(instance);                         \
    }
PLUSME_OPERATION(StartCapture)
PLUSME_OPERATION(SwitchFirstPersonPosition)
PLUSME_OPERATION(CancelCapture)
