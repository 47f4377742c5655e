// Pictures of the add-me engine and the memory that they lie in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

namespace kov::plusme {

/// Hands out pieces of one block that belongs to somebody else.
class Arena {
public:
    static constexpr size_t kAlignment = 64;

    Arena() = default;
    Arena(void* block, size_t size) : mNext(static_cast<uint8_t*>(block)), mLeft(size) {}

    /// `size` bytes, aligned for anything; null when the block is used up.
    uint8_t* take(size_t size);

private:
    uint8_t* mNext = nullptr;
    size_t mLeft = 0;
};

/// A picture as JPEG has it: full-range luma, and Cb and Cr at half the size each way. Rows without padding.
struct Picture {
    cv::Mat y, u, v;

    /// A picture of even `size` over `bytes(size)` bytes at `memory`, which stays the caller's.
    Picture() = default;
    Picture(cv::Size size, uint8_t* memory);
    static size_t bytes(cv::Size size) { return static_cast<size_t>(size.area()) * 3 / 2; }

    cv::Size size() const { return y.size(); }
};

/// Scratch that `decode` needs for pictures of `size`.
inline size_t decodeScratch(cv::Size size) {
    return static_cast<size_t>(size.area()) * 3;
}

enum class Decoded { Good, NoJpeg, OtherSize };
/// Decodes into `picture`, which has the size that is expected. `picture` is not kept on failure.
Decoded decode(const uint8_t* jpeg, size_t size, Picture& picture, uint8_t* scratch);

/// Writes the picture as one semi-planar frame, V before U, of `Picture::bytes` bytes. `copy` is as memcpy.
void toSemiPlanar(const Picture& picture, uint8_t* frame, void* (*copy)(void*, const void*, size_t));

}  // namespace kov::plusme
