// Add-me end to end: kovcam, the library, the vendor camera and the engine.

#include "tests/addme/MergedScene.h"
#include "tests/support/KovcamSession.h"

namespace {

class AddMeSession : public kov::test::KovcamSession {
protected:
    /// Notifications of the mode and pictures, in their order.
    std::vector<std::string> messages() const {
        return KovcamSession::messages(
            [](const std::string& name) { return name.starts_with("ADDME_") || name == "COMPRESSED_IMAGE"; });
    }
};

TEST_F(AddMeSession, TheSceneGivesBothPeople) {
    for (const auto& [size, position] : {std::pair("640x480", 0), {"1280x960", 1}}) {
        SCOPED_TRACE(size);
        ASSERT_EQ(shoot(std::string("addme -i scene:addme --picture-size ") + size + " --position " +
                        std::to_string(position)),
                  0);
        EXPECT_EQ(messages(), (std::vector<std::string>{"ADDME_NO_RESULT", "COMPRESSED_IMAGE", "ADDME_PROGRESS",
                                                        "ADDME_PROGRESS", "ADDME_PROGRESS", "COMPRESSED_IMAGE"}));
        const cv::Mat first = picture("addme-001.jpg");
        const kov::test::MergedScene scene(first.size());
        EXPECT_LT(kov::test::difference(first, scene.first), 3);
        kov::test::expectBothPeopleWhole(picture("addme-002.jpg"), scene);
    }
}

TEST_F(AddMeSession, UnrelatedPicturesAreRefusedAndDelivered) {
    EXPECT_EQ(shoot("addme -i scene:landscape -i scene:still-life --picture-size 1280x960"), 1);
    EXPECT_EQ(messages(), (std::vector<std::string>{"ADDME_NO_RESULT", "COMPRESSED_IMAGE", "ADDME_ERROR",
                                                    "ADDME_NO_RESULT", "COMPRESSED_IMAGE"}));
    EXPECT_EQ(picture("addme-002.jpg").size(), cv::Size(1280, 960));
}

}  // namespace
