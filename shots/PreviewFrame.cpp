// How a shot looks at the bytes of a message: what is really there, and the preview frame in it.

#include "shots/PreviewFrame.h"

#include <algorithm>
#include <cstring>

namespace android {

namespace {

constexpr uint64_t kMostBytes = INT32_MAX;  // no preview has frames that are larger

constexpr struct {
    const char* name;
    uint64_t bytesOfTwoPixels;
} kFormats[] = {{"yuv420sp", 3}, {"yuv420sp_custom", 3}, {"yuv420p", 3}, {"yuv422i", 4}, {"yuv422p", 4}, {"rgb565", 4}};

uint64_t frameSize(int32_t width, int32_t height, uint64_t bytesOfTwoPixels) {
    return uint64_t(std::max(width, 0)) * uint64_t(std::max(height, 0)) * bytesOfTwoPixels / 2;
}

FrameSize readSize(const CameraParameters& params, void (CameraParameters::*read)(int*, int*) const) {
    int width = 0;
    int height = 0;
    (params.*read)(&width, &height);
    return {width, height};
}

constexpr struct {
    const char* name;
    FrameLayout layout;
} kLayouts[] = {{"yuv420sp", FrameLayout::SemiPlanar},
                {"yuv420sp_custom", FrameLayout::SemiPlanar},
                {"yuv420p", FrameLayout::Planar}};

}  // namespace

RegionBytes regionBytesOf(const sp<IMemory>& memory) {
    RegionBytes bytes;
    if (!memory.get())
        return bytes;
    ssize_t offset = 0;
    size_t size = 0;
    const sp<IMemoryHeap> heap = memory->getMemory(&offset, &size);
    if (!heap.get() || !heap->base() || size == 0)
        return bytes;
    const size_t heapSize = heap->getSize();
    bytes.fault = RegionFault::BeyondHeap;
    if (offset < 0 || size > heapSize || static_cast<size_t>(offset) > heapSize - size)
        return bytes;
    return {static_cast<uint8_t*>(heap->base()) + offset, size, RegionFault::None};
}

FrameLayout layoutOfFormat(const char* name) {
    if (!name)
        return FrameLayout::SemiPlanar;
    for (const auto& known : kLayouts) {
        if (std::strcmp(name, known.name) == 0)
            return known.layout;
    }
    return FrameLayout::Other;
}

std::optional<PreviewFrame> PreviewFrame::in(const RegionBytes& bytes, int32_t width, int32_t height,
                                             FrameLayout layout) {
    const uint64_t needed = yuv420FrameSize(width, height);
    if (!bytes || needed == 0 || bytes.size < needed)
        return std::nullopt;
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    return PreviewFrame{bytes.data, bytes.data + luma, width, height, layout};
}

FrameSize previewSizeOf(const CameraParameters& params) {
    return readSize(params, &CameraParameters::getPreviewSize);
}

FrameSize pictureSizeOf(const CameraParameters& params) {
    return readSize(params, &CameraParameters::getPictureSize);
}

size_t previewFrameSize(const CameraParameters& params, const TaggedLog& log) {
    const char* const format = params.getPreviewFormat();
    if (!format)
        return 0;
    const auto [width, height] = previewSizeOf(params);
    for (const auto& known : kFormats) {
        if (std::strcmp(format, known.name) != 0)
            continue;
        const uint64_t size = frameSize(width, height, known.bytesOfTwoPixels);
        return size <= kMostBytes ? static_cast<size_t>(size) : 0;
    }
    log.error("Invalid preview format for real preview");
    return 0;
}

uint64_t yuv420FrameSize(int32_t width, int32_t height) {
    return frameSize(width, height, 3);
}

void planarToSemiPlanar(const uint8_t* from, int32_t width, int32_t height, uint8_t* to) {
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    const size_t quarter = luma / 4;
    std::memcpy(to, from, luma);
    const uint8_t* const u = from + luma;
    const uint8_t* const v = u + quarter;
    uint8_t* const pairs = to + luma;
    for (size_t i = 0; i < quarter; ++i) {
        pairs[2 * i] = v[i];
        pairs[2 * i + 1] = u[i];
    }
}

void pairsToPlanes(const uint8_t* pairs, size_t count, uint8_t* planes) {
    for (size_t i = 0; i < count; ++i) {
        planes[i] = pairs[2 * i + 1];
        planes[count + i] = pairs[2 * i];
    }
}

}  // namespace android
