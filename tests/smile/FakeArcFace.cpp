// The face half of libarccamera.so for unit tests: records its calls with their handles and answers from a script.

#include "tests/smile/FakeArcFace.h"

#include <cstdlib>
#include <cstring>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

FakeArcFace& kov::test::fakeArcFace() {
    static FakeArcFace fake;
    return fake;
}

namespace {

/// The operation is the one that this is called from.
MRESULT call(const std::string& arguments, const char* from = __builtin_FUNCTION()) {
    return scriptedCall(fakeArcFace(), from, from + (" " + arguments));
}

/// A name for a handle, which is the name of the next one of its kind.
std::string named(const void* handle) {
    const auto known = fakeArcFace().alive.find(handle);
    if (known != fakeArcFace().alive.end())
        return known->second;
    const auto number = reinterpret_cast<intptr_t>(handle);
    return handle ? text("%c%d", static_cast<char>(number & 0x7F), static_cast<int>(number >> 7)) : "none";
}

MHandle newHandle(char kind) {
    return reinterpret_cast<MHandle>(static_cast<intptr_t>(++fakeArcFace().made[kind]) << 7 | kind);
}

}  // namespace

void* MMemAlloc(MHandle, int32_t size) {
    call(text("%d", size));
    if (!fakeArcFace().allocates)
        return nullptr;
    void* const block = std::malloc(static_cast<size_t>(size));
    fakeArcFace().alive[block] = text("b%d", ++fakeArcFace().made['b']);
    return block;
}

void MMemFree(MHandle, void* block) {
    call(named(block));
    fakeArcFace().alive.erase(block);
    std::free(block);
}

void MMemCpy(void* destination, const void* source, int32_t size) {
    std::memcpy(destination, source, static_cast<size_t>(size));
}

MHandle MMemMgrCreate(void* block, int32_t size) {
    call(named(block) + spaced(size));
    if (!fakeArcFace().makesManagers)
        return nullptr;
    const MHandle manager = newHandle('m');
    fakeArcFace().alive[manager] = named(manager);
    return manager;
}

void MMemMgrDestroy(MHandle manager) {
    call(named(manager));
    fakeArcFace().alive.erase(manager);
}

MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO* image, AMFPAF_FACE_RESULT*, MHandle* engine,
                                 int32_t mode, int32_t scale, int32_t max_faces) {
    *engine = newHandle('f');  // also when it fails: an engine may have got so far
    return call(named(manager) + text(" %dx%d format %d stride %d: %d %d %d", image->width, image->height,
                                      image->format, image->stride, mode, scale, max_faces));
}

MRESULT AMFPAF_SetFaceOutPriority(MHandle engine, int32_t priority) {
    return call(named(engine) + spaced(priority));
}

MRESULT AMFPAF_SetTrackingFrameNumber(MHandle engine, int32_t frames) {
    return call(named(engine) + spaced(frames));
}

MRESULT AMFPAF_FaceFeatureDetect(MHandle manager, MHandle engine, uint8_t* frame, AMFPAF_FACE_RESULT* result, int32_t a,
                                 int32_t b, int32_t c, int32_t d, int32_t e) {
    auto& fake = fakeArcFace();
    *result = {fake.faces.empty() ? nullptr : fake.faces.data(),
               fake.faceCount >= 0 ? fake.faceCount : static_cast<int32_t>(fake.faces.size()), 7};
    return call(named(manager) + " " + named(engine) + text(" frame %d", *frame) +
                (a || b || c || d || e ? " odd" : ""));
}

MRESULT AMFPAF_UninitialFaceEngine(MHandle manager, MHandle* engine, AMFPAF_FACE_RESULT*) {
    return call(named(manager) + " " + named(*engine));
}

MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t mode, int32_t height) {
    *engine = newHandle('s');
    return call(named(manager) + spaced(mode, height));
}

MRESULT ASSD_SmileDetect(MHandle manager, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces,
                         ASSD_SMILE_RESULT* result, int32_t a, int32_t b) {
    auto& fake = fakeArcFace();
    // Also when it fails: an engine may have got so far.
    *result = {fake.smiles.empty() ? nullptr : fake.smiles.data(), 0, fake.examined,
               fake.smileCount >= 0 ? fake.smileCount : static_cast<int32_t>(fake.smiles.size())};
    std::string input = text("%dx%d format %d strides %d %d %d planes", image->width, image->height, image->format,
                             image->stride[0], image->stride[1], image->stride[2]);
    for (int i = 1; i < 3; ++i)
        input += text(" %td", image->plane[i] - image->plane[0]);
    for (int i = 0; i < faces->count; ++i)
        input += text(", face %d info %d", faces->faces[i].left, faces->info[i]);
    return call(named(manager) + " " + named(engine) + text(" frame %d ", *image->plane[0]) + input +
                (a || b ? " odd" : ""));
}

MRESULT ASSD_UninitSmileEngine(MHandle manager, MHandle* engine) {
    return call(named(manager) + " " + named(*engine));
}
