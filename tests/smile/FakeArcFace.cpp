// The face half of libarccamera.so for unit tests: records its calls and answers from a script.

#include "tests/smile/FakeArcFace.h"

#include <cstdlib>
#include <cstring>

#include "tests/support/Recorder.h"

using namespace kov::test;

FakeArcFace& kov::test::fakeArcFace() {
    static FakeArcFace fake;
    return fake;
}

namespace {

char gManager, gFaceEngine, gSmileEngine;

MRESULT call(const std::string& name, const std::string& arguments = "") {
    record(name + arguments);
    if (fakeArcFace().during)
        fakeArcFace().during();
    return fakeArcFace().results.contains(name) ? fakeArcFace().results.at(name) : 0;
}

}  // namespace

void* MMemAlloc(MHandle, int32_t size) {
    call("MMemAlloc", text(" %d", size));
    fakeArcFace().blocksAlive += fakeArcFace().allocates;
    return fakeArcFace().allocates ? std::malloc(static_cast<size_t>(size)) : nullptr;
}

void MMemFree(MHandle, void* block) {
    call("MMemFree");
    --fakeArcFace().blocksAlive;
    std::free(block);
}

void MMemCpy(void* destination, const void* source, int32_t size) {
    std::memcpy(destination, source, static_cast<size_t>(size));
}

MHandle MMemMgrCreate(void*, int32_t size) {
    call("MMemMgrCreate", text(" %d", size));
    fakeArcFace().managersAlive += fakeArcFace().makesManagers;
    return fakeArcFace().makesManagers ? &gManager : nullptr;
}

void MMemMgrDestroy(MHandle) {
    call("MMemMgrDestroy");
    --fakeArcFace().managersAlive;
}

MRESULT AMFPAF_InitialFaceEngine(MHandle, AMFPAF_IMAGE_INFO* image, AMFPAF_FACE_RESULT*, MHandle* engine, int32_t mode,
                                 int32_t scale, int32_t max_faces) {
    *engine = &gFaceEngine;  // also when it fails: an engine may have got so far
    return call("AMFPAF_InitialFaceEngine", text(" %dx%d format %d stride %d: %d %d %d", image->width, image->height,
                                                 image->format, image->stride, mode, scale, max_faces));
}

MRESULT AMFPAF_SetFaceOutPriority(MHandle, int32_t priority) {
    return call("AMFPAF_SetFaceOutPriority", text(" %d", priority));
}

MRESULT AMFPAF_SetTrackingFrameNumber(MHandle, int32_t frames) {
    return call("AMFPAF_SetTrackingFrameNumber", text(" %d", frames));
}

MRESULT AMFPAF_FaceFeatureDetect(MHandle, MHandle, uint8_t*, AMFPAF_FACE_RESULT* result, int32_t a, int32_t b,
                                 int32_t c, int32_t d, int32_t e) {
    auto& fake = fakeArcFace();
    *result = {fake.faces.data(), fake.faceCount >= 0 ? fake.faceCount : static_cast<int32_t>(fake.faces.size()),
               fake.faceInfo};
    return call("AMFPAF_FaceFeatureDetect", a || b || c || d || e ? " odd" : "");
}

MRESULT AMFPAF_UninitialFaceEngine(MHandle, MHandle*, AMFPAF_FACE_RESULT*) {
    return call("AMFPAF_UninitialFaceEngine");
}

MRESULT ASSD_InitSmileEngine(MHandle, MHandle* engine, int32_t mode, int32_t height) {
    *engine = &gSmileEngine;
    return call("ASSD_InitSmileEngine", text(" %d %d", mode, height));
}

MRESULT ASSD_SmileDetect(MHandle, MHandle, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces, ASSD_SMILE_RESULT* result,
                         int32_t a, int32_t b) {
    auto& fake = fakeArcFace();
    fake.lastImage = *image;
    fake.lastInput = *faces;
    // Also when it fails: an engine may have got so far.
    *result = {fake.smiles.data(), 0, fake.examined,
               fake.smileCount >= 0 ? fake.smileCount : static_cast<int32_t>(fake.smiles.size())};
    return call("ASSD_SmileDetect", text(" %d%s", faces->count, a || b ? " odd" : ""));
}

MRESULT ASSD_UninitSmileEngine(MHandle, MHandle*) {
    return call("ASSD_UninitSmileEngine");
}
