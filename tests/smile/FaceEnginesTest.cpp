// The host's face and smile engines on the portrait scene.

#include <arccamera/face.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <opencv2/imgproc.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "host/camera/scenes/Portrait.h"
#include "tests/camera/TemporaryFolder.h"
#include "tests/support/Recorder.h"

namespace {

const cv::Size kFrame(640, 480);

cv::Rect2d placeOf(const __tag_rect& face) {
    return {cv::Point2d(face.left, face.top), cv::Point2d(face.right, face.bottom)};
}

/// A tensor of a small network: 0 but for these values.
struct Tensor {
    std::string name;
    std::vector<int> shape;
    std::map<size_t, float> values = {};
};

/// Writes a network's weights as the models' folder has them.
void writeNetwork(const std::string& file, const std::vector<Tensor>& tensors) {
    nlohmann::json list;
    std::ofstream bytes(file + ".bin", std::ios::binary);
    for (const Tensor& tensor : tensors) {
        std::vector<float> all(std::accumulate(tensor.shape.begin(), tensor.shape.end(), 1, std::multiplies()));
        for (const auto& [index, value] : tensor.values)
            all.at(index) = value;
        nlohmann::json entry = {{"name", tensor.name}, {"shape", tensor.shape}};
        if (tensor.shape.size() == 1) {  // such a one in 8 bits a value
            entry["quantization"] = {{"scale", 0.5}, {"min", -40}};
            for (const float value : all)
                bytes.put(static_cast<char>(2 * (value + 40)));
        } else {
            bytes.write(reinterpret_cast<const char*>(all.data()), static_cast<std::streamsize>(4 * all.size()));
        }
        list.push_back(entry);
    }
    std::ofstream(file + "_model-weights_manifest.json")
        << nlohmann::json::array({{{"paths", {std::filesystem::path(file + ".bin").filename()}}, {"weights", list}}});
}

/// Networks that take something bright for a face, and call it happy the more of its surrounding is bright too.
void writeNetworks(const std::string& folder) {
    const std::map<size_t, float> grey = {{24, 1 / 3.F}, {26, 1 / 3.F}, {28, 1 / 3.F}};  // of the middle of 3 x 3
    std::vector<Tensor> finder = {{"conv0/filters", {3, 3, 3, 2}, grey}, {"conv0/bias", {2}}};
    std::vector<Tensor> judge = {{"dense0/conv0/filters", {3, 3, 3, 2}, grey}, {"dense0/conv0/bias", {2}}};
    const auto separable = [](std::vector<Tensor>& network, const std::string& name, float passes) {
        network.push_back({name + "/depthwise_filter", {3, 3, 2, 1}, {{8, 1}, {9, 1}}});
        network.push_back({name + "/pointwise_filter", {1, 1, 2, 2}, {{0, passes}}});
        network.push_back({name + "/bias", {2}});
    };
    for (int i = 1; i <= 5; ++i)
        separable(finder, "conv" + std::to_string(i), 1);
    for (int i = 1; i < 16; ++i)  // each block hands on what its first layer gives
        separable(judge, "dense" + std::to_string(i / 4) + "/conv" + std::to_string(i % 4), i % 4 == 0);
    finder.push_back({"conv8/filters", {1, 1, 2, 25}, {{4, 100}}});  // the certainty of the first of five anchors
    finder.push_back({"conv8/bias", {25}, {{4, -30}, {9, -30}, {14, -30}, {19, -30}, {24, -30}}});
    judge.push_back({"fc/weights", {2, 7}, {{1, 80}}});
    judge.push_back({"fc/bias", {7}, {{1, -8}}});
    writeNetwork(folder + "/tiny_face_detector", finder);
    writeNetwork(folder + "/face_expression", judge);
}

class FaceEnginesTest : public ::testing::Test {
protected:
    FaceEnginesTest() { makeEngines(); }
    ~FaceEnginesTest() override {
        unsetenv("KOV_MODELS");
        dropEngines();
        MMemMgrDestroy(faceManager);
        MMemMgrDestroy(smileManager);
    }
    void makeEngines() {
        EXPECT_EQ(AMFPAF_InitialFaceEngine(faceManager, &info, &faces, &faceEngine, 1, 16, 3), 0);
        EXPECT_EQ(AMFPAF_SetTrackingFrameNumber(faceEngine, 5), 0);
        EXPECT_EQ(ASSD_InitSmileEngine(smileManager, &smileEngine, 1, kFrame.height), 0);
    }
    void dropEngines() {
        AMFPAF_UninitialFaceEngine(faceManager, &faceEngine, &faces);
        ASSD_UninitSmileEngine(smileManager, &smileEngine);
    }
    /// Runs both engines on a view; whether everybody smiles.
    bool smiles(const cv::Mat& view) {
        cv::Mat luma;
        cv::cvtColor(view, luma, cv::COLOR_BGR2GRAY);
        EXPECT_EQ(AMFPAF_FaceFeatureDetect(faceManager, faceEngine, luma.data, &faces, 0, 0, 0, 0, 0), 0);
        if (faces.count == 0)
            return false;
        ASSD_IMAGE image = {
            kFrame.width, kFrame.height, 10, {kFrame.width, 320, 320, 0}, {luma.data, nullptr, nullptr, nullptr}};
        int32_t values[3] = {};
        ASSD_FACE_INPUT input = {faces.faces, values, faces.count};
        EXPECT_EQ(ASSD_SmileDetect(smileManager, smileEngine, &image, &input, &result, 0, 0), 0);
        return result.ISmileNumber == result.IFaceNumber;
    }

    alignas(std::max_align_t) char faceBlock[0x180000], smileBlock[0x96000];  // as the shot has
    const MHandle faceManager = MMemMgrCreate(faceBlock, sizeof faceBlock);
    const MHandle smileManager = MMemMgrCreate(smileBlock, sizeof smileBlock);
    MHandle faceEngine = nullptr, smileEngine = nullptr;
    AMFPAF_IMAGE_INFO info = {kFrame.width, kFrame.height, ARC_FACE_FORMAT_YUV420SP, kFrame.width};
    AMFPAF_FACE_RESULT faces = {};
    ASSD_SMILE_RESULT result = {};
};

TEST_F(FaceEnginesTest, TheSmileIsSeenWhenItIsThereAndNotBefore) {
    kov::camera::SourceOptions options("");
    kov::camera::Portrait scene(options);
    double smiled = -1;
    int framed = 0, frames = 0;
    cv::Rect2d last;
    for (double time = 0.5; time < 4.7 && smiled < 0; time += 1 / 15.0, ++frames) {
        if (smiles(scene.frame(time, kFrame)))
            smiled = time;
        if (faces.count != 1)
            continue;
        const cv::Rect2d found = placeOf(faces.faces[0]);
        framed += (found & cv::Rect2d(scene.faceBox(time, kFrame))).area() > 0.6 * found.area();
        EXPECT_TRUE(frames <= 10 || std::abs(found.x - last.x) < 12) << "does not rest";
        last = found;
    }
    EXPECT_GE(framed, 0.9 * frames);
    EXPECT_GT(smiled, 3.0);  // neutral until then
    EXPECT_LT(smiled, 4.7);  // within a second of the full smile
}

TEST_F(FaceEnginesTest, TheNetworksOfAFolderAreUsedWhenTheyAreWhole) {
    const kov::test::TemporaryFolder folder;
    setenv("KOV_MODELS", folder.path().c_str(), 1);
    writeNetworks(folder.path());
    const auto warnings = [&] {  // of engines that are made anew
        dropEngines();
        result = {};
        kov::test::Recorder log;
        makeEngines();
        return log.take("W arccamera: the models in " + folder.path() + " cannot be used (").size();
    };
    EXPECT_EQ(warnings(), 0U);
    const auto smilesOnce = [&](int side) {  // a bright square on a dark wall, both a little rough
        cv::Mat view(kFrame, CV_8UC3);
        cv::theRNG().state = 1;
        cv::randu(view, 0, 20);
        cv::randu(view(cv::Rect(400 - side / 2, 240 - side / 2, side, side)), 210, 255);
        bool smiling = false;
        for (int i = 0; i < 60; ++i) {
            smiles(view);
            smiling |= result.ISmileNumber > 0;
        }
        return smiling;
    };
    EXPECT_FALSE(smilesOnce(50));
    EXPECT_GT(faces.count, 0);
    for (int i = 0; i < faces.count; ++i) {  // the network's cells beside it see it too
        const cv::Rect2d place = placeOf(faces.faces[i]);
        EXPECT_LT(cv::norm((place.tl() + place.br()) / 2 - cv::Point2d(400, 240)), 140);
        EXPECT_NEAR(place.width, 2 * 67, 60);
    }
    EXPECT_EQ(warnings(), 0U);
    EXPECT_TRUE(smilesOnce(240)) << faces.count;
    std::filesystem::resize_file(folder / "face_expression.bin", 100);
    EXPECT_EQ(warnings(), 1U);
    writeNetwork(folder / "tiny_face_detector", {{"conv0/filters", {3, 3, 3, 0}}});
    EXPECT_EQ(warnings(), 2U);  // the cascades are taken
}

TEST_F(FaceEnginesTest, AnEngineThatCannotBeIsNotMade) {
    char block[64];
    const MHandle small = MMemMgrCreate(block, sizeof block);
    const std::tuple<MHandle, AMFPAF_IMAGE_INFO, int, int> cases[] = {
        {small, info, 3, 480},                       // no room
        {faceManager, {640, 480, 6, 1280}, 3, 63},   // its first plane is not luma
        {faceManager, {640, 63, 10, 640}, 3, 8193},  // too small, or large
        {faceManager, {640, 159, 10, 640}, 3, 0},    // too long
        {faceManager, info, 0, -1}};
    for (const auto& [manager, image, most, height] : cases) {
        AMFPAF_IMAGE_INFO described = image;
        MHandle engine = nullptr;
        EXPECT_NE(AMFPAF_InitialFaceEngine(manager, &described, &faces, &engine, 1, 16, most), 0) << image.height;
        EXPECT_NE(ASSD_InitSmileEngine(manager, &engine, 1, height), 0) << height;
        EXPECT_EQ(engine, nullptr);
    }
    MMemMgrDestroy(small);
    uint8_t frame[4] = {};
    ASSD_IMAGE image = {640, 481, 10, {640, 320, 320, 0}, {frame, nullptr, nullptr, nullptr}};
    ASSD_FACE_INPUT none = {nullptr, nullptr, 0};
    EXPECT_NE(ASSD_SmileDetect(smileManager, smileEngine, &image, &none, &result, 0, 0), 0);  // of another height
    setenv("KOV_CASCADES", "/nowhere", 1);
    setenv("KOV_MODELS", "/nowhere", 1);
    MHandle engine = nullptr;
    EXPECT_NE(AMFPAF_InitialFaceEngine(faceManager, &info, &faces, &engine, 1, 16, 3), 0);
    EXPECT_NE(ASSD_InitSmileEngine(smileManager, &engine, 1, 480), 0);
    unsetenv("KOV_CASCADES");
}

}  // namespace
