// The JPEG half of libarccamera.so for tests: records its calls and writes a scripted "JPEG".

#include "tests/support/FakeArcJpeg.h"

#include <algorithm>

#include "tests/support/Answers.h"
#include "tests/support/Handles.h"
#include "tests/support/Recorder.h"

using namespace kov::test;

namespace {

struct Manager {};
struct Stream {
    std::string bytes;
    size_t place = 0;
};

/// An encoder reads the whole picture, as far as it can be one.
MRESULT save(MHandle manager, MHandle stream, MBITMAP* bitmap, const std::string& how) {
    record((manager && use<Manager>(manager) ? "" : "without manager: ") + how);
    gFakeArcJpeg.lastBitmap = *bitmap;
    const uint32_t asked = ask();
    const int64_t pixels = int64_t{bitmap->lWidth} * bitmap->lHeight;
    if (asked == 1 || pixels <= 0)
        return 7;
    for (int64_t i = 0; i < pixels && pixels <= (1 << 20); ++i)
        static_cast<const volatile uint8_t*>(bitmap->pPlane[0])[i];
    if (asked != 2)  // else an output that was not written
        use<Stream>(stream)->bytes = gFakeArcJpeg.jpeg;
    if (gFakeArcJpeg.duringSave)
        gFakeArcJpeg.duringSave();
    return asked == 3 ? 7 : 0;
}

}  // namespace

MRESULT AMCM_Create(MHandle memory_manager, MHandle* manager) {
    record(memory_manager ? "AMCM_Create with memory manager" : "AMCM_Create");
    const MRESULT result = gFakeArcJpeg.createResult;
    return result || !make<Manager>(ask(), manager) ? std::max(result, 5) : 0;
}

MRESULT AMCM_RegisterEx(MHandle manager, uint32_t id, uint32_t version, uint32_t kind, uint32_t used, void* factory) {
    record(text("AMCM_RegisterEx 0x%x 0x%x %u %u%s", id, version, kind, used,
                factory == reinterpret_cast<void*>(MEncoder_AJL2Create) ? " AJL2" : ""));
    return use<Manager>(manager) && !ask() ? 0 : 3;
}

MRESULT AMCM_Destroy(MHandle manager) {
    record("AMCM_Destroy");
    return giveBack<Manager>(manager) && !ask() ? 0 : 3;
}

void MEncoder_AJL2Create(void) {}

MHandle MStreamOpenFromMemoryBlock(void* block, int32_t capacity) {
    record(text("MStreamOpenFromMemoryBlock %s %d", block ? "block" : "null", capacity));
    return gFakeArcJpeg.streamOpens && !ask() ? keep(std::make_shared<Stream>()) : nullptr;
}

int32_t MStreamSeek(MHandle stream, int32_t origin, int32_t offset) {
    record(text("MStreamSeek %d %d", origin, offset));
    use<Stream>(stream)->place = static_cast<size_t>(offset);
    return ask() ? -1 : 0;
}

int32_t MStreamGetSize(MHandle stream) {
    record("MStreamGetSize");
    return numberOf(ask(), static_cast<int32_t>(use<Stream>(stream)->bytes.size()));
}

int32_t MStreamRead(MHandle stream, void* destination, int32_t size) {
    record(text("MStreamRead %d", size));
    auto* const from = use<Stream>(stream);
    const uint32_t how = ask();
    const std::string part = from->bytes.substr(from->place, how == 1 ? 0 : static_cast<size_t>(size));
    std::copy(part.begin(), part.end(), static_cast<char*>(destination));
    from->place += part.size();
    return numberOf(how, static_cast<int32_t>(part.size()));
}

MRESULT MStreamClose(MHandle stream) {
    record("MStreamClose");
    return giveBack<Stream>(stream) && !ask() ? 0 : 1;
}

MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap) {
    return save(manager, stream, bitmap, text("MdBitmapSave %u", kind));
}

MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap, int32_t quality,
                       uint32_t format) {
    return save(manager, stream, bitmap, text("MdBitmapSaveEx %u quality %d 0x%x", kind, quality, format));
}
