// The self picture end to end: kovcam, the library, the vendor camera and the effects library.

#include <opencv2/core.hpp>

#include "tests/support/KovcamSession.h"

namespace {

using SelfSession = kov::test::KovcamSession;

TEST_F(SelfSession, ThePictureIsTheLastPreviewFrame) {
    for (const char* format : {"yuv420sp", "yuv420p"}) {
        SCOPED_TRACE(format);
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            std::filesystem::remove(entry);
        shoot(std::string("self -i scene:portrait --preview-size 320x240 --save-preview 1 --preview-format ") + format);
        EXPECT_EQ(messages("(?!PREVIEW_FRAME).*"),
                  (std::vector<std::string>{"SHUTTER", "RAW_IMAGE", "COMPRESSED_IMAGE"}));
        const cv::Mat self = picture("self-001.jpg");
        std::vector<std::string> previews;  // whose names are numbered
        cv::glob(folder / "preview-*.jpg", previews);
        ASSERT_FALSE(previews.empty());
        ASSERT_EQ(self.size(), cv::Size(320, 240));
        EXPECT_GE(cv::PSNR(self, cv::imread(previews.back())), 35);  // both are JPEGs of the frame
    }
}

}  // namespace
