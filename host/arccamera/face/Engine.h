// What the face and the smile engine share: status codes, limits, and the boundary of their C functions.
#pragma once

#include <android/log.h>
#include <arccamera/face.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <opencv2/objdetect.hpp>
#include <string>

#include "host/arccamera/face/Weights.h"

namespace kov::arc {

constexpr char kTag[] = "arccamera";

constexpr MRESULT kOk = 0;
constexpr MRESULT kFailed = 1;
constexpr MRESULT kBadArgument = 2;
constexpr MRESULT kNoMemory = 4;
constexpr MRESULT kNoCascade = 5;

constexpr int kMostFaces = 16;
constexpr int32_t kLeastSide = 64;  // of a frame, in pixels
constexpr int32_t kMostSide = 8192;
constexpr int32_t kMostAspect = 4;

/// Whether a frame of this size can show a face.
inline bool isUsable(int32_t width, int32_t height) {
    const auto [least, most] = std::minmax(width, height);
    return least >= kLeastSide && most <= kMostSide && most <= kMostAspect * least;
}

/// A frame's luma. Rows of a preview frame follow one another without a gap, whatever stride its description names:
/// that one is the width rounded up to a multiple of 4.
inline cv::Mat lumaOf(uint8_t* frame, int32_t width, int32_t height) {
    return {height, width, CV_8U, frame};
}

/// Runs the body of a C function: nothing thrown leaves it.
template <typename Work>
MRESULT guarded(const char* function, const Work& work) noexcept {
    try {
        return work();
    } catch (const std::exception& error) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s: %s", function, error.what());
    } catch (...) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s: an error of an unknown kind", function);
    }
    return kFailed;
}

/// Makes what needs weights of the models' folder; null without the folder, or (with a line in the log) when they
/// cannot be used.
template <typename Network>
std::unique_ptr<Network> makeNetwork() {
    const std::string folder = modelFolder();
    if (folder.empty())
        return nullptr;
    try {
        return std::make_unique<Network>(folder);
    } catch (const std::exception& error) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "the models in %s cannot be used (%s); ./kov models fetches them",
                            folder.c_str(), error.what());
        return nullptr;
    }
}

/// Loads one of OpenCV's cascades; false, with a line in the log, when there is none of this name.
bool loadCascade(cv::CascadeClassifier& cascade, const char* name);

}  // namespace kov::arc
