// From the pictures of a source to the formats that a camera delivers.

#include "host/camera/PictureFormats.h"

#include <turbojpeg.h>

namespace kov::camera {

FrameWriter::FrameWriter() : mCodec(tjInitCompress()) {}

FrameWriter::~FrameWriter() {
    if (mCodec)
        tjDestroy(mCodec);
}

bool FrameWriter::write(const cv::Mat& picture, PixelLayout layout, uint8_t* frame) {
    const size_t luma = picture.total();
    const size_t quarter = luma / 4;
    uint8_t* u = frame + luma;
    if (layout == PixelLayout::Yuv420sp) {
        mChroma.resize(2 * quarter);
        u = mChroma.data();
    }
    uint8_t* planes[] = {frame, u, u + quarter};
    if (!mCodec || tjEncodeYUVPlanes(mCodec, picture.data, picture.cols, static_cast<int>(picture.step), picture.rows,
                                     TJPF_BGR, planes, nullptr, TJSAMP_420, 0) != 0)
        return false;
    if (layout == PixelLayout::Yuv420sp) {
        uint8_t* pair = frame + luma;
        for (size_t i = 0; i < quarter; ++i) {
            pair[2 * i] = u[quarter + i];
            pair[2 * i + 1] = u[i];
        }
    }
    return true;
}

std::vector<uint8_t> FrameWriter::jpeg(const cv::Mat& picture, int quality) {
    std::vector<uint8_t> bytes(tjBufSize(picture.cols, picture.rows, TJSAMP_420));
    unsigned char* buffer = bytes.data();
    unsigned long size = bytes.size();
    if (!mCodec || tjCompress2(mCodec, picture.data, picture.cols, static_cast<int>(picture.step), picture.rows,
                               TJPF_BGR, &buffer, &size, TJSAMP_420, quality, TJFLAG_NOREALLOC) != 0)
        return {};
    bytes.resize(size);
    return bytes;
}

}  // namespace kov::camera
