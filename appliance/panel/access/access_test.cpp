#include "appliance/panel/access/cookies.h"
#include "appliance/panel/access/password_hash.h"
#include "appliance/panel/access/secrets.h"
#include "appliance/panel/access/sessions.h"
#include "appliance/panel/access/tokens.h"
#include "appliance/panel/access/try_limit.h"

#include <gtest/gtest.h>

using namespace panel;

namespace {

Session sessionOf(const char* account) {
    Session session;
    session.account = account;
    return session;
}

} // namespace

TEST(PanelPassword, FitsItsHashOnly) {
    const std::string hash = passwordHash("a good one");
    EXPECT_TRUE(hash.starts_with("$y$"));
    EXPECT_TRUE(fitsPassword("a good one", hash));
    EXPECT_FALSE(fitsPassword("a bad one", hash));
    EXPECT_FALSE(fitsPassword("", ""));
    EXPECT_FALSE(fitsPassword("x", "x"));
}

TEST(PanelSessions, EndIdleAndAfterTheLongestTime) {
    SessionLimits limits;
    limits.idle = 10;
    limits.longest = 25;
    Sessions sessions(limits);
    std::vector<std::string> ended;
    const std::string cookie = sessions.begin(sessionOf("anna"), 0, ended);
    ASSERT_NE(sessions.find(cookie, 9), nullptr);
    ASSERT_NE(sessions.find(cookie, 18), nullptr);
    EXPECT_EQ(sessions.find(cookie, 25), nullptr);
    EXPECT_EQ(sessions.endOld(25, [](const Session&) { return true; }).size(), 1U);
    EXPECT_EQ(sessions.count(), 0U);
}

TEST(PanelSessions, AreBoundedForEachAccount) {
    SessionLimits limits;
    limits.most = 3;
    limits.mostOfAccount = 2;
    Sessions sessions(limits);
    std::vector<std::string> ended;
    const std::string first = sessions.begin(sessionOf("anna"), 0, ended);
    sessions.begin(sessionOf("anna"), 1, ended);
    sessions.begin(sessionOf("anna"), 2, ended);
    EXPECT_EQ(ended.size(), 1U);
    EXPECT_EQ(sessions.find(first, 2), nullptr);
    sessions.begin(sessionOf("otto"), 3, ended);
    sessions.begin(sessionOf("vera"), 4, ended);
    EXPECT_EQ(sessions.count(), 3U);
}

TEST(PanelTries, AreLimitedForEachNetwork) {
    TryLimit tries(2);
    EXPECT_EQ(tries.begin("192.0.2.1", 0), 0);
    EXPECT_EQ(tries.begin("192.0.2.1", 0), 0);
    EXPECT_EQ(tries.begin("192.0.2.1", 0), 30);
    EXPECT_EQ(tries.begin("192.0.2.2", 0), 0);
    EXPECT_EQ(tries.begin("192.0.2.1", 30), 0);
    tries.giveBack("192.0.2.1");
    EXPECT_EQ(tries.begin("192.0.2.1", 30), 0);
    EXPECT_EQ(tries.begin("2001:db8::1", 30), 0);
    EXPECT_EQ(tries.begin("2001:db8::2", 30), 0);
    EXPECT_NE(tries.begin("2001:db8::3", 30), 0);
}

TEST(PanelTries, AreLimitedInAll) {
    TryLimit tries(2);
    int good = 0;
    for (int number = 0; number < 100; ++number)
        good += tries.begin("192.0.2." + std::to_string(number), 0) == 0 ? 1 : 0;
    EXPECT_EQ(good, 20);
}

TEST(PanelCookies, AreReadOnceOnly) {
    EXPECT_EQ(readCookie("a=1; panel-80=x; b=2", "panel-80"), "x");
    EXPECT_FALSE(readCookie("panel-80=x; panel-80=y", "panel-80"));
    EXPECT_FALSE(readCookie("panel-8080=x", "panel-80"));
    EXPECT_EQ(cookieName(443, true), "__Host-panel-443");
    EXPECT_NE(setCookie("a", "b", true).find("; Secure"), std::string::npos);
}

TEST(PanelTokens, ExpireAndAreFoundByTheirHash) {
    Token token;
    token.expiry = 100;
    token.hash = sha256Text("text");
    ASSERT_TRUE(setTokenRole(token, "alarm"));
    EXPECT_NE(findToken({token}, "text", 99), nullptr);
    EXPECT_EQ(findToken({token}, "text", 100), nullptr);
    EXPECT_EQ(findToken({token}, "other", 1), nullptr);
    EXPECT_FALSE(setTokenRole(token, "root"));
    EXPECT_NE(randomSecret(), randomSecret());
}
