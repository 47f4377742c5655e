// JPEG pictures from YUV frames, through the vendor's imaging library.

#include "imaging/ArcJpegEncoder.h"

#include <arccamera/jpeg.h>
#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <limits>

#include "imaging/TaggedLog.h"

namespace android {

namespace {

constexpr uint32_t kEncoderId = 0x81002202;
constexpr uint32_t kEncoderVersion = 0x2000000;
constexpr uint32_t kEncoderKind = 2;
constexpr uint32_t kSaveAsJpeg = 2;
constexpr int64_t kStreamBytesPerPixel = 3;

/// What distinguishes the users.
struct UserTraits {
    uint32_t registeredUse;
    bool ownQuality;  // passes a quality
    const char* tag;
    bool firstAndLastLine;  // logs these
    bool stepLines;         // logs those in between
};

UserTraits traitsOf(ArcJpegUser user) {
    switch (user) {
        case ArcJpegUser::Panorama:
            return {5, false, "ShotPanorama", true, true};
        case ArcJpegUser::Continuous:
            return {3, true, "ShotContinuous", true, false};
        case ArcJpegUser::Action:
            break;
    }
    return {3, true, "ShotAction", false, false};
}

/// The library's numbers for handles and addresses in log lines.
int asInt(const void* pointer) {
    return static_cast<int>(reinterpret_cast<intptr_t>(pointer));
}

/// A component manager with the JPEG encoder in it, for one picture. A library without the operation to give it up
/// keeps it.
class ComponentManager {
public:
    explicit ComponentManager(uint32_t use) {
        if (AMCM_Create(nullptr, &mHandle) != 0)
            mHandle = nullptr;
        else
            AMCM_RegisterEx(mHandle, kEncoderId, kEncoderVersion, kEncoderKind, use,
                            reinterpret_cast<void*>(MEncoder_AJL2Create));
    }
    ~ComponentManager() {
        if (mHandle && AMCM_Destroy)
            AMCM_Destroy(mHandle);
    }
    ComponentManager(const ComponentManager&) = delete;
    ComponentManager& operator=(const ComponentManager&) = delete;

    MHandle handle() const { return mHandle; }

private:
    MHandle mHandle = nullptr;
};

int32_t streamCapacity(const ArcJpegFrame& frame) {
    const int64_t bytes = kStreamBytesPerPixel * frame.width * frame.height;
    return bytes <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(bytes)
                                                        : std::numeric_limits<int32_t>::max();
}

MBITMAP bitmapOf(const ArcJpegFrame& frame) {
    MBITMAP bitmap = {};
    bitmap.dwPixelArrayFormat = frame.format;
    bitmap.lWidth = frame.width;
    bitmap.lHeight = frame.height;
    for (int32_t& pitch : bitmap.lPitch)
        pitch = frame.width;
    uint8_t* const chroma = frame.pixels + static_cast<size_t>(frame.width) * frame.height;
    bitmap.pPlane[0] = frame.pixels;
    bitmap.pPlane[1] = chroma + 1;
    bitmap.pPlane[2] = chroma;
    return bitmap;
}

/// The stream's contents in a heap of their size.
sp<IMemory> readStream(MHandle stream) {
    MStreamSeek(stream, 0, 0);
    const int32_t size = MStreamGetSize(stream);
    const size_t bytes = size > 0 ? static_cast<size_t>(size) : 0;
    const sp<IMemoryHeap> heap = new MemoryHeapBase(bytes, 0, nullptr);
    MStreamSeek(stream, 0, 0);
    if (heap->getSize() >= bytes)
        MStreamRead(stream, heap->base(), static_cast<int32_t>(bytes));
    return new MemoryBase(heap, 0, heap->getSize() >= bytes ? bytes : 0);
}

}  // namespace

int32_t arcJpegQuality(int32_t jpegQualityParameter) {
    switch (jpegQualityParameter) {
        case 70:
            return 90;
        case 40:
            return 80;
        default:
            return 95;
    }
}

bool encodeArcJpeg(ArcJpegUser user, const ArcJpegFrame& frame, int32_t quality,
                   const std::function<bool(const sp<IMemory>&)>& deliver) {
    const UserTraits traits = traitsOf(user);
    const TaggedLog log(traits.tag);

    const ComponentManager manager(traits.registeredUse);
    if (traits.firstAndLastLine)
        log.error("encode2ArcJpegData() - 1");
    const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, streamCapacity(frame));
    if (traits.stepLines)
        log.error("encode2ArcJpegData() - 2 - hStreamSave:%d", asInt(stream));
    if (!stream)
        return true;

    MBITMAP bitmap = bitmapOf(frame);
    if (traits.stepLines)
        log.error("encode2ArcJpegData() - 3 - capture.pPlane[0]:%d", asInt(bitmap.pPlane[0]));
    const MRESULT saved = traits.ownQuality
                              ? MdBitmapSaveEx(manager.handle(), stream, kSaveAsJpeg, &bitmap, quality, frame.format)
                              : MdBitmapSave(manager.handle(), stream, kSaveAsJpeg, &bitmap);
    if (traits.stepLines)
        log.error("encode2ArcJpegData() - 4 - res:%d", saved);

    bool alive = true;
    {
        const sp<IMemory> picture = readStream(stream);
        alive = deliver(picture);
        if (traits.stepLines)
            log.error("encode2ArcJpegData() - 5 - heap->base():%d,lStreamSize:%d", asInt(picture->pointer()),
                      static_cast<int>(picture->size()));
        MStreamClose(stream);
    }
    if (traits.stepLines)
        log.error("encode2ArcJpegData() - 6 - pPlane[0]:%x,pPlane[1]:%x,pPlane[2]:%x",
                  static_cast<unsigned>(asInt(bitmap.pPlane[0])), static_cast<unsigned>(asInt(bitmap.pPlane[1])),
                  static_cast<unsigned>(asInt(bitmap.pPlane[2])));
    if (traits.firstAndLastLine)
        log.error("encode2ArcJpegData() - end");
    return alive;
}

}  // namespace android
