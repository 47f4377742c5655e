// A small web server: requests with JSON in and out, files, web sockets, and one moving picture for all who look.

#include "tools/kovcam/live/Http.h"

#include <atomic>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <deque>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "tools/kovcam/live/Wire.h"
#include "tools/session/Error.h"

namespace kov::live {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using Tcp = asio::ip::tcp;
using kov::cam::Error;

namespace {

constexpr size_t kMostHeadBytes = 16 << 10;
constexpr size_t kMostSocketMessage = 2 << 20;  // of a client: a pushed frame
constexpr int kSendBuffer = 256 << 10;          // what the kernel may hold back of a moving picture
constexpr unsigned kMostGranted = 4;
constexpr int kFrameSeconds = 5;                        // the longest wait for one frame
constexpr uint64_t kMostBodies = 160 << 20;             // of all requests that are not answered yet
constexpr uint64_t kSlowestBytesPerSecond = 256 << 10;  // of a client that sends a body
constexpr const char* kGone = "the file is gone from the disk";

/// Who looks at the moving picture.
class Viewer {
public:
    virtual ~Viewer() = default;
    virtual void offer(const LiveFramePtr& frame) = 0;
    virtual void leave() = 0;
};

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::map<std::string, std::string> readQuery(std::string_view text) {
    std::map<std::string, std::string> query;
    while (!text.empty()) {
        const std::string_view pair = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(text.size(), pair.size() + 1));
        const size_t equals = pair.find('=');
        query[decoded(pair.substr(0, equals))] =
            equals == std::string_view::npos ? std::string() : decoded(pair.substr(equals + 1));
    }
    return query;
}

template <class Fields>
Request readHead(const http::request<http::string_body, Fields>& message) {
    const auto text = [&](auto field) {
        const beast::string_view value = message[field];
        return std::string(value.data(), value.size());
    };
    Request head;
    head.method = std::string(message.method_string());
    const std::string target(message.target());
    const size_t question = target.find('?');
    head.path = target.substr(0, question);
    if (question != std::string::npos)
        head.query = readQuery(std::string_view(target).substr(question + 1));
    head.host = text(http::field::host);
    head.origin = text(http::field::origin);
    head.cookie = text(http::field::cookie);
    head.authorization = text(http::field::authorization);
    head.contentType = text(http::field::content_type);
    head.fetchSite = text("Sec-Fetch-Site");
    head.fetchMode = text("Sec-Fetch-Mode");
    head.upgrade = websocket::is_upgrade(message);
    return head;
}

}  // namespace

std::string decoded(std::string_view text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            plain += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            plain += text[i] == '+' ? ' ' : text[i];
        }
    }
    return plain;
}

bool sameSecret(std::string_view a, std::string_view b) {
    unsigned char difference = a.size() == b.size() ? 0 : 1;
    for (size_t i = 0; i < a.size(); ++i)
        difference = static_cast<unsigned char>(difference | (a[i] ^ b[b.empty() ? 0 : i % b.size()]));
    return !b.empty() && difference == 0;
}

Response json(int status, std::string text) {
    Response response;
    response.status = status;
    response.body = std::make_shared<std::string>(std::move(text));
    return response;
}

Response problem(int status, const std::string& text) {
    using Json = nlohmann::ordered_json;
    return json(status, Json{{"error", text}}.dump(-1, ' ', false, Json::error_handler_t::replace));
}

// --- What the connections share

class Server::Core : public std::enable_shared_from_this<Core> {
public:
    Core(const ServerOptions& serverOptions, Handler& serverHandler);

    void accept();
    void stop();
    void show(const LiveFramePtr& frame) {
        newest = frame;
        for (Viewer* viewer : std::set<Viewer*>(viewers))
            viewer->offer(frame);
    }
    void join(Viewer* viewer) {
        viewers.insert(viewer);
        viewerCount = static_cast<unsigned>(viewers.size());
    }
    void leave(Viewer* viewer) {
        viewers.erase(viewer);
        viewerCount = static_cast<unsigned>(viewers.size());
        if (viewers.empty())
            newest = nullptr;  // nobody looks, so none is made: it would be old for the next who comes
    }

    const ServerOptions options;
    Handler& handler;
    asio::io_context io{1};
    Tcp::acceptor acceptor{io};
    std::optional<asio::ssl::context> tls;
    std::vector<std::unique_ptr<asio::steady_timer>> timers;
    std::set<Viewer*> viewers;
    std::atomic<unsigned> viewerCount{0};
    LiveFramePtr newest;
    unsigned connections = 0;
    uint64_t bodies = 0;  // bytes of requests that are not answered yet
    bool stopping = false;
};

namespace {

/// Counts one connection while it lives.
template <class Core>
class Counted {
public:
    explicit Counted(std::shared_ptr<Core> shared) : core(std::move(shared)) { ++core->connections; }
    ~Counted() { --core->connections; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    const std::shared_ptr<Core> core;
};

// --- A web socket

template <class Core>
class SocketConnection : public Socket, public Viewer, public std::enable_shared_from_this<SocketConnection<Core>> {
public:
    SocketConnection(std::shared_ptr<Counted<Core>> counted, Wire wire)
        : mCounted(std::move(counted)), mStream(std::move(wire)) {}

    void start(Request head, const http::request<http::string_body>& message) {
        mStream.next_layer().tcp().expires_never();
        websocket::stream_base::timeout timeout{std::chrono::seconds(core().options.headSeconds),
                                                std::chrono::seconds(core().options.writeSeconds), true};
        mStream.set_option(timeout);
        mStream.read_message_max(kMostSocketMessage);
        mStream.auto_fragment(false);
        mStream.async_accept(message, [self = this->shared_from_this(), head = std::move(head)](Failure failure) {
            if (failure)
                return;
            self->mOpen = true;
            self->core().join(self.get());
            self->core().handler.opened(self, head);
            self->read();
        });
    }

    void send(Text text) override {
        if (!mOpen)
            return;
        mWaitingBytes += text->size();
        mTexts.push_back(std::move(text));
        if (mWaitingBytes > Server::kMostWaiting)
            return drop();
        write();
    }

    void grant(unsigned frames) override {
        mGranted = std::min(mGranted + frames, kMostGranted);
        if (!mFrame && core().newest != mShown)
            mFrame = core().newest;
        write();
    }

    void offer(const LiveFramePtr& frame) override {
        mFrame = frame;
        write();
    }

    void close(const std::string& reason) override {
        if (!mOpen || mClosing)
            return;
        mClosing = true;
        mReason = reason.substr(0, 120);
        if (!mWriting)
            closeNow();
    }

    void leave() override { close("the camera is switched off"); }

private:
    Core& core() { return *mCounted->core; }

    void read() {
        mStream.async_read(mBuffer, Done([self = this->shared_from_this()](Failure failure, size_t) {
                               if (failure)
                                   return self->ended();
                               const std::string message = beast::buffers_to_string(self->mBuffer.data());
                               self->mBuffer.consume(self->mBuffer.size());
                               // A copy: what it does may end us, which forgets it.
                               const auto take = self->mStream.got_text() ? self->onText : self->onBinary;
                               if (take)
                                   take(message);
                               self->read();
                           }));
    }

    /// Texts go before frames: they are small, and what they tell comes before what is seen.
    void write() {
        if (mWriting || !mOpen || mClosing)
            return;
        if (!mTexts.empty()) {
            mSent = mTexts.front();
            mTexts.pop_front();
            mWaitingBytes -= mSent->size();
            mStream.text(true);
            return writeBytes(*mSent);
        }
        if (mFrame && mGranted > 0) {
            --mGranted;
            mShown = std::exchange(mFrame, nullptr);
            mStream.binary(true);
            writeBytes(mShown->packet);
        }
    }

    void writeBytes(const std::string& bytes) {
        mWriting = true;
        mStream.async_write(asio::buffer(bytes), Done([self = this->shared_from_this()](Failure failure, size_t) {
                                self->mWriting = false;
                                if (failure)
                                    return self->ended();
                                if (self->mClosing)
                                    return self->closeNow();
                                self->write();
                            }));
    }

    void closeNow() {
        mStream.async_close(websocket::close_reason(websocket::close_code::going_away, mReason),
                            [self = this->shared_from_this()](Failure) { self->ended(); });
    }

    /// A client that does not read what it asked for.
    void drop() {
        mStream.next_layer().close();
        ended();
    }

    void ended() {
        if (!mOpen)
            return;
        mOpen = false;
        core().leave(this);
        mTexts.clear();
        mFrame = nullptr;
        if (onClosed)
            onClosed();
        onText = onBinary = nullptr;
        onClosed = nullptr;
    }

    const std::shared_ptr<Counted<Core>> mCounted;
    websocket::stream<Wire, false> mStream;
    beast::flat_buffer mBuffer;
    std::deque<Text> mTexts;
    size_t mWaitingBytes = 0;
    Text mSent;
    LiveFramePtr mFrame;  // the next one to be sent
    LiveFramePtr mShown;  // the one that is being sent, or was sent last
    unsigned mGranted = 0;
    bool mOpen = false;
    bool mWriting = false;
    bool mClosing = false;
    std::string mReason;
};

// --- A connection of requests and answers

template <class Core>
class Connection : public Viewer, public std::enable_shared_from_this<Connection<Core>> {
public:
    Connection(std::shared_ptr<Counted<Core>> counted, Wire wire)
        : mCounted(std::move(counted)), mWire(std::move(wire)), mFrameTimer(core().io) {}
    ~Connection() override { core().bodies -= mCountedBody; }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void start() {
        setTimeout(core().options.headSeconds);
        mWire.shakeHands([self = this->shared_from_this()](Failure failure, size_t) {
            if (!failure)
                self->read();
        });
    }

    void offer(const LiveFramePtr& frame) override {
        mFrame = frame;
        if (mFrameWait)
            answerFrame(*std::exchange(mFrameWait, std::nullopt));
        else
            writeFrame();
    }

    void leave() override { mWire.close(); }

private:
    Core& core() { return *mCounted->core; }
    void setTimeout(int seconds) { mWire.tcp().expires_after(std::chrono::seconds(seconds)); }

    void read() {
        mHeadOnly = false;
        mParser.emplace();
        mParser->header_limit(kMostHeadBytes);
        mParser->body_limit(std::numeric_limits<uint64_t>::max());  // until the head tells what is asked for
        setTimeout(core().options.headSeconds);
        http::async_read_header(mWire, mBuffer, *mParser,
                                Done([self = this->shared_from_this()](Failure failure, size_t) {
                                    if (failure == http::error::end_of_stream)
                                        return self->finish();
                                    if (failure == http::error::header_limit)
                                        return self->refuse(problem(431, "the head of the request is too long"));
                                    if (!failure)
                                        return self->readBody();
                                    if (failure.category() == http::make_error_code(http::error::bad_method).category())
                                        self->refuse(problem(400, "this is no HTTP request"));
                                }));
    }

    void readBody() {
        mHead = readHead(mParser->get());
        const auto length = mParser->content_length();
        mHead.length = length ? *length : 0;
        mKeepAlive = mParser->get().keep_alive();
        mHeadOnly = mHead.method == "HEAD";
        if (mHeadOnly)
            mHead.method = "GET";
        if (auto refusal = core().handler.refuse(mHead))
            return refuse(std::move(*refusal));
        const uint64_t most = core().handler.mostBytes(mHead);
        if (mParser->chunked())
            return refuse(problem(411, "the length of the body must be stated"));
        if (mHead.length > most)
            return refuse(problem(413, "the body is too long; at most " + std::to_string(most) + " bytes are taken"));
        if (mHead.upgrade)
            return upgrade();
        if (core().bodies + mHead.length > kMostBodies)
            return refuse(problem(503, "too much is being sent to the camera at once; try again in a moment"));
        core().bodies += mHead.length;
        mCountedBody = mHead.length;
        mParser->body_limit(most);
        setTimeout(core().options.headSeconds + static_cast<int>(mHead.length / kSlowestBytesPerSecond));
        http::async_read(mWire, mBuffer, *mParser, Done([self = this->shared_from_this()](Failure failure, size_t) {
                             if (failure)
                                 return;
                             self->mHead.body = std::move(self->mParser->get().body());
                             self->answerLater();
                         }));
    }

    void answerLater() {
        // While the handler thinks no time is counted: a command may stitch for seconds.
        mWire.tcp().expires_never();
        core().handler.handle(std::move(mHead), [self = this->shared_from_this()](Response response) {
            asio::post(self->core().io,
                       [self, response = std::move(response)]() mutable { self->answer(std::move(response)); });
        });
    }

    void upgrade() {
        auto socket = std::make_shared<SocketConnection<Core>>(mCounted, std::move(mWire));
        socket->start(std::move(mHead), mParser->release());
    }

    void refuse(Response response) {
        mKeepAlive = false;
        answer(std::move(response));
    }

    template <class Body>
    void fill(http::response<Body>& message, const Response& response) {
        message.version(11);
        message.result(static_cast<unsigned>(response.status));
        message.set(http::field::content_type, response.type);
        for (const auto& [name, value] : core().handler.usualHeaders())
            message.set(name, value);
        for (const auto& [name, value] : response.headers)
            message.set(name, value);
        message.keep_alive(mKeepAlive);
    }

    void answer(Response response) {
        core().bodies -= std::exchange(mCountedBody, 0);
        setTimeout(core().options.writeSeconds);
        if (mHeadOnly)
            return answerHead(response);
        if (response.live == Response::Live::Stream)
            return beginMoving(response);
        if (response.live == Response::Live::Frame)
            return waitForFrame(std::move(response));
        if (!response.file.empty())
            return answerFile(response);
        mBody = response.body ? response.body : std::make_shared<std::string>();
        using Body = http::span_body<const char>;
        auto message = std::make_shared<http::response<Body>>();
        fill(*message, response);
        message->body() = beast::span<const char>(mBody->data(), mBody->size());
        message->content_length(mBody->size());
        write(message);
    }

    /// What a GET would be answered with, without its body.
    void answerHead(const Response& response) {
        auto message = std::make_shared<http::response<http::empty_body>>();
        fill(*message, response);
        std::error_code failure;
        if (response.live == Response::Live::No)
            message->content_length(response.file.empty() ? response.body ? response.body->size() : 0
                                                          : std::filesystem::file_size(response.file, failure));
        if (failure)
            return answer(problem(410, kGone));
        write(message);
    }

    void answerFile(const Response& response) {
        auto message = std::make_shared<http::response<http::file_body>>();
        Failure failure;
        message->body().open(response.file.c_str(), beast::file_mode::scan, failure);
        if (failure)
            return answer(problem(410, kGone));
        fill(*message, response);
        message->content_length(message->body().size());
        // A large file takes as long as it takes, as long as some of it is taken: the time starts anew with each part.
        auto serializer = std::make_shared<http::response_serializer<http::file_body>>(*message);
        writeParts(message, serializer);
    }

    template <class Message, class Serializer>
    void writeParts(std::shared_ptr<Message> message, std::shared_ptr<Serializer> serializer) {
        setTimeout(core().options.writeSeconds);
        http::async_write_some(mWire, *serializer,
                               [self = this->shared_from_this(), message, serializer](Failure failure, size_t) {
                                   if (failure)
                                       return;
                                   if (serializer->is_done())
                                       return self->next();
                                   self->writeParts(message, serializer);
                               });
    }

    template <class Message>
    void write(std::shared_ptr<Message> message) {
        http::async_write(mWire, *message, Done([self = this->shared_from_this(), message](Failure failure, size_t) {
                              if (!failure)
                                  self->next();
                          }));
    }

    void next() {
        if (mKeepAlive && !core().stopping)
            read();
        else
            finish();
    }

    /// Says goodbye so that the last answer arrives: what the client still sends is read away for a moment.
    void finish() {
        Failure ignored;
        mWire.tcp().socket().shutdown(Tcp::socket::shutdown_send, ignored);
        setTimeout(1);
        readAway(0);
    }

    void readAway(size_t read) {
        if (read > kMostHeadBytes * 64)
            return;
        auto bytes = std::make_shared<std::array<char, 4096>>();
        mWire.tcp().async_read_some(asio::buffer(*bytes),
                                    Done([self = this->shared_from_this(), bytes, read](Failure failure, size_t size) {
                                        if (!failure)
                                            self->readAway(read + size);
                                    }));
    }

    // --- The moving picture

    void waitForFrame(Response response) {
        mFrameWait = std::move(response);
        core().join(this);
        mFrameTimer.expires_after(std::chrono::seconds(kFrameSeconds));
        mFrameTimer.async_wait([self = this->shared_from_this()](Failure failure) {
            if (failure || !std::exchange(self->mFrameWait, std::nullopt))
                return;
            self->core().leave(self.get());
            self->answer(problem(503, "no preview frame comes; start the preview"));
        });
    }

    void answerFrame(Response response) {
        mFrameTimer.cancel();
        core().leave(this);
        const LiveFramePtr frame = std::exchange(mFrame, nullptr);
        const std::string_view jpeg = frame->jpeg();
        response.live = Response::Live::No;
        response.body = std::make_shared<std::string>(jpeg);
        answer(std::move(response));
    }

    void beginMoving(const Response& response) {
        Failure ignored;
        mWire.tcp().socket().set_option(asio::socket_base::send_buffer_size(kSendBuffer), ignored);
        mKeepAlive = false;
        auto message = std::make_shared<http::response<http::empty_body>>();
        fill(*message, response);
        auto serializer = std::make_shared<http::response_serializer<http::empty_body>>(*message);
        mWriting = true;
        http::async_write_header(mWire, *serializer,
                                 [self = this->shared_from_this(), message, serializer](Failure failure, size_t) {
                                     self->mWriting = false;
                                     if (failure)
                                         return;
                                     self->core().join(self.get());
                                     self->mMoving = true;
                                     self->mFrame = self->core().newest;
                                     self->writeFrame();
                                     self->watch();
                                 });
    }

    void writeFrame() {
        if (mWriting || !mMoving || !mFrame)
            return;
        mWriting = true;
        mShown = std::exchange(mFrame, nullptr);
        const std::string_view jpeg = mShown->jpeg();
        mPart = std::string("--") + kBoundary +
                "\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()) + "\r\n\r\n";
        setTimeout(core().options.writeSeconds);
        const std::array<asio::const_buffer, 3> buffers = {asio::buffer(mPart), asio::buffer(jpeg.data(), jpeg.size()),
                                                           asio::buffer("\r\n", 2)};
        asio::async_write(mWire, buffers, Done([self = this->shared_from_this()](Failure failure, size_t) {
                              self->mWriting = false;
                              if (failure)
                                  return self->left();
                              self->writeFrame();
                          }));
    }

    /// Notices a client that goes away between two frames.
    void watch() {
        mWire.tcp().expires_never();  // a viewer has nothing to say
        mWire.async_read_some(mBuffer.prepare(1024), Done([self = this->shared_from_this()](Failure failure, size_t) {
                                  if (failure)
                                      return self->left();
                                  self->watch();
                              }));
    }

    void left() {
        if (!mMoving)
            return;
        mMoving = false;
        core().leave(this);
        leave();
    }

    const std::shared_ptr<Counted<Core>> mCounted;
    Wire mWire;
    beast::flat_buffer mBuffer;
    std::optional<http::request_parser<http::string_body>> mParser;
    Request mHead;
    bool mKeepAlive = false;
    bool mHeadOnly = false;
    uint64_t mCountedBody = 0;
    Text mBody;
    LiveFramePtr mFrame;
    LiveFramePtr mShown;
    std::optional<Response> mFrameWait;
    asio::steady_timer mFrameTimer;
    std::string mPart;
    bool mMoving = false;
    bool mWriting = false;
};

void waitForTime(asio::steady_timer& timer, std::chrono::milliseconds time, std::function<void()> work) {
    timer.expires_after(time);
    timer.async_wait([&timer, time, work = std::move(work)](Failure failure) {
        if (failure)
            return;
        work();
        waitForTime(timer, time, work);
    });
}

}  // namespace

// --- The server

Server::Core::Core(const ServerOptions& serverOptions, Handler& serverHandler)
    : options(serverOptions), handler(serverHandler) {
    Failure failure;
    const auto address = asio::ip::make_address(options.address, failure);
    if (failure)
        throw Error("\"" + options.address + "\" is no address; write it as 127.0.0.1, 0.0.0.0 or ::1");
    if (!options.certificate.empty()) {
        tls.emplace(asio::ssl::context::tls_server);
        tls->set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_tlsv1 |
                         asio::ssl::context::no_tlsv1_1);
        tls->use_certificate_chain_file(options.certificate, failure);
        if (failure)
            throw Error("the certificate " + options.certificate + " cannot be read: " + failure.message());
        tls->use_private_key_file(options.key, asio::ssl::context::pem, failure);
        if (failure)
            throw Error("the key " + options.key +
                        " cannot be read or is not that of the certificate: " + failure.message());
    }
    const Tcp::endpoint endpoint(address, options.port);
    acceptor.open(endpoint.protocol(), failure);
    if (!failure)
        acceptor.set_option(asio::socket_base::reuse_address(true), failure);
    if (!failure)
        acceptor.bind(endpoint, failure);
    if (!failure)
        acceptor.listen(asio::socket_base::max_listen_connections, failure);
    if (failure)
        throw Error("cannot listen on " + options.address + " port " + std::to_string(options.port) + ": " +
                    failure.message() + "; choose another with --port");
}

void Server::Core::accept() {
    acceptor.async_accept([self = shared_from_this()](Failure failure, Tcp::socket socket) {
        if (failure == asio::error::operation_aborted)
            return;
        if (failure) {  // out of file descriptors, say: go on when there are some again
            auto pause = std::make_shared<asio::steady_timer>(self->io, std::chrono::milliseconds(100));
            return pause->async_wait([self, pause](Failure) { self->accept(); });
        }
        if (self->connections < self->options.mostConnections) {
            socket.set_option(Tcp::no_delay(true), failure);
            auto counted = std::make_shared<Counted<Core>>(self);
            Wire wire(std::move(socket), self->tls ? &*self->tls : nullptr);
            std::make_shared<Connection<Core>>(std::move(counted), std::move(wire))->start();
        }
        self->accept();
    });
}

void Server::Core::stop() {
    if (stopping)
        return;
    stopping = true;
    Failure ignored;
    acceptor.close(ignored);
    for (const auto& timer : timers)
        timer->cancel();
    for (Viewer* viewer : std::set<Viewer*>(viewers))
        viewer->leave();
    // A moment for the goodbyes; whoever does not take them is left.
    auto timer = std::make_shared<asio::steady_timer>(io, std::chrono::milliseconds(300));
    timer->async_wait([this, timer](Failure) { io.stop(); });
}

Server::Server(const ServerOptions& options, Handler& handler) : mCore(std::make_shared<Core>(options, handler)) {
    mCore->accept();
}
Server::~Server() = default;

uint16_t Server::port() const {
    return mCore->acceptor.local_endpoint().port();
}

void Server::run() {
    mCore->io.run();
}

void Server::post(std::function<void()> work) {
    asio::post(mCore->io, std::move(work));
}

void Server::every(int milliseconds, std::function<void()> work) {
    mCore->timers.push_back(std::make_unique<asio::steady_timer>(mCore->io));
    waitForTime(*mCore->timers.back(), std::chrono::milliseconds(milliseconds), std::move(work));
}

void Server::show(LiveFramePtr frame) {
    asio::post(mCore->io, [core = mCore.get(), frame = std::move(frame)] { core->show(frame); });
}

unsigned Server::viewers() const {
    return mCore->viewerCount;
}

void Server::stop() {
    asio::post(mCore->io, [core = mCore.get()] { core->stop(); });
}

}  // namespace kov::live
