// The host's face and smile engines on the portrait scene.

#include <arccamera/face.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "host/camera/Sources.h"
#include "host/camera/scenes/Portrait.h"
#include "tests/camera/TemporaryFolder.h"

namespace {

const cv::Size kFrame(640, 480);

cv::Rect2d placeOf(const __tag_rect& face) {
    return {cv::Point2d(face.left, face.top), cv::Point2d(face.right, face.bottom)};
}

class FaceEnginesTest : public ::testing::Test {
protected:
    FaceEnginesTest() {
        EXPECT_EQ(AMFPAF_InitialFaceEngine(faceManager, &info, &faces, &faceEngine, 1, 16, 3), 0);
        EXPECT_EQ(AMFPAF_SetTrackingFrameNumber(faceEngine, 5), 0);
        EXPECT_EQ(ASSD_InitSmileEngine(smileManager, &smileEngine, 1, kFrame.height), 0);
    }
    ~FaceEnginesTest() override {
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

TEST_F(FaceEnginesTest, AFaceIsFollowedThroughTheFrameBetweenDetections) {
    kov::camera::SourceOptions options("shake=0");
    kov::camera::Portrait scene(options);
    const cv::Mat view = scene.frame(1, kFrame);
    const cv::Rect truth = scene.faceBox(1, kFrame);
    int found = 0;
    for (double shift = 0; shift < 144; shift += 6) {
        cv::Mat moved;
        cv::warpAffine(view, moved, cv::Matx23d(1, 0, shift, 0, 1, 0), kFrame, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        smiles(moved);
        const double middle = faces.count == 1 ? (faces.faces[0].left + faces.faces[0].right) / 2.0 : 0;
        found += std::abs(middle - (truth.x + shift + truth.width / 2.0)) < 0.2 * truth.width;
    }
    EXPECT_GE(found, 22);
    smiles(cv::Mat(kFrame, CV_8UC3, cv::Scalar(90, 90, 90)));
    EXPECT_EQ(faces.count, 0);
}

TEST_F(FaceEnginesTest, ARealFaceIsFramedWhereverTheCameraMoves) {
    // A photograph of a woman, from Debian's package python3-skimage; the environment may name another copy of it.
    const char* const named = std::getenv("KOV_PORTRAIT");
    const cv::Mat photo = cv::imread(named ? named : "/usr/lib/python3/dist-packages/skimage/data/astronaut.png");
    if (photo.empty())
        GTEST_SKIP() << "install python3-skimage, or name its astronaut.png in KOV_PORTRAIT";
    // The face, at (175, 66) in the photograph, in the middle of a wide surrounding, so that it passes through the
    // whole frame.
    const cv::Rect2d face(463, 463, 97, 97);
    cv::Mat surrounded;
    cv::copyMakeBorder(photo, surrounded, 463 - 66, 115, 463 - 175, 224, cv::BORDER_REFLECT);
    const kov::test::TemporaryFolder folder;
    ASSERT_TRUE(cv::imwrite(folder / "portrait.png", surrounded));
    constexpr double kScale = 0.8;  // picture pixels for one of the frame, on a pan over this picture
    const cv::Size2d room(surrounded.cols - kScale * kFrame.width, surrounded.rows - kScale * kFrame.height);
    int visible = 0, framed = 0;
    for (const std::string way : {"right", "left", "down", "up"}) {
        std::string error;
        const auto source = kov::camera::openSource(folder / "portrait.png?path=pan-" + way + "&seconds=4", &error);
        ASSERT_TRUE(source) << error;
        for (int i = 0; i < 120; ++i) {
            smiles(source->frame(i / 30.0, kFrame));
            const double along = way == "right" || way == "down" ? i / 120.0 : 1 - i / 120.0;
            const bool level = way == "right" || way == "left";
            const cv::Point2d corner(room.width * (level ? along : 0.5), room.height * (level ? 0.5 : along));
            const cv::Rect2d truth((face.tl() - corner) / kScale, face.size() / kScale);
            if ((truth & cv::Rect2d({}, cv::Size2d(kFrame))).area() < truth.area())
                continue;
            ++visible;
            framed += std::any_of(faces.faces, faces.faces + faces.count, [&](const __tag_rect& found) {
                const double common = (placeOf(found) & truth).area();
                return common > 0.5 * (placeOf(found).area() + truth.area() - common);
            });
        }
    }
    EXPECT_GE(framed, 0.9 * visible);
    EXPECT_GT(visible, 200);
}

TEST_F(FaceEnginesTest, AnEngineThatDoesNotFitIsNotMade) {
    char block[64];
    const MHandle manager = MMemMgrCreate(block, sizeof block);
    MHandle engine = nullptr;
    EXPECT_NE(AMFPAF_InitialFaceEngine(manager, &info, &faces, &engine, 1, 16, 3), 0);
    EXPECT_NE(ASSD_InitSmileEngine(manager, &engine, 1, 480), 0);
    EXPECT_EQ(engine, nullptr);
    MMemMgrDestroy(manager);
}

}  // namespace
