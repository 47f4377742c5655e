// The interface of the camera on the web: what each path does. docs/camera-http.md tells of them all.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/Lane.h"
#include "tools/kovcam/live/Camera.h"
#include "tools/kovcam/live/Guard.h"
#include "tools/kovcam/live/Http.h"
#include "tools/kovcam/live/Uploads.h"

namespace kov::live {

/// Answers requests and keeps the web sockets. Its members belong to the server's thread; operations of the camera run
/// on lanes of their own, so that no request waits for another's but those that use the camera.
class Api : public Handler {
public:
    struct Options {
        Camera::Options camera;
        std::string source;  // the one of the command line, which is opened first
    };

    explicit Api(Options options);
    ~Api() override;

    /// Serves with this server from now on, and opens the source. Errors of the source are shown on the page.
    void begin(Server& server, Guard guard);
    /// Ends the camera in order, then the server.
    void end();
    /// What could not be written at the end, or empty.
    const std::string& failure() const { return mFailure; }

    std::optional<Response> refuse(const Request& head) override;
    uint64_t mostBytes(const Request& head) override;
    void handle(Request request, Reply reply) override;
    void opened(std::shared_ptr<Socket> socket, const Request& request) override;
    std::vector<std::pair<std::string, std::string>> usualHeaders() const override;

private:
    using Json = nlohmann::ordered_json;
    struct Client {
        std::shared_ptr<Socket> socket;
        bool everything = false;  // wants all lines, not the story alone
        int pushing = 0;          // frames of its own camera that are on their way in
    };
    struct Waiter {
        uint64_t after;    // the last event that was looked at
        std::string type;  // of the message that is waited for; empty: anything of the story
        int64_t deadlineUs;
        Reply reply;
    };
    using Operation = Json (Api::*)(const Json& body);
    static const std::map<std::string_view, Operation> kOperations;  // by the path that they are posted to

    void handlePost(const Request& request, const Reply& reply);
    void handlePictures(const Request& request, const Reply& reply);
    void handleEvents(const Request& request, const Reply& reply);
    void upload(Request request, const Reply& reply);
    /// Runs an operation of the camera on a lane and answers with what it returned, or why it failed.
    void work(Lane& lane, const Reply& reply, std::function<Json()> operation);

    // Operations, on the camera's lane. They throw kov::cam::Error and Json exceptions.
    Json selectMode(const Json& body);
    Json command(const Json& body);
    Json takePicture(const Json& body);
    Json focus(const Json& body);
    Json preview(const Json& body);
    Json parameters(const Json& body);
    Json recording(const Json& body);
    Json source(const Json& body);

    void fromClient(int id, const std::string& text);
    void frameFromClient(int id, const std::string& jpeg);
    void clientGone(int id);
    void sendAll(const Json& message);
    /// Sends what is new: lines, the state.
    void flush();
    void answerWaiters();
    Json description() const;  // what never changes while we run
    Json state() const;
    Json pictures() const;

    const Options mOptions;
    Server* mServer = nullptr;
    std::optional<Guard> mGuard;
    Uploads mUploads;
    std::string mFailure;
    std::map<int, Client> mClients;
    int mLastClient = 0;
    std::vector<Waiter> mWaiters;
    uint64_t mSentLine = 0;
    uint64_t mSentRevision = 0;
    bool mEnding = false;
    std::atomic<int> mPusher{0};  // the client whose camera is the source

    std::unique_ptr<Camera> mCamera;
    std::unique_ptr<Lane> mCameraLane;  // operations, one after another
    std::unique_ptr<Lane> mAtOnceLane;  // commands that do not wait for those
    std::unique_ptr<Lane> mPushLane;    // frames of clients
};

}  // namespace kov::live
