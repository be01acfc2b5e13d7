#include "appliance/encoder/device/authenticator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Verdict = Authenticator::Verdict;
using testing::HasSubstr;

std::string nonceIn(const std::string& challenge) {
    const std::size_t start = challenge.find("nonce=\"") + 7;
    return challenge.substr(start, challenge.find('"', start) - start);
}

// A client's answer to a challenge.
std::string digestAnswer(const std::string& nonce, const std::string& password, const std::string& uri,
                         bool qop, const std::string& method = "GET") {
    const std::string first = md5Hex("joe:video encoder:" + password);
    const std::string second = md5Hex(method + ":" + uri);
    const std::string middle = qop ? nonce + ":00000001:abc:auth" : nonce;
    return "Digest username=\"joe\", realm=\"video encoder\", nonce=\"" + nonce + "\", uri=\"" + uri + "\"" +
           (qop ? ", qop=auth, nc=00000001, cnonce=\"abc\"" : "") + ", response=\"" +
           md5Hex(first + ":" + middle + ":" + second) + "\"";
}

} // namespace

TEST(Auth, Md5AndBase64HaveTheStandardValues) {
    EXPECT_EQ(md5Hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(base64Encoded("Aladdin:open sesame"), "QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
    for (const char* text : {"a", "ab", "abc", "abcd"})
        EXPECT_EQ(base64Decoded(base64Encoded(text)), text);
    EXPECT_EQ(base64Decoded("YWJj\r\nZGVm"), "abcdef");
    for (const char* bad : {"", "a", "ab=", "a===", "====", "a*cd"})
        EXPECT_EQ(base64Decoded(bad), "") << bad;
}

TEST(Auth, WithoutAUserEveryRequestIsAccepted) {
    const Authenticator open("", "", false);
    EXPECT_EQ(open.judge("", "GET", "/"), Verdict::Accepted);
}

TEST(Auth, BasicNeedsTheRightUserAndPassword) {
    const Authenticator basic("joe", "a:b", false);
    EXPECT_THAT(basic.challenge(false), HasSubstr("Basic realm="));
    EXPECT_EQ(basic.judge("Basic " + base64Encoded("joe:a:b"), "GET", "/"), Verdict::Accepted);
    EXPECT_EQ(basic.judge("basic  " + base64Encoded("joe:a:b"), "GET", "/"), Verdict::Accepted);
    for (const std::string& wrong :
         {std::string(), "Basic " + base64Encoded("joe:a:c"), "Basic " + base64Encoded("joe"),
          "Bearer " + base64Encoded("joe:a:b"), std::string("Basic"), std::string("Basic !")})
        EXPECT_EQ(basic.judge(wrong, "GET", "/"), Verdict::Refused) << wrong;
}

TEST(Auth, DigestIsCheckedWithAndWithoutQop) {
    const Authenticator digest("joe", "pw", true);
    const std::string nonce = nonceIn(digest.challenge(false));
    for (const bool qop : {true, false}) {
        EXPECT_EQ(digest.judge(digestAnswer(nonce, "pw", "/a b?c", qop), "GET", "/a b?c"), Verdict::Accepted);
        EXPECT_EQ(digest.judge(digestAnswer(nonce, "no", "/a", qop), "GET", "/a"), Verdict::Refused);
        EXPECT_EQ(digest.judge(digestAnswer(nonce, "pw", "/a", qop), "GET", "/b"), Verdict::Refused);
        EXPECT_EQ(digest.judge(digestAnswer(nonce, "pw", "/a", qop, "PUT"), "GET", "/a"), Verdict::Refused);
    }
}

TEST(Auth, DigestRefusesBasicAndForeignNonces) {
    const Authenticator digest("joe", "pw", true);
    const Authenticator other("joe", "pw", true);
    EXPECT_EQ(digest.judge("Basic " + base64Encoded("joe:pw"), "GET", "/"), Verdict::Refused);
    EXPECT_EQ(digest.judge(digestAnswer(nonceIn(other.challenge(false)), "pw", "/", true), "GET", "/"),
              Verdict::Refused);
    for (const char* bad :
         {"Digest", "Digest nonce", "Digest nonce=\"\\", "Digest username=\"joe\"", "Digest =,=,="})
        EXPECT_EQ(digest.judge(bad, "GET", "/"), Verdict::Refused) << bad;
}

TEST(Auth, AnOldNonceIsStaleAndTheNewChallengeSaysSo) {
    Authenticator digest("joe", "pw", true);
    const std::string answer = digestAnswer(nonceIn(digest.challenge(false)), "pw", "/", true);
    digest.shiftClock(299);
    EXPECT_EQ(digest.judge(answer, "GET", "/"), Verdict::Accepted);
    digest.shiftClock(400);
    EXPECT_EQ(digest.judge(answer, "GET", "/"), Verdict::Stale);
    EXPECT_THAT(digest.challenge(true), HasSubstr("stale=true"));
}

TEST(Auth, TheClaimedUserIsReadFromBothSchemes) {
    EXPECT_EQ(Authenticator::claimedUser("Basic " + base64Encoded("joe:x")), "joe");
    EXPECT_EQ(Authenticator::claimedUser("Digest username=\"j\\\"oe\", realm=r"), "j\"oe");
    EXPECT_EQ(Authenticator::claimedUser(""), "");
    EXPECT_EQ(Authenticator::claimedUser("Bearer x"), "");
}
