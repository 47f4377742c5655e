// A small web server: requests with JSON in and out, files, web sockets, and one moving picture for all who look.
//
// One thread, the one that calls `Server::run`, does all network work; nothing here waits. A client that reads slowly
// or not at all costs its own buffers only: of the moving picture it is sent the newest frame when it is ready for one,
// and its web socket is closed when more than `kMostWaiting` bytes of text wait for it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kov::live {

using Text = std::shared_ptr<const std::string>;

/// The type of the moving picture, and what stands between its frames.
constexpr const char* kMovingType = "multipart/x-mixed-replace; boundary=kovcam-frame";
constexpr const char* kBoundary = "kovcam-frame";

/// A request, or its head when the body has not been read yet. Header values are empty where there is none. A HEAD
/// comes as the GET that it asks about.
struct Request {
    std::string method;
    std::string path;  // as it was sent, without the query
    std::map<std::string, std::string> query;
    std::string host;
    std::string origin;
    std::string cookie;
    std::string authorization;
    std::string contentType;
    std::string fetchSite;  // Sec-Fetch-Site: where a browser's request came from
    std::string fetchMode;
    uint64_t length = 0;   // of the body that is announced
    bool upgrade = false;  // asks for a web socket
    std::string body;
};

struct Response {
    int status = 200;
    std::string type = "application/json";
    Text body;
    std::string file;  // sent instead of `body`; a path of our own making
    enum class Live { No, Frame, Stream };
    Live live = Live::No;  // instead of a body: the next frame as a JPEG, or all as multipart/x-mixed-replace
    std::vector<std::pair<std::string, std::string>> headers;
};

/// An answer with JSON text.
Response json(int status, std::string text);
/// An answer that says in one line what is wrong and what to do: {"error": "..."}.
Response problem(int status, const std::string& text);

/// One frame of the moving picture. `packet` is what a web socket gets: the head, little-endian, of 24 bytes (frame
/// number as uint32, width and height as uint16, microseconds of the session's clock at delivery and at the end of
/// encoding as uint64), then the JPEG.
struct LiveFrame {
    static constexpr size_t kHead = 24;
    std::string packet;

    std::string_view jpeg() const { return std::string_view(packet).substr(kHead); }
};
using LiveFramePtr = std::shared_ptr<const LiveFrame>;

/// One web socket. Its operations are called on the server's thread.
class Socket {
public:
    virtual ~Socket() = default;

    std::function<void(const std::string&)> onText;
    std::function<void(const std::string&)> onBinary;
    std::function<void()> onClosed;

    virtual void send(Text text) = 0;
    /// The client is ready for so many frames more.
    virtual void grant(unsigned frames) = 0;
    virtual void close(const std::string& reason) = 0;
};

/// What is served. Called on the server's thread; must not wait.
class Handler {
public:
    using Reply = std::function<void(Response)>;

    virtual ~Handler() = default;
    /// Looks at a head; a response here refuses the request unread.
    virtual std::optional<Response> refuse(const Request& head) = 0;
    /// The longest body that this request may have.
    virtual uint64_t mostBytes(const Request& head) = 0;
    /// Answers a request, now or later, from any thread, once.
    virtual void handle(Request request, Reply reply) = 0;
    /// A web socket has been opened; the handler keeps it until `onClosed`.
    virtual void opened(std::shared_ptr<Socket> socket, const Request& request) = 0;
    /// Headers of every answer.
    virtual std::vector<std::pair<std::string, std::string>> usualHeaders() const = 0;
};

struct ServerOptions {
    std::string address = "127.0.0.1";
    uint16_t port = 0;        // 0 takes any free one
    std::string certificate;  // PEM files; with both, https
    std::string key;
    unsigned mostConnections = 128;
    int headSeconds = 15;   // for a request to arrive
    int writeSeconds = 30;  // for a client to take what it is sent
};

class Server {
public:
    static constexpr size_t kMostWaiting = 4 << 20;

    /// Listens. Throws kov::cam::Error when the address cannot be had or the certificate not be read.
    Server(const ServerOptions& options, Handler& handler);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    uint16_t port() const;
    /// Serves until `stop`.
    void run();
    /// Does `work` on the server's thread. Any thread.
    void post(std::function<void()> work);
    /// Calls `work` on the server's thread every so often.
    void every(int milliseconds, std::function<void()> work);
    /// Shows a frame to all who look. Any thread.
    void show(LiveFramePtr frame);
    /// How many look. Any thread.
    unsigned viewers() const;
    /// Closes what is open and ends `run`. Any thread.
    void stop();

private:
    class Core;
    std::shared_ptr<Core> mCore;
};

/// `%41+b` as "A b".
std::string decoded(std::string_view text);
/// A time-constant comparison.
bool sameSecret(std::string_view a, std::string_view b);

}  // namespace kov::live
