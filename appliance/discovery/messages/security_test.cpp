#include "appliance/discovery/messages/security.h"

#include "appliance/discovery/messages/soap.h"

#include <gtest/gtest.h>

namespace {

// A well-known example of such a token.
TEST(Security, DigestIsThatOfAKnownExample) {
    const std::string nonce = bytesOfBase64("LKqI6G/AikKCQrN0zqZFlg==");
    EXPECT_EQ(tokenDigest(nonce, "2010-09-16T07:50:45Z", "userpassword"), "tuOSpGlFlIXsozq4HFNeeGeFLEI=");
}

TEST(Security, TokenReadsBackFromItsHeader) {
    const UserNameToken made = makeToken("o<p>", "s3cret", 1700000000);
    const XmlResult envelope = readXml(soapEnvelope(securityHeader(made), ""));
    ASSERT_TRUE(envelope.root);
    const UserNameToken read = readToken(*envelope.root->child("Header"));
    EXPECT_EQ(read.user, "o<p>");
    EXPECT_EQ(read.created, "2023-11-14T22:13:20Z");
    EXPECT_EQ(read.digest, tokenDigest(bytesOfBase64(read.nonce), read.created, "s3cret"));
}

TEST(Security, TokenNeverHasThePassword) {
    EXPECT_EQ(securityHeader(makeToken("viewer", "s3cret", 0)).find("s3cret"), std::string::npos);
}

TEST(Security, EveryTokenHasItsOwnNonce) {
    EXPECT_NE(makeToken("u", "p", 0).nonce, makeToken("u", "p", 0).nonce);
}

TEST(Security, PlainPasswordIsNotRead) {
    const XmlResult header =
        readXml("<h><Security><UsernameToken><Username>u</Username><Password>p</Password>"
                "</UsernameToken></Security></h>");
    ASSERT_TRUE(header.root);
    EXPECT_EQ(readToken(*header.root).user, "u");
    EXPECT_EQ(readToken(*header.root).digest, "");
    EXPECT_EQ(readToken(XmlElement{}).user, "");
}

TEST(Security, Base64ReadsBack) {
    for (const std::string text : {"", "a", "ab", "abc", "abcd"}) {
        EXPECT_EQ(bytesOfBase64(base64Of(text)), text);
    }
    EXPECT_EQ(bytesOfBase64("a"), "");
    EXPECT_EQ(bytesOfBase64("===="), "");
    EXPECT_EQ(bytesOfBase64("****"), "");
}

TEST(Security, TimesReadBack) {
    EXPECT_EQ(isoTime(1700000000), "2023-11-14T22:13:20Z");
    EXPECT_EQ(secondsOfIsoTime("2023-11-14T22:13:20Z"), 1700000000);
    EXPECT_EQ(secondsOfIsoTime("2023-11-14T22:13:20.123Z"), 1700000000);
    EXPECT_EQ(secondsOfIsoTime("yesterday"), -1);
}

TEST(Security, UuidsHaveTheirForm) {
    const std::string uuid = randomUuid();
    EXPECT_EQ(uuid.size(), 45U);
    EXPECT_TRUE(uuid.starts_with("urn:uuid:"));
    EXPECT_EQ(uuid[9 + 14], '4');
    EXPECT_NE(uuid, randomUuid());
}

} // namespace
