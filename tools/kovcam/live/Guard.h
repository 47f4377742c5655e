// Who may talk to the camera.
//
// A browser shows pages of strangers, and those can send requests to this machine. So a request must name us as its
// host (a stranger's name that is made to lead here is not ours), and if it tells where it comes from, that must be our
// own page. Requests of programs tell no origin. Away from this machine alone a token is asked for too.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "tools/kovcam/live/Http.h"

namespace kov::live {

class Guard {
public:
    struct Options {
        bool tls = false;
        uint16_t port = 0;
        std::set<std::string> names;  // under which we can be reached: "localhost", "127.0.0.1", "[::1]", ...
        std::string token;            // empty: none is asked for
    };

    explicit Guard(Options options);

    /// Why the request is refused, with what to do, or nothing. `open`: it needs no token.
    std::optional<Response> refuse(const Request& head, bool open) const;
    /// Whether browsers trust what comes from us: by https, or from this machine alone.
    bool isTrusted() const { return mOptions.tls || mOptions.token.empty(); }
    /// The header that gives a browser the token as a cookie; nothing when the request does not bring the token in its
    /// address.
    std::optional<std::string> cookieFor(const Request& head) const;

private:
    bool isOurHost(const std::string& host) const;
    bool hasToken(const Request& head) const;

    const Options mOptions;
    const std::string mCookieName;  // with the port, for cookies do not know ports
};

/// 32 characters that nobody can guess. Throws kov::cam::Error when the system has no randomness.
std::string makeToken();

}  // namespace kov::live
