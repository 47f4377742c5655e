// A connection's bytes, in the clear or by TLS, behind one type.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace kov::live {

using Failure = boost::beast::error_code;
using Done = std::function<void(Failure, size_t)>;

/// What Beast's operations ask of a stream. Each of its operations is called as a plain function with a stored handler,
/// so that Beast's templates are made once and not once for each kind of stream and handler; they take minutes to
/// compile otherwise. Handlers run on the thread of the socket's context.
class Wire {
public:
    using executor_type = boost::beast::tcp_stream::executor_type;

    /// `tls`: null for a connection in the clear; outlives the wire.
    Wire(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* tls);
    ~Wire();
    Wire(Wire&&) noexcept;
    Wire& operator=(Wire&&) = delete;

    /// Where time-outs are set.
    boost::beast::tcp_stream& tcp() const;
    executor_type get_executor() const { return tcp().get_executor(); }
    bool isOpen() const { return tcp().socket().is_open(); }
    void close();

    /// Greets by TLS; done at once in the clear.
    void shakeHands(Done done);

    template <class Buffers, class Handler>
    void async_read_some(const Buffers& buffers, Handler&& handler) {
        std::vector<boost::asio::mutable_buffer> list;
        for (const auto buffer : boost::beast::buffers_range_ref(buffers))
            list.emplace_back(buffer);
        readSome(std::move(list), stored(std::forward<Handler>(handler)));
    }
    template <class Buffers, class Handler>
    void async_write_some(const Buffers& buffers, Handler&& handler) {
        std::vector<boost::asio::const_buffer> list;
        for (const auto buffer : boost::beast::buffers_range_ref(buffers))
            list.emplace_back(buffer);
        writeSome(std::move(list), stored(std::forward<Handler>(handler)));
    }

private:
    struct Streams;

    template <class Handler>
    static Done stored(Handler&& handler) {
        auto kept = std::make_shared<std::decay_t<Handler>>(std::forward<Handler>(handler));
        return [kept](Failure failure, size_t size) { (*kept)(failure, size); };
    }
    void readSome(std::vector<boost::asio::mutable_buffer> buffers, Done done);
    void writeSome(std::vector<boost::asio::const_buffer> buffers, Done done);

    std::unique_ptr<Streams> mStreams;
};

/// How Beast ends a stream, the first when a time-out has passed.
inline void beast_close_socket(Wire& wire) {
    wire.close();
}
void teardown(boost::beast::role_type role, Wire& wire, Failure& failure);
template <class Handler>
void async_teardown(boost::beast::role_type role, Wire& wire, Handler&& handler) {
    Failure failure;
    teardown(role, wire, failure);
    boost::asio::post(wire.get_executor(), [failure, kept = std::make_shared<std::decay_t<Handler>>(
                                                         std::forward<Handler>(handler))] { (*kept)(failure); });
}

}  // namespace kov::live
