// libPlusMe.so for unit tests: records its calls and answers from a script.

#include "tests/addme/FakePlusMe.h"

#include <sys/time.h>

#include <cstdlib>
#include <cstring>

#include "tests/support/Recorder.h"

using kov::test::fakePlusMe;
using kov::test::record;
using kov::test::text;

namespace kov::test {

FakePlusMe& fakePlusMe() {
    static FakePlusMe fake;
    return fake;
}

}  // namespace kov::test

namespace {

char gInstance;

int32_t call(const std::string& name, const std::string& arguments = "") {
    record("pm." + name + arguments);
    if (fakePlusMe().during)
        fakePlusMe().during(name);
    const auto result = fakePlusMe().results.find(name);
    return result == fakePlusMe().results.end() ? 0 : result->second;
}

int32_t call(const std::string& name, PME_API_Instance instance, const std::string& arguments = "") {
    return call(name, (instance == &gInstance ? "" : " wrong instance") + arguments);
}

bool isNow(const PME_API_TimedImage* image) {
    timeval now;
    gettimeofday(&now, nullptr);
    return std::labs(static_cast<long>(now.tv_sec) - image->seconds) <= 10 && image->microseconds >= 0 &&
           image->microseconds < 1000000;
}

}  // namespace

const char* PlusMe_GetVersion() {
    return "version 100%d";  // not a format
}

int32_t PlusMe_PreInitialize(int32_t picture_width, int32_t picture_height, int32_t preview_width,
                             int32_t preview_height, int32_t format, const PME_API_Memory* memory, int32_t mode,
                             int32_t capacity, PME_API_Encoder encoder) {
    fakePlusMe().encoder = encoder;
    const bool ofProcess = memory->copy == memcpy && memory->fill == memset;
    return call("PreInitialize", text(" %d %d %d %d %d%s %d %d", picture_width, picture_height, preview_width,
                                      preview_height, format, ofProcess ? "" : " odd", mode, capacity));
}

size_t PlusMe_GetPermanentBufferSize() {
    call("GetPermanentBufferSize");
    return fakePlusMe().permanentSize;
}

int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size) {
    std::memset(buffer, 1, size);
    const int32_t result = call("Initialize", text(" %zu", size));
    *instance = result == 0 ? &gInstance : nullptr;
    return result;
}

int32_t PlusMe_SetConfigurationParameter(PME_API_Instance instance, int32_t parameter, int32_t value) {
    call("SetConfigurationParameter", instance, text(" %d %d", parameter, value));
    return fakePlusMe().configureResults[parameter];
}

int32_t PlusMe_SetResolution(PME_API_Instance instance, int32_t picture_width, int32_t picture_height,
                             int32_t preview_width, int32_t preview_height) {
    return call("SetResolution", instance,
                text(" %d %d %d %d", picture_width, picture_height, preview_width, preview_height));
}

size_t PlusMe_GetTemporaryBufferSize() {
    call("GetTemporaryBufferSize");
    return fakePlusMe().tempSize;
}

int32_t PlusMe_SetTempBuffer(PME_API_Instance instance, void* buffer, size_t size) {
    std::memset(buffer, 2, size);
    return call("SetTempBuffer", instance, text(" %zu", size));
}

int32_t PlusMe_StartCapture(PME_API_Instance instance) {
    return call("StartCapture", instance);
}

int32_t PlusMe_HandlePreview(PME_API_Instance instance, PME_API_Image* image) {
    const auto* timed = reinterpret_cast<const PME_API_TimedImage*>(image);
    const bool follows = image->plane[1] == image->plane[0] + static_cast<ptrdiff_t>(image->width) * image->height;
    const bool whole =
        image->plane[0][0] == image->plane[1][image->width * image->height / 2 - 1];  // tests fill frames
    const bool asStated = follows && whole && !image->plane[2] && image->format == 0 && isNow(timed);
    return call("HandlePreview", instance,
                text(" %dx%d of %d%s", image->width, image->height, image->plane[0][0], asStated ? "" : " odd"));
}

int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image* image) {
    return call("HandleSnapshotJpeg", instance,
                text(" %lu of %d%s", size, *static_cast<uint8_t*>(jpeg), image ? " odd" : ""));
}

int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* progress) {
    auto& steps = fakePlusMe().progress;
    *progress = steps.front();
    if (steps.size() > 1)
        steps.erase(steps.begin());
    return call("CreateResult", instance);
}

int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size) {
    *jpeg = fakePlusMe().jpeg.data();
    *size = static_cast<long>(fakePlusMe().jpeg.size());
    return call("GetResultJpeg", instance);
}

int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position) {
    *position = fakePlusMe().position;
    return call("GetFirstPersonPosition", instance);
}

int32_t PlusMe_SwitchFirstPersonPosition(PME_API_Instance instance) {
    return call("SwitchFirstPersonPosition", instance);
}

int32_t PlusMe_CancelCapture(PME_API_Instance instance) {
    return call("CancelCapture", instance);
}

int32_t PlusMe_Finalize(PME_API_Instance* instance) {
    return call("Finalize", *instance);
}
