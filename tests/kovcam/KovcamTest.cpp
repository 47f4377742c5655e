// kovcam end to end: the real binary, the real library, the real vendor camera.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/camera/TemporaryFolder.h"
#include "tests/support/FullDisk.h"

namespace {

/// What a run of kovcam gave.
struct Outcome {
    int status;
    std::string output;  // standard output and error
};

class KovcamTest : public ::testing::Test {
protected:
    Outcome kovcam(const std::string& arguments, const std::string& before = "") const {
        const std::string line = before + "KOV_CAMERA_SPEED=4 " KOV_KOVCAM " " + arguments + " >" + folder / "output";
        const int status = std::system((line + " 2>&1 </dev/null").c_str());
        std::ifstream file(folder / "output");
        return {WEXITSTATUS(status), {std::istreambuf_iterator<char>(file), {}}};
    }
    /// Runs kovcam into the folder, with a trace; expects it to succeed. What the trace says.
    std::vector<nlohmann::json> traced(const std::string& arguments) const {
        const Outcome run = kovcam(arguments + out + " --trace " + folder / "trace");
        EXPECT_EQ(run.status, 0) << run.output;
        std::vector<nlohmann::json> events;
        std::ifstream file(folder / "trace");
        for (std::string line; std::getline(file, line);)
            events.push_back(nlohmann::json::parse(line));
        return events;
    }
    cv::Size sizeOf(const std::string& name) const { return cv::imread(folder / name).size(); }
    void write(const std::string& name, const std::string& text) const { std::ofstream(folder / name) << text; }

    const kov::test::TemporaryFolder folder;
    const std::string out = " -o " + folder.path();
};

TEST_F(KovcamTest, ShootsSingleFromEveryKindOfSource) {
    cv::imwrite(folder / "photo.png", cv::Mat(600, 800, CV_8UC3, cv::Scalar(200, 180, 90)));
    cv::VideoWriter video(folder / "clip.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, {320, 240});
    for (int i = 0; i < 30; ++i)
        video.write(cv::Mat(240, 320, CV_8UC3, cv::Scalar(8 * i, 90, 200)));
    video.release();

    for (const std::string& source : {std::string("scene:still-life"), folder / "photo.png", folder / "clip.avi"}) {
        const Outcome run = kovcam("shoot single -i " + source + " -o " + folder / "out" +
                                   " --preview-size 320x240 --picture-size 1280x960 --count 2 --save-preview 4");
        ASSERT_EQ(run.status, 0) << source << ": " << run.output;
        for (const char* name : {"out/single-001.jpg", "out/single-002.jpg"})
            EXPECT_EQ(sizeOf(name), cv::Size(1280, 960));
        EXPECT_EQ(sizeOf("out/preview-00004.jpg"), cv::Size(320, 240));
        std::filesystem::remove_all(folder / "out");
    }
}

TEST_F(KovcamTest, TheTraceShowsAStillCaptureInItsOrder) {
    const std::regex wanted("startPreview|PREVIEW_FRAME|(ShotSingle::)?takePicture.*|SHUTTER|.*COMPRESSED_IMAGE");
    std::vector<std::string> seen;
    double last = 0;
    for (const auto& event : traced("shoot single -i scene:still-life --preview-size 320x240 --picture-size 640x480")) {
        EXPECT_GE(event["t"].get<double>(), last);
        last = event["t"];
        const std::string kind = event["kind"];
        const std::string what = event.value("name", event.value("text", ""));  // a log line has a text
        const bool again = what == "PREVIEW_FRAME" && !seen.empty() && seen.back() == what;
        if (std::regex_match(what, wanted) && !again)
            seen.push_back((std::set<std::string>{"call", "result", "inner", "file"}.contains(kind) ? kind + " " : "") +
                           what);
    }
    // The camera's own thread sends the shutter while takePicture returns, or after.
    ASSERT_EQ(std::erase(seen, "SHUTTER"), 1U);
    const std::vector<std::string> expected = {"call startPreview",   "inner startPreview",
                                               "result startPreview", "PREVIEW_FRAME",
                                               "call takePicture",    "ShotSingle::takePicture start",
                                               "inner takePicture",   "ShotSingle::takePicture end",
                                               "result takePicture",  "CAMERA_MSG_COMPRESSED_IMAGE",
                                               "COMPRESSED_IMAGE",    "file COMPRESSED_IMAGE"};
    EXPECT_EQ(seen, expected);
}

TEST_F(KovcamTest, RunsAScriptAndKeepsWhatWasSavedWhenAStepFails) {
    write("session.kov",
          "0.0 mode single  # a comment\n\n0.0 start-preview\n+0 wait 0x10\n+0 set jpeg-quality 30\n+0 picture\n"
          "+0 wait 0x100 timeout 10\n+0 set preview-size 320x240\n+0 start-preview\n+0 wait 0x10\n+0 command 1016\n"
          "+0 wait 0xA00 timeout 0.1\n");
    const Outcome run = kovcam("script " + folder / "session.kov" + " -i scene:still-life" + out +
                               " --picture-size 640x480 --save-preview 1");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("no message 0xA00 came in time"), std::string::npos) << run.output;
    EXPECT_EQ(sizeOf("picture-001.jpg"), cv::Size(640, 480));
    EXPECT_FALSE(std::filesystem::exists(folder / "picture-002.jpg"));
    EXPECT_EQ(sizeOf("preview-00000.jpg"), cv::Size(640, 480));
    bool resized = false;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        resized |= cv::imread(entry.path().string()).size() == cv::Size(320, 240);
    EXPECT_TRUE(resized);
}

TEST_F(KovcamTest, SaysInOneLineWhatIsWrong) {
    write("broken.avi", "this is no video");
    std::vector<uint8_t> jpeg;
    cv::imencode(".jpg", cv::Mat(64, 64, CV_8UC3, cv::Scalar(9, 9, 9)), jpeg);
    write("cut.jpg", std::string(jpeg.begin(), jpeg.end() - 40));
    write("huge.png",
          std::string("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\x9C\x40\0\0\x9C\x40\x8\x2\0\0\0", 29) + "CRC.IEND");
    write("binary.kov", std::string("0 picture\n\0\1", 12));
    cv::VideoWriter(folder / "clip.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, {64, 64})
        .write(cv::Mat(64, 64, CV_8UC3, cv::Scalar(9, 9, 9)));
    std::filesystem::create_directory(folder / "full");
    write("full/letter.txt", "not to be lost");
    const std::string one = "shoot single -i scene:still-life";
    // Arguments, and what the line must contain.
    const std::pair<std::string, const char*> cases[] = {
        {"shoot single -i scene:nowhere" + out, "unknown scene"},
        {"shoot single -i " + folder / "missing.jpg" + out, "there is no file"},
        {"shoot single -i " + folder / "broken.avi" + out, "broken.avi"},
        {"shoot single -i " + folder / "cut.jpg" + out, "cut.jpg is cut short"},
        {"shoot single -i " + folder / "huge.png" + out, "huge.png has more pixels"},
        {"shoot single -i \"\"" + out, "-i has an empty name"},
        {"shoot single" + out, "--input"},
        {one + " -o \"\"", "-o has an empty name"},
        {one + " -o out/{x}.jpg", "unknown field {x}"},
        {one + " -o /proc/none", "cannot be written"},
        {one + out + " --preview-size 641x480", "641x480"},
        {one + out + " --picture-size 9000x9000", "9000x9000"},
        {one + out + " --picture-size large", "write it as 640x480"},
        {one + out + " --quality 300", "--quality"},
        {one + out + " --quality 0", "--quality"},
        {one + out + " --fps 31", "preview-frame-rate"},
        {one + out + " --fps 0", "--fps"},
        {one + out + " --fps abc", "--fps"},
        {one + out + " --count 0", "--count"},
        {one + out + " --trace /none/trace", "/none/trace"},
        {one + out + " -i b", "too many sources"},
        {"shoot nothing -i scene:still-life" + out, "\"nothing\""},
        {"shoot panorama -i " + folder / "clip.avi" + out + " --direction left", "--direction is for"},
        {"script " + folder.path(), "cannot be read"},
        {"script " + folder / "none.kov", "cannot be read"},
        {"script " + folder / "binary.kov", "is no text file"},
        {"trace " + folder / "binary.kov", "is no trace"},
        {"demo -o " + folder / "full", "is no gallery"},
        {"demo nosuch -o " + folder / "new", "there is no mode"},
        {"demo -o /proc/none", "cannot be written"}};
    const auto expectLine = [&](const std::string& arguments, const std::string& expected) {
        SCOPED_TRACE(arguments);
        const Outcome run = kovcam(arguments);
        EXPECT_NE(run.status, 0);
        EXPECT_TRUE(run.output.starts_with("kovcam: ")) << run.output;
        EXPECT_NE(run.output.find(expected), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find('\n'), run.output.size() - 1) << run.output;
    };
    for (const auto& [arguments, expected] : cases)
        expectLine(arguments, expected);
    const std::pair<const char*, const char*> scripts[] = {
        {"0 mode nosuch\n", "bad.kov:1: "},
        {"0 start-preview\n1 jump\n", "bad.kov:2: \"jump\""},
        {"soon picture\n", "bad.kov:1: \"soon\""},
        {"0 picture\n0 wait 0x100 timeout soon\n", "bad.kov:2: write it as wait"},
        {"0 command 99999999999\n", "bad.kov:1: write it as command"}};
    for (const auto& [script, expected] : scripts) {
        write("bad.kov", script);
        expectLine("script " + folder / "bad.kov --check", expected);
    }
}

TEST_F(KovcamTest, NeverWritesOverAPicture) {
    write("single-001.jpg", "of an earlier session");
    write("single-007.jpg", "the last one");
    const std::string small = "shoot single -i scene:still-life --picture-size 320x240";
    EXPECT_EQ(kovcam(small + out + " --latest newest.jpg").output, folder / "single-008.jpg\n");
    EXPECT_EQ(std::filesystem::read_symlink(folder / "newest.jpg"), "single-008.jpg");
    EXPECT_EQ(std::filesystem::file_size(folder / "single-007.jpg"), 12U);
    EXPECT_EQ(kovcam(small + out + " --overwrite").status, 0);
    EXPECT_EQ(sizeOf("single-001.jpg"), cv::Size(320, 240));
    EXPECT_EQ(kovcam(small + " -o " + folder / "a/photo.jpg --count 2").output,
              folder / "a/photo.jpg\n" + (folder / "a/photo-2.jpg\n"));
    EXPECT_EQ(kovcam(small + " -o " + folder / "b/{mode}-%%-{n}.jpg").output, folder / "b/single-%-001.jpg\n");
    const std::string jpeg = kovcam(small + " -o -").output;
    EXPECT_EQ(cv::imdecode(std::vector<uint8_t>(jpeg.begin(), jpeg.end()), cv::IMREAD_COLOR).size(),
              cv::Size(320, 240));
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".kovcam")) << entry.path();
}

TEST_F(KovcamTest, WhatCannotBeWrittenTakesNothingElseAway) {
    const std::string full = folder / "full";
    const Outcome disk = kovcam("shoot single -i scene:landscape --count 9 -o " + full + " --picture-size 1280x960",
                                kov::test::fullDisk(full));
    EXPECT_EQ(disk.status, 1);
    EXPECT_NE(disk.output.find("single-001.jpg cannot be written: No space left on device"), std::string::npos)
        << disk.output;
    EXPECT_TRUE(std::filesystem::is_empty(full));
    const Outcome trace =
        kovcam("shoot single -i scene:still-life --picture-size 640x480" + out + " --trace /dev/full");
    EXPECT_EQ(trace.status, 1);
    EXPECT_NE(trace.output.find("kovcam: the trace /dev/full"), std::string::npos) << trace.output;
    EXPECT_FALSE(sizeOf("single-001.jpg").empty());
    write("trace", "of an earlier session");
    EXPECT_NE(kovcam("shoot single -i scene:nowhere" + out + " --trace " + folder / "trace").status, 0);
    EXPECT_EQ(std::filesystem::file_size(folder / "trace"), std::string("of an earlier session").size());
}

TEST_F(KovcamTest, ASignalDeliversWhatWasTaken) {
    // The sweep ends at the signal and is stitched, instead of after its 100 seconds.
    const std::string line = "KOV_CAMERA_SPEED=4 " KOV_KOVCAM
                             " shoot panorama -i scene:landscape --preview-size 320x240 --seconds 100" +
                             out + " --trace " + folder / "trace" + " >" + folder / "output" +
                             " 2>&1 </dev/null & child=$!; until [ 3 -le $(grep -cs FRAME_ADDED " + folder / "trace" +
                             " || :) ] 2>/dev/null; do sleep 0.1; done; kill -TERM $child; wait $child";
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 143);
    EXPECT_FALSE(sizeOf("panorama-001.jpg").empty());
}

TEST_F(KovcamTest, TheExampleScriptsRun) {
    const std::map<std::string, std::string> sources = {{"panorama", "scene:landscape"},
                                                        {"smile", "scene:portrait"},
                                                        {"addme", "scene:addme"},
                                                        {"action", "scene:crossing?delay=0&seconds=4"}};
    int scripts = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KOV_EXAMPLES)) {
        const std::string name = entry.path().stem();
        const std::string source = sources.contains(name) ? sources.at(name) : "scene:still-life";
        const Outcome run = kovcam("script " + entry.path().string() + " -i '" + source + "' -o " + folder / name +
                                   " --picture-size 640x480");
        EXPECT_EQ(run.status, 0) << name << ": " << run.output;
        EXPECT_NE(run.output.find("picture-001.jpg"), std::string::npos) << name << ": " << run.output;
        ++scripts;
    }
    EXPECT_GE(scripts, 8);
}

TEST_F(KovcamTest, TakesThePictureWhenTheFaceHasBegunToSmile) {
    // The scene's time is counted in frames, 30 a second: neutral for 3 seconds, the full smile 0.7 after that.
    int frames = 0;
    int start = 1000;
    std::vector<int> smiles;
    for (const auto& event : traced("shoot smile -i scene:portrait?neutral=3")) {
        const std::string name = event.value("name", "");
        frames += name == "PREVIEW_FRAME";
        if (name == "SMILE_SHOT_DETECTION_START")
            start = frames;
        if (name == "SMILE_DETECTED")
            smiles.push_back(frames);
    }
    ASSERT_EQ(smiles.size(), 1U);
    EXPECT_LT(start, 30);  // neutral for two seconds from here
    EXPECT_GT(smiles.front(), 3.0 * 30);
    EXPECT_LT(smiles.front(), 4.7 * 30);
    for (const char* name : {"smile-001.jpg", "preview-begin.jpg", "preview-smile.jpg"})
        EXPECT_FALSE(sizeOf(name).empty()) << name;
}

TEST_F(KovcamTest, SweepsAPanoramaInTheWayItIsTold) {
    for (const std::string direction : {"left", "up"}) {
        const Outcome run = kovcam("shoot panorama -i scene:landscape?seconds=6 -o " + folder / direction +
                                   " --direction " + direction + " --seconds 1 --preview-size 320x240");
        ASSERT_EQ(run.status, 0) << direction << ": " << run.output;
        const cv::Size size = sizeOf(direction + "/panorama-001.jpg");
        EXPECT_GT(direction == "up" ? size.height / 240.0 : size.width / 320.0, 1.5) << direction;
        EXPECT_NEAR(direction == "up" ? size.width - 320 : size.height - 240, 0, 6) << direction;
    }
}

}  // namespace
