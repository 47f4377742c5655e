// Weights of the small networks, and where they lie.
#pragma once

#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace kov::arc {

/// The folder that holds the networks' weights as `./kov models` leaves them, or an empty text: what the environment's
/// KOV_MODELS names and nothing else, or else the build's folder, or else the installed one.
std::string modelFolder();

/// One network's weights: a manifest that names the tensors, and a file with their 8-bit or 32-bit values.
class Weights {
public:
    /// Reads `folder`/`name`_model-weights_manifest.json and the file that it names. Throws std::exception (with a text
    /// for people) when they are not there or not whole.
    Weights(const std::string& folder, const std::string& name);

    /// A kernel as OpenCV wants it, outputs x inputs x height x width; those of `channels` separate channels as
    /// channels x 1 x height x width. Throws when there is none of this name.
    cv::Mat kernel(const std::string& name) const;
    /// Values in a row.
    cv::Mat row(const std::string& name) const;

private:
    /// Height x width x inputs x outputs, as in the file.
    const cv::Mat& tensor(const std::string& name) const;

    std::map<std::string, cv::Mat> mTensors;
};

}  // namespace kov::arc
