// Who may talk to the camera.

#include "tools/kovcam/live/Guard.h"

#include <gtest/gtest.h>

namespace {

using kov::live::Guard;
using kov::live::Request;

struct Case {
    const char* what;
    Request head;
    bool open;
    int status;  // 0: it may
};

Request head(const char* host, const char* origin = "", const char* site = "", const char* mode = "") {
    Request request;
    request.method = "GET";
    request.host = host;
    request.origin = origin;
    request.fetchSite = site;
    request.fetchMode = mode;
    return request;
}

Request with(Request request, const char* cookie, const char* authorization) {
    request.cookie = cookie;
    request.authorization = authorization;
    return request;
}

void expect(const Guard& guard, const std::vector<Case>& cases) {
    for (const Case& one : cases) {
        const auto refusal = guard.refuse(one.head, one.open);
        EXPECT_EQ(refusal ? refusal->status : 0, one.status) << one.what;
    }
}

TEST(GuardTest, AsksForOurHostAndForNoForeignPage) {
    const char* const us = "localhost:8642";
    expect(Guard({false, 8642, {"localhost", "127.0.0.1", "[::1]"}, ""}),
           {{"a program", head(us), false, 0},
            {"our page", head(us, "http://localhost:8642", "same-origin", "cors"), false, 0},
            {"upper case", head("LOCALHOST:8642", "HTTP://localhost:8642"), false, 0},
            {"by address", head("[::1]:8642", "http://[::1]:8642"), false, 0},
            {"typed by a person", head(us, "", "none", "navigate"), true, 0},
            {"a link from elsewhere to the page", head(us, "", "cross-site", "navigate"), true, 0},
            {"a link from elsewhere to a picture", head(us, "", "cross-site", "navigate"), false, 403},
            {"a picture on a page elsewhere", head(us, "", "cross-site", "no-cors"), false, 403},
            {"another program's page on this machine", head(us, "http://localhost:3000", "same-site"), false, 403},
            {"an origin that is hidden", head(us, "null"), false, 403},
            {"https instead of http", head(us, "https://localhost:8642"), false, 403},
            {"our other name", head(us, "http://127.0.0.1:8642"), false, 403},
            {"a name that was made to lead here", head("evil.example:8642", "http://evil.example:8642"), false, 421},
            {"another port", head("localhost:80"), false, 421},
            {"no port", head("localhost"), false, 421},
            {"no host", head(""), false, 421}});
}

TEST(GuardTest, AsksForTheTokenAwayFromThisMachine) {
    const Guard guard({true, 443, {"camera.local"}, "0123456789abcdef"});
    const Request request = head("camera.local", "https://camera.local");
    expect(guard, {{"nothing", request, false, 401},
                   {"the page itself", request, true, 0},
                   {"a program", with(request, "", "Bearer 0123456789abcdef"), false, 0},
                   {"half of it", with(request, "", "Bearer 01234567"), false, 401},
                   {"more than it", with(request, "", "Bearer 0123456789abcdef0"), false, 401},
                   {"an empty one", with(request, "kovcam-443=", "Bearer "), false, 401},
                   {"the cookie", with(request, "a=b; kovcam-443=0123456789abcdef; c=d", ""), false, 0},
                   {"the cookie of another port", with(request, "kovcam-8642=0123456789abcdef", ""), false, 401},
                   {"a cookie that ends like ours", with(request, "x-kovcam-443=0123456789abcdef", ""), false, 401}});

    Request opening = request;
    opening.query["token"] = "0123456789abcdef";
    EXPECT_EQ(guard.cookieFor(opening), "kovcam-443=0123456789abcdef; Path=/; HttpOnly; SameSite=Strict; Secure");
    opening.query["token"] = "0123456789abcdee";
    EXPECT_EQ(guard.cookieFor(opening), std::nullopt);
}

TEST(GuardTest, MakesTokensThatDiffer) {
    EXPECT_EQ(kov::live::makeToken().size(), 32U);
    EXPECT_NE(kov::live::makeToken(), kov::live::makeToken());
}

}  // namespace
