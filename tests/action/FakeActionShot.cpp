// libActionShot.so for unit tests: records its calls and answers from a script.

#include "tests/action/FakeActionShot.h"

#include <cstring>
#include <set>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

namespace {

char gHandles[1000];
size_t gMade = 0;
ActionShot_Handle gEngine = nullptr;  // the living one

/// The operation is the one that this is called from.
int32_t call(ActionShot_Handle engine, const std::string& arguments = "", const char* from = __builtin_FUNCTION()) {
    const std::string name = from + std::strlen("ActionShot_");
    return scriptedCall(fakeActionShot(), name, "as." + name + (engine == gEngine ? "" : " wrong engine") + arguments,
                        1);
}

}  // namespace

FakeActionShot& kov::test::fakeActionShot() {
    static FakeActionShot fake;
    return fake;
}

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions* functions) {
    call(gEngine, functions->copy == std::memcpy && functions->set == std::memset ? "" : " odd");
}

int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t width, int32_t height, void* work_memory,
                              uint32_t work_memory_size) {
    if (work_memory)
        std::memset(work_memory, 1, work_memory_size);
    *engine = gEngine = fakeActionShot().noHandle ? nullptr : &gHandles[gMade++];  // also on a failure
    return call(*engine, text(" %dx%d %s %u", width, height, work_memory ? "memory" : "null", work_memory_size));
}

void ActionShot_SetResolution(ActionShot_Handle engine, int32_t width, int32_t height) {
    call(engine, text(" %dx%d", width, height));
}

void ActionShot_SetSceneCompletionActivationMode(ActionShot_Handle engine, int32_t mode) {
    call(engine, spaced(mode));
}

void ActionShot_SetConfigurationParameter(ActionShot_Handle engine, int32_t parameter, int32_t value) {
    call(engine, spaced(parameter, value));
}

int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t** blocks, int32_t count, int32_t size) {
    for (uint8_t** block = blocks; block != blocks + count; ++block)
        std::memset(*block, 2, static_cast<size_t>(size));
    const size_t distinct = std::set(blocks, blocks + count).size();
    return call(engine, text(" %zu of %d x %d", distinct, count, size));
}

int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine) {
    return call(engine);
}

void ActionShot_CancelSeries(ActionShot_Handle engine) {
    call(engine);
}

int32_t ActionShot_StartSeries(ActionShot_Handle engine) {
    return call(engine);
}

int32_t ActionShot_IsConnected(ActionShot_Handle engine) {
    call(engine);
    return engine == gEngine;
}

int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    call(engine, described(*frame));
    return fakeActionShot().frameResult;
}

void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle engine, ActionShot_DisplayData* data) {
    *data = engine == gEngine ? fakeActionShot().display : ActionShot_DisplayData();
}

int32_t ActionShot_AcquisitionProgress(ActionShot_Handle engine) {
    return engine == gEngine ? 42 : -1;
}

int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* progress, OPT_API_ASImage* result) {
    auto& answers = fakeActionShot().progress;
    const bool last = answers.size() == 1;
    const int32_t before = *progress;
    *progress = answers.front();
    answers.erase(answers.begin(), answers.begin() + !last);
    *result = fakeActionShot().result;
    return call(engine, text(" from %d", before)) && (!last || (*progress < 100 && !fakeActionShot().endsEarly));
}

void ActionShot_Finalize(ActionShot_Handle* engine) {
    call(*engine);
    gEngine = nullptr;
}
