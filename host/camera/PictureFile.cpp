// Pictures of a file system.
//
// JPEG and PNG are read through their own libraries: OpenCV's readers write lines to standard error, and take a JPEG
// that is cut short or damaged for a whole one.

#include "host/camera/PictureFile.h"

#include <png.h>
#include <turbojpeg.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <string_view>
#include <vector>

#include "host/camera/Exif.h"

namespace kov::camera {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int64_t kMostPixels = 1 << 30;  // as OpenCV has it
constexpr const char* kHuge = "has more pixels than can be read; give a picture of at most 2^30";
constexpr const char* kCut = "is cut short; give a whole picture";
constexpr const char* kBroken = "is a broken picture; give another";

bool beginsWith(const Bytes& file, std::string_view magic) {
    return file.size() > magic.size() &&
           std::string_view(reinterpret_cast<const char*>(file.data()), magic.size()) == magic;
}

bool isHuge(int64_t width, int64_t height) {
    return width * height > kMostPixels;
}

cv::Mat turned(cv::Mat picture, int orientation) {
    constexpr int kTransposedFrom = 5;
    if (orientation >= kTransposedFrom)
        cv::transpose(picture, picture);
    // Which way it is mirrored then, as cv::flip counts.
    constexpr int kAcross = 1, kDown = 0, kBoth = -1;
    switch (orientation) {
        case 2:
        case 6:
            cv::flip(picture, picture, kAcross);
            break;
        case 4:
        case 8:
            cv::flip(picture, picture, kDown);
            break;
        case 3:
        case 7:
            cv::flip(picture, picture, kBoth);
            break;
        default:
            break;
    }
    return picture;
}

/// What is wrong is in `flaw`. A picture in inks (CMYK) is left to OpenCV, which turns it into light.
cv::Mat readJpeg(const Bytes& file, const std::string& path, const char** flaw) {
    const tjhandle codec = tjInitDecompress();
    int width = 0;
    int height = 0;
    int sampling = 0;
    int space = 0;
    cv::Mat picture;
    if (!codec || tjDecompressHeader3(codec, file.data(), file.size(), &width, &height, &sampling, &space) != 0) {
        *flaw = kBroken;
    } else if (isHuge(width, height)) {
        *flaw = kHuge;
    } else if (space == TJCS_CMYK || space == TJCS_YCCK) {
        picture = cv::imread(path);
    } else {
        picture.create(height, width, CV_8UC3);
        const bool whole = tjDecompress2(codec, file.data(), file.size(), picture.data, width,
                                         static_cast<int>(picture.step), height, TJPF_BGR, 0) == 0;
        const std::string_view words = whole ? "" : tjGetErrorStr2(codec);
        // Some cameras write a few bytes too many between segments; nothing is lost by that.
        if (words.find("Premature end of JPEG") != std::string_view::npos)
            *flaw = kCut;
        else if (!whole && words.find("extraneous bytes") == std::string_view::npos)
            *flaw = kBroken;
        picture = turned(picture, orientationOf(file));
    }
    tjDestroy(codec);
    return picture;
}

cv::Mat readPng(const Bytes& file, const char** flaw) {
    png_image info = {};
    info.version = PNG_IMAGE_VERSION;
    cv::Mat picture;
    if (!png_image_begin_read_from_memory(&info, file.data(), file.size())) {
        *flaw = kBroken;
    } else if (isHuge(info.width, info.height)) {
        *flaw = kHuge;
    } else {
        info.format = PNG_FORMAT_BGR;
        picture.create(static_cast<int>(info.height), static_cast<int>(info.width), CV_8UC3);
        const png_color white = {255, 255, 255};  // behind what is transparent
        if (!png_image_finish_read(&info, &white, picture.data, static_cast<png_int_32>(picture.step), nullptr))
            *flaw =
                std::string_view(info.message).find("beyond end of data") == std::string_view::npos ? kBroken : kCut;
    }
    png_image_free(&info);
    return picture;
}

}  // namespace

cv::Mat readPicture(const std::string& path, std::string* error) {
    std::ifstream stream(path, std::ios::binary);
    const Bytes file{std::istreambuf_iterator<char>(stream), {}};
    const char* flaw = nullptr;
    cv::Mat picture;
    try {
        if (beginsWith(file, "\xFF\xD8"))
            picture = readJpeg(file, path, &flaw);
        else if (beginsWith(file, "\x89PNG"))
            picture = readPng(file, &flaw);
        else
            picture = cv::imread(path);
    } catch (const cv::Exception&) {
        // Told below: OpenCV's own words are no help.
    }
    if (flaw || picture.empty()) {
        *error = path + " " + (flaw ? flaw : kBroken);
        return {};
    }
    return picture;
}

}  // namespace kov::camera
