// JPEG pictures from YUV frames, through the vendor's imaging library.

#include "imaging/ArcJpegEncoder.h"

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "imaging/System.h"

namespace android {

namespace {

using Lines = ArcJpegUser::Lines;

constexpr uint32_t kEncoderId = 0x81002202;
constexpr uint32_t kEncoderVersion = 0x2000000;
constexpr uint32_t kEncoderKind = 2;
constexpr uint32_t kSaveAsJpeg = 2;
constexpr int64_t kStreamBytesPerPixel = 3;

/// The library's numbers for handles and addresses in log lines.
int asInt(const void* pointer) {
    return static_cast<int>(reinterpret_cast<intptr_t>(pointer));
}

unsigned asHex(const void* pointer) {
    return static_cast<unsigned>(asInt(pointer));
}

/// A component manager with the JPEG encoder in it, for one picture; null when there is none.
MHandle newManager(uint32_t use) {
    MHandle manager = nullptr;
    if (AMCM_Create(nullptr, &manager) != 0 || !manager)
        return nullptr;
    AMCM_RegisterEx(manager, kEncoderId, kEncoderVersion, kEncoderKind, use,
                    reinterpret_cast<void*>(MEncoder_AJL2Create));
    return manager;
}

/// As many bytes as the frame's size asks for, as far as the library can be told so many.
int32_t streamCapacity(const ArcJpegFrame& frame) {
    constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
    const int64_t pixels = int64_t{frame.width} * frame.height;
    return static_cast<int32_t>(kStreamBytesPerPixel * std::min(pixels, kMost / kStreamBytesPerPixel));
}

MBITMAP bitmapOf(const ArcJpegFrame& frame) {
    MBITMAP bitmap = {};
    bitmap.dwPixelArrayFormat = frame.format;
    bitmap.lWidth = frame.width;
    bitmap.lHeight = frame.height;
    for (int32_t& pitch : bitmap.lPitch)
        pitch = frame.width;
    uint8_t* const chroma = frame.pixels + static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
    bitmap.pPlane[0] = frame.pixels;
    bitmap.pPlane[1] = chroma + 1;
    bitmap.pPlane[2] = chroma;
    return bitmap;
}

/// The stream's contents in a heap of their size; a region of no bytes when there is no memory for them.
sp<IMemory> readStream(MHandle stream) {
    MStreamSeek(stream, 0, 0);
    size_t bytes = static_cast<size_t>(std::max<int32_t>(MStreamGetSize(stream), 0));
    sp<MemoryHeapBase> heap = os::newHeap(bytes);
    MStreamSeek(stream, 0, 0);
    if (heap.get())
        MStreamRead(stream, heap->base(), static_cast<int32_t>(bytes));
    else
        heap = os::newHeap(bytes = 0);
    return new MemoryBase(heap, 0, bytes);
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

ArcJpegEncoding::ArcJpegEncoding(const ArcJpegUser& user, const ArcJpegFrame& frame, std::optional<int32_t> quality)
    : mUser(user), mManager(newManager(user.registeredUse)) {
    if (writes(Lines::FirstAndLast))
        mUser.log.error("encode2ArcJpegData() - 1");
    mStream = MStreamOpenFromMemoryBlock(nullptr, streamCapacity(frame));
    if (writes(Lines::All))
        mUser.log.error("encode2ArcJpegData() - 2 - hStreamSave:%d", asInt(mStream));
    if (mStream)
        encode(frame, quality);
}

void ArcJpegEncoding::encode(const ArcJpegFrame& frame, std::optional<int32_t> quality) {
    mBitmap = bitmapOf(frame);
    if (writes(Lines::All))
        mUser.log.error("encode2ArcJpegData() - 3 - capture.pPlane[0]:%d", asInt(mBitmap.pPlane[0]));
    const MRESULT saved = quality ? MdBitmapSaveEx(mManager, mStream, kSaveAsJpeg, &mBitmap, *quality, frame.format)
                                  : MdBitmapSave(mManager, mStream, kSaveAsJpeg, &mBitmap);
    if (writes(Lines::All))
        mUser.log.error("encode2ArcJpegData() - 4 - res:%d", saved);
    mPicture = readStream(mStream);
}

void ArcJpegEncoding::end() {
    if (!mStream)
        return;
    if (writes(Lines::All))
        mUser.log.error("encode2ArcJpegData() - 5 - heap->base():%d,lStreamSize:%d", asInt(mPicture->pointer()),
                        static_cast<int>(mPicture->size()));
    closeStream();
    mPicture.clear();
    if (writes(Lines::All))
        mUser.log.error("encode2ArcJpegData() - 6 - pPlane[0]:%x,pPlane[1]:%x,pPlane[2]:%x", asHex(mBitmap.pPlane[0]),
                        asHex(mBitmap.pPlane[1]), asHex(mBitmap.pPlane[2]));
    if (writes(Lines::FirstAndLast))
        mUser.log.error("encode2ArcJpegData() - end");
}

ArcJpegEncoding::~ArcJpegEncoding() {
    closeStream();
    // A library without the operation to give the manager up keeps it.
    if (mManager && AMCM_Destroy)
        AMCM_Destroy(mManager);
}

void ArcJpegEncoding::closeStream() {
    if (mStream)
        MStreamClose(std::exchange(mStream, nullptr));
}

}  // namespace android
