// libActionShot.so for unit tests: records its calls and answers from a script.

#include "tests/action/FakeActionShot.h"

#include <cstring>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

FakeActionShot& kov::test::fakeActionShot() {
    static FakeActionShot fake;
    return fake;
}

namespace {

int32_t call(const std::string& name, ActionShot_Handle engine, const std::string& arguments = "") {
    return scriptedCall(fakeActionShot(), name, engine, 1, arguments);
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
    *engine = &fakeHandle;  // also on a failure
    return call("ActionShot_Initialize", *engine,
                text(" %dx%d %s %u", width, height, work_memory ? "memory" : "null", work_memory_size));
}

void ActionShot_SetResolution(ActionShot_Handle engine, int32_t width, int32_t height) {
    call("ActionShot_SetResolution", engine, text(" %dx%d", width, height));
}

void ActionShot_SetSceneCompletionActivationMode(ActionShot_Handle engine, int32_t mode) {
    call("ActionShot_SetSceneCompletionActivationMode", engine, text(" %d", mode));
}

void ActionShot_SetConfigurationParameter(ActionShot_Handle engine, int32_t parameter, int32_t value) {
    call("ActionShot_SetConfigurationParameter", engine, text(" %d %d", parameter, value));
}

int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t**, int32_t count, int32_t size) {
    return call("ActionShot_SetTempMemory", engine, text(" %d %d", count, size));
}

int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine) {
    return call("ActionShot_UnsetTempMemory", engine);
}

void ActionShot_CancelSeries(ActionShot_Handle engine) {
    call("ActionShot_CancelSeries", engine);
}

int32_t ActionShot_StartSeries(ActionShot_Handle engine) {
    return call("ActionShot_StartSeries", engine);
}

int32_t ActionShot_IsConnected(ActionShot_Handle) {
    return next(fakeActionShot().connected);
}

int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    call("ActionShot_HandleFrame", engine, sizeOf(*frame));
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
    result->plane[0] = fake.nullPlane ? nullptr : fake.image.data();
    return call("ActionShot_CreateResult", engine) && (!last || (*progress < 100 && !fake.endsEarly));
}

void ActionShot_Finalize(ActionShot_Handle* engine) {
    call("ActionShot_Finalize", *engine);
    *engine = nullptr;
}
