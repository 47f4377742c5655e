// Two small networks: one finds faces, one tells how happy a face looks.
#pragma once

#include <map>
#include <opencv2/dnn.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/arccamera/face/Weights.h"

namespace kov::arc {

/// Tells how happy a face looks. One thread at a time.
class ExpressionNetwork {
public:
    /// Throws std::exception when the folder has not its weights.
    explicit ExpressionNetwork(const std::string& folder);

    /// From 0 to 1. `luma`: the face from the brows to the chin, of any size.
    float happiness(const cv::Mat& luma);

private:
    cv::dnn::Net mNet;
    cv::Mat mSmall, mColour, mBlob;
};

/// A face in a picture.
struct FoundFace {
    cv::Rect2f place;  // from the brows to the chin
    float score;       // from 0 to 1
};

/// Finds faces, turned and tilted ones too. One thread at a time.
class FaceNetwork {
public:
    /// Throws std::exception when the folder has not its weights.
    explicit FaceNetwork(const std::string& folder);

    /// The faces in a picture of luma, the most certain first. A face counts from about 30 pixels on. The first picture
    /// of a size takes long.
    std::vector<FoundFace> find(const cv::Mat& luma);

private:
    const Weights mWeights;
    std::map<std::pair<int, int>, cv::dnn::Net> mNets;  // by columns and rows: a net that changes size is set up anew
    cv::Mat mColour, mBlob;
};

}  // namespace kov::arc
