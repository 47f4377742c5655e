// Weights of the small networks: a JSON manifest and one file of values.

#include "host/arccamera/face/Weights.h"

#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace kov::arc {

namespace {

constexpr int64_t kMostValues = int64_t{1} << 24;  // of one tensor

std::ifstream open(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path.string());
    return file;
}

/// The next tensor of a file of values.
cv::Mat readTensor(std::istream& values, const nlohmann::json& entry) {
    const auto sides = entry.at("shape").get<std::vector<int>>();
    int64_t count = 1;
    for (const int side : sides) {
        if (side < 1 || (count *= side) > kMostValues)
            throw std::runtime_error("a tensor of impossible size");
    }
    if (sides.empty())
        throw std::runtime_error("a tensor without sides");
    const bool small = entry.contains("quantization");
    cv::Mat raw(static_cast<int>(sides.size()), sides.data(), small ? CV_8U : CV_32F);
    values.read(raw.ptr<char>(), static_cast<std::streamsize>(raw.total() * raw.elemSize()));
    if (!values)
        throw std::runtime_error("the file of values ends early");
    if (!small)
        return raw;
    const nlohmann::json& range = entry.at("quantization");
    cv::Mat tensor;
    raw.convertTo(tensor, CV_32F, range.at("scale").get<double>(), range.at("min").get<double>());
    return tensor;
}

}  // namespace

Weights::Weights(const std::string& folder, const std::string& name) {
    const std::filesystem::path place(folder);
    std::ifstream list = open(place / (name + "_model-weights_manifest.json"));
    for (const nlohmann::json& group : nlohmann::json::parse(list)) {
        // The groups of these networks have one file each.
        std::ifstream values = open(place / group.at("paths").at(0).get<std::string>());
        for (const nlohmann::json& entry : group.at("weights"))
            mTensors[entry.at("name").get<std::string>()] = readTensor(values, entry);
    }
}

const cv::Mat& Weights::tensor(const std::string& name) const {
    const auto found = mTensors.find(name);
    if (found == mTensors.end())
        throw std::runtime_error("there is no tensor " + name);
    return found->second;
}

cv::Mat Weights::kernel(const std::string& name) const {
    const cv::Mat& stored = tensor(name);
    if (stored.dims != 4)
        throw std::runtime_error(name + " is not a kernel");
    const bool separate = stored.size[3] == 1;
    const int places = stored.size[0] * stored.size[1];
    const int inputs = stored.size[2];
    const int outputs = stored.size[3];
    const int sides[] = {separate ? inputs : outputs, separate ? 1 : inputs, stored.size[0], stored.size[1]};
    cv::Mat turned(4, sides, CV_32F);
    const auto* from = stored.ptr<float>();
    auto* const to = turned.ptr<float>();
    for (int place = 0; place < places; ++place) {
        for (int input = 0; input < inputs; ++input) {
            for (int output = 0; output < outputs; ++output)
                to[(output * inputs + input) * places + place] = *from++;
        }
    }
    return turned;
}

cv::Mat Weights::row(const std::string& name) const {
    return tensor(name).reshape(1, 1);
}

std::string modelFolder() {
    namespace fs = std::filesystem;
    std::vector<fs::path> places;
    const char* const named = std::getenv("KOV_MODELS");
    Dl_info self = {};
    if (named && *named) {
        places.emplace_back(named);
    } else {
        if (dladdr(reinterpret_cast<const void*>(&modelFolder), &self) != 0 && self.dli_fname)
            places.push_back(fs::absolute(self.dli_fname).parent_path() / "../../models");
        places.emplace_back(KOV_INSTALLED_MODELS);
    }
    for (const fs::path& place : places) {
        std::error_code none;
        if (fs::is_directory(place, none))
            return place.lexically_normal().string();
    }
    return {};
}

}  // namespace kov::arc
