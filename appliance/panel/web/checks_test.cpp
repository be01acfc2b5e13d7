#include "appliance/panel/web/dispatch.h"
#include "appliance/panel/web/event_queue.h"
#include "appliance/panel/web/gate.h"
#include "appliance/panel/web/origin_check.h"
#include "appliance/panel/web/url_text.h"

#include <gtest/gtest.h>

using namespace panel;

namespace {

constexpr Gate::Limits limits{1024, 100};
constexpr const char* get = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";

int refusalOf(std::string_view bytes) {
    Gate gate(limits);
    gate.receive(bytes);
    return gate.phase() == Gate::Phase::Refused ? gate.refusal().status : 0;
}

std::string lines(const std::string& fields) {
    return "POST /x HTTP/1.1\r\nHost: a\r\n" + fields + "\r\n";
}

} // namespace

TEST(PanelGate, PassesAHeaderOnlyWhenAllOfItIsThere) {
    Gate gate(limits);
    const std::string text = get;
    for (const char character : text) {
        EXPECT_FALSE(gate.hasBytes());
        gate.receive({&character, 1});
    }
    EXPECT_EQ(gate.phase(), Gate::Phase::Request);
    EXPECT_EQ(gate.pass(1000), text);
}

TEST(PanelGate, HoldsTheNextRequestBackUntilTheAnswerIsWritten) {
    Gate gate(limits);
    gate.receive(lines("Content-Length: 3\r\n") + "abc" + get);
    EXPECT_TRUE(gate.pass(1000).ends_with("\r\n\r\nabc"));
    EXPECT_FALSE(gate.hasBytes());
    gate.answered();
    EXPECT_EQ(gate.pass(1000), get);
}

TEST(PanelGate, RefusesWhatReadersUnderstandDifferently) {
    EXPECT_EQ(refusalOf(get), 0);
    EXPECT_EQ(refusalOf("GET / HTTP/1.1\nHost: a\n\n"), 400);
    EXPECT_EQ(refusalOf("GET / HTTP/1.1\r\nHost: a\rb\r\n\r\n"), 400);
    EXPECT_EQ(refusalOf("\r\n"), 400);
    EXPECT_EQ(refusalOf("GET / HTTP/2.0\r\nHost: a\r\n\r\n"), 505);
    EXPECT_EQ(refusalOf("GET http://a/ HTTP/1.1\r\nHost: a\r\n\r\n"), 400);
    EXPECT_EQ(refusalOf("GET / HTTP/1.1\r\n\r\n"), 400);
    EXPECT_EQ(refusalOf(lines("Host: b\r\n")), 400);
    EXPECT_EQ(refusalOf(lines("Content-Length: 1\r\nContent-Length: 1\r\n")), 400);
    EXPECT_EQ(refusalOf(lines("Content-Length: +1\r\n")), 400);
    EXPECT_EQ(refusalOf(lines("Content-Length : 1\r\n")), 400);
    EXPECT_EQ(refusalOf(lines("Transfer-Encoding: chunked\r\n")), 501);
    EXPECT_EQ(refusalOf(lines("Expect: 100-continue\r\n")), 417);
    EXPECT_EQ(refusalOf(lines("X: a\r\n b\r\n")), 400);
}

TEST(PanelGate, BoundsHeaderAndBody) {
    EXPECT_EQ(refusalOf("GET / HTTP/1.1\r\nHost: " + std::string(2000, 'a')), 431);
    EXPECT_EQ(refusalOf(lines("Content-Length: 100\r\n")), 0);
    EXPECT_EQ(refusalOf(lines("Content-Length: 101\r\n")), 413);
    EXPECT_EQ(refusalOf(lines("Content-Length: 99999999999999999999999999\r\n")), 413);
}

TEST(PanelHost, OnlyOwnNamesAreKnown) {
    const std::vector<std::string> names{"Panel.Example"};
    for (const char* host : {"127.0.0.1", "127.0.0.1:80", "localhost", "LOCALHOST:1", "panel.example."})
        EXPECT_TRUE(isKnownHost(host, "127.0.0.1", names)) << host;
    for (const char* host :
         {"", "evil.example", "127.0.0.2", "localhost.evil", "a@localhost", "localhost:x", "[::1"})
        EXPECT_FALSE(isKnownHost(host, "127.0.0.1", names)) << host;
    EXPECT_FALSE(isKnownHost("localhost", "192.0.2.1", names));
    EXPECT_TRUE(isKnownHost("[0:0::1]:5", "::1", names));
}

TEST(PanelOrigin, ChangesComeFromTheOwnPage) {
    EXPECT_TRUE(isSameOrigin({"a:1", "http://a:1", "", false, false}));
    EXPECT_TRUE(isSameOrigin({"a", "http://a:80", "same-origin", false, false}));
    EXPECT_TRUE(isSameOrigin({"a", "", "same-origin", false, false}));
    EXPECT_TRUE(isSameOrigin({"a", "", "", true, false}));
    EXPECT_FALSE(isSameOrigin({"a", "", "", false, false}));
    EXPECT_FALSE(isSameOrigin({"a", "null", "", true, false}));
    EXPECT_FALSE(isSameOrigin({"a", "http://b", "", true, false}));
    EXPECT_FALSE(isSameOrigin({"a", "http://a", "same-site", true, false}));
    EXPECT_FALSE(isSameOrigin({"a", "http://a", "", true, true}));
    EXPECT_TRUE(isSameOrigin({"a", "https://a", "", true, true}));
}

TEST(PanelUrl, DecodesTextOnly) {
    EXPECT_EQ(decoded("a%20b+c"), "a b+c");
    EXPECT_EQ(decoded("a+b", true), "a b");
    EXPECT_FALSE(decoded("%"));
    EXPECT_FALSE(decoded("%2"));
    EXPECT_FALSE(decoded("%zz"));
    EXPECT_FALSE(decoded("%00"));
    EXPECT_FALSE(decoded("%0d%0a"));
    EXPECT_FALSE(decoded("%ff"));
    EXPECT_EQ(decodedFields("a=1&b=&a=2&&c")->at("a"), "1");
    EXPECT_EQ(decodedFields("a=1&b=&a=2&&c")->at("c"), "");
}

TEST(PanelRouter, PrefersFixedPartsAndKeepsSlashesInParts) {
    Router router;
    router.add("GET", "/s/{source}", Role::Viewer, nullptr);
    router.add("GET", "/s/test", Role::Viewer, nullptr);
    router.add("POST", "/s/{source}", Role::Viewer, nullptr);
    EXPECT_EQ(router.find("GET", "/s/test").route->pattern, "/s/test");
    EXPECT_EQ(router.find("GET", "/s/a%2Fb").parts.at("source"), "a/b");
    EXPECT_EQ(router.find("DELETE", "/s/1").allowed, "GET, POST");
    EXPECT_EQ(router.find("GET", "/s/").route, nullptr);
    EXPECT_EQ(router.find("GET", "/s/a/b").route, nullptr);
    EXPECT_THROW(router.add("GET", "/s/test", Role::Viewer, nullptr), std::logic_error);
}

TEST(PanelEvents, OnlyTheNewestOfATypeWaitsExceptChanges) {
    EventQueue queue(2);
    queue.add("status", "1");
    queue.add("change", "1");
    queue.add("status", "2");
    queue.add("change", "2");
    queue.add("change", "3");
    EXPECT_EQ(queue.take(), "event: status\ndata: 2\n\n");
    EXPECT_EQ(queue.take(), "event: change\ndata: 2\n\n");
    EXPECT_EQ(queue.take(), "event: change\ndata: 3\n\n");
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.bytes(), 0U);
}

TEST(PanelDispatch, ChecksHostOriginAndRole) {
    Router router;
    router.add("POST", "/change", Role::Operator, nullptr);
    const std::vector<std::string> names;
    const Place place{"127.0.0.1", false, &names};
    const auto statusFor = [&](Role role, Texts headers) {
        Request request;
        request.method = "POST";
        request.headers = std::move(headers);
        const Dispatched found = dispatch(request, "/change", place, router, [role](const Credentials&) {
            Visitor visitor;
            visitor.role = role;
            visitor.csrf = "secret";
            return visitor;
        });
        return found.route != nullptr ? 0 : found.refusal.status;
    };
    EXPECT_EQ(statusFor(Role::Operator, {{"host", "localhost"}, {"x-panel", "1"}}), 0);
    EXPECT_EQ(statusFor(Role::Operator, {{"host", "localhost"}}), 403);
    EXPECT_EQ(statusFor(Role::Viewer, {{"host", "localhost"}, {"x-panel", "1"}}), 403);
    EXPECT_EQ(statusFor(Role::None, {{"host", "localhost"}, {"x-panel", "1"}}), 401);
    EXPECT_EQ(statusFor(Role::Admin, {{"host", "evil"}, {"x-panel", "1"}}), 421);
}
