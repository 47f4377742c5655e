// JPEG pictures from YUV frames, through the vendor's imaging library.

#include "imaging/ArcJpegEncoder.h"

#include <android/log.h>
#include <arccamera/jpeg.h>
#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <limits>

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
    const char* tag;  // null logs nothing
    bool allLines;    // logs every step, not only the first and the last
};

UserTraits traitsOf(ArcJpegUser user) {
    switch (user) {
        case ArcJpegUser::Panorama:
            return {5, false, "ShotPanorama", true};
        case ArcJpegUser::Continuous:
            return {3, true, "ShotContinuous", false};
        case ArcJpegUser::Action:
            break;
    }
    return {3, true, nullptr, false};
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
    const auto log = [&](bool always, const char* format, auto... values) {
        if (traits.tag && (always || traits.allLines))
            __android_log_print(ANDROID_LOG_ERROR, traits.tag, format, values...);
    };

    const ComponentManager manager(traits.registeredUse);
    log(true, "encode2ArcJpegData() - 1");
    const MHandle stream = MStreamOpenFromMemoryBlock(nullptr, streamCapacity(frame));
    log(false, "encode2ArcJpegData() - 2 - hStreamSave:%d", asInt(stream));
    if (!stream)
        return true;

    MBITMAP bitmap = bitmapOf(frame);
    log(false, "encode2ArcJpegData() - 3 - capture.pPlane[0]:%d", asInt(bitmap.pPlane[0]));
    const MRESULT saved = traits.ownQuality
                              ? MdBitmapSaveEx(manager.handle(), stream, kSaveAsJpeg, &bitmap, quality, frame.format)
                              : MdBitmapSave(manager.handle(), stream, kSaveAsJpeg, &bitmap);
    log(false, "encode2ArcJpegData() - 4 - res:%d", saved);

    bool alive = true;
    {
        const sp<IMemory> picture = readStream(stream);
        alive = deliver(picture);
        log(false, "encode2ArcJpegData() - 5 - heap->base():%d,lStreamSize:%d", asInt(picture->pointer()),
            static_cast<int>(picture->size()));
        MStreamClose(stream);
    }
    log(false, "encode2ArcJpegData() - 6 - pPlane[0]:%x,pPlane[1]:%x,pPlane[2]:%x",
        static_cast<unsigned>(asInt(bitmap.pPlane[0])), static_cast<unsigned>(asInt(bitmap.pPlane[1])),
        static_cast<unsigned>(asInt(bitmap.pPlane[2])));
    log(true, "encode2ArcJpegData() - end");
    return alive;
}

}  // namespace android
