// Pictures of the add-me engine and the memory that they lie in.

#include "host/plusme/Pictures.h"

#include <turbojpeg.h>

#include <memory>
#include <opencv2/core.hpp>
#include <vector>

namespace kov::plusme {

uint8_t* Arena::take(size_t size) {
    const size_t skip = (kAlignment - reinterpret_cast<uintptr_t>(mNext) % kAlignment) % kAlignment;
    if (!mNext || mLeft < skip || mLeft - skip < size)
        return nullptr;
    uint8_t* const piece = mNext + skip;
    mNext = piece + size;
    mLeft -= skip + size;
    return piece;
}

Picture::Picture(cv::Size size, uint8_t* memory)
    : y(size, CV_8U, memory),
      u(size / 2, CV_8U, memory + size.area()),
      v(size / 2, CV_8U, memory + size.area() + size.area() / 4) {}

Decoded decode(const uint8_t* jpeg, size_t size, Picture& picture, uint8_t* scratch) {
    const std::unique_ptr<void, int (*)(tjhandle)> reader(tjInitDecompress(), tjDestroy);
    int width = 0;
    int height = 0;
    int sampling = 0;
    int space = 0;
    if (!jpeg || !reader || tjDecompressHeader3(reader.get(), jpeg, size, &width, &height, &sampling, &space) != 0)
        return Decoded::NoJpeg;
    if (picture.size() != cv::Size(width, height))
        return Decoded::OtherSize;
    uint8_t* planes[] = {picture.y.data, picture.u.data, picture.v.data};
    int strides[] = {width, width / 2, width / 2};
    // A stream that ends early decodes with a warning; it is no picture to keep.
    if (sampling == TJSAMP_420 && space == TJCS_YCbCr) {
        const int status = tjDecompressToYUVPlanes(reader.get(), jpeg, size, planes, width, strides, height, 0);
        return status == 0 ? Decoded::Good : Decoded::NoJpeg;
    }
    if (tjDecompress2(reader.get(), jpeg, size, scratch, width, 0, height, TJPF_BGR, 0) != 0)
        return Decoded::NoJpeg;
    const std::unique_ptr<void, int (*)(tjhandle)> converter(tjInitCompress(), tjDestroy);
    const bool converted = converter && tjEncodeYUVPlanes(converter.get(), scratch, width, 0, height, TJPF_BGR, planes,
                                                          strides, TJSAMP_420, 0) == 0;
    return converted ? Decoded::Good : Decoded::NoJpeg;
}

void toSemiPlanar(const Picture& picture, uint8_t* frame, void* (*copy)(void*, const void*, size_t)) {
    copy(frame, picture.y.data, picture.y.total());
    cv::Mat pairs(picture.u.size(), CV_8UC2, frame + picture.y.total());
    cv::merge(std::vector<cv::Mat>{picture.v, picture.u}, pairs);
}

}  // namespace kov::plusme
