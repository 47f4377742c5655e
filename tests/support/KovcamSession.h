// The frame around an end-to-end test: kovcam on a folder of its own, and what it left there.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/camera/TemporaryFolder.h"

namespace kov::test {

/// What a run of kovcam gave.
struct Outcome {
    int status;
    std::string output;  // standard output and error
};

class KovcamSession : public ::testing::Test {
protected:
    /// Runs `kovcam ARGUMENTS` with variables `before` it, on a camera that runs four times as fast as a real one.
    Outcome kovcam(const std::string& arguments, const std::string& before = "",
                   const std::string& input = "/dev/null") const {
        static std::atomic<int> runs{0};
        const std::string output = "output-" + std::to_string(++runs);
        const int status = std::system(
            ("KOV_CAMERA_SPEED=4 " + before + KOV_KOVCAM " " + arguments + " >" + folder / output + " 2>&1 <" + input)
                .c_str());
        return {WEXITSTATUS(status), folder.read(output)};
    }
    /// Expects `kovcam shoot ARGUMENTS` into the folder, with a trace, to succeed, or to end with another status.
    void shoot(const std::string& arguments, const std::string& before = "", int status = 0) const {
        const Outcome run = kovcam("shoot " + arguments + out + " --trace " + folder / "trace", before);
        ASSERT_EQ(run.status, status) << run.output;
    }
    std::vector<nlohmann::json> trace() const {
        std::vector<nlohmann::json> events;
        std::ifstream file(folder / "trace");
        for (std::string line; std::getline(file, line);)
            events.push_back(nlohmann::json::parse(line));
        return events;
    }
    /// Names of the messages that the application received, in their order, of those that are `wanted`.
    std::vector<std::string> messages(const std::string& wanted) const {
        std::vector<std::string> names;
        for (const auto& event : trace()) {
            const std::string kind = event["kind"], name = event.value("name", "");
            if ((kind == "notify" || kind == "data") && std::regex_match(name, std::regex(wanted)))
                names.push_back(name);
        }
        return names;
    }
    cv::Mat picture(const std::string& name) const { return cv::imread(folder / name); }

    const TemporaryFolder folder;
    const std::string out = " -o " + folder.path();
};

}  // namespace kov::test
