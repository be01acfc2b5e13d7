#include "appliance/streams/rtsp_credentials.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace streams {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(RtspCredentials, NoneAreSentWithoutAChallenge) {
    RtspCredentials credentials("viewer", "secret");
    EXPECT_EQ(credentials.answer("DESCRIBE", "rtsp://h/x"), "");
}

TEST(RtspCredentials, BasicIsAnsweredOnce) {
    RtspCredentials credentials("viewer", "secret");
    EXPECT_TRUE(credentials.challenge({"Basic realm=\"x\""}));
    EXPECT_EQ(credentials.answer("DESCRIBE", "rtsp://h/x"), "Basic dmlld2VyOnNlY3JldA==");
    EXPECT_FALSE(credentials.challenge({"Basic realm=\"x\""})) << "the encoder refused this answer";
}

// The example of RFC 2069, with its erratum.
TEST(RtspCredentials, DigestIsAsPublished) {
    RtspCredentials credentials("Mufasa", "CircleOfLife");
    EXPECT_TRUE(credentials.challenge({"Digest realm=\"testrealm@host.com\", "
                                       "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", "
                                       "opaque=\"5ccc069c403ebaf9f0171e9517f40e41\""}));
    const std::string answer = credentials.answer("GET", "/dir/index.html");
    EXPECT_THAT(answer, HasSubstr("response=\"1949323746fe6a43ef61f9606e7febea\""));
    EXPECT_THAT(answer, HasSubstr("opaque=\"5ccc069c403ebaf9f0171e9517f40e41\""));
    EXPECT_THAT(answer, Not(HasSubstr("CircleOfLife")));
}

TEST(RtspCredentials, DigestIsPreferredToBasicAndCountsItsAnswers) {
    RtspCredentials credentials("viewer", "secret");
    EXPECT_TRUE(credentials.challenge(
        {"Basic realm=\"x\"", "digest realm=\"x\", nonce=\"n1\", qop=\"auth,auth-int\""}));
    EXPECT_THAT(credentials.answer("PLAY", "u"), HasSubstr("qop=auth, nc=00000001"));
    EXPECT_THAT(credentials.answer("PLAY", "u"), HasSubstr("qop=auth, nc=00000002"));
}

TEST(RtspCredentials, NewNonceIsAnsweredAgain) {
    RtspCredentials credentials("viewer", "secret");
    EXPECT_TRUE(credentials.challenge({"Digest realm=\"x\", nonce=\"n1\""}));
    EXPECT_FALSE(credentials.challenge({"Digest realm=\"x\", nonce=\"n1\""}));
    EXPECT_TRUE(credentials.challenge({"Digest realm=\"x\", nonce=\"n2\", stale=true"}));
}

TEST(RtspCredentials, UnanswerableChallengesAreNotAnswered) {
    EXPECT_FALSE(RtspCredentials("", "").challenge({"Basic realm=\"x\""}));
    EXPECT_FALSE(RtspCredentials("u", "p").challenge({}));
    EXPECT_FALSE(RtspCredentials("u", "p").challenge(
        {"Negotiate", "Basically not", "Digest algorithm=ROT13, nonce=\"n\""}));
    RtspCredentials odd("u", "p");
    for (const char* challenge :
         {"Digest", "Digest nonce=", "Digest nonce=\"", "Digest realm=\"x", "Digest ,,,=\"\""}) {
        odd.challenge({challenge});
        odd.answer("PLAY", "u");
    }
}

} // namespace
} // namespace streams
