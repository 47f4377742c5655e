// The imaging calls of libarccamera.so: component managers, memory streams, saving bitmaps.

#include <algorithm>
#include <cstring>
#include <memory>

#include <arccamera/jpeg.h>

#include "host/arccamera/jpeg/JpegEncoder.h"

namespace {

constexpr MRESULT kOk = 0;
constexpr MRESULT kBadArgument = 2;
constexpr MRESULT kNoEncoder = 3;
constexpr MRESULT kDoesNotFit = 4;
constexpr uint32_t kJpeg = 2;
constexpr int32_t kDefaultQuality = 90;

/// Knows which components were registered.
struct Manager {
    bool jpegEncoder = false;
};

/// Bytes in memory, at most `capacity` of them, with a place to read from.
struct Stream {
    std::unique_ptr<uint8_t[]> bytes;
    size_t capacity = 0;
    size_t size = 0;
    size_t place = 0;
};

MRESULT save(MHandle managerHandle, MHandle streamHandle, uint32_t kind, const MBITMAP* bitmap, int32_t quality) {
    const auto* manager = static_cast<Manager*>(managerHandle);
    auto* stream = static_cast<Stream*>(streamHandle);
    if (!manager || !manager->jpegEncoder)
        return kNoEncoder;
    if (!stream || !bitmap || kind != kJpeg || bitmap->dwPixelArrayFormat != ARC_FORMAT_YUV420_SEMIPLANAR)
        return kBadArgument;
    const kov::arc::SemiPlanarFrame frame = {bitmap->pPlane[0], bitmap->pPlane[2], bitmap->lWidth,
                                             bitmap->lHeight,   bitmap->lPitch[0], bitmap->lPitch[2]};
    stream->size = kov::arc::encodeJpeg(frame, std::clamp(quality, 1, 100), stream->bytes.get(), stream->capacity);
    stream->place = stream->size;
    return stream->size ? kOk : kDoesNotFit;
}

}  // namespace

MRESULT AMCM_Create(MHandle, MHandle* manager) {
    if (!manager)
        return kBadArgument;
    *manager = new Manager;
    return kOk;
}

MRESULT AMCM_RegisterEx(MHandle manager, uint32_t, uint32_t, uint32_t, uint32_t, void* factory) {
    if (!manager || !factory)
        return kBadArgument;
    static_cast<Manager*>(manager)->jpegEncoder |= factory == reinterpret_cast<void*>(MEncoder_AJL2Create);
    return kOk;
}

MRESULT AMCM_Destroy(MHandle manager) {
    delete static_cast<Manager*>(manager);
    return kOk;
}

// Stands for the encoder in AMCM_RegisterEx, and is not called.
void MEncoder_AJL2Create(void) {}

MHandle MStreamOpenFromMemoryBlock(void* block, int32_t capacity) {
    if (capacity <= 0)
        return nullptr;
    const auto bytes = static_cast<size_t>(capacity);
    auto* stream = new Stream{std::make_unique_for_overwrite<uint8_t[]>(bytes), bytes, block ? bytes : 0, 0};
    if (block)
        std::memcpy(stream->bytes.get(), block, bytes);
    return stream;
}

int32_t MStreamSeek(MHandle handle, int32_t, int32_t offset) {
    auto* stream = static_cast<Stream*>(handle);
    stream->place = std::min(static_cast<size_t>(std::max(offset, 0)), stream->size);
    return static_cast<int32_t>(stream->place);
}

int32_t MStreamGetSize(MHandle stream) {
    return static_cast<int32_t>(static_cast<Stream*>(stream)->size);
}

int32_t MStreamRead(MHandle handle, void* destination, int32_t size) {
    auto* stream = static_cast<Stream*>(handle);
    const size_t count = std::min(static_cast<size_t>(std::max(size, 0)), stream->size - stream->place);
    if (count)
        std::memcpy(destination, stream->bytes.get() + stream->place, count);
    stream->place += count;
    return static_cast<int32_t>(count);
}

MRESULT MStreamClose(MHandle stream) {
    delete static_cast<Stream*>(stream);
    return kOk;
}

MRESULT MdBitmapSave(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap) {
    return save(manager, stream, kind, bitmap, kDefaultQuality);
}

MRESULT MdBitmapSaveEx(MHandle manager, MHandle stream, uint32_t kind, MBITMAP* bitmap, int32_t quality, uint32_t) {
    return save(manager, stream, kind, bitmap, quality);
}
