// What the lens sees: the scenes, and the sources from files.

#include <gtest/gtest.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <tuple>

#include "host/camera/Exif.h"
#include "host/camera/Sources.h"
#include "tests/camera/TemporaryFolder.h"
#include "tests/support/SceneFrames.h"

using namespace kov::camera;
using namespace kov::test;

namespace {

const cv::Size kSmall(320, 240);

std::unique_ptr<FrameSource> open(const std::string& text) {
    std::string error;
    auto source = openSource(text, &error);
    EXPECT_EQ(error, "");
    return source;
}

TEST(Scenes, ShowTheSameMomentAtEverySize) {
    for (const SceneInfo& info : builtinScenes()) {
        const auto source = open("scene:" + info.name);
        const cv::Mat once = source->frame(3.4, {640, 480});
        for (const cv::Size size : {cv::Size(176, 144), cv::Size(854, 480)})
            ASSERT_EQ(source->frame(3.4, size).size(), size) << info.name;
        // Vector instructions round by where memory happens to lie: a pixel in a million may differ by one level.
        EXPECT_LT(difference(open("scene:" + info.name)->frame(3.4, {640, 480}), once), 1e-4) << info.name;
        // Detail may differ, what is seen may not.
        EXPECT_LT(difference(reduced(source->frame(3.4, {960, 720}), {80, 60}), reduced(once, {80, 60})), 6)
            << info.name;
    }
}

TEST(Files, AreShownAsAskedFor) {
    const TemporaryFolder folder;
    // Black on the left, white on the right, black below.
    cv::Mat picture(100, 400, CV_8UC3, cv::Scalar::all(0));
    picture(cv::Rect(200, 0, 200, 50)).setTo(cv::Scalar::all(255));
    cv::imwrite(folder / "a.png", picture);
    cv::imwrite(folder / "b.png", cv::Mat(picture.size(), CV_8UC3, cv::Scalar::all(128)));
    cv::VideoWriter video(folder / "v.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10, kSmall);
    for (int i = 0; i < 5; ++i)
        video.write(cv::Mat(kSmall, CV_8UC3, cv::Scalar::all(40 * i)));
    video.release();

    const std::tuple<std::string, double, cv::Point, int> cases[] = {
        {folder / "a.png", 0, {40, 60}, 0},
        {folder / "a.png", 9, {280, 60}, 255},
        {folder / "a.png?path=pan-right&seconds=2", 0, {280, 60}, 0},
        {folder / "a.png?path=pan-right&seconds=2", 2, {40, 60}, 255},
        {folder / "a.png?path=pan-left&seconds=2", 0, {40, 60}, 255},
        {folder / "a.png?path=pan-down&seconds=2", 2, {300, 120}, 0},
        {folder / "v.avi", 0, {10, 10}, 0},
        {folder / "v.avi", 0.31, {10, 10}, 120},
        {folder / "v.avi", 0.72, {10, 10}, 80},  // the second time round
        {folder.path() + "/?seconds=2", 3.5, {10, 10}, 128}};
    for (const auto& [source, time, at, grey] : cases) {
        const cv::Mat frame = open(source)->frame(time, kSmall);
        ASSERT_EQ(frame.size(), kSmall) << source;
        EXPECT_NEAR(frame.at<cv::Vec3b>(at)[1], grey, 4) << source << " at " << time;
    }
}

TEST(Files, AreTurnedAsTheirExifSays) {
    const TemporaryFolder folder;
    cv::Mat picture(240, 320, CV_8UC3, cv::Scalar(0, 0, 0));
    picture.colRange(0, 160) = cv::Scalar(255, 255, 255);
    // How much brighter the left half is than the right one, and the upper than the lower one.
    for (const auto& [orientation, across, down] : {std::tuple(1, 1, 0), {3, -1, 0}, {6, 0, 1}, {8, 0, -1}}) {
        std::vector<uint8_t> jpeg;
        cv::imencode(".jpg", picture, jpeg);
        addExif(jpeg, 320, 240, 0, orientation);
        std::ofstream(folder / "turned.jpg") << std::string(jpeg.begin(), jpeg.end());
        for (const std::string& source : {folder / "turned.jpg", folder.path()}) {
            const cv::Mat seen = open(source)->frame(0, {100, 100});
            const auto light = [&](cv::Rect part) { return cv::mean(seen(part))[0] / 255; };
            EXPECT_NEAR(light({0, 0, 50, 100}) - light({50, 0, 50, 100}), across, 0.1) << source << orientation;
            EXPECT_NEAR(light({0, 0, 100, 50}) - light({0, 50, 100, 50}), down, 0.1) << source << orientation;
        }
    }
}

}  // namespace
