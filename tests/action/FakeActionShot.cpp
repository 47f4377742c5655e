// libActionShot.so for unit tests: records its calls and answers from a script.

#include "tests/action/FakeActionShot.h"

#include <cstring>

#include "tests/support/Recorder.h"

using kov::test::fakeActionShot;
using kov::test::record;
using kov::test::text;

namespace kov::test {

FakeActionShot& fakeActionShot() {
    static FakeActionShot fake;
    return fake;
}

}  // namespace kov::test

namespace {

char gEngine;

int32_t call(const std::string& name, ActionShot_Handle engine, int32_t success, const std::string& arguments = "") {
    record(name + (engine == &gEngine ? "" : " without engine") + arguments);
    if (fakeActionShot().during)
        fakeActionShot().during(name);
    const auto result = fakeActionShot().results.find(name);
    return result == fakeActionShot().results.end() ? success : result->second;
}

int32_t next(std::vector<int32_t>& answers) {
    const int32_t answer = answers.front();
    if (answers.size() > 1)
        answers.erase(answers.begin());
    return answer;
}

}  // namespace

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions* functions) {
    record(functions->copy == std::memcpy && functions->set == std::memset ? "ActionShot_SetMemoryFunctions" : "odd");
}

int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t width, int32_t height, void* work_memory,
                              uint32_t work_memory_size) {
    const int32_t result = call("ActionShot_Initialize", &gEngine, 1,
                                text(" %dx%d %s %u", width, height, work_memory ? "memory" : "null", work_memory_size));
    if (result == 1)
        *engine = &gEngine;
    return result;
}

void ActionShot_SetResolution(ActionShot_Handle engine, int32_t width, int32_t height) {
    call("ActionShot_SetResolution", engine, 0, text(" %dx%d", width, height));
}

void ActionShot_SetSceneCompletionActivationMode(ActionShot_Handle engine, int32_t mode) {
    call("ActionShot_SetSceneCompletionActivationMode", engine, 0, text(" %d", mode));
}

void ActionShot_SetConfigurationParameter(ActionShot_Handle engine, int32_t parameter, int32_t value) {
    call("ActionShot_SetConfigurationParameter", engine, 0, text(" %d %d", parameter, value));
}

int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t**, int32_t count, int32_t size) {
    return call("ActionShot_SetTempMemory", engine, 1, text(" %d %d", count, size));
}

int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine) {
    return call("ActionShot_UnsetTempMemory", engine, 1);
}

void ActionShot_CancelSeries(ActionShot_Handle engine) {
    call("ActionShot_CancelSeries", engine, 0);
}

int32_t ActionShot_StartSeries(ActionShot_Handle engine) {
    return call("ActionShot_StartSeries", engine, 1);
}

int32_t ActionShot_IsConnected(ActionShot_Handle) {
    return next(fakeActionShot().connected);
}

int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    const bool follows = frame->plane[1] == frame->plane[0] + frame->width * frame->height;
    call("ActionShot_HandleFrame", engine, 0,
         text(" %dx%d%s", frame->width, frame->height, follows && !frame->plane[2] && !frame->format ? "" : " odd"));
    return fakeActionShot().frameResult;
}

void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle, ActionShot_DisplayData* data) {
    *data = fakeActionShot().display;
}

int32_t ActionShot_AcquisitionProgress(ActionShot_Handle) {
    return 42;
}

int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* progress, OPT_API_ASImage* result) {
    auto& fake = fakeActionShot();
    const bool last = fake.progress.size() == 1;
    *progress = next(fake.progress);
    *result = fake.result;
    if (!fake.nullPlane)
        result->plane[0] = fake.image.data();
    call("ActionShot_CreateResult", engine, 0);
    return !(last && (fake.endsEarly || *progress >= 100));
}

void ActionShot_Finalize(ActionShot_Handle* engine) {
    call("ActionShot_Finalize", *engine, 0);
    *engine = nullptr;
}
