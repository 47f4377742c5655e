// The interface of the camera on the web: what each path does. docs/camera-http.md tells of them all.

#include "tools/kovcam/live/Api.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "shots/Commands.h"
#include "tools/kovcam/live/WebFiles.h"
#include "tools/session/Names.h"
#include "tools/session/Sources.h"

namespace kov::live {

namespace fs = std::filesystem;
using cam::Error;

namespace {

constexpr uint64_t kMostJson = 64 << 10;
constexpr uint64_t kMostFrame = 2 << 20;
constexpr uint64_t kMostUpload = 64 << 20;
constexpr size_t kMostLane = 32;
constexpr size_t kMostWaiters = 32;
constexpr int kMostPushing = 3;
constexpr int kFlushMs = 20;
constexpr int64_t kLongestWait = 60;  // seconds

constexpr std::string_view kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; media-src 'self' blob:; "
    "connect-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// Texts of clients that become part of a source's text.
bool isPlain(const std::string& text) {
    return !text.empty() && text.size() <= 40 && std::ranges::all_of(text, [](unsigned char c) {
        return std::isalnum(c) || c == '-' || c == '.' || c == '_';
    });
}

/// A number in an address; -1 for anything else.
int64_t numberIn(std::string_view text) {
    int64_t number = -1;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && number >= 0 ? number : -1;
}

/// A body, or a query, that is not what the path takes.
class WrongRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

int32_t whole(const nlohmann::ordered_json& value) {
    if (!value.is_number_integer() || value < INT32_MIN || value > INT32_MAX)
        throw WrongRequest(value.dump() + " is no whole number of 32 bits");
    return value.get<int32_t>();
}

/// A member that may be left out, which means 0.
int32_t whole(const nlohmann::ordered_json& body, const char* member) {
    return body.contains(member) ? whole(body[member]) : 0;
}

/// A code that a client gives as a number or by its name.
int32_t codeOf(const nlohmann::ordered_json& value) {
    if (value.is_number())
        return whole(value);
    const auto name = value.get<std::string>();
    if (const auto code = cam::commandCode(name))
        return *code;
    throw Error("there is no command \"" + name + "\"; /api names them all");
}

std::string number(const nlohmann::ordered_json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

/// As text. Names of files and devices may be in any encoding.
std::string written(const nlohmann::ordered_json& what) {
    return what.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

nlohmann::ordered_json devices() {
    auto list = nlohmann::ordered_json::array();
    std::error_code ignored;
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator("/dev", ignored)) {
        if (entry.path().filename().string().starts_with("video"))
            found.push_back(entry.path());
    }
    std::ranges::sort(found);
    for (const fs::path& path : found) {
        std::string name;
        std::getline(std::ifstream("/sys/class/video4linux" / path.filename() / "name"), name);
        list.push_back({{"path", path.string()}, {"name", name.empty() ? path.filename().string() : name}});
    }
    return list;
}

nlohmann::ordered_json scenes() {
    auto list = nlohmann::ordered_json::array();
    for (const cam::Scene& scene : cam::scenes()) {
        nlohmann::ordered_json options = nlohmann::ordered_json::object();
        std::string_view rest = scene.options;
        while (!rest.empty()) {
            const std::string_view pair = rest.substr(0, rest.find(','));
            rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
            const size_t begin = std::min(pair.find_first_not_of(' '), pair.size());
            const size_t equals = std::min(pair.find('='), pair.size());
            const size_t end = std::min(pair.find(' ', equals), pair.size());
            options[std::string(pair.substr(begin, equals - begin))] =
                equals < end ? std::string(pair.substr(equals + 1, end - equals - 1)) : std::string();
        }
        std::string name = scene.name;
        if (name.starts_with("scene:"))
            name.erase(0, 6);
        list.push_back({{"name", name}, {"summary", scene.summary}, {"options", options}});
    }
    return list;
}

}  // namespace

Api::Api(Options options) : mOptions(std::move(options)) {}
Api::~Api() {
    mCameraLane.reset();
    mAtOnceLane.reset();
    mPushLane.reset();
}

void Api::begin(Server& server, Guard guard) {
    mServer = &server;
    mGuard.emplace(std::move(guard));
    mCameraLane = std::make_unique<Lane>(kMostLane);
    mAtOnceLane = std::make_unique<Lane>(kMostLane);
    mPushLane = std::make_unique<Lane>(kMostLane);
    Camera::Hooks hooks;
    hooks.wanted = [&server] { return server.viewers() > 0; };
    hooks.show = [&server](LiveFramePtr frame) { server.show(std::move(frame)); };
    hooks.added = [this](Album::ItemPtr item) {
        mServer->post([this, item = std::move(item)] { sendAll({{"picture", item->json()}}); });
    };
    hooks.removed = [this](int id) { mServer->post([this, id] { sendAll({{"removed", id}}); }); };
    hooks.later = [this](std::function<void()> operation) {
        mCameraLane->add([this, operation = std::move(operation)] {
            try {
                operation();
            } catch (const Error& error) {
                mCamera->tell(error.what());
            }
        });
    };
    mCamera = std::make_unique<Camera>(mOptions.camera, std::move(hooks));
    mServer->every(kFlushMs, [this] { flush(); });
    mServer->every(1000, [this] { mCamera->tick(); });
    mCameraLane->add([this] {
        try {
            source({{"given", true}});
        } catch (const Error& error) {
            mCamera->tell(error.what());
        }
    });
}

void Api::end() {
    if (std::exchange(mEnding, true))
        return;
    mCameraLane->add([this] {
        try {
            mCamera->finish();
        } catch (const Error& error) {
            mFailure = error.what();
        }
        mUploads.clear();
        mServer->stop();
    });
}

// --- Requests

std::optional<Response> Api::refuse(const Request& head) {
    const bool page = head.method == "GET" &&
                      std::ranges::any_of(webFiles(), [&](const WebFile& file) { return file.path == head.path; });
    if (auto refusal = mGuard->refuse(head, page))
        return refusal;
    if (mEnding)
        return problem(503, "the camera is being switched off");
    return std::nullopt;
}

uint64_t Api::mostBytes(const Request& head) {
    if (head.method != "POST")
        return 0;
    if (head.path == "/api/files")
        return kMostUpload;
    return head.path == "/api/frame" ? kMostFrame : kMostJson;
}

std::vector<std::pair<std::string, std::string>> Api::usualHeaders() const {
    std::vector<std::pair<std::string, std::string>> headers = {{"Content-Security-Policy", std::string(kPolicy)},
                                                                {"X-Content-Type-Options", "nosniff"},
                                                                {"Referrer-Policy", "no-referrer"},
                                                                {"Cross-Origin-Resource-Policy", "same-origin"},
                                                                {"Permissions-Policy", "camera=(self), microphone=()"},
                                                                {"Cache-Control", "no-store"}};
    if (mGuard->isTrusted())  // others are told in vain, and say so on their console
        headers.emplace_back("Cross-Origin-Opener-Policy", "same-origin");
    return headers;
}

void Api::handle(Request request, Reply reply) {
    const std::string& path = request.path;
    if (request.method == "POST")
        return path == "/api/files" ? upload(std::move(request), reply) : handlePost(request, reply);
    if (path.starts_with("/api/pictures"))
        return handlePictures(request, reply);
    if (path == "/api/files" || path == "/api/frame" || kOperations.contains(path))
        return reply(problem(405, "this path takes POST only"));
    if (request.method != "GET")
        return reply(problem(405, "this path takes GET only"));
    if (path == "/preview.jpg" || path == "/preview.mjpeg") {
        Response response;
        response.live = path == "/preview.jpg" ? Response::Live::Frame : Response::Live::Stream;
        response.type = path == "/preview.jpg" ? "image/jpeg" : kMovingType;
        return reply(response);
    }
    if (path == "/api")
        return reply(json(200, written(description())));
    if (path == "/api/state")
        return reply(json(200, written(state())));
    if (path == "/api/events")
        return handleEvents(request, reply);
    if (path == "/api/trace") {
        Response response = json(200, mCamera->journal().trace());
        response.type = "application/x-ndjson";
        response.headers = {{"Content-Disposition", "attachment; filename=\"trace.jsonl\""}};
        return reply(response);
    }
    for (const WebFile& file : webFiles()) {
        if (file.path != path)
            continue;
        Response response = json(200, std::string(file.bytes));
        response.type = std::string(file.type) + (file.type.starts_with("text/") ? "; charset=utf-8" : "");
        if (const auto cookie = mGuard->cookieFor(request))
            response.headers.emplace_back("Set-Cookie", *cookie);
        return reply(response);
    }
    reply(problem(404, "there is nothing at this path; docs/camera-http.md names those that are"));
}

void Api::work(Lane& lane, const Reply& reply, std::function<Json()> operation) {
    const bool added = lane.offer([reply, operation = std::move(operation)] {
        try {
            reply(json(200, written(operation())));
        } catch (const Error& error) {
            reply(problem(409, error.what()));
        } catch (const WrongRequest& error) {
            reply(problem(400, error.what()));
        } catch (const Json::exception&) {
            reply(problem(400, "the body has not the members that this path takes; docs/camera-http.md tells of them"));
        }
    });
    if (!added)
        reply(problem(503, "too much is waiting for the camera already; try again in a moment"));
}

const std::map<std::string_view, Api::Operation> Api::kOperations = {
    {"/api/mode", &Api::selectMode},     {"/api/command", &Api::command}, {"/api/picture", &Api::takePicture},
    {"/api/focus", &Api::focus},         {"/api/preview", &Api::preview}, {"/api/parameters", &Api::parameters},
    {"/api/recording", &Api::recording}, {"/api/source", &Api::source},
};

void Api::handlePost(const Request& request, const Reply& reply) {
    if (request.path == "/api/frame")
        return work(*mPushLane, reply, [this, jpeg = request.body] {
            if (mPusher != 0)
                throw Error("the source is the webcam of a browser; choose \"push\" without a client");
            mCamera->pushJpeg(jpeg);
            return Json::object();
        });
    const auto found = kOperations.find(request.path);
    if (found == kOperations.end())
        return reply(problem(404, "there is nothing to do at this path; docs/camera-http.md names those that are"));
    if (!request.contentType.starts_with("application/json"))
        return reply(problem(415, "the body must be JSON, with Content-Type: application/json"));
    const Json body = Json::parse(request.body.empty() ? "{}" : request.body, nullptr, false);
    if (!body.is_object())
        return reply(problem(400, "the body must be one JSON object"));
    const bool atOnce = body.contains("now") && body["now"] == true && found->second == &Api::command;
    work(atOnce ? *mAtOnceLane : *mCameraLane, reply,
         [this, body, operation = found->second] { return (this->*operation)(body); });
}

void Api::handlePictures(const Request& request, const Reply& reply) {
    std::string_view rest = std::string_view(request.path).substr(std::string_view("/api/pictures").size());
    if (rest.empty())
        return request.method == "GET" ? reply(json(200, written(pictures())))
                                       : reply(problem(405, "this path takes GET only"));
    rest.remove_prefix(1);
    const size_t slash = std::min(rest.find('/'), rest.size());
    const std::string_view part = rest.substr(std::min(rest.size(), slash + 1));
    const auto item = mCamera->album().find(numberIn(rest.substr(0, slash)));
    if (!item)
        return reply(problem(404, "there is no such picture; it may have been deleted"));
    Response response = json(200, "{}");
    if (request.method == "DELETE" && part.empty()) {
        mCamera->album().remove(item->id);
    } else if (request.method != "GET") {
        response = problem(405, "pictures are read with GET and deleted with DELETE");
    } else if (part.empty()) {
        response = json(200, written(item->json()));
    } else if (part == "thumbnail" && item->thumbnail) {
        response.type = "image/jpeg";
        response.body = item->thumbnail;
        response.headers = {{"Cache-Control", "private, max-age=31536000, immutable"}};
    } else if (part == "file") {
        response.type = item->type;
        response.file = mCamera->album().path(item->file);
        response.headers = {{"Content-Disposition", (request.query.contains("download") ? "attachment" : "inline") +
                                                        ("; filename=\"" + item->file) + "\""}};
    } else {
        response = problem(404, "a picture has /file and /thumbnail");
    }
    reply(response);
}

void Api::upload(Request request, const Reply& reply) {
    work(*mPushLane, reply, [this, bytes = std::move(request.body), name = request.query["name"]] {
        const int id = mUploads.add(bytes, name);
        return Json{{"id", id}, {"name", mUploads.find(id)->name}, {"still", mUploads.find(id)->still}};
    });
}

// --- Operations, on the camera's lane

Api::Json Api::selectMode(const Json& body) {
    const Json& mode = body.at("mode");
    int32_t code = -1;
    for (const android::KovMode& known : android::kKovModes) {
        if (mode.is_string() ? mode == known.name : mode == known.code)
            code = known.code;
    }
    if (code < 0)
        throw Error("there is no mode " + number(mode) + "; /api names them all");
    mCamera->selectMode(code);
    return Json::object();
}

Api::Json Api::command(const Json& body) {
    const int32_t code = codeOf(body.at(body.contains("code") ? "code" : "name"));
    if (code >= android::KOV_MODE_FIRST && code <= android::KOV_MODE_LAST)
        throw Error("modes are chosen at /api/mode");
    const int32_t ifLost = body.contains("ifLost") ? codeOf(body["ifLost"]) : 0;
    return {{"status",
             mCamera->sendCommand(code, whole(body, "arg1"), whole(body, "arg2"), whole(body, "client"), ifLost)}};
}

Api::Json Api::takePicture(const Json&) {
    mCamera->takePicture();
    return Json::object();
}

Api::Json Api::focus(const Json&) {
    mCamera->focus();
    return Json::object();
}

Api::Json Api::preview(const Json& body) {
    mCamera->setPreview(body.at("on").get<bool>());
    return Json::object();
}

Api::Json Api::parameters(const Json& body) {
    std::map<std::string, std::string> values;
    for (const auto& [key, value] : body.items()) {
        const std::string text = number(value);
        if (!isPlain(key) || text.empty() || text.size() > 200 || text.find_first_of(";=\r\n") != std::string::npos)
            throw Error("\"" + key + "\" cannot be a parameter with this value");
        values[key] = text;
    }
    mCamera->setParameters(values);
    return state().at("parameters");
}

Api::Json Api::recording(const Json& body) {
    mCamera->setRecording(body.at("on").get<bool>());
    return Json::object();
}

Api::Json Api::source(const Json& body) {
    std::string text;
    Json what;
    std::string options;
    const auto addOption = [&](const std::string& name, const Json& value) {
        if (!isPlain(name) || !isPlain(number(value)))
            throw Error("\"" + name + "\" cannot be an option with this value");
        options += (options.empty() ? "?" : "&") + name + "=" + number(value);
    };
    if (body.contains("options")) {
        for (const auto& [name, value] : body["options"].items())
            addOption(name, value);
    }
    int pusher = 0;
    if (body.contains("scene")) {
        const auto name = body["scene"].get<std::string>();
        if (!isPlain(name))
            throw Error("there is no such scene; /api names them all");
        text = "scene:" + name + options;
        what = {{"kind", "scene"}, {"name", name}, {"options", body.value("options", Json::object())}};
    } else if (body.contains("device")) {
        const auto device = body["device"].get<std::string>();
        const Json all = devices();
        if (std::ranges::none_of(all, [&](const Json& known) { return known["path"] == device; }))
            throw Error("there is no camera " + device + "; plug it in, or choose another");
        text = device;
        what = {{"kind", "device"}, {"name", device}};
    } else if (body.contains("file")) {
        const auto file = mUploads.find(whole(body["file"]));
        if (!file)
            throw Error("this file is not here any more; give it again");
        text = file->path + (file->still ? options : "");
        what = {{"kind", "file"}, {"file", body["file"]}, {"name", file->name}};
        if (file->still)
            what["options"] = body.value("options", Json::object());
    } else if (body.value("push", false)) {
        text = "push:";
        pusher = whole(body, "client");
        what = {{"kind", "push"}, {"name", pusher ? "a browser's webcam" : "pushed frames"}, {"client", pusher}};
    } else if (body.value("given", false)) {
        text = mOptions.source;
        what = {{"kind", "given"}, {"name", text}};
    } else {
        throw Error("name a source: scene, device, file, push or given");
    }
    what["text"] = what["kind"] == "file" ? what["name"] : Json(text);
    const int before = mPusher.exchange(pusher);  // opening may wait for the first frame
    try {
        mCamera->open(text, what);
    } catch (const Error&) {
        mPusher = before;
        throw;
    }
    return Json::object();
}

// --- Events

void Api::handleEvents(const Request& request, const Reply& reply) {
    const auto text = [&](const char* key) {
        const auto found = request.query.find(key);
        return found == request.query.end() ? std::string() : found->second;
    };
    const auto number = [&](const char* key) { return text(key).empty() ? int64_t{0} : numberIn(text(key)); };
    const int64_t after = number("after");
    const int64_t seconds = number("wait");
    if (after < 0 || seconds < 0)
        return reply(problem(400, "after and wait are whole numbers: of an event, and of seconds"));
    Waiter waiter;
    waiter.after = static_cast<uint64_t>(after);
    waiter.type = text("type");
    if (const auto type = cam::messageType(waiter.type))
        waiter.type = cam::hex(*type);
    else if (!waiter.type.empty() && waiter.type.find('/') == std::string::npos && !waiter.type.starts_with("0x"))
        return reply(problem(400, "there is no message \"" + waiter.type + "\"; /api names them all"));
    waiter.deadlineUs = mCamera->journal().nowUs() + std::min(seconds, kLongestWait) * 1'000'000;
    waiter.reply = reply;
    if (mWaiters.size() >= kMostWaiters)
        return reply(problem(503, "too many are waiting for events already; try again in a moment"));
    mWaiters.push_back(std::move(waiter));
    flush();
}

void Api::answerWaiters() {
    const Journal& journal = mCamera->journal();
    for (Waiter& waiter : mWaiters) {
        std::string found;
        uint64_t last = journal.lastId();  // read first: what comes meanwhile is for the next who asks
        for (const Journal::LinePtr& line : journal.after(waiter.after)) {
            if (line->story && (waiter.type.empty() || line->type == waiter.type))
                found += (found.empty() ? "" : ",") + line->text;
            waiter.after = last = line->id;  // none is looked at twice
        }
        if (found.empty() && journal.nowUs() < waiter.deadlineUs)
            continue;
        waiter.reply(json(200, "{\"last\":" + std::to_string(last) + ",\"events\":[" + found + "]}"));
        waiter.reply = nullptr;
    }
    std::erase_if(mWaiters, [](const Waiter& waiter) { return !waiter.reply; });
}

// --- Web sockets

void Api::opened(std::shared_ptr<Socket> socket, const Request& request) {
    if (request.path != "/live")
        return socket->close("the web socket is at /live");
    const int id = ++mLastClient;
    socket->onText = [this, id](const std::string& text) { fromClient(id, text); };
    socket->onBinary = [this, id](const std::string& bytes) { frameFromClient(id, bytes); };
    socket->onClosed = [this, id] { clientGone(id); };
    flush();
    std::string story;
    for (const Journal::LinePtr& line : mCamera->journal().story()) {
        if (line->id <= mSentLine)  // later ones are sent to this client with the next flush
            story += (story.empty() ? "" : ",") + line->text;
    }
    mClients[id] = {socket};
    std::string hello =
        written({{"client", id}, {"about", description()}, {"state", state()}, {"pictures", pictures()}});
    hello.pop_back();
    socket->send(std::make_shared<std::string>(hello + ",\"story\":[" + story + "]}"));
}

void Api::fromClient(int id, const std::string& text) {
    const auto client = mClients.find(id);
    const Json message = Json::parse(text, nullptr, false);
    if (client == mClients.end() || !message.is_object())
        return;
    if (message.contains("everything"))
        client->second.everything = message["everything"] == true;
    // What is sent may end the client.
    const std::shared_ptr<Socket> socket = client->second.socket;
    if (message.contains("ready") && message["ready"].is_number_unsigned())
        socket->grant(message["ready"].get<unsigned>());
    if (message.contains("ping") && message["ping"].is_number())
        socket->send(
            std::make_shared<std::string>(written({{"pong", message["ping"]}, {"us", mCamera->journal().nowUs()}})));
}

void Api::frameFromClient(int id, const std::string& jpeg) {
    const auto client = mClients.find(id);
    if (client == mClients.end() || mPusher != id || client->second.pushing >= kMostPushing)
        return;
    ++client->second.pushing;
    const auto done = [this, id](const std::string& failure) {
        mServer->post([this, id, failure] {
            const auto found = mClients.find(id);
            if (found == mClients.end())
                return;
            --found->second.pushing;
            const Json answer = failure.empty() ? Json{{"pushed", true}} : Json{{"pushed", false}, {"error", failure}};
            found->second.socket->send(std::make_shared<std::string>(written(answer)));
        });
    };
    const bool added = mPushLane->offer([this, jpeg, done] {
        try {
            mCamera->pushJpeg(jpeg);
            done({});
        } catch (const Error& error) {
            done(error.what());
        }
    });
    if (!added)
        done("too many frames at once");
}

void Api::clientGone(int id) {
    mClients.erase(id);
    mCamera->clientLost(id);
    if (mPusher.compare_exchange_strong(id, 0))
        mCamera->tell("the browser that showed its webcam has gone; choose a source");
}

void Api::sendAll(const Json& message) {
    const auto text = std::make_shared<std::string>(written(message));
    for (const auto& [id, client] : std::map(mClients))
        client.socket->send(text);
}

void Api::flush() {
    if (const uint64_t revision = mCamera->revision(); revision != mSentRevision) {
        mSentRevision = revision;
        sendAll({{"state", state()}});
    }
    const auto lines = mCamera->journal().after(mSentLine);
    if (!lines.empty()) {
        mSentLine = lines.back()->id;
        std::string everything = "{\"events\":[";
        std::string story = everything;
        for (const Journal::LinePtr& line : lines) {
            everything += line->text + ",";
            if (line->story)
                story += line->text + ",";
        }
        const auto end = [](std::string& text) {
            text.back() = text.back() == ',' ? ']' : '[';
            text += text.back() == '[' ? "]}" : "}";
            return std::make_shared<std::string>(text);
        };
        const bool any = story.back() == ',';
        const Text all = end(everything);
        const Text part = end(story);
        for (const auto& [id, client] : std::map(mClients)) {
            if (client.everything || any)
                client.socket->send(client.everything ? all : part);
        }
    }
    answerWaiters();
}

// --- What is told

Api::Json Api::description() const {
    Json modes = Json::array();
    for (const android::KovMode& mode : android::kKovModes)
        modes.push_back({{"code", mode.code}, {"name", mode.name}, {"summary", mode.summary}});
    const auto named = [](const auto& table) {
        Json list = Json::array();
        for (const android::KovName& entry : table)
            list.push_back(
                {{"code", entry.value}, {"name", entry.name}, {"mode", entry.mode}, {"meaning", entry.meaning}});
        return list;
    };
    Json messages = named(android::kKovMessages);
    for (const cam::NamedCode& known : cam::allMessages()) {
        if (std::ranges::none_of(messages, [&](const Json& there) { return there["code"] == known.code; }))
            messages.push_back({{"code", known.code}, {"name", known.name}});
    }
    return {{"version", KOV_VERSION},
            {"modes", modes},
            {"commands", named(android::kKovCommands)},
            {"messages", messages},
            {"scenes", scenes()},
            {"devices", devices()},
            {"given", mOptions.source},
            {"folder", mOptions.camera.folder}};
}

Api::Json Api::state() const {
    Json all = mCamera->state();
    all["files"] = mUploads.json();
    all["last"] = mCamera->journal().lastId();
    return all;
}

Api::Json Api::pictures() const {
    Json list = Json::array();
    for (const Album::ItemPtr& item : mCamera->album().items())
        list.push_back(item->json());
    return list;
}

}  // namespace kov::live
