// The self picture end to end: kovcam, the library, the vendor camera and the effects library.

#include <filesystem>
#include <opencv2/core.hpp>

#include "tests/support/KovcamSession.h"

namespace {

using SelfSession = kov::test::KovcamSession;

/// The preview frame saved last: names are numbered.
std::string lastPreview(const std::string& folder) {
    std::string last;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("preview-") && name > last)
            last = name;
    }
    return last;
}

TEST_F(SelfSession, ThePictureIsTheLastPreviewFrame) {
    for (const char* format : {"yuv420sp", "yuv420p"}) {
        SCOPED_TRACE(format);
        ASSERT_EQ(shoot(std::string("self -i scene:portrait --preview-size 320x240 --save-preview 1 "
                                    "--preview-format ") +
                        format),
                  0);
        EXPECT_EQ(messages([](const std::string& name) { return name != "PREVIEW_FRAME"; }),
                  (std::vector<std::string>{"SHUTTER", "RAW_IMAGE", "COMPRESSED_IMAGE"}));
        const cv::Mat self = picture("self-001.jpg");
        const cv::Mat preview = picture(lastPreview(folder.path()));
        ASSERT_EQ(self.size(), cv::Size(320, 240));
        EXPECT_GE(cv::PSNR(self, preview), 35);  // both are JPEGs of the frame
    }
}

}  // namespace
