// The four looks end to end: kovcam, the library, the vendor camera and the effects library.

#include <opencv2/imgproc.hpp>

#include "tests/support/KovcamSession.h"

namespace {

using CartoonSession = kov::test::KovcamSession;

TEST_F(CartoonSession, EachLookDiffersFromTheOthersAndFromTheSource) {
    const char* const effects[] = {"none", "cartoon", "sketch", "sketch-gray", "stamp"};
    std::string arguments = "cartoon -i scene:still-life?shake=0 --picture-size 640x480";
    std::vector<std::string> expected;
    for (const char* effect : effects) {
        arguments += std::string(" --effect ") + effect;
        expected.insert(expected.end(), 20, "CARTOON_PROGRESS");
        expected.emplace_back("COMPRESSED_IMAGE");
    }
    shoot(arguments);
    EXPECT_EQ(messages("CARTOON_PROGRESS|COMPRESSED_IMAGE"), expected);
    shoot("single -i scene:still-life?shake=0 --picture-size 640x480");
    std::vector<cv::Mat> pictures;
    for (size_t i = 0; i < std::size(effects); ++i) {
        pictures.push_back(picture("cartoon-00" + std::to_string(i + 1) + "-" + effects[i] + ".jpg"));
        ASSERT_EQ(pictures[i].size(), cv::Size(640, 480));
        for (size_t other = 0; other < i; ++other)
            EXPECT_LT(cv::PSNR(pictures[i], pictures[other]), 24) << effects[i] << " and " << effects[other];
    }
    EXPECT_GT(cv::PSNR(pictures[0], picture("single-001.jpg")), 35);
}

}  // namespace
