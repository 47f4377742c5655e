// kovcam end to end: the real binary, the real library, the real vendor camera.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/FullDisk.h"
#include "tests/support/KovcamSession.h"

using kov::test::Outcome;

namespace {

class KovcamTest : public kov::test::KovcamSession {
protected:
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
    cv::Size sizeOf(const std::string& name) const { return picture(name).size(); }
};

TEST_F(KovcamTest, ShootsAFileAndTracesTheStillCaptureInItsOrder) {
    cv::imwrite(folder / "photo.png", cv::Mat(600, 800, CV_8UC3, cv::Scalar(200, 180, 90)));
    shoot("single -i " + folder / "photo.png" + " --preview-size 320x240 --picture-size 640x480 --save-preview 4");
    EXPECT_EQ(sizeOf("single-001.jpg"), cv::Size(640, 480));
    EXPECT_EQ(sizeOf("preview-00004.jpg"), cv::Size(320, 240));
    const std::regex wanted("startPreview|PREVIEW_FRAME|(ShotSingle::)?takePicture.*|.*COMPRESSED_IMAGE");
    std::vector<std::string> seen;
    double last = 0;
    for (const auto& event : trace()) {
        EXPECT_GE(event["t"].get<double>(), std::exchange(last, event["t"]));
        const std::string what = event.value("name", event.value("text", ""));  // a log line has a text
        if (std::regex_match(what, wanted))
            seen.push_back(event["kind"].get<std::string>() + " " + what);
    }
    std::erase(seen, "file PREVIEW_FRAME");
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());  // there are many frames
    const std::vector<std::string> expected = {"call startPreview",     "inner startPreview",
                                               "result startPreview",   "data PREVIEW_FRAME",
                                               "call takePicture",      "log ShotSingle::takePicture start",
                                               "inner takePicture",     "log ShotSingle::takePicture end",
                                               "result takePicture",    "log CAMERA_MSG_COMPRESSED_IMAGE",
                                               "data COMPRESSED_IMAGE", "file COMPRESSED_IMAGE"};
    EXPECT_EQ(seen, expected);
}

TEST_F(KovcamTest, RunsAScriptAndKeepsWhatWasSavedWhenAStepFails) {
    folder.write(
        "session.kov",
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
    std::vector<std::string> previews;
    cv::glob(folder / "preview-*.jpg", previews);
    EXPECT_EQ(cv::imread(previews.back()).size(), cv::Size(320, 240));
}

TEST_F(KovcamTest, SaysInOneLineWhatIsWrong) {
    cv::Mat noise(64, 64, CV_8UC3);
    cv::randu(noise, 0, 255);
    for (const std::string ending : {".jpg", ".png"}) {
        std::vector<uint8_t> bytes;
        cv::imencode(ending, noise, bytes);
        folder.write("cut" + ending, std::string(bytes.begin(), bytes.end() - 40));
        for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i)
            bytes[i] = i % 2 ? 0x5A : 0xFF;  // no marker of JPEG, no block of PNG
        folder.write("damaged" + ending, std::string(bytes.begin(), bytes.end()));
    }
    folder.write(
        "huge.png",
        std::string("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\x9C\x40\0\0\x9C\x40\x8\x2\0\0\0\xDE\x6E\x99\x52\0\0\0\1IDAT",
                    41));
    folder.write("binary.kov", std::string("0 picture\n\0\1", 12));
    cv::VideoWriter(folder / "clip.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, {64, 64})
        .write(cv::Mat(64, 64, CV_8UC3, cv::Scalar(9, 9, 9)));
    for (const char* name : {"full", "empty"})
        std::filesystem::create_directory(folder / name);
    folder.write("full/letter.txt", "not to be lost");
    folder.write("letter.html", "not to be lost");
    folder.write("two.mp4", "not to be lost");
    const std::pair<const char*, const char*> scripts[] = {
        {"0 mode nosuch\n", ":1: "},
        {"0 start-preview\n1 jump\n", ":2: \"jump\""},
        {"soon picture\n", ":1: \"soon\""},
        {"0 picture\n0 wait 0x100 timeout soon\n", ":2: write it as wait"},
        {"0 command 99999999999\n", ":1: write it as command"}};
    for (const auto& [script, expected] : scripts) {
        folder.write("bad.kov", script);
        expectOneLine(kovcam("script --check " + folder / "bad.kov"), expected);
    }
    const std::string scene = " -i scene:still-life", from = "shoot single" + out + " -i ",
                      single = from + "scene:still-life";
    const std::pair<std::string, const char*> cases[] = {
        // Arguments, and what the line must contain.
        {from + "scene:nowhere", "the built-in scenes are landscape, crossing, portrait, addme and still-life"},
        {from + "'scene:landscape?direction=left|up'", "right, left, up and down, not \"left|up\""},
        {from + "scene:landscape?seconds=0", "from 0.5 to 600"},
        {from + "scene:crossing?speed=3", "its options are shake, delay and seconds"},
        {from + "scene:crossing?shake", "not of the form name=value"},
        {from + folder / "empty", "put JPEG or PNG files there"},
        {from + folder / "two.mp4", "neither a picture nor a video"},
        {from + "/dev/video99", "/dev/video99"},
        {"shoot single" + scene + " -o /proc/none", "cannot be written"},
        {single + " --preview-size 641x480", "641x480"},
        {single + " --picture-size large", "write it as 640x480"},
        {single + " --quality 300", "--quality"},
        {single + " --fps 31", "preview-frame-rate"},
        {single + " --count 0", "--count"},
        {single + " --trace /none/trace", "/none/trace"},
        {"shoot single" + scene + " -i b" + out, "too many sources"},
        {"shoot single" + out, "--input"},
        {"script " + folder.path() + scene + out, "cannot be read"},
        {"shoot single" + scene + " -o \"\"", "-o has an empty name"},
        {"shoot single -i \"\"" + out, "-i has an empty name"},
        {"shoot single" + scene + " -o out/{x}.jpg", "unknown field {x}"},
        {from + folder / "cut.jpg", "cut.jpg is cut short"},
        {from + folder / "cut.png", "cut.png is cut short"},
        {from + folder / "damaged.jpg", "damaged.jpg is a broken picture"},
        {from + folder / "damaged.png", "damaged.png is a broken picture"},
        {from + folder / "huge.png", "huge.png has more pixels"},
        {"shoot panorama -i " + folder / "clip.avi" + out + " --direction left", "--direction is for"},
        {"script " + folder / "binary.kov", "is no text file"},
        {"trace " + folder / "bad.kov", "is no trace"},
        {"demo -o " + folder / "full", "is no gallery"},
        {"demo nosuch -o " + folder / "new", "there is no mode"},
        {"rates nosuch", "there is no mode"},
        {"shoot nothing" + scene + out, "\"nothing\""},
        {single + " --record " + folder / "film.avi", "--record writes .mp4 and .mkv files"},
        {single + " --record /proc/none/film.mp4", "film.mp4 cannot be written"},
        {single + " --record " + folder / "two.mp4", "two.mp4 is there already"},
        {single + " --patience 1e300", "--patience"},
        {single + " --every 0", "--every"},
        {single + " --latest a/b", "--latest is a name"},
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
        expectOneLine(kovcam(single, environment), expected);
    for (const char* name : {"full/letter.txt", "letter.html", "two.mp4"})
        EXPECT_EQ(folder.read(name), "not to be lost") << name;
}

TEST_F(KovcamTest, NeverWritesOverAPicture) {
    folder.write("single-001.jpg", "of an earlier session");
    folder.write("single-007.jpg", "the last one");
    const std::string small = "shoot single -i scene:still-life --picture-size 320x240";
    EXPECT_EQ(kovcam(small + out + " --latest newest.jpg").output, folder / "single-008.jpg\n");
    EXPECT_EQ(std::filesystem::read_symlink(folder / "newest.jpg"), "single-008.jpg");
    EXPECT_EQ(folder.read("single-007.jpg"), "the last one");
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
    folder.write("presses", "\n\n");
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
    const std::string page = folder.read("page.html");
    for (const char* link : {"href=\"a/single-003.jpg\"", "href=\"b/single-002.jpg\"", "src=\"a/single-001.jpg\""})
        EXPECT_NE(page.find(link), std::string::npos) << link;
}

TEST_F(KovcamTest, WhatCannotBeWrittenTakesNothingElseAway) {
    const std::string full = folder / "full";
    const Outcome disk = kovcam("shoot single -i scene:landscape --count 9 -o " + full + " --picture-size 1280x960",
                                kov::test::fullDisk(full));
    EXPECT_EQ(disk.status, 1);
    EXPECT_NE(disk.output.find("single-001.jpg cannot be written: No space left on device"), std::string::npos)
        << disk.output;
    EXPECT_TRUE(std::filesystem::is_empty(full));
    const Outcome run = kovcam("shoot single -i scene:still-life --picture-size 640x480" + out + " --trace /dev/full");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("kovcam: the trace /dev/full"), std::string::npos) << run.output;
    EXPECT_FALSE(sizeOf("single-001.jpg").empty());
    folder.write("trace", "of an earlier session");
    shoot("single -i scene:nowhere", "", 1);
    EXPECT_EQ(folder.read("trace"), "of an earlier session");
}

TEST_F(KovcamTest, ASignalDeliversWhatWasTakenOfASweepInTheWayItIsTold) {
    // The sweep ends at the signal and is stitched, instead of after its 100 seconds.
    const std::string sweep = "shoot panorama -i scene:landscape --direction up --preview-size 320x240 --seconds 100";
    EXPECT_EQ(
        kovcam(sweep + out + " --trace " + folder / "trace" + " >/dev/null & until [ 3 -le $(grep -cs FRAME_ADDED " +
               folder / "trace" + " || :) ]; do sleep 0.1; done; kill -TERM $!; wait $!")
            .status,
        143);
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

TEST_F(KovcamTest, ASmileIsTakenOnceAndItsPreviewsAreKept) {
    shoot("smile -i scene:portrait?neutral=1");
    EXPECT_EQ(messages("SMILE_DETECTED").size(), 1U);
    for (const char* name : {"smile-001.jpg", "preview-begin.jpg", "preview-smile.jpg"})
        EXPECT_FALSE(sizeOf(name).empty()) << name;
}

TEST_F(KovcamTest, RatesAreThoseOfRealTime) {
    const Outcome run = kovcam("rates self --frames 12");
    std::smatch row;
    ASSERT_TRUE(std::regex_search(run.output, row, std::regex("\\| self \\| ([0-9.]+) \\(.*\\n")));
    EXPECT_EQ(std::ranges::count(row.str(), '|'), 7) << run.output;
    EXPECT_GT(std::stod(row[1]), 1);
    EXPECT_LT(std::stod(row[1]), 40);  // though the camera of these tests runs four times as fast
}

}  // namespace
