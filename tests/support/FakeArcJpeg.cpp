// The JPEG half of libarccamera.so for unit tests: records its calls and writes a scripted "JPEG".

#include "tests/support/FakeArcJpeg.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "tests/support/Recorder.h"

using kov::test::fakeArcJpeg;
using kov::test::record;
using kov::test::text;

namespace kov::test {

FakeArcJpeg& fakeArcJpeg() {
    static FakeArcJpeg fake;
    return fake;
}

void resetFakeArcJpeg() {
    fakeArcJpeg() = FakeArcJpeg();
}

}  // namespace kov::test

namespace {

/// What a handle that is alive stands for. Managers have no bytes. No handle is given twice.
struct Object {
    bool isStream;
    std::string bytes = {};
    size_t place = 0;
};
std::mutex gLock;  // an encoding may end while that of another shot begins
std::map<MHandle, Object> gAlive;

MHandle make(bool isStream) {
    const std::lock_guard held(gLock);
    static uintptr_t last = 0;
    const auto handle = reinterpret_cast<MHandle>(++last);
    gAlive[handle] = {isStream};
    return handle;
}

Object* find(MHandle handle, bool isStream) {
    const std::lock_guard held(gLock);
    const auto object = gAlive.find(handle);
    return object != gAlive.end() && object->second.isStream == isStream ? &object->second : nullptr;
}

/// Records a call with the object that it needs; says so when it is handed another.
Object* use(MHandle handle, bool isStream, const std::string& line) {
    Object* const object = find(handle, isStream);
    record((object ? "" : isStream ? "without stream: " : "without manager: ") + line);
    return object;
}

MRESULT end(MHandle handle, bool isStream, const std::string& line) {
    use(handle, isStream, line);
    const std::lock_guard held(gLock);
    return gAlive.erase(handle) == 1 ? 0 : 1;
}

MRESULT save(MHandle manager, MHandle stream, MBITMAP* bitmap, const std::string& how) {
    fakeArcJpeg().lastBitmap = *bitmap;
    use(manager, false, how);
    find(stream, true)->bytes = fakeArcJpeg().jpeg;
    if (fakeArcJpeg().duringSave)
        fakeArcJpeg().duringSave();
    return fakeArcJpeg().saveResult;
}

}  // namespace

MRESULT AMCM_Create(MHandle memory_manager, MHandle* manager) {
    record(memory_manager ? "AMCM_Create with memory manager" : "AMCM_Create");
    if (fakeArcJpeg().createResult == 0)
        *manager = make(false);
    return fakeArcJpeg().createResult;
}

MRESULT AMCM_RegisterEx(MHandle manager, uint32_t id, uint32_t version, uint32_t kind, uint32_t use, void* factory) {
    const bool isRight = factory == reinterpret_cast<void*>(MEncoder_AJL2Create);
    ::use(manager, false, text("AMCM_RegisterEx 0x%x 0x%x %u %u%s", id, version, kind, use, isRight ? " AJL2" : ""));
    return 0;
}

MRESULT AMCM_Destroy(MHandle manager) {
    return end(manager, false, "AMCM_Destroy");
}

void MEncoder_AJL2Create(void) {}

MHandle MStreamOpenFromMemoryBlock(void* block, int32_t capacity) {
    record(text("MStreamOpenFromMemoryBlock %s %d", block ? "block" : "null", capacity));
    return fakeArcJpeg().streamOpens ? make(true) : nullptr;
}

int32_t MStreamSeek(MHandle stream, int32_t origin, int32_t offset) {
    use(stream, true, text("MStreamSeek %d %d", origin, offset))->place = static_cast<size_t>(offset);
    return 0;
}

int32_t MStreamGetSize(MHandle stream) {
    return static_cast<int32_t>(use(stream, true, "MStreamGetSize")->bytes.size());
}

int32_t MStreamRead(MHandle stream, void* destination, int32_t size) {
    Object* const from = use(stream, true, text("MStreamRead %d", size));
    const std::string part = from->bytes.substr(from->place, static_cast<size_t>(size));
    std::copy(part.begin(), part.end(), static_cast<char*>(destination));
    from->place += part.size();
    return static_cast<int32_t>(part.size());
}

MRESULT MStreamClose(MHandle stream) {
    return end(stream, true, "MStreamClose");
}

MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap) {
    return save(manager, stream, bitmap, text("MdBitmapSave %u", kind));
}

MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap, int32_t quality,
                       uint32_t format) {
    return save(manager, stream, bitmap, text("MdBitmapSaveEx %u quality %d 0x%x", kind, quality, format));
}
