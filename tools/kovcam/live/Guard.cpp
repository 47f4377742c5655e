// Who may talk to the camera.

#include "tools/kovcam/live/Guard.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "tools/session/Error.h"

namespace kov::live {

namespace {

std::string lowered(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The value of one cookie.
std::string_view cookie(std::string_view all, std::string_view name) {
    while (!all.empty()) {
        std::string_view pair = all.substr(0, all.find(';'));
        all.remove_prefix(std::min(all.size(), pair.size() + 1));
        while (!pair.empty() && pair.front() == ' ')
            pair.remove_prefix(1);
        if (pair.starts_with(name) && pair.size() > name.size() && pair[name.size()] == '=')
            return pair.substr(name.size() + 1);
    }
    return {};
}

}  // namespace

Guard::Guard(Options options) : mOptions(std::move(options)), mCookieName("kovcam-" + std::to_string(mOptions.port)) {}

bool Guard::isOurHost(const std::string& host) const {
    const std::string name = lowered(host);
    const std::string port = ":" + std::to_string(mOptions.port);
    if (name.ends_with(port))
        return mOptions.names.contains(name.substr(0, name.size() - port.size()));
    return mOptions.port == (mOptions.tls ? 443 : 80) && mOptions.names.contains(name);
}

bool Guard::hasToken(const Request& head) const {
    constexpr std::string_view bearer = "Bearer ";
    if (mOptions.token.empty() || sameSecret(cookie(head.cookie, mCookieName), mOptions.token))
        return true;
    return head.authorization.starts_with(bearer) &&
           sameSecret(std::string_view(head.authorization).substr(bearer.size()), mOptions.token);
}

std::optional<Response> Guard::refuse(const Request& head, bool open) const {
    if (!isOurHost(head.host))
        return problem(421, "this camera is not at \"" + head.host + "\"; name the host with --host-name to allow it");
    const std::string origin = (mOptions.tls ? "https://" : "http://") + lowered(head.host);
    if (!head.origin.empty() && lowered(head.origin) != origin)
        return problem(403, "pages of other sites may not use this camera");
    const bool foreign = !head.fetchSite.empty() && head.fetchSite != "same-origin" && head.fetchSite != "none";
    const bool opensPage = head.method == "GET" && head.fetchMode == "navigate" && open;
    if (foreign && !opensPage)
        return problem(403, "pages of other sites may not use this camera");
    if (!open && !hasToken(head))
        return problem(401,
                       "the token is missing; open the address that kovcam printed, or send it as "
                       "\"Authorization: Bearer TOKEN\"");
    return std::nullopt;
}

std::optional<std::string> Guard::cookieFor(const Request& head) const {
    const auto token = head.query.find("token");
    if (mOptions.token.empty() || token == head.query.end() || !sameSecret(token->second, mOptions.token))
        return std::nullopt;
    return mCookieName + "=" + mOptions.token + "; Path=/; HttpOnly; SameSite=Strict" +
           (mOptions.tls ? "; Secure" : "");
}

std::string makeToken() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw cam::Error("the system gives no random bytes for a token");
    std::string text;
    for (const unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

}  // namespace kov::live
