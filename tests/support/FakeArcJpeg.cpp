// The JPEG half of libarccamera.so for unit tests: records its calls and writes a scripted "JPEG".

#include "tests/support/FakeArcJpeg.h"

#include <algorithm>
#include <cstring>

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

char gManager;

struct Stream {
    std::string bytes;
    size_t place = 0;
};

MRESULT save(MHandle manager, MHandle stream, MBITMAP* bitmap, const std::string& how) {
    record((manager ? "" : "without manager: ") + how);
    fakeArcJpeg().lastBitmap = *bitmap;
    static_cast<Stream*>(stream)->bytes = fakeArcJpeg().jpeg;
    if (fakeArcJpeg().duringSave)
        fakeArcJpeg().duringSave();
    return fakeArcJpeg().saveResult;
}

}  // namespace

MRESULT AMCM_Create(MHandle memory_manager, MHandle* manager) {
    record(memory_manager ? "AMCM_Create with memory manager" : "AMCM_Create");
    if (fakeArcJpeg().createResult == 0)
        *manager = &gManager;
    return fakeArcJpeg().createResult;
}

MRESULT AMCM_RegisterEx(MHandle, uint32_t id, uint32_t version, uint32_t kind, uint32_t use, void* factory) {
    record(text("AMCM_RegisterEx 0x%x 0x%x %u %u%s", id, version, kind, use,
                factory == reinterpret_cast<void*>(MEncoder_AJL2Create) ? " AJL2" : ""));
    return 0;
}

MRESULT AMCM_Destroy(MHandle) {
    record("AMCM_Destroy");
    return 0;
}

void MEncoder_AJL2Create(void) {}

MHandle MStreamOpenFromMemoryBlock(void* block, int32_t capacity) {
    record(text("MStreamOpenFromMemoryBlock %s %d", block ? "block" : "null", capacity));
    return fakeArcJpeg().streamOpens ? new Stream : nullptr;
}

int32_t MStreamSeek(MHandle stream, int32_t origin, int32_t offset) {
    record(text("MStreamSeek %d %d", origin, offset));
    static_cast<Stream*>(stream)->place = static_cast<size_t>(offset);
    return 0;
}

int32_t MStreamGetSize(MHandle stream) {
    record("MStreamGetSize");
    return static_cast<int32_t>(static_cast<Stream*>(stream)->bytes.size());
}

int32_t MStreamRead(MHandle stream, void* destination, int32_t size) {
    record(text("MStreamRead %d", size));
    auto* from = static_cast<Stream*>(stream);
    const size_t count = std::min(static_cast<size_t>(size), from->bytes.size() - from->place);
    if (count)
        std::memcpy(destination, from->bytes.data() + from->place, count);
    from->place += count;
    return static_cast<int32_t>(count);
}

MRESULT MStreamClose(MHandle stream) {
    record("MStreamClose");
    delete static_cast<Stream*>(stream);
    return 0;
}

MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap) {
    return save(manager, stream, bitmap, text("MdBitmapSave %u", kind));
}

MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap, int32_t quality,
                       uint32_t format) {
    return save(manager, stream, bitmap, text("MdBitmapSaveEx %u quality %d 0x%x", kind, quality, format));
}
