// A connection's bytes, in the clear or by TLS, behind one type.

#include "tools/kovcam/live/Wire.h"

#include <boost/asio/post.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <optional>

namespace kov::live {

namespace asio = boost::asio;
namespace beast = boost::beast;

struct Wire::Streams {
    explicit Streams(asio::ip::tcp::socket socket) : tcp(std::move(socket)) {}

    beast::tcp_stream tcp;
    std::optional<asio::ssl::stream<beast::tcp_stream&>> tls;
};

Wire::Wire(asio::ip::tcp::socket socket, asio::ssl::context* tls)
    : mStreams(std::make_unique<Streams>(std::move(socket))) {
    if (tls)
        mStreams->tls.emplace(mStreams->tcp, *tls);
}
Wire::~Wire() = default;
Wire::Wire(Wire&&) noexcept = default;

beast::tcp_stream& Wire::tcp() const {
    return mStreams->tcp;
}

void Wire::close() {
    Failure ignored;
    tcp().socket().close(ignored);
}

void Wire::shakeHands(Done done) {
    if (mStreams->tls)
        mStreams->tls->async_handshake(asio::ssl::stream_base::server, [done](Failure failure) { done(failure, 0); });
    else
        asio::post(get_executor(), [done] { done({}, 0); });
}

void Wire::readSome(std::vector<asio::mutable_buffer> buffers, Done done) {
    if (mStreams->tls)
        mStreams->tls->async_read_some(buffers, std::move(done));
    else
        mStreams->tcp.async_read_some(buffers, std::move(done));
}

void Wire::writeSome(std::vector<asio::const_buffer> buffers, Done done) {
    if (mStreams->tls)
        mStreams->tls->async_write_some(buffers, std::move(done));
    else
        mStreams->tcp.async_write_some(buffers, std::move(done));
}

void teardown(beast::role_type, Wire& wire, Failure& failure) {
    wire.tcp().socket().shutdown(asio::ip::tcp::socket::shutdown_both, failure);
    wire.close();
}

}  // namespace kov::live
