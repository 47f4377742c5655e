// The two small networks, built layer by layer from their weights.

#include "host/arccamera/face/Networks.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "host/arccamera/face/Weights.h"

namespace kov::arc {

namespace {

using cv::dnn::LayerParams;

/// Adds layers to a network. A layer is named by its number; 0 is the input.
class Builder {
public:
    Builder(cv::dnn::Net& net, const Weights& weights) : mNet(net), mWeights(weights) {}

    /// A convolution with the kernel `name`/filters. `inset`: without a frame of zeros.
    int convolution(int from, const std::string& name, bool inset, int stride) {
        const cv::Mat kernel = mWeights.kernel(name + "/filters");
        return convolve(from, kernel, mWeights.row(name + "/bias"), 1, stride, inset ? 0 : kernel.size[2] / 2);
    }

    /// Each channel by a kernel of its own, then a mixture of all of them.
    int separable(int from, const std::string& name, int stride) {
        const cv::Mat kernel = mWeights.kernel(name + "/depthwise_filter");
        from = convolve(from, kernel, {}, kernel.size[0], stride, kernel.size[2] / 2);
        return convolve(from, mWeights.kernel(name + "/pointwise_filter"), mWeights.row(name + "/bias"), 1, 1, 0);
    }

    /// A matrix of inputs x outputs, for a picture of one pixel.
    int fullyConnected(int from, const std::string& name) {
        const cv::Mat bias = mWeights.row(name + "/bias");
        const cv::Mat flat = mWeights.row(name + "/weights");
        const cv::Mat turned = flat.reshape(1, flat.cols / bias.cols).t();  // outputs x inputs
        const int sides[] = {turned.rows, turned.cols, 1, 1};
        return convolve(from, turned.reshape(1, 4, sides), bias, 1, 1, 0);
    }

    int rectify(int from, float leak = 0) {
        LayerParams params;
        params.set("negative_slope", leak);
        return add("ReLU", params, {from});
    }

    int sum(const std::vector<int>& from) {
        LayerParams params;
        params.set("operation", "sum");
        return add("Eltwise", params, from);
    }

    int pool(int from, const char* kind, int side, int stride, const char* padding) {
        LayerParams params;
        params.set("pool", kind);
        params.set("kernel_size", side);
        params.set("stride", stride);
        params.set("pad_mode", padding);
        return add("Pooling", params, {from});
    }

    int softmax(int from) {
        LayerParams params;
        return add("Softmax", params, {from});
    }

private:
    int convolve(int from, const cv::Mat& kernel, const cv::Mat& bias, int groups, int stride, int frame) {
        // With a stride of 2 the frame of an even picture is uneven: nothing before, one after.
        if (stride == 2 && frame > 0) {
            LayerParams around;
            const int paddings[] = {0, 0, 0, 0, 0, 1, 0, 1};
            around.set("paddings", cv::dnn::DictValue::arrayInt(paddings, 8));
            from = add("Padding", around, {from});
            frame = 0;
        }
        LayerParams params;
        params.set("num_output", kernel.size[0]);
        params.set("kernel_size", kernel.size[2]);
        params.set("stride", stride);
        params.set("pad", frame);
        params.set("group", groups);
        params.set("bias_term", !bias.empty());
        params.blobs.push_back(kernel);
        if (!bias.empty())
            params.blobs.push_back(bias);
        return add("Convolution", params, {from});
    }

    int add(const char* kind, LayerParams& params, const std::vector<int>& from) {
        const int id = mNet.addLayer(kind + std::to_string(++mLayers), kind, params);
        for (size_t i = 0; i < from.size(); ++i)
            mNet.connect(from[i], 0, id, static_cast<int>(i));
        return id;
    }

    cv::dnn::Net& mNet;
    const Weights& mWeights;
    int mLayers = 0;
};

/// Four convolutions, the first of which halves the picture; each next one takes the sum of those before it.
int denseBlock(Builder& builder, int from, const std::string& name, bool first) {
    const int one = builder.rectify(first ? builder.convolution(from, name + "/conv0", false, 2)
                                          : builder.separable(from, name + "/conv0", 2));
    const int two = builder.separable(one, name + "/conv1", 1);
    const int three = builder.separable(builder.rectify(builder.sum({one, two})), name + "/conv2", 1);
    const int four = builder.separable(builder.rectify(builder.sum({one, two, three})), name + "/conv3", 1);
    return builder.rectify(builder.sum({one, two, three, four}));
}

constexpr int kExpressionSide = 112;
const cv::Scalar kExpressionMean(122.782, 117.001, 104.298);
constexpr int kHappy = 1;  // the first is neutral
constexpr int kExpressions = 7;

constexpr float kCell = 32;  // pixels that share an answer of the face network
constexpr int kAnswer = 5;   // middle, sides and certainty
const cv::Scalar kFaceMean(117.001, 114.697, 97.404);
const cv::Size2f kAnchors[] = {  // cells
    {1.603231F, 2.094468F},
    {6.041143F, 7.080126F},
    {2.882459F, 3.518061F},
    {4.266906F, 5.178857F},
    {9.041765F, 10.66308F}};
constexpr float kLeak = 0.1F;
constexpr float kLeastScore = 0.5F;
constexpr float kOverlap = 0.4F;  // of two answers that are one face

/// The answer to a blob. On the calling thread alone, for loops inside a parallel loop are not spread: the networks are
/// so small that waiting for other threads costs more than they save, above all on a busy machine.
cv::Mat answerTo(cv::dnn::Net& net, const cv::Mat& blob) {
    cv::Mat answer;
    cv::parallel_for_({0, 1}, [&](const cv::Range&) {
        net.setInput(blob);
        answer = net.forward();
    });
    return answer;
}

cv::dnn::Net buildFaceNet(const Weights& weights) {
    cv::dnn::Net net;
    Builder builder(net, weights);
    int last = builder.rectify(builder.convolution(0, "conv0", true, 1), kLeak);
    for (int i = 1; i <= 5; ++i) {
        last = builder.pool(last, "MAX", 2, 2, "SAME");
        last = builder.rectify(builder.separable(last, "conv" + std::to_string(i), 1), kLeak);
    }
    last = builder.pool(last, "MAX", 2, 1, "SAME");
    builder.convolution(last, "conv8", true, 1);
    return net;
}

float sigmoid(float x) {
    return 1 / (1 + std::exp(-x));
}

float overlapRatio(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float common = (a & b).area();
    return common / (a.area() + b.area() - common);
}

}  // namespace

ExpressionNetwork::ExpressionNetwork(const std::string& folder) {
    const Weights weights(folder, "face_expression");
    Builder builder(mNet, weights);
    int last = 0;
    for (int i = 0; i < 4; ++i)
        last = denseBlock(builder, last, "dense" + std::to_string(i), i == 0);
    last = builder.pool(last, "AVE", kExpressionSide / 16, 2, "VALID");
    builder.softmax(builder.fullyConnected(last, "fc"));
    happiness(cv::Mat::zeros(kExpressionSide, kExpressionSide, CV_8U));  // the first run takes the memory
}

float ExpressionNetwork::happiness(const cv::Mat& luma) {
    const cv::Size size(kExpressionSide, kExpressionSide);
    cv::resize(luma, mSmall, size, 0, 0, luma.cols > size.width ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::cvtColor(mSmall, mColour, cv::COLOR_GRAY2BGR);
    cv::dnn::blobFromImage(mColour, mBlob, 1 / 255.0, {}, kExpressionMean);
    const cv::Mat answer = answerTo(mNet, mBlob);
    CV_Assert(answer.total() == kExpressions);
    return answer.ptr<float>()[kHappy];
}

FaceNetwork::FaceNetwork(const std::string& folder) : mWeights(folder, "tiny_face_detector") {
    buildFaceNet(mWeights);  // throws now rather than at the first picture
}

std::vector<FoundFace> FaceNetwork::find(const cv::Mat& luma) {
    if (std::min(luma.cols, luma.rows) < kCell)
        return {};
    cv::cvtColor(luma, mColour, cv::COLOR_GRAY2BGR);
    cv::dnn::blobFromImage(mColour, mBlob, 1 / 255.0, {}, kFaceMean);
    cv::dnn::Net& net = mNets[{luma.cols, luma.rows}];
    if (net.empty())
        net = buildFaceNet(mWeights);
    const cv::Mat answer = answerTo(net, mBlob);
    const int rows = answer.size[2];
    const int columns = answer.size[3];
    std::vector<FoundFace> found;
    for (int anchor = 0; anchor < static_cast<int>(std::size(kAnchors)); ++anchor) {
        const auto value = [&](int part, int row, int column) {
            return answer.ptr<float>(0, anchor * kAnswer + part, row)[column];
        };
        for (int row = 0; row < rows; ++row) {
            for (int column = 0; column < columns; ++column) {
                const float score = sigmoid(value(4, row, column));
                if (!(score >= kLeastScore))
                    continue;
                const cv::Size2f sides(std::exp(value(2, row, column)) * kAnchors[anchor].width * kCell,
                                       std::exp(value(3, row, column)) * kAnchors[anchor].height * kCell);
                const cv::Point2f middle((static_cast<float>(column) + sigmoid(value(0, row, column))) * kCell,
                                         (static_cast<float>(row) + sigmoid(value(1, row, column))) * kCell);
                found.push_back({{middle - cv::Point2f(sides.width / 2, sides.height / 2), sides}, score});
            }
        }
    }
    std::sort(found.begin(), found.end(), [](const FoundFace& a, const FoundFace& b) { return a.score > b.score; });
    std::vector<FoundFace> kept;
    for (const FoundFace& face : found) {
        if (std::none_of(kept.begin(), kept.end(),
                         [&](const FoundFace& other) { return overlapRatio(face.place, other.place) > kOverlap; }))
            kept.push_back(face);
    }
    return kept;
}

}  // namespace kov::arc
