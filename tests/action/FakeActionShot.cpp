// libActionShot.so for tests: records its calls and answers from a script.

#include "tests/action/FakeActionShot.h"

#include <cstring>
#include <set>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

namespace {

struct Engine {
    Pixels image;
};

int32_t call(const std::string& arguments, bool fails, const char* from) {
    const std::string name = from + std::strlen("ActionShot_");
    return scriptedCall(gFakeActionShot, name, "as." + name + arguments, !fails);
}

/// The operation is the one that this is called from.
int32_t call(ActionShot_Handle engine, const std::string& arguments = "", bool fails = false,
             const char* from = __builtin_FUNCTION()) {
    use<Engine>(engine);
    return call(arguments, fails, from);
}

}  // namespace

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions* functions) {
    call(functions->copy == std::memcpy && functions->set == std::memset ? "" : " odd", false, __func__);
}

int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t width, int32_t height, void* work_memory,
                              uint32_t work_memory_size) {
    if (work_memory)
        static_cast<uint8_t*>(work_memory)[work_memory_size - 1] = 1;
    const uint32_t how = gFakeActionShot.noHandle ? 2 : ask();
    const int32_t result = call(text(" %dx%d %s %u", width, height, work_memory ? "memory" : "null", work_memory_size),
                                how == 1, __func__);
    return make<Engine>(result ? how : 3, engine);  // a handle also on a failure
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
        (*block)[size - 1] = 2;
    const size_t distinct = std::set(blocks, blocks + count).size();
    return call(engine, text(" %zu of %d x %d", distinct, count, size), ask());
}

int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine) {
    return call(engine, "", ask());
}

void ActionShot_CancelSeries(ActionShot_Handle engine) {
    call(engine);
}

int32_t ActionShot_StartSeries(ActionShot_Handle engine) {
    return call(engine, "", ask());
}

int32_t ActionShot_IsConnected(ActionShot_Handle engine) {
    return numberOf(ask(), call(engine));
}

int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    call(engine, described(*frame));
    touch(*frame);
    const uint32_t how = ask();
    if (!gAnswers)
        return gFakeActionShot.frameResult;
    return how == 1 ? 9 : how < 5 ? static_cast<int32_t>(std::max(how, 1U) - 1) : absurd(how);
}

void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle engine, ActionShot_DisplayData* data) {
    use<Engine>(engine);
    const uint32_t how = ask();
    *data = gFakeActionShot.display;
    if (!gAnswers)
        return;
    data->count = how < 2 ? static_cast<int32_t>(2 - how) : how % 2 ? absurd(how) : static_cast<int32_t>(how % 130);
    for (int i = 0; i < 128; ++i)
        data->entries[i] = {i + static_cast<int32_t>(how), 3, how > 8 ? absurd(how + i) : i + 20,
                            how > 16 ? absurd(how / 2) : 30, i % 3};
}

int32_t ActionShot_AcquisitionProgress(ActionShot_Handle engine) {
    return use<Engine>(engine) ? numberOf(ask(), 42) : 0;
}

int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* progress, OPT_API_ASImage* result) {
    const uint32_t how = ask();
    const bool last = gFakeActionShot.progress.size() == 1 && !gAnswers;
    const int32_t before = *progress;
    *progress = how % 6 == 5 ? 100 : progressOf(gFakeActionShot.progress, how, before, 34);
    show(how < 5 ? 0 : how == 11 ? 2 : how, gFakeActionShot.result, use<Engine>(engine)->image, result);
    return call(engine, text(" from %d", before), how == 1) && !(last && gFakeActionShot.endsEarly);
}

void ActionShot_Finalize(ActionShot_Handle* engine) {
    call(*engine);
    giveBack<Engine>(*engine);
    *engine = nullptr;
}
