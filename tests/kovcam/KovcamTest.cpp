// kovcam end to end: the real binary, the real library, the real vendor camera.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
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
#include <thread>
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
    Outcome kovcam(const std::string& arguments, const std::string& before = "",
                   const std::string& input = "/dev/null") const {
        static std::atomic<int> runs{0};
        const std::string output = folder / "output-" + std::to_string(++runs);
        const std::string line = "KOV_CAMERA_SPEED=4 " + before + KOV_KOVCAM " " + arguments + " >" + output;
        const int status = std::system((line + " 2>&1 <" + input).c_str());
        std::ifstream file(output);
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
    /// Two threads work through the cases.
    template <typename Cases, typename Work>
    static void twoAtOnce(const Cases& cases, Work work) {
        std::atomic<size_t> next{0};
        const auto turns = [&] {
            for (size_t i = next++; i < std::size(cases); i = next++)
                work(cases[i]);
        };
        const std::jthread other(turns);
        turns();
    }
    static void expectOneLine(const Outcome& run, const std::string& expected) {
        EXPECT_NE(run.status, 0) << expected;
        EXPECT_TRUE(run.output.starts_with("kovcam: ")) << run.output;
        EXPECT_NE(run.output.find(expected), std::string::npos) << expected << ": " << run.output;
        EXPECT_EQ(run.output.find('\n'), run.output.size() - 1) << run.output;
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
    cv::Mat noise(64, 64, CV_8UC3);
    cv::randu(noise, 0, 255);
    for (const std::string ending : {".jpg", ".png"}) {
        std::vector<uint8_t> bytes;
        cv::imencode(ending, noise, bytes);
        write("cut" + ending, std::string(bytes.begin(), bytes.end() - 40));
        for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i)
            bytes[i] = i % 2 ? 0x5A : 0xFF;  // no marker of JPEG, no block of PNG
        write("damaged" + ending, std::string(bytes.begin(), bytes.end()));
    }
    write("huge.png",
          std::string("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\x9C\x40\0\0\x9C\x40\x8\x2\0\0\0\xDE\x6E\x99\x52\0\0\0\1IDAT",
                      41));
    write("two.kov", "0 mode nosuch\n");
    write("binary.kov", std::string("0 picture\n\0\1", 12));
    cv::VideoWriter(folder / "clip.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, {64, 64})
        .write(cv::Mat(64, 64, CV_8UC3, cv::Scalar(9, 9, 9)));
    std::filesystem::create_directory(folder / "full");
    write("full/letter.txt", "not to be lost");
    write("letter.html", "not to be lost");
    write("two.mp4", "not to be lost");
    write("bad-step.kov", "0 start-preview\n1 jump\n");
    write("bad-time.kov", "soon picture\n");
    write("bad-code.kov", "0 command 99999999999\n");
    write("bad-wait.kov", "0 picture\n0 wait 0x100 timeout soon\n");
    const std::string scene = " -i scene:still-life";
    const std::pair<std::string, const char*> cases[] = {
        // Arguments, and what the line must contain.
        {"shoot single -i scene:nowhere" + out, "unknown scene"},
        {"shoot single -i " + folder / "missing.jpg" + out, "there is no file"},
        {"shoot single -i " + folder / "broken.avi" + out, "broken.avi"},
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
        {"script " + folder.path() + scene + out, "cannot be read"},
        {"script " + folder / "none.kov" + scene + out, "cannot be read"},
        {"script " + folder / "bad-step.kov" + scene + out, "bad-step.kov:2: \"jump\""},
        {"script " + folder / "bad-time.kov" + scene + out, "bad-time.kov:1: \"soon\""},
        {"script " + folder / "bad-wait.kov" + scene + out, "bad-wait.kov:2: write it as wait"},
        {"script " + folder / "bad-code.kov" + scene + out, "bad-code.kov:1: write it as command"},
        {"shoot single" + scene + " -o \"\"", "-o has an empty name"},
        {"shoot single -i \"\"" + out, "-i has an empty name"},
        {"shoot single" + scene + out + " --fps 0", "--fps"},
        {"shoot single" + scene + out + " --fps abc", "--fps"},
        {"shoot single" + scene + " -o out/{x}.jpg", "unknown field {x}"},
        {"shoot single -i " + folder / "cut.jpg" + out, "cut.jpg is cut short"},
        {"shoot single -i " + folder / "cut.png" + out, "cut.png is cut short"},
        {"shoot single -i " + folder / "damaged.jpg" + out, "damaged.jpg is a broken picture"},
        {"shoot single -i " + folder / "damaged.png" + out, "damaged.png is a broken picture"},
        {"shoot single -i " + folder / "huge.png" + out, "huge.png has more pixels"},
        {"shoot panorama -i " + folder / "clip.avi" + out + " --direction left", "--direction is for"},
        {"script " + folder / "two.kov" + " --check", "two.kov:1: "},
        {"script " + folder / "binary.kov", "is no text file"},
        {"trace " + folder / "two.kov", "is no trace"},
        {"demo -o " + folder / "full", "is no gallery"},
        {"demo nosuch -o " + folder / "new", "there is no mode"},
        {"shoot nothing" + scene + out, "\"nothing\""},
        {"shoot single" + scene + out + " --record " + folder / "film.avi", "--record writes .mp4 and .mkv files"},
        {"shoot single" + scene + out + " --record /proc/none/film.mp4", "film.mp4 cannot be written"},
        {"shoot single" + scene + out + " --record " + folder / "two.mp4", "two.mp4 is there already"},
        {"shoot single" + scene + out + " --patience 1e300", "--patience"},
        {"shoot single" + scene + out + " --every 0", "--every"},
        {"shoot single" + scene + out + " --latest a/b", "--latest is a name"},
        {"shoot single -i 'scene:landscape?direction=left|up'" + out, "not \"left|up\""},
        {"gallery " + folder / "none", "there is no folder"},
        {"gallery " + folder / "full", "there are no pictures in"},
        {"gallery " + folder.path() + " -o " + folder / "letter.html", "letter.html is there and is no gallery"},
        {"gallery " + folder.path() + " " + folder.path(), "give it with -o"},
        {"demo -o /proc/none", "cannot be written"}};
    twoAtOnce(cases, [&](const auto& one) { expectOneLine(kovcam(one.first), one.second); });
    const std::pair<const char*, const char*> environments[] = {
        {"KOV_CAMERA_SPEED=fast ", "KOV_CAMERA_SPEED must be a number from 0.1 to 100, not \"fast\""},
        {"KOV_LOG=loud ", "\"loud\" is no log level"},
        {"KOV_LIBRARY=/etc/passwd ", "the library cannot be loaded"}};
    for (const auto& [environment, expected] : environments)
        expectOneLine(kovcam("shoot single" + scene + out, environment), expected);
    for (const char* name : {"full/letter.txt", "letter.html", "two.mp4"})
        EXPECT_EQ(std::filesystem::file_size(folder / name), 14U) << name;
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

TEST_F(KovcamTest, TakesPicturesAtIntervalsAndWhenAskedAndMakesAVideo) {
    const std::string small = "shoot single -i scene:still-life --picture-size 320x240 --preview-size 320x240";
    const Outcome timed = kovcam(small + " --every 0.2 --count 3 --record " + folder / "film.mp4 -o " + folder / "a");
    EXPECT_EQ(timed.output, folder / "a/single-001.jpg\n" + (folder / "a/single-002.jpg\n") +
                                (folder / "a/single-003.jpg\n") + (folder / "film.mp4\n"));
    cv::VideoCapture film(folder / "film.mp4");
    EXPECT_EQ(film.get(cv::CAP_PROP_FRAME_WIDTH), 320);
    EXPECT_GE(film.get(cv::CAP_PROP_FRAME_COUNT), 4);
    write("presses", "\n\n");
    EXPECT_EQ(kovcam(small + " --wait -o " + folder / "b", "", folder / "presses").output,
              folder / "b/single-001.jpg\n" + (folder / "b/single-002.jpg\n"));
    EXPECT_EQ(kovcam(small + " --save-raw -o " + folder / "c").status, 0);
    EXPECT_EQ(std::filesystem::file_size(folder / "c/raw-001.y4m"),
              std::string("YUV4MPEG2 W320 H240 F1:1 Ip A1:1 C420jpeg\nFRAME\n").size() + 320 * 240 * 3 / 2);
    cv::Mat raw;
    EXPECT_TRUE(cv::VideoCapture(folder / "c/raw-001.y4m").read(raw));
    EXPECT_EQ(raw.size(), cv::Size(320, 240));
    EXPECT_EQ(kovcam("gallery " + folder / "a " + folder / "b -o " + folder / "page.html").output,
              folder / "page.html\n");
    std::ifstream page(folder / "page.html");
    const std::string text{std::istreambuf_iterator<char>(page), {}};
    for (const char* link : {"href=\"a/single-003.jpg\"", "href=\"b/single-002.jpg\"", "src=\"a/single-001.jpg\""})
        EXPECT_NE(text.find(link), std::string::npos) << link;
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

TEST_F(KovcamTest, ASignalDeliversWhatWasTakenOfASweepInTheWayItIsTold) {
    // The sweep ends at the signal and is stitched, instead of after its 100 seconds.
    const std::string line = "KOV_CAMERA_SPEED=4 " KOV_KOVCAM
                             " shoot panorama -i scene:landscape --direction up --preview-size 320x240 --seconds 100" +
                             out + " --trace " + folder / "trace" + " >" + folder / "output" +
                             " 2>&1 </dev/null & child=$!; until [ 3 -le $(grep -cs FRAME_ADDED " + folder / "trace" +
                             " || :) ] 2>/dev/null; do sleep 0.1; done; kill -TERM $child; wait $child";
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 143);
    const cv::Size size = sizeOf("panorama-001.jpg");
    EXPECT_NEAR(size.width, 320, 6);
    EXPECT_GT(size.height, 1.5 * 240);
}

TEST_F(KovcamTest, TheExampleScriptsRun) {
    const std::map<std::string, std::string> sources = {{"panorama", "scene:landscape"},
                                                        {"smile", "scene:portrait"},
                                                        {"addme", "scene:addme"},
                                                        {"action", "scene:crossing?delay=0&seconds=4"}};
    const std::filesystem::directory_iterator examples(KOV_EXAMPLES);
    const std::vector<std::filesystem::path> scripts(begin(examples), end(examples));
    EXPECT_GE(scripts.size(), 8U);
    twoAtOnce(scripts, [&](const auto& script) {
        const std::string name = script.stem();
        const std::string source = sources.contains(name) ? sources.at(name) : "scene:still-life";
        const Outcome run = kovcam("script " + script.string() + " -i '" + source + "' -o " + folder / name +
                                   " --picture-size 640x480");
        EXPECT_EQ(run.status, 0) << name << ": " << run.output;
        EXPECT_NE(run.output.find("picture-001.jpg"), std::string::npos) << name << ": " << run.output;
    });
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

}  // namespace
