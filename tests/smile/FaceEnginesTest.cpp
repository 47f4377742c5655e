// The host's face and smile engines on the portrait scene.

#include <arccamera/face.h>
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/camera/scenes/Portrait.h"

namespace {

const cv::Size kFrame(640, 480);

class FaceEnginesTest : public ::testing::Test {
protected:
    void SetUp() override {
        AMFPAF_IMAGE_INFO info = {kFrame.width, kFrame.height, ARC_FACE_FORMAT_YUV420SP, kFrame.width};
        ASSERT_EQ(AMFPAF_InitialFaceEngine(faceManager, &info, &faces, &faceEngine, 1, 16, 3), 0);
        ASSERT_EQ(AMFPAF_SetTrackingFrameNumber(faceEngine, 5), 0);
        ASSERT_EQ(ASSD_InitSmileEngine(smileManager, &smileEngine, 1, kFrame.height), 0);
    }
    void TearDown() override {
        AMFPAF_UninitialFaceEngine(faceManager, &faceEngine, &faces);
        ASSD_UninitSmileEngine(smileManager, &smileEngine);
        MMemMgrDestroy(faceManager);
        MMemMgrDestroy(smileManager);
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
        std::vector<int32_t> info(3);
        ASSD_FACE_INPUT input = {faces.faces, info.data(), faces.count};
        EXPECT_EQ(ASSD_SmileDetect(smileManager, smileEngine, &image, &input, &result, 0, 0), 0);
        return result.ISmileNumber == result.IFaceNumber;
    }

    std::vector<char> faceBlock = std::vector<char>(0x180000);
    std::vector<char> smileBlock = std::vector<char>(0x96000);
    MHandle faceManager = MMemMgrCreate(faceBlock.data(), static_cast<int32_t>(faceBlock.size()));
    MHandle smileManager = MMemMgrCreate(smileBlock.data(), static_cast<int32_t>(smileBlock.size()));
    MHandle faceEngine = nullptr;
    MHandle smileEngine = nullptr;
    AMFPAF_FACE_RESULT faces = {};
    ASSD_SMILE_RESULT result = {};
};

TEST_F(FaceEnginesTest, TheSmileIsSeenWhenItIsThereAndNotBefore) {
    kov::camera::SourceOptions options("");
    kov::camera::Portrait scene(options);
    double smiled = -1;
    int framed = 0;
    int frames = 0;
    __tag_rect last = {};
    for (double time = 0.5; time < 4.7 && smiled < 0; time += 1 / 15.0, ++frames) {
        const bool smile = smiles(scene.frame(time, kFrame));
        const cv::Rect truth = scene.faceBox(time, kFrame);
        if (faces.count == 1) {
            const __tag_rect& face = faces.faces[0];
            const cv::Rect found(cv::Point(face.left, face.top), cv::Point(face.right, face.bottom));
            framed += (found & truth).area() > 0.6 * found.area();
            if (frames > 10) {
                EXPECT_LT(std::abs(face.left - last.left), 12);  // rests
            }
            last = face;
        }
        if (smile)
            smiled = time;
    }
    EXPECT_GE(framed, 0.9 * frames);
    EXPECT_GT(smiled, 3.0);  // neutral until then
    EXPECT_LT(smiled, 4.7);  // within a second of the full smile
}

TEST_F(FaceEnginesTest, AFaceIsFollowedThroughTheFrameBetweenDetections) {
    kov::camera::SourceOptions options("shake=0");
    kov::camera::Portrait scene(options);
    const cv::Mat view = scene.frame(1, kFrame);
    int found = 0;
    for (int i = 0; i < 24; ++i) {
        cv::Mat moved;
        const double shift = 6.0 * i;
        cv::warpAffine(view, moved, cv::Matx23d(1, 0, shift, 0, 1, 0), kFrame, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        smiles(moved);
        if (faces.count != 1)
            continue;
        const cv::Rect truth = scene.faceBox(1, kFrame) + cv::Point(cvRound(shift), 0);
        const double middle = (faces.faces[0].left + faces.faces[0].right) / 2.0;
        found += std::abs(middle - (truth.x + truth.width / 2.0)) < 0.2 * truth.width;
    }
    EXPECT_GE(found, 22);
    smiles(cv::Mat(kFrame, CV_8UC3, cv::Scalar(90, 90, 90)));
    EXPECT_EQ(faces.count, 0);
}

TEST(FaceMemoryTest, AnEngineThatDoesNotFitIsNotMade) {
    char block[64];
    const MHandle manager = MMemMgrCreate(block, sizeof block);
    AMFPAF_IMAGE_INFO info = {640, 480, 10, 640};
    AMFPAF_FACE_RESULT faces = {};
    MHandle engine = nullptr;
    EXPECT_NE(AMFPAF_InitialFaceEngine(manager, &info, &faces, &engine, 1, 16, 3), 0);
    EXPECT_NE(ASSD_InitSmileEngine(manager, &engine, 1, 480), 0);
    EXPECT_EQ(engine, nullptr);
    MMemMgrDestroy(manager);
}

}  // namespace
