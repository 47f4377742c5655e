// JPEG into pictures, through libjpeg-turbo.

#include "host/caps/JpegReader.h"

#include <turbojpeg.h>

#include <algorithm>
#include <memory>
#include <opencv2/imgproc.hpp>

namespace kov::caps {

namespace {

using Reader = std::unique_ptr<void, int (*)(tjhandle)>;

struct Header {
    cv::Size size;
    int sampling = 0;
};

Header readHeader(const Reader& reader, const uint8_t* jpeg, size_t bytes) {
    int width = 0, height = 0, sampling = 0, space = 0;
    if (!jpeg || !reader || tjDecompressHeader3(reader.get(), jpeg, bytes, &width, &height, &sampling, &space) != 0 ||
        (space != TJCS_YCbCr && space != TJCS_GRAY) || width > kMostSide || height > kMostSide)
        return {};
    return {{width, height}, sampling};
}

/// Chroma as the picture has it, from chroma of any sampling. `half` is half of the picture's even size.
cv::Mat halfChroma(const cv::Mat& plane, cv::Size half) {
    if (plane.size() == half)
        return plane;
    const bool smaller = plane.cols >= half.width && plane.rows >= half.height;
    cv::Mat result;
    cv::resize(plane, result, half, 0, 0, smaller ? cv::INTER_AREA : cv::INTER_LINEAR);
    return result;
}

}  // namespace

cv::Size jpegSize(const uint8_t* jpeg, size_t bytes) {
    const Reader reader(tjInitDecompress(), tjDestroy);
    return readHeader(reader, jpeg, bytes).size;
}

std::optional<Picture> readJpeg(const uint8_t* jpeg, size_t bytes) {
    const Reader reader(tjInitDecompress(), tjDestroy);
    const Header header = readHeader(reader, jpeg, bytes);
    if (header.size.empty())
        return {};
    const auto planeSize = [&](int plane) {
        return cv::Size(tjPlaneWidth(plane, header.size.width, header.sampling),
                        tjPlaneHeight(plane, header.size.height, header.sampling));
    };
    const cv::Size even = evenSize(header.size);
    const bool grey = header.sampling == TJSAMP_GRAY;
    // The decoder writes whole samples of chroma: luma may be wider than the picture, by up to three pixels.
    cv::Mat luma(std::max(even.height, planeSize(0).height), std::max(even.width, planeSize(0).width), CV_8U);
    cv::Mat u(grey ? even / 2 : planeSize(1), CV_8U, cv::Scalar(128));
    cv::Mat v(u.size(), CV_8U, cv::Scalar(128));
    uint8_t* planes[] = {luma.data, u.data, v.data};
    int strides[] = {luma.cols, u.cols, v.cols};
    // A stream that ends early decodes with a warning; it is no picture to keep.
    if (tjDecompressToYUVPlanes(reader.get(), jpeg, bytes, planes, header.size.width, strides, header.size.height, 0) !=
        0)
        return {};
    if (even.width > header.size.width)
        luma.col(header.size.width - 1).copyTo(luma.col(header.size.width));
    if (even.height > header.size.height)
        luma.row(header.size.height - 1).copyTo(luma.row(header.size.height));
    Picture picture;
    picture.y = luma(cv::Rect({}, even));
    picture.u = halfChroma(u, even / 2);
    picture.v = halfChroma(v, even / 2);
    return picture;
}

}  // namespace kov::caps
