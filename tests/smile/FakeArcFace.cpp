// The face half of libarccamera.so for tests: records its calls with their handles and answers from a script.

#include "tests/smile/FakeArcFace.h"

#include <cstring>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

namespace {

/// What handles point to: each has the name of the next one of its kind.
template <char kind>
struct Named {
    const std::string name = gAnswers ? "" : text("%c%d", kind, ++gFakeArcFace.made[kind]);
};
using Block = Named<'b'>;
using MemoryManager = Named<'m'>;
struct FaceEngine : Named<'f'>, MayBeMissing {};
struct SmileEngine : Named<'s'>, MayBeMissing {};

template <typename Object>
std::string named(const void* handle) {
    return use<Object>(handle)->name;
}

/// Either may be missing when an engine is released.
template <typename Engine>
std::string named(MHandle manager, MHandle engine) {
    return (manager ? named<MemoryManager>(manager) : "none") + " " + (engine ? named<Engine>(engine) : "none");
}

/// The operation is the one that this is called from.
MRESULT call(const std::string& arguments, bool fails = false, const char* from = __builtin_FUNCTION()) {
    return scriptedCall(gFakeArcFace, from, from + (" " + arguments), fails ? 5 : 0);
}

__tag_rect gRectangles[64] = {{2, 2, 20, 20}, {10, 5, 30, 25}, {-5, -5, 500, 500}, {40, 40, 3, 3}, {5, 5, 5, 5}};

/// A list of rectangles: the script's, with `count` in place of its length when that is 0 or more. Where an input
/// answers it is one as usual; else none, none behind a count, or as many as nobody has.
int32_t rectangles(uint32_t how, std::vector<__tag_rect>& script, int32_t count, __tag_rect** list) {
    if (!gAnswers) {
        *list = script.empty() ? nullptr : script.data();
        return count >= 0 ? count : static_cast<int32_t>(script.size());
    }
    *list = how == 2 ? nullptr : gRectangles;
    return how < 2 || how % 2 ? numberOf(how % 2 ? how / 2 : how, 1) : static_cast<int32_t>(how % 17);
}

template <typename Engine>
MRESULT makeEngine(MRESULT result, uint32_t how, MHandle* engine) {
    return make<Engine>(result ? 3 : how, engine) ? 0 : 5;  // also when it fails: an engine may have got so far
}

template <typename Engine>
MRESULT endEngine(MRESULT result, MHandle engine) {
    return giveBack<Engine>(engine) ? result : 5;
}

}  // namespace

void* MMemAlloc(MHandle, int32_t size) {
    call(text("%d", size));
    // Nobody but the library looks into it.
    return ask() || size < 0 || !gFakeArcFace.allocates ? nullptr : keep(std::make_shared<Block>());
}

void MMemFree(MHandle, void* block) {
    call(named<Block>(block));
    giveBack<Block>(block);
}

void MMemCpy(void* destination, const void* source, int32_t size) {
    std::memcpy(destination, source, static_cast<size_t>(size));
}

MHandle MMemMgrCreate(void* block, int32_t size) {
    call(named<Block>(block) + spaced(size));
    return ask() || !gFakeArcFace.makesManagers ? nullptr : keep(std::make_shared<MemoryManager>());
}

void MMemMgrDestroy(MHandle manager) {
    call(named<MemoryManager>(manager));
    giveBack<MemoryManager>(manager);
}

MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO* image, AMFPAF_FACE_RESULT*, MHandle* engine,
                                 int32_t mode, int32_t scale, int32_t max_faces) {
    const std::string arguments = text(" %dx%d format %d stride %d: %d %d %d", image->width, image->height,
                                       image->format, image->stride, mode, scale, max_faces);
    return makeEngine<FaceEngine>(call(named<MemoryManager>(manager) + arguments), ask(), engine);
}

MRESULT AMFPAF_SetFaceOutPriority(MHandle engine, int32_t priority) {
    return engine ? call(named<FaceEngine>(engine) + spaced(priority), ask()) : 5;
}

MRESULT AMFPAF_SetTrackingFrameNumber(MHandle engine, int32_t frames) {
    return engine ? call(named<FaceEngine>(engine) + spaced(frames), ask()) : 5;
}

MRESULT AMFPAF_FaceFeatureDetect(MHandle manager, MHandle engine, uint8_t* frame, AMFPAF_FACE_RESULT* result, int32_t a,
                                 int32_t b, int32_t c, int32_t d, int32_t e) {
    const uint32_t how = ask();
    frame[0] ^= gAnswers != nullptr;
    result->count = rectangles(how, gFakeArcFace.faces, gFakeArcFace.faceCount, &result->faces);
    result->info = gAnswers ? static_cast<int32_t>(how) : 7;
    return call(named<FaceEngine>(manager, engine) + text(" frame %d", *frame) + (a || b || c || d || e ? " odd" : ""),
                how == 1 || !engine);
}

MRESULT AMFPAF_UninitialFaceEngine(MHandle manager, MHandle* engine, AMFPAF_FACE_RESULT*) {
    return endEngine<FaceEngine>(call(named<FaceEngine>(manager, *engine), ask()), *engine);
}

MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t mode, int32_t height) {
    return makeEngine<SmileEngine>(call(named<MemoryManager>(manager) + spaced(mode, height)), ask(), engine);
}

MRESULT ASSD_SmileDetect(MHandle manager, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces,
                         ASSD_SMILE_RESULT* result, int32_t a, int32_t b) {
    const uint32_t how = ask();
    std::string input = text("%dx%d format %d strides %d %d %d planes", image->width, image->height, image->format,
                             image->stride[0], image->stride[1], image->stride[2]);
    for (int i = 1; i < 3; ++i)
        input += text(" %td", image->plane[i] - image->plane[0]);
    for (int i = 0; i < faces->count; ++i) {
        input += text(", face %d info %d", faces->faces[i].left, faces->info[i]);
        if (gAnswers)
            gRectangles[i % 8].left = faces->info[i] % 64 + faces->faces[i].left % 64;
    }
    image->plane[0][0] ^= gAnswers != nullptr;
    // Also when it fails: an engine may have got so far.
    result->ISmileNumber = rectangles(how, gFakeArcFace.smiles, gFakeArcFace.smileCount, &result->smiles);
    result->IFaceNumber = !gAnswers ? gFakeArcFace.examined : how < 4 ? faces->count : absurd(how / 4);
    return call(
        named<SmileEngine>(manager, engine) + text(" frame %d ", *image->plane[0]) + input + (a || b ? " odd" : ""),
        how == 1 || how == 3 || !engine);
}

MRESULT ASSD_UninitSmileEngine(MHandle manager, MHandle* engine) {
    return endEngine<SmileEngine>(call(named<SmileEngine>(manager, *engine), ask()), *engine);
}
