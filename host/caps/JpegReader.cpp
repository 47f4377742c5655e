// JPEG into pictures, through libjpeg-turbo.

#include "host/caps/JpegReader.h"

#include <turbojpeg.h>

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

/// The size that the decoder gives: halved while the picture stays at least as large as wanted.
cv::Size decodedSize(cv::Size size, cv::Size wanted) {
    for (const int part : {8, 4, 2}) {
        const tjscalingfactor factor = {1, part};
        const cv::Size reduced(TJSCALED(size.width, factor), TJSCALED(size.height, factor));
        if (reduced.width >= wanted.width && reduced.height >= wanted.height)
            return reduced;
    }
    return size;
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

std::optional<Picture> readJpeg(const uint8_t* jpeg, size_t bytes, cv::Size wanted) {
    const Reader reader(tjInitDecompress(), tjDestroy);
    const Header header = readHeader(reader, jpeg, bytes);
    if (header.size.empty())
        return {};
    const cv::Size size = decodedSize(header.size, wanted);
    const cv::Size even = evenSize(size);
    cv::Mat luma(even, CV_8U);
    const cv::Size chromaSize(tjPlaneWidth(1, size.width, header.sampling),
                              tjPlaneHeight(1, size.height, header.sampling));
    const bool grey = header.sampling == TJSAMP_GRAY;
    cv::Mat u(grey ? even / 2 : chromaSize, CV_8U, cv::Scalar(128));
    cv::Mat v(u.size(), CV_8U, cv::Scalar(128));
    uint8_t* planes[] = {luma.data, u.data, v.data};
    int strides[] = {even.width, u.cols, v.cols};
    // A stream that ends early decodes with a warning; it is no picture to keep.
    if (tjDecompressToYUVPlanes(reader.get(), jpeg, bytes, planes, size.width, strides, size.height, 0) != 0)
        return {};
    if (even.width > size.width)
        luma.col(size.width - 1).copyTo(luma.col(size.width));
    if (even.height > size.height)
        luma.row(size.height - 1).copyTo(luma.row(size.height));
    Picture picture;
    picture.y = luma;
    picture.u = halfChroma(u, even / 2);
    picture.v = halfChroma(v, even / 2);
    return picture;
}

}  // namespace kov::caps
