// Downloads from encoders that ask for credentials.
#include "libcommon/src/download_fixture.h"

#include <map>
#include <openssl/evp.h>

using namespace scripted;

namespace {

const std::string basicChallenge = "WWW-Authenticate: Basic realm=\"encoder\"\r\n";
const std::string basicAnswer = "Authorization: Basic cm9vdDpzM2NyZXQ=\r\n"; // root:s3cret

bool has(const std::string& request, const std::string& header) {
    return request.find("\r\n" + header) != std::string::npos;
}

bool hasCredentials(const std::string& request) {
    return has(request, "Authorization:");
}

// An encoder that answers requests with that header line and challenges all others.
Script protectedBy(const std::string& challenge, const std::string& credentials) {
    return {readRequest(), answer([=](const std::string& request) {
                return has(request, credentials) ? reply("200 OK", "hello")
                                                 : reply("401 Who", "who?", challenge);
            }),
            startOver()};
}

std::string md5(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EXPECT_EQ(EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr), 1);
    std::string hex;
    for (unsigned i = 0; i < length; ++i) {
        char byte[3];
        std::snprintf(byte, sizeof byte, "%02x", digest[i]);
        hex += byte;
    }
    return hex;
}

// The fields of an Authorization header, name to value without quotes.
std::map<std::string, std::string> digestFields(const std::string& request) {
    std::map<std::string, std::string> fields;
    const std::string start = "\r\nAuthorization: Digest ";
    std::size_t at = request.find(start);
    if (at == std::string::npos)
        return fields;
    at += start.size();
    const std::size_t end = request.find("\r\n", at);
    while (at < end) {
        const std::size_t equals = request.find('=', at);
        const bool quoted = request[equals + 1] == '"';
        const std::size_t valueStart = equals + (quoted ? 2 : 1);
        const std::size_t valueEnd = std::min(request.find(quoted ? '"' : ',', valueStart), end);
        fields[request.substr(at, equals - at)] = request.substr(valueStart, valueEnd - valueStart);
        at = std::min(request.find_first_not_of("\", ", valueEnd), end);
    }
    return fields;
}

// The check of an honest server: the hash over user, password, method and the target of the request line.
bool isRightDigest(const std::string& request, const std::string& password) {
    auto fields = digestFields(request);
    const std::string line = request.substr(0, request.find("\r\n"));
    const std::string target = line.substr(4, line.rfind(' ') - 4);
    const std::string ha1 = md5("root:encoder:" + password);
    const std::string ha2 = md5("GET:" + target);
    return fields["username"] == "root" && fields["realm"] == "encoder" && fields["nonce"] == "n0nce" &&
           fields["uri"] == target && fields["qop"] == "auth" &&
           fields["response"] ==
               md5(ha1 + ":n0nce:" + fields["nc"] + ":" + fields["cnonce"] + ":auth:" + ha2);
}

Script protectedByDigest() {
    return {readRequest(), answer([](const std::string& request) {
                return isRightDigest(request, "s3cret")
                           ? reply("200 OK", "hello")
                           : reply("401 Who", "who?",
                                   basicChallenge +
                                       "WWW-Authenticate: Digest realm=\"encoder\", nonce=\"n0nce\", "
                                       "qop=\"auth\", algorithm=MD5\r\n");
            }),
            startOver()};
}

class DownloadCredentials : public DownloadTest {
protected:
    const Asked root_ = {.path = "/path?a=b", .user = "root", .password = "s3cret"};
    const Asked wrong_ = {.user = "root", .password = "guessed"};

    ~DownloadCredentials() override {
        for (const char* secret : {"s3cret", "guessed", "cm9vdD"})
            EXPECT_EQ(log().find(secret), std::string::npos) << log();
    }
};

TEST_F(DownloadCredentials, AreNotSentUnasked) {
    const Server server({readRequest(), send(reply("200 OK", "open")), startOver()});
    EXPECT_EQ(get(server, root_).mode, CONNECT_HTTP);
    EXPECT_EQ(getHttp(server.port(), root_).body, "open");
    ASSERT_EQ(server.requests().size(), 2U);
    for (const std::string& request : server.requests())
        EXPECT_FALSE(hasCredentials(request));
}

TEST_F(DownloadCredentials, BasicAnswersAChallengeOnTheSameConnection) {
    const Server server(protectedBy(basicChallenge, basicAnswer));
    const Got got = get(server, root_);
    EXPECT_EQ(got.body, "hello");
    EXPECT_EQ(got.mode, CONNECT_HTTP_AUTH);
    EXPECT_EQ(got.port, server.port());
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_FALSE(hasCredentials(server.requests()[0]));
    EXPECT_TRUE(has(server.requests()[1], basicAnswer));
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(DownloadCredentials, EveryDownloadAsksPlainlyFirst) {
    const Server server(protectedBy(basicChallenge, basicAnswer));
    get(server, root_);
    get(server, root_);
    ASSERT_EQ(server.requests().size(), 4U);
    EXPECT_FALSE(hasCredentials(server.requests()[2]));
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(DownloadCredentials, DigestAnswersWithTheRightHash) {
    const Server server(protectedByDigest());
    const Got got = get(server, root_);
    EXPECT_EQ(got.body, "hello");
    EXPECT_EQ(got.mode, CONNECT_HTTP_AUTH);
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_FALSE(has(server.requests()[1], "Authorization: Basic"))
        << "the password went out though Digest was offered";
}

TEST_F(DownloadCredentials, DigestNamesTheTargetAsItWasSent) {
    for (const std::string path : {"/ptz.cgi?preset=Front Door & Yard", "/x?y=%2F%2f", "/../a/./b?c",
                                   "/x?a#b c", "/", "/x?caf\xc3\xa9"}) {
        const Server server(protectedByDigest());
        EXPECT_EQ(get(server, {.path = path, .user = "root", .password = "s3cret"}).body, "hello") << path;
    }
}

TEST_F(DownloadCredentials, OfDownloadHttpAreSentOnlyWhenAsked) {
    const Server server(protectedBy(basicChallenge, basicAnswer));
    EXPECT_EQ(getHttp(server.port(), root_, false).result, -401);
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(getHttp(server.port(), root_, true).body, "hello");
    EXPECT_EQ(server.requests().size(), 3U);
}

TEST_F(DownloadCredentials, WithoutAUserThereIsNothingToAnswer) {
    const Server server(protectedBy(basicChallenge, basicAnswer));
    EXPECT_EQ(get(server, {.user = "", .password = "s3cret"}).result, -401);
    EXPECT_EQ(getHttp(server.port(), {.user = "", .password = "s3cret"}).result, -401);
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(DownloadCredentials, WrongOnesAreSentOnceAndRefused) {
    const Server basic(protectedBy(basicChallenge, basicAnswer));
    EXPECT_EQ(get(basic, wrong_).result, -401);
    EXPECT_EQ(basic.requests().size(), 2U);
    const Server digest(protectedByDigest());
    EXPECT_EQ(get(digest, wrong_).result, -401);
    EXPECT_EQ(digest.requests().size(), 2U);
}

TEST_F(DownloadCredentials, BasicAlsoAnswersARefusalThatNamesNoScheme) {
    for (const std::string challenge : {"", "WWW-Authenticate: Bearer\r\n", "WWW-Authenticate: \r\n"}) {
        const Server server(protectedBy(challenge, basicAnswer));
        const Got got = get(server, root_);
        EXPECT_EQ(got.body, "hello") << challenge;
        EXPECT_EQ(got.mode, CONNECT_HTTP_AUTH);
        EXPECT_EQ(server.requests().size(), 2U);
    }
}

TEST_F(DownloadCredentials, AColonOrBlankInThemIsNoTrouble) {
    const Server server(protectedBy(basicChallenge, "Authorization: Basic " + base64encode("a b:c:d e", 9)));
    EXPECT_EQ(get(server, {.user = "a b", .password = "c:d e"}).body, "hello");
}

TEST_F(DownloadCredentials, AnAnswerThatIsRefusedForAnotherReasonReportsIt) {
    const Server server({readRequest(), send(reply("401 Who", "", basicChallenge)), readRequest(),
                         send(reply("404 Not Found", ""))});
    EXPECT_EQ(get(server, root_).result, -404);
}

TEST_F(DownloadCredentials, AConnectionThatBreaksAfterTheChallengeIsATransportFailure) {
    const Server server(
        std::vector<Script>{{readRequest(), send(reply("401 Who", "", basicChallenge)), readRequest()},
                            {readRequest(), close()}});
    EXPECT_TRUE(isTransportFailure(get(server, root_).result));
}

// The challenge's own body is not waited for: a stuck or endless one costs a new connection, not the answer.
TEST_F(DownloadCredentials, AChallengeWithAnEndlessBodyIsAnswered) {
    const std::string challenge = "HTTP/1.1 401 Who\r\n" + basicChallenge;
    const std::vector<Script> refusals = {
        {readRequest(), send(challenge + "\r\n"), sendEndlessly(std::string(10000, 'x'))},
        {readRequest(), send(challenge + "Content-Length: 1000000000\r\n\r\n"),
         sendEndlessly(std::string(10000, 'x'))},
        {readRequest(), send(challenge + "Content-Length: 100\r\n\r\nstuck"), stall()},
        {readRequest(), send(challenge + "Transfer-Encoding: chunked\r\n\r\n5\r\nstu"), stall()}};
    for (const Script& refusal : refusals) {
        const Server server({refusal, {readRequest(), send(reply("200 OK", "hello"))}});
        const Got got = get(server, root_);
        EXPECT_EQ(got.body, "hello");
        EXPECT_EQ(got.mode, CONNECT_HTTP_AUTH);
        EXPECT_LT(got.milliseconds, 5000);
        EXPECT_TRUE(has(server.requests().at(1), basicAnswer));
    }
}

TEST_F(DownloadCredentials, ADigestChallengeWithAStuckBodyIsAnsweredWithDigest) {
    const Server server(
        {{readRequest(),
          send("HTTP/1.1 401 Who\r\nWWW-Authenticate: Digest realm=\"encoder\", nonce=\"n0nce\", "
               "qop=\"auth\"\r\nContent-Length: 100\r\n\r\nstuck"),
          stall()},
         protectedByDigest()});
    EXPECT_EQ(get(server, root_).body, "hello");
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_TRUE(isRightDigest(server.requests()[1], "s3cret"));
}

} // namespace
