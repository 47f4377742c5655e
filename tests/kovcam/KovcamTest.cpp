// kovcam end to end: the real binary, the real library, the real vendor camera.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

/// What a run of kovcam gave.
struct Outcome {
    int status;
    std::string output;  // standard output and error
};

class KovcamTest : public ::testing::Test {
protected:
    KovcamTest() {
        std::string name = (fs::temp_directory_path() / "kovcam-test-XXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~KovcamTest() override { fs::remove_all(folder); }

    static Outcome kovcam(const std::string& arguments) {
        const std::string line = "KOV_CAMERA_SPEED=4 " KOV_KOVCAM " " + arguments + " 2>&1 </dev/null";
        std::FILE* pipe = popen(line.c_str(), "r");
        std::string output;
        char buffer[512];
        while (const size_t count = std::fread(buffer, 1, sizeof buffer, pipe))
            output.append(buffer, count);
        const int status = pclose(pipe);
        return {WEXITSTATUS(status), output};
    }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    /// Pictures whose names begin with `prefix`.
    size_t count(const std::string& prefix) const {
        size_t found = 0;
        for (const auto& entry : fs::directory_iterator(folder))
            found += entry.path().filename().string().starts_with(prefix);
        return found;
    }

    std::string lastPreview() const {
        std::string last;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().filename().string().starts_with("preview-"))
                last = std::max(last, entry.path().string());
        }
        return last;
    }

    static cv::Mat testPicture() {
        cv::Mat picture(600, 800, CV_8UC3, cv::Scalar(200, 180, 90));
        cv::circle(picture, {400, 300}, 200, {30, 60, 220}, cv::FILLED);
        return picture;
    }

    fs::path folder;
};

TEST_F(KovcamTest, ShootsSingleFromEveryKindOfSource) {
    cv::imwrite(path("photo.png"), testPicture());
    cv::VideoWriter video(path("clip.avi"), cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, {320, 240});
    for (int i = 0; i < 30; ++i)
        video.write(cv::Mat(240, 320, CV_8UC3, cv::Scalar(8 * i, 90, 200)));
    video.release();

    for (const std::string source : {"scene:still-life", "photo.png", "clip.avi"}) {
        SCOPED_TRACE(source);
        const bool scene = source.starts_with("scene:");
        const Outcome run = kovcam("shoot single -i " + (scene ? source : path(source)) + " -o " + path("out") +
                                   " --preview-size 320x240 --picture-size 1280x960 --count 2 --save-preview 4");
        ASSERT_EQ(run.status, 0) << run.output;
        for (const char* name : {"out/single-001.jpg", "out/single-002.jpg"}) {
            const cv::Mat picture = cv::imread(path(name));
            EXPECT_EQ(picture.size(), cv::Size(1280, 960));
        }
        EXPECT_EQ(cv::imread(path("out/preview-00004.jpg")).size(), cv::Size(320, 240));
        fs::remove_all(path("out"));
    }
}

TEST_F(KovcamTest, TheTraceShowsAStillCaptureInItsOrder) {
    const Outcome run = kovcam("shoot single -i scene:still-life -o " + folder.string() +
                               " --preview-size 320x240 --picture-size 640x480 --trace " + path("trace.jsonl"));
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<std::string> seen;
    double last = 0;
    std::ifstream file(path("trace.jsonl"));
    for (std::string line; std::getline(file, line);) {
        const auto json = nlohmann::json::parse(line);
        const std::string name = json.value("name", "");
        const std::string text = json.value("text", "");
        EXPECT_GE(json["t"].get<double>(), last);
        last = json["t"].get<double>();
        if (name == "PREVIEW_FRAME" && (seen.empty() || seen.back() != name))
            seen.push_back(name);
        else if (name == "startPreview" || name == "takePicture")
            seen.push_back(json["kind"].get<std::string>() + " " + name);
        else if (name == "SHUTTER" || name == "COMPRESSED_IMAGE")
            seen.push_back(name);
        else if (text.starts_with("ShotSingle::takePicture") || text == "CAMERA_MSG_COMPRESSED_IMAGE")
            seen.push_back(text);
    }
    // The camera's own thread sends the shutter while takePicture returns, or after.
    ASSERT_EQ(std::erase(seen, "SHUTTER"), 1U) << run.output;
    const auto expected =
        std::vector<std::string>{"call startPreview",  "result startPreview",           "PREVIEW_FRAME",
                                 "call takePicture",   "ShotSingle::takePicture start", "ShotSingle::takePicture end",
                                 "result takePicture", "CAMERA_MSG_COMPRESSED_IMAGE",   "COMPRESSED_IMAGE"};
    EXPECT_EQ(seen, expected) << run.output;
}

TEST_F(KovcamTest, RunsAScript) {
    std::ofstream(path("session.kov")) << "0.0 mode single  # a comment\n\n"
                                          "0.0 start-preview\n"
                                          "+0 wait 0x10\n"
                                          "+0 set jpeg-quality 30\n"
                                          "+0 picture\n"
                                          "+0 wait 0x100 timeout 10\n"
                                          "+0 set preview-size 320x240\n"
                                          "+0 start-preview\n"
                                          "+0 wait 0x10\n"
                                          "+0 command 1004\n";
    const Outcome run = kovcam("script " + path("session.kov") + " -i scene:still-life -o " + folder.string() +
                               " --picture-size 640x480 --save-preview 1");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(count("picture-"), 1U);
    EXPECT_EQ(cv::imread(path("preview-00000.jpg")).size(), cv::Size(640, 480));
    EXPECT_EQ(cv::imread(lastPreview()).size(), cv::Size(320, 240));
}

TEST_F(KovcamTest, SaysInOneLineWhatIsWrong) {
    std::ofstream(path("broken.avi")) << "this is no video";
    std::ofstream(path("bad-step.kov")) << "0 start-preview\n1 jump\n";
    std::ofstream(path("bad-time.kov")) << "soon picture\n";
    std::ofstream(path("bad-code.kov")) << "0 command 99999999999\n";
    std::ofstream(path("bad-wait.kov")) << "0 picture\n0 wait 0x100 timeout soon\n";
    const std::string out = " -o " + folder.string();
    const std::string scene = " -i scene:still-life";
    const struct {
        std::string arguments;
        const char* expected;  // within the line
    } cases[] = {
        {"shoot single -i scene:nowhere" + out, "unknown scene"},
        {"shoot single -i " + path("missing.jpg") + out, "there is no file"},
        {"shoot single -i " + path("broken.avi") + out, "broken.avi"},
        {"shoot single" + scene + " -o /proc/none", "cannot be written"},
        {"shoot single" + scene + out + " --preview-size 641x480", "641x480"},
        {"shoot single" + scene + out + " --picture-size 9000x9000", "9000x9000"},
        {"shoot single" + scene + out + " --picture-size large", "write it as 640x480"},
        {"shoot single" + scene + out + " --quality 300", "--quality"},
        {"shoot single" + scene + out + " --quality 0", "--quality"},
        {"shoot single" + scene + out + " --fps 31", "preview-frame-rate"},
        {"shoot single" + scene + out + " --count 0", "--count"},
        {"shoot single" + scene + out + " --trace /none/trace", "/none/trace"},
        {"shoot single" + scene + " -i b" + out, "too many sources"},
        {"shoot single" + out, "--input"},
        {"shoot single" + scene + out + " --picture-size 640x480 --trace /dev/full", "/dev/full"},
        {"script " + folder.string() + scene + out, "cannot be read"},
        {"script " + path("none.kov") + scene + out, "cannot be read"},
        {"script " + path("bad-step.kov") + scene + out, "bad-step.kov:2: \"jump\""},
        {"script " + path("bad-time.kov") + scene + out, "bad-time.kov:1: \"soon\""},
        {"script " + path("bad-wait.kov") + scene + out, "bad-wait.kov:2: write it as wait"},
        {"script " + path("bad-code.kov") + scene + out, "bad-code.kov:1: write it as command"},
        {"", "subcommand"},
        {"shoot nothing" + scene + out, "\"nothing\""},
        {"demo -o /proc/none", "cannot be written"},
    };
    for (const auto& wrong : cases) {
        SCOPED_TRACE(wrong.arguments);
        const Outcome run = kovcam(wrong.arguments);
        EXPECT_NE(run.status, 0);
        EXPECT_EQ(run.output.find("kovcam: "), 0U) << run.output;
        EXPECT_NE(run.output.find(wrong.expected), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find('\n'), run.output.size() - 1) << run.output;
    }
}

TEST_F(KovcamTest, WhatWasSavedStaysWhenALaterStepFails) {
    std::ofstream(path("session.kov")) << "0 start-preview\n0 picture\n0 wait 0x100\n0 wait 0xA00 timeout 0.1\n";
    std::ofstream(path("trace.jsonl")) << "of an earlier session";
    const auto traceSize = fs::file_size(path("trace.jsonl"));
    EXPECT_NE(kovcam("shoot single -i scene:nowhere -o " + folder.string() + " --trace " + path("trace.jsonl")).status,
              0);
    EXPECT_EQ(fs::file_size(path("trace.jsonl")), traceSize);
    const Outcome run = kovcam("script " + path("session.kov") + " -i scene:still-life -o " + folder.string() +
                               " --picture-size 640x480");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("no message 0xA00 came"), std::string::npos) << run.output;
    EXPECT_EQ(cv::imread(path("picture-001.jpg")).size(), cv::Size(640, 480));
}

TEST_F(KovcamTest, TakesThePictureWhenTheFaceHasBegunToSmile) {
    const Outcome run =
        kovcam("shoot smile -i scene:portrait?neutral=3 -o " + folder.string() + " --trace " + path("trace.jsonl"));
    ASSERT_EQ(run.status, 0) << run.output;
    // The scene's time is counted in frames, 30 a second: neutral for 3 seconds, the full smile 0.7 after that.
    int frames = 0;
    int start = -1;
    std::vector<int> smiles;
    std::ifstream file(path("trace.jsonl"));
    for (std::string line; std::getline(file, line);) {
        const std::string name = nlohmann::json::parse(line).value("name", "");
        frames += name == "PREVIEW_FRAME";
        if (name == "SMILE_SHOT_DETECTION_START")
            start = frames;
        if (name == "SMILE_DETECTED")
            smiles.push_back(frames);
    }
    ASSERT_EQ(smiles.size(), 1U) << run.output;
    ASSERT_GE(start, 0);
    EXPECT_LT(start, 30);  // neutral for two seconds from here
    EXPECT_GT(smiles.front(), 3.0 * 30);
    EXPECT_LT(smiles.front(), 4.7 * 30);
    for (const char* name : {"smile-001.jpg", "preview-begin.jpg", "preview-smile.jpg"})
        EXPECT_FALSE(cv::imread(path(name)).empty()) << name;
}

TEST_F(KovcamTest, SweepsAPanoramaInTheWayItIsTold) {
    for (const std::string direction : {"left", "up"}) {
        SCOPED_TRACE(direction);
        const Outcome run = kovcam("shoot panorama -i scene:landscape?seconds=6 -o " + path(direction) +
                                   " --direction " + direction + " --seconds 1 --preview-size 320x240");
        ASSERT_EQ(run.status, 0) << run.output;
        const cv::Mat panorama = cv::imread(path(direction + "/panorama-001.jpg"));
        const int along = direction == "up" ? panorama.rows : panorama.cols;
        const int across = direction == "up" ? panorama.cols : panorama.rows;
        EXPECT_GT(along, 1.5 * (direction == "up" ? 240 : 320));
        EXPECT_NEAR(across, direction == "up" ? 320 : 240, 6);
    }
}

}  // namespace
