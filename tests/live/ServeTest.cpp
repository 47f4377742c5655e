// kovcam serve as a process: used by programs, and by those who mean no good.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/camera/TemporaryFolder.h"
#include "tests/support/FullDisk.h"

namespace {

using boost::asio::ip::tcp;
using kov::test::TemporaryFolder;
using Json = nlohmann::json;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // which takes time, and memory of its own
#else
constexpr bool kSanitized = false;
#endif

/// One connection to a port of this machine.
class Wire {
public:
    explicit Wire(int port)
        : mStream(tcp::endpoint(boost::asio::ip::address_v4::loopback(), static_cast<uint16_t>(port))) {}
    virtual ~Wire() = default;
    void send(const std::string& bytes) { mStream << bytes << std::flush; }
    /// What comes up to the text, with it, or up to the end.
    std::string readTo(const std::string& text) {
        mStream.expires_after(60s);
        std::string read;
        for (char byte; !read.ends_with(text) && mStream.get(byte);)
            read += byte;
        return read;
    }
    std::string readAll() { return readTo("no answer says this"); }

private:
    tcp::iostream mStream;
};

struct Answer {
    int status = 0;
    std::string head;
    std::string body;
    Json json() const { return Json::parse(body, nullptr, false); }
};

/// kovcam serve while it lives.
class Serve {
public:
    explicit Serve(const TemporaryFolder& folder, const std::string& arguments, const std::string& before = "") {
        const std::string line = before + "KOV_CAMERA_SPEED=2 TMPDIR=" + folder.path() +
                                 " exec " KOV_KOVCAM " serve --port 0 -o " + folder / "out " + arguments + " >" +
                                 folder / "printed" + " 2>&1 </dev/null";
        mProcess = fork();
        if (mProcess == 0) {
            execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            _exit(127);
        }
        waitFor([&] {
            const std::string text = folder.read("printed");
            return text.find("Ctrl-C") != std::string::npos &&
                   std::sscanf(text.c_str(), "The camera is at http://localhost:%d", &mPort) == 1;
        });
        waitFor([&] { return state().value("camera", "") == "open"; });
    }
    ~Serve() {
        if (mProcess > 0) {
            kill(mProcess, SIGKILL);
            waitpid(mProcess, nullptr, 0);
        }
    }
    Serve(const Serve&) = delete;
    Serve& operator=(const Serve&) = delete;

    int port() const { return mPort; }
    std::string host() const { return "Host: localhost:" + std::to_string(mPort) + "\r\n"; }

    /// Sends bytes as they are and reads until the other side closes.
    Answer raw(const std::string& bytes) const {
        Wire wire(mPort);
        wire.send(bytes);
        const std::string text = wire.readAll();
        Answer answer;
        std::sscanf(text.c_str(), "HTTP/1.1 %d", &answer.status);
        const size_t end = text.find("\r\n\r\n");
        answer.head = text.substr(0, end);
        answer.body = end == std::string::npos ? "" : text.substr(end + 4);
        return answer;
    }
    Answer ask(const std::string& method, const std::string& path, const std::string& body = "",
               const std::string& type = "application/json") const {
        return raw(method + " " + path + " HTTP/1.1\r\n" + host() + "Connection: close\r\nContent-Type: " + type +
                   "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    Answer get(const std::string& path) const { return ask("GET", path); }
    Answer post(const std::string& path, const std::string& body) const { return ask("POST", path, body); }
    Json state() const { return get("/api/state").json(); }
    /// The events of a type, the first of them waited for.
    Json events(const std::string& type) const {
        return get("/api/events?wait=60&after=0&type=" + type).json().value("events", Json());
    }
    bool waitFor(const std::function<bool()>& condition) const {
        const auto end = std::chrono::steady_clock::now() + 60s;  // of a busy machine
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            std::this_thread::sleep_for(20ms);
        }
        return true;
    }
    /// A frame comes, be the scene ever so long in painting.
    bool shows() const {
        return waitFor([&] { return get("/preview.jpg").body.starts_with("\xFF\xD8"); });
    }
    int64_t residentBytes() const {
        std::ifstream file("/proc/" + std::to_string(mProcess) + "/statm");
        int64_t size = 0, resident = 0;
        file >> size >> resident;
        return resident * sysconf(_SC_PAGESIZE);
    }
    void signal(int number) const { kill(mProcess, number); }
    /// The exit status, once it has ended.
    int end() {
        int status = -1;
        waitpid(std::exchange(mProcess, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t mProcess = 0;
    int mPort = 0;
};

/// A web socket at /live.
class Live : public Wire {
public:
    explicit Live(const Serve& camera) : Wire(camera.port()) {
        Wire::send("GET /live HTTP/1.1\r\n" + camera.host() +
                   "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                   "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n");
        readTo("\"client\":");
        client = std::atoi(readTo(",").c_str());
    }
    /// A text of less than 126 bytes, under a mask of zeros.
    void say(const std::string& text) {
        Wire::send(std::string("\x81") + static_cast<char>(0x80 | text.size()) + std::string(4, '\0') + text);
    }
    int client = 0;
};

class ServeTest : public ::testing::Test {
protected:
    const TemporaryFolder folder;
};

TEST_F(ServeTest, TakesAPictureAndEndsInOrder) {
    Serve camera(folder, "-i scene:still-life --picture-size 640x480 --trace " + folder / "trace");
    EXPECT_EQ(camera.post("/api/picture", "{}").status, 200);
    EXPECT_EQ(camera.post("/api/picture", "{}").status, 409) << "one at a time";
    EXPECT_FALSE(camera.events("COMPRESSED_IMAGE").empty());
    EXPECT_EQ(camera.events("image/jpeg")[0]["file"], "single-001.jpg");
    const Json picture = camera.get("/api/pictures").json()[0];
    EXPECT_EQ(picture["width"], 640);
    EXPECT_FALSE(picture["events"].empty());
    const std::string jpeg = camera.get("/api/pictures/1/file").body;
    EXPECT_EQ(jpeg.size(), picture["bytes"]);
    EXPECT_EQ(camera.post("/api/files?name=%ff/../x", jpeg).json()["id"], 1);
    EXPECT_EQ(camera.post("/api/source", "{\"file\": 1}").status, 200);
    EXPECT_EQ(camera.state()["source"]["kind"], "file") << "told, though its name is no text";
    EXPECT_EQ(cv::imread(folder / "out/single-001.jpg").size(), cv::Size(640, 480));
    EXPECT_TRUE(camera.waitFor([&] { return !camera.state()["takingPicture"].get<bool>(); }));
    EXPECT_TRUE(camera.shows()) << "the preview goes on";

    camera.post("/api/picture", "{}");
    camera.signal(SIGINT);
    EXPECT_EQ(camera.end(), 0);
    EXPECT_EQ(cv::imread(folder / "out/single-002.jpg").size(), cv::Size(640, 480)) << "whole, though we ended";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "out"), {}), 2);
    for (const auto& entry : fs::directory_iterator(folder.path()))
        EXPECT_TRUE(!entry.is_directory() || entry.path().filename() == "out") << entry << " is left";
    std::ifstream trace(folder / "trace");
    Json last_call;
    for (std::string line; std::getline(trace, line);) {
        const Json event = Json::parse(line);
        last_call = event["kind"] == "call" ? event["name"] : last_call;
    }
    EXPECT_EQ(last_call, "setCallbacks");
}

TEST_F(ServeTest, AnswersWhatIsWrong) {
    Serve camera(folder, "-i scene:still-life --preview-size 7x7");
    const std::tuple<const char*, const char*, const char*, int> cases[] = {
        {"POST", "/api/mode", "{\"mode\": \"nosuch\"}", 409},
        {"POST", "/api/mode", "{\"mode\": [1]}", 409},
        {"POST", "/api/mode", "[]", 400},
        {"POST", "/api/mode", "{\"mode\": \"single\"", 400},
        {"POST", "/api/command", "{\"name\": \"NOSUCH\"}", 409},
        {"POST", "/api/command", "{\"code\": 1002}", 409},
        {"POST", "/api/command", "{\"code\": 1019, \"arg1\": \"x\"}", 400},
        {"POST", "/api/command", "{\"code\": 4294968315}", 400},
        {"POST", "/api/command", "{\"code\": 1019, \"arg1\": 1.5}", 400},
        {"POST", "/api/parameters", "{\"preview-size\": \"7x7\"}", 409},
        {"POST", "/api/parameters", "{\"jpeg-quality\": \"90;preview-size=1x1\"}", 409},
        {"POST", "/api/source", "{\"scene\": \"../../etc/passwd\"}", 409},
        {"POST", "/api/source", "{\"scene\": \"landscape\", \"options\": {\"direction\": \"x&y\"}}", 409},
        {"POST", "/api/source", "{\"device\": \"/etc/passwd\"}", 409},
        {"POST", "/api/source", "{\"file\": 7}", 409},
        {"POST", "/api/source", "{}", 409},
        {"POST", "/api/frame", "no JPEG", 409},
        {"POST", "/api/files", "no picture", 409},
        {"POST", "/api/nosuch", "{}", 404},
        {"GET", "/nosuch", "", 404},
        {"GET", "/../../../../etc/passwd", "", 404},
        {"GET", "/%2e%2e/%2e%2e/etc/passwd", "", 404},
        {"GET", "/api/pictures/1/file", "", 404},
        {"GET", "/api/pictures/-1", "", 404},
        {"GET", "/api/events?type=NOSUCH&wait=60", "", 400},
        {"GET", "/api/events?after=-1", "", 400},
        {"DELETE", "/api/pictures/99999999999999999999", "", 404},
        {"DELETE", "/api/pictures", "", 405},
        {"PUT", "/api/state", "", 405},
        {"GET", "/api/mode", "", 405},
    };
    for (const auto& [method, path, body, status] : cases) {
        const Answer answer = camera.ask(method, path, body);
        EXPECT_EQ(answer.status, status) << path << " " << body << " " << answer.body;
        EXPECT_FALSE(answer.json().value("error", "").empty()) << answer.body;
    }
    EXPECT_EQ(camera.ask("POST", "/api/picture", "{}", "text/plain").status, 415);
    const std::string post = "POST /api/picture HTTP/1.1\r\n" + camera.host() + "Content-Type: application/json\r\n";
    EXPECT_EQ(camera.raw(post + "Content-Length: 99999999\r\n\r\n").status, 413);
    EXPECT_EQ(camera.raw(post + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n").status, 411);
    EXPECT_EQ(camera.raw("no request\r\n\r\n").status, 400);
    EXPECT_EQ(camera.raw("GET / HTTP/1.1\r\nX: " + std::string(20000, 'x') + "\r\n\r\n").status, 431);
    EXPECT_EQ(camera.raw("GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n").status, 421);
    const Answer page = camera.get("/");
    EXPECT_EQ(page.status, 200);
    const Answer head = camera.ask("HEAD", "/");
    EXPECT_NE(head.head.find("Content-Length: " + std::to_string(page.body.size())), std::string::npos) << head.head;
    EXPECT_EQ(head.body, "");
    EXPECT_NE(page.head.find("Content-Security-Policy: default-src 'none'; script-src 'self'"), std::string::npos);
    EXPECT_EQ(page.body.find("<script>"), std::string::npos);
    EXPECT_EQ(camera.state()["source"]["text"], "scene:still-life") << "the source of before";
    EXPECT_TRUE(camera.shows());
    EXPECT_TRUE(fs::is_empty(folder / "out"));
}

TEST_F(ServeTest, GoesOnWhenAClientVanishesInABurst) {
    Serve camera(folder, "-i scene:still-life --mode continuous");
    {
        Live page(camera);
        ASSERT_GT(page.client, 0);
        const Json burst = {{"name", "CONTINUOUS_SHOT_START_CAPTURE"},
                            {"client", page.client},
                            {"ifLost", "CONTINUOUS_SHOT_STOP_CAPTURE"}};
        EXPECT_EQ(camera.post("/api/command", burst.dump()).status, 200);
        EXPECT_FALSE(camera.events("CONTINUOUS_FRAME_TAKEN").empty());
    }
    EXPECT_FALSE(camera.events("CONTINUOUS_DELIVERED").empty());
    EXPECT_FALSE(camera.events("image/jpeg").empty());
    camera.signal(SIGTERM);
    EXPECT_EQ(camera.end(), 0);
}

// Half of the viewers take one frame and read no more; the others see the camera's rate, and nothing piles up.
TEST_F(ServeTest, SlowViewersSlowNobody) {
    Serve camera(folder, "-i scene:still-life --connections 40");
    std::vector<std::unique_ptr<Wire>> sleepers;
    for (int i = 0; i < 10; ++i) {
        sleepers.push_back(std::make_unique<Wire>(camera.port()));
        sleepers.back()->send("GET /preview.mjpeg HTTP/1.1\r\n" + camera.host() + "\r\n");
        auto page = std::make_unique<Live>(camera);
        page->say("{\"ready\": 4, \"everything\": true}");
        sleepers.push_back(std::move(page));
    }
    Wire viewer(camera.port());
    viewer.send("GET /preview.mjpeg HTTP/1.1\r\n" + camera.host() + "\r\n");
    const auto look = [&](int count) {
        for (int i = 0; i < count; ++i)
            viewer.readTo("Content-Length");
    };
    look(60);
    const int64_t before = camera.residentBytes();
    look(kSanitized ? 60 : 300);
    EXPECT_LT(camera.residentBytes() - before, (kSanitized ? 300 : 24) << 20);
    EXPECT_EQ(camera.get("/api/state").status, 200);
    std::vector<std::unique_ptr<Wire>> crowd;
    for (int i = 0; i < 40; ++i)
        crowd.push_back(std::make_unique<Wire>(camera.port()));
    crowd.clear();
    EXPECT_TRUE(camera.waitFor([&] { return camera.get("/api/state").status == 200; })) << "there is room again";
}

TEST_F(ServeTest, SwitchesModesAndSourcesWhileFramesFlow) {
    Serve camera(folder, "-i scene:still-life");
    const Json modes = camera.get("/api").json()["modes"];
    ASSERT_FALSE(modes.empty());
    const int switches = kSanitized ? 16 : 200;
    for (int i = 0; i < switches; ++i)
        ASSERT_EQ(camera.post("/api/mode", Json{{"mode", modes[i % modes.size()]["name"]}}.dump()).status, 200);
    EXPECT_TRUE(camera.shows());
    EXPECT_EQ(camera.post("/api/parameters", "{\"preview-size\": \"320x240\"}").json()["preview-size"], "320x240");
    EXPECT_EQ(camera.post("/api/source", "{\"scene\": \"portrait\"}").status, 200);
    const Json state = camera.state();
    EXPECT_FALSE(state.value("smileEngine", "").empty()) << "the smile mode was among them";
    EXPECT_EQ(state["source"]["name"], "portrait");
    EXPECT_EQ(state["modeName"], modes[(switches - 1) % modes.size()]["name"]);
    EXPECT_EQ(state["parameters"]["preview-size"], "320x240") << "what was chosen stays";
}

TEST_F(ServeTest, SaysWhenThereIsNoRoomOnTheDisk) {
    Serve camera(folder, "-i scene:still-life --picture-size 640x480", kov::test::fullDisk(folder / "out"));
    const int64_t last = camera.state().value("last", int64_t{0});
    EXPECT_EQ(camera.post("/api/picture", "{}").status, 200);
    EXPECT_FALSE(camera.events("COMPRESSED_IMAGE").empty());
    EXPECT_TRUE(camera.waitFor([&] {
        return camera.get("/api/events?after=" + std::to_string(last)).body.find("could not be saved") !=
               std::string::npos;
    }));
    EXPECT_TRUE(fs::is_empty(folder / "out")) << "no cut file is left";
    EXPECT_TRUE(camera.waitFor([&] { return !camera.state()["takingPicture"].get<bool>(); }));
    EXPECT_TRUE(camera.shows());
}

}  // namespace
