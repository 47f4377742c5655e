// Add-me end to end: kovcam, the library, the vendor camera and the engine.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "tests/addme/MergedScene.h"

namespace fs = std::filesystem;

namespace {

class AddMeSession : public ::testing::Test {
protected:
    AddMeSession() {
        std::string name = (fs::temp_directory_path() / "kovcam-addme-XXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~AddMeSession() override { fs::remove_all(folder); }

    /// The exit status of `kovcam shoot addme`.
    int shoot(const std::string& arguments) {
        const std::string line = "KOV_CAMERA_SPEED=4 " KOV_KOVCAM " shoot addme -o " + folder.string() + " --trace " +
                                 (folder / "trace").string() + " " + arguments + " >/dev/null 2>&1 </dev/null";
        return WEXITSTATUS(std::system(line.c_str()));
    }
    /// Notifications and pictures of the application, in their order.
    std::vector<std::string> messages() {
        std::vector<std::string> names;
        std::ifstream file(folder / "trace");
        for (std::string line; std::getline(file, line);) {
            const std::string name = nlohmann::json::parse(line).value("name", "");
            const bool message =
                !name.starts_with("ADDME_SHOT") && (name.starts_with("ADDME_") || name == "COMPRESSED_IMAGE");
            if (message)
                names.push_back(name);
        }
        return names;
    }

    fs::path folder;
};

TEST_F(AddMeSession, TheSceneGivesBothPeople) {
    for (const auto& [size, position] : {std::pair("640x480", 0), {"1280x960", 1}}) {
        SCOPED_TRACE(size);
        ASSERT_EQ(
            shoot(std::string("-i scene:addme --picture-size ") + size + " --position " + std::to_string(position)), 0);
        EXPECT_EQ(messages(), (std::vector<std::string>{"ADDME_NO_RESULT", "COMPRESSED_IMAGE", "ADDME_PROGRESS",
                                                        "ADDME_PROGRESS", "ADDME_PROGRESS", "COMPRESSED_IMAGE"}));
        const cv::Mat first = cv::imread((folder / "addme-001.jpg").string());
        const kov::test::MergedScene scene(first.size());
        EXPECT_LT(kov::test::difference(first, scene.first), 3);
        kov::test::expectBothPeopleWhole(cv::imread((folder / "addme-002.jpg").string()), scene);
    }
}

TEST_F(AddMeSession, UnrelatedPicturesAreRefusedAndDelivered) {
    EXPECT_EQ(shoot("-i scene:landscape -i scene:still-life --picture-size 1280x960"), 1);
    EXPECT_EQ(messages(), (std::vector<std::string>{"ADDME_NO_RESULT", "COMPRESSED_IMAGE", "ADDME_ERROR",
                                                    "ADDME_NO_RESULT", "COMPRESSED_IMAGE"}));
    EXPECT_EQ(cv::imread((folder / "addme-002.jpg").string()).size(), cv::Size(1280, 960));
}

}  // namespace
