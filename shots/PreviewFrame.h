// How a shot looks at the bytes of a message: what is really there, and the preview frame in it.
#pragma once

#include <binder/IMemory.h>
#include <camera/CameraParameters.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "imaging/TaggedLog.h"

namespace android {

/// What is wrong with a message's memory.
enum class RegionFault : uint8_t {
    None,
    NoMemory,    // no region, no heap, a heap without memory, or no bytes
    BeyondHeap,  // it reaches beyond its heap
    TooSmall,    // it has fewer bytes than a frame of the size that is expected
};

/// The bytes of a message that may be touched: those of its region, when the whole of that lies within its heap.
/// Borrowed: valid while the message's memory is held. Other code may write to them at any time.
struct RegionBytes {
    uint8_t* data = nullptr;  // null unless `fault` is None
    size_t size = 0;
    RegionFault fault = RegionFault::NoMemory;

    explicit operator bool() const { return data != nullptr; }
};

/// Looks at a message's memory, which may be missing or lie about itself. Any thread.
RegionBytes regionBytesOf(const sp<IMemory>& memory);

/// How the chroma of a 4:2:0 frame lies behind its luma. Other: the frame is not known to be 4:2:0.
enum class FrameLayout : uint8_t {
    SemiPlanar,  // height / 2 rows of width / 2 pairs, V first
    Planar,      // a plane of width / 2 x height / 2 bytes of U, then one of V
    Other,
};

/// The layout of a platform format name; semi-planar when there is none (null).
FrameLayout layoutOfFormat(const char* name);

/// A preview frame whose bytes are really there: width x height bytes of luma, then half as many of chroma. There may
/// be more behind them, which nobody looks at. Borrowed, as its bytes are.
struct PreviewFrame {
    uint8_t* luma;
    uint8_t* chroma;
    int32_t width;  // pixels, positive
    int32_t height;
    FrameLayout layout;

    size_t lumaSize() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
    /// Bytes of the whole frame.
    size_t size() const { return lumaSize() * 3 / 2; }
    bool hasEvenSides() const { return width % 2 == 0 && height % 2 == 0; }

    /// The frame in `bytes`; nothing when they are too few, or for a side that is not positive.
    static std::optional<PreviewFrame> in(const RegionBytes& bytes, int32_t width, int32_t height, FrameLayout layout);
};

/// Pixels, as the vendor layer's parameters have them.
struct FrameSize {
    int32_t width;
    int32_t height;
};
FrameSize previewSizeOf(const CameraParameters& params);
FrameSize pictureSizeOf(const CameraParameters& params);

/// Bytes of a preview frame by the vendor layer's parameters. 0 when they have no format or no sensible size, and,
/// with a line in `log`, when the format is not known.
size_t previewFrameSize(const CameraParameters& params, const TaggedLog& log);

/// Bytes of a 4:2:0 frame, planar or semi-planar; 0 for a side that is not positive.
uint64_t yuv420FrameSize(int32_t width, int32_t height);

/// Copies a planar 4:2:0 frame (luma, U, V) as a semi-planar one (luma, then pairs with V first). Even sides; `to` has
/// the size of `from` and does not overlap it.
void planarToSemiPlanar(const uint8_t* from, int32_t width, int32_t height, uint8_t* to);
/// The other way round for `count` pairs of chroma: `planes` has room for as many bytes of U, then of V.
void pairsToPlanes(const uint8_t* pairs, size_t count, uint8_t* planes);

}  // namespace android
