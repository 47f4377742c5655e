// The frame around an end-to-end test: kovcam on a folder of its own, and what it left there.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "tests/camera/TemporaryFolder.h"

namespace kov::test {

class KovcamSession : public ::testing::Test {
protected:
    /// The exit status of `kovcam shoot ARGUMENTS` into the folder, with a trace, on a camera that runs `speed` times
    /// as fast as a real one.
    int shoot(const std::string& arguments, int speed = 4) const {
        const std::string line = "KOV_CAMERA_SPEED=" + std::to_string(speed) + " " KOV_KOVCAM " shoot " + arguments +
                                 " -o " + folder.path() + " --trace " + folder.path() +
                                 "/trace >/dev/null 2>&1 </dev/null";
        return WEXITSTATUS(std::system(line.c_str()));
    }
    /// Names of the messages that the application received, in their order, as far as `wanted` says.
    std::vector<std::string> messages(const std::function<bool(const std::string&)>& wanted) const {
        std::vector<std::string> names;
        std::ifstream file(folder.path() + "/trace");
        for (std::string line; std::getline(file, line);) {
            const auto event = nlohmann::json::parse(line);
            const std::string kind = event.value("kind", "");
            if ((kind == "notify" || kind == "data") && wanted(event.value("name", "")))
                names.push_back(event.value("name", ""));
        }
        return names;
    }
    cv::Mat picture(const std::string& name) const { return cv::imread(folder.path() + "/" + name); }

    const TemporaryFolder folder;
};

}  // namespace kov::test
