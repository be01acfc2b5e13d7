// RTSP requests and their replies. rtsp_server_test.cpp tests the packets.
#include "appliance/encoder/testing/rtsp_test_client.h"
#include "appliance/encoder/testing/test_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using testing::HasSubstr;

constexpr const char* path = rtspTestPath;
constexpr const char* everyKind = everyRtspKind;

} // namespace

TEST(RtspRequests, DescribesAPathAndAUrl) {
    const TestEncoder encoder({"--kinds", everyKind, "--inputs", "2"});
    RtspClient client(encoder.rtsp());
    for (const std::string& url :
         {std::string(path), "rtsp://127.0.0.1:" + std::to_string(encoder.rtsp()) + path,
          std::string("/mpeg4/2/media.orv"), std::string("/mpeg4/quad/media.orv")}) {
        ClientReply reply = client.ask("DESCRIBE", url, "Accept: application/sdp\r\n");
        EXPECT_EQ(reply.status, 200) << url;
        EXPECT_EQ(reply.headers["content-type"], "application/sdp");
        EXPECT_EQ(reply.headers["content-base"], url + "/");
        EXPECT_THAT(reply.body, HasSubstr("MP4V-ES/90000"));
        EXPECT_THAT(reply.body, HasSubstr("config=000001b0"));
        EXPECT_THAT(reply.body, HasSubstr("a=control:trackID=1\r\n"));
    }
    EXPECT_EQ(client.ask("DESCRIBE", "/mpeg4/3/media.orv").status, 404);
    EXPECT_EQ(client.ask("DESCRIBE", "/else").status, 404);
}

TEST(RtspRequests, ASourceWithoutPicturesIsNotDescribed) {
    const TestEncoder encoder({"--kinds", everyKind, "--input", "http://127.0.0.1:1/nothing"});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.ask("DESCRIBE", path).status, 503);
    EXPECT_EQ(get(encoder.http(), path).status, 503);
}

TEST(RtspRequests, TransportsThatAreSwitchedOffGet461) {
    const std::pair<const char*, const char*> cases[] = {
        {"rtsp-unicast", "RTP/AVP;multicast"},
        {"rtsp-unicast", "RTP/AVP/TCP;unicast;interleaved=0-1"},
        {"rtsp-tcp", "RTP/AVP;multicast"},
        {"rtsp-tcp", "RTP/AVP;unicast;client_port=5000-5001"},
        {"rtsp-multicast", "RTP/AVP;unicast;client_port=5000-5001"}};
    for (const auto& [kind, transport] : cases) {
        const TestEncoder encoder({"--kinds", kind});
        RtspClient client(encoder.rtsp());
        EXPECT_EQ(client.ask("DESCRIBE", path).status, 200);
        EXPECT_EQ(client.setUp(transport).status, 461) << kind << " " << transport;
    }
    EXPECT_EQ(TestEncoder({"--kinds", "rtsp-http"}).rtsp(), 0) << "RTSP over HTTP needs no port of its own";
}

TEST(RtspRequests, TheFirstOfferedTransportOfAListIsTaken) {
    const TestEncoder encoder({"--kinds", "rtsp-tcp"});
    RtspClient client(encoder.rtsp());
    EXPECT_THAT(client.setUp("RTP/AVP;unicast;client_port=5000-5001, RTP/AVP/TCP;unicast;interleaved=0-1")
                    .headers["transport"],
                testing::StartsWith("RTP/AVP/TCP;unicast;interleaved=0-1"));
}

TEST(RtspRequests, CredentialsAreBasicEvenIfHttpAsksForDigest) {
    const TestEncoder encoder({"--kinds", everyKind, "--user", "joe", "--password", "pw", "--digest"});
    RtspClient client(encoder.rtsp());
    ClientReply reply = client.ask("DESCRIBE", path);
    EXPECT_EQ(reply.status, 401);
    EXPECT_THAT(reply.headers["www-authenticate"], HasSubstr("Basic realm="));
    EXPECT_EQ(client.ask("DESCRIBE", path, basicCredentials("joe:no")).status, 401);
    EXPECT_EQ(client.ask("DESCRIBE", path, basicCredentials("joe:pw")).status, 200)
        << "on the same connection";
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 401);
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1", basicCredentials("joe:pw")).status, 200);
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 401);
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    EXPECT_THAT(get(encoder.http(), "/requests").body,
                HasSubstr("\"protocol\": \"rtsp\", \"connection\": 1, \"method\": \"DESCRIBE\", \"target\": "
                          "\"/mpeg4/1/media.orv\", \"user\": \"joe\", \"status\": 200"));
}

TEST(RtspRequests, SessionsAndTracksAreChecked) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.ask("PLAY", path).status, 454);
    EXPECT_EQ(client.ask("SETUP", std::string(path) + "/stream=0", "Transport: RTP/AVP/TCP\r\n").status, 404);
    EXPECT_EQ(client.ask("SETUP", path, "Transport: RTP/AVP/TCP\r\n").status, 200)
        << "a single track may be left out";
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    EXPECT_EQ(client.ask("PLAY", path, "Session: 1\r\n").status, 454);
    EXPECT_EQ(client.ask("GET_PARAMETER", path).status, 200);
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 200);
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 454);
}

TEST(RtspRequests, PlayAndTeardownMayNameTheTrack) {
    const TestEncoder encoder({"--kinds", everyKind});
    const std::string track = std::string(path) + "/trackID=1";
    RtspClient client(encoder.rtsp());
    ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    EXPECT_EQ(client.ask("PLAY", std::string(path) + "/trackID=2", client.session).status, 460);
    EXPECT_EQ(client.ask("PLAY", track, client.session).status, 200);
    EXPECT_TRUE(client.packet().has_value());
    RtspClient other(encoder.rtsp());
    ASSERT_EQ(other.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    EXPECT_EQ(
        other.ask("TEARDOWN", "rtsp://127.0.0.1:" + std::to_string(encoder.rtsp()) + track, other.session)
            .status,
        200);
    EXPECT_EQ(other.ask("PLAY", track, other.session).status, 454);
}

TEST(RtspRequests, TrackNamesAndSessionIdsAreConfigurable) {
    const TestEncoder encoder({"--kinds", everyKind, "--track", "stream=0", "--session-ids", "text"});
    RtspClient client(encoder.rtsp());
    EXPECT_THAT(client.ask("DESCRIBE", path).body, HasSubstr("a=control:stream=0\r\n"));
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 404);
    const ClientReply reply =
        client.ask("SETUP", std::string(path) + "/stream=0", "Transport: RTP/AVP/TCP\r\n");
    EXPECT_THAT(reply.headers.at("session"), testing::Not(testing::MatchesRegex("[0-9]+;.*")));
}

TEST(RtspRequests, ARangeIsAcceptedAndIgnored) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ClientReply reply = client.ask("PLAY", path, client.session + "Range: npt=0-\r\n");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.headers["range"], "npt=now-");
    EXPECT_TRUE(client.packet().has_value());
}

TEST(RtspRequests, MediaPathsAnswerAPlainGetOnlyIfRtspOverHttpIsOffered) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--user", "joe", "--password", "pw"});
    EXPECT_EQ(get(encoder.http(), path).status, 401);
    const ClientReply reply = get(encoder.http(), path, basicCredentials("joe:pw"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.body, HasSubstr("m=video"));
    EXPECT_EQ(get(encoder.http(), "/mpeg4/7/media.orv", basicCredentials("joe:pw")).status, 404);
    const TestEncoder other({"--kinds", "rtsp-tcp"});
    EXPECT_EQ(get(other.http(), path).status, 404);
}

TEST(RtspRequests, MalformedRequestsDoNotHarmOtherClients) {
    const TestEncoder encoder({"--kinds", everyKind});
    std::vector<std::unique_ptr<Client>> clients;
    for (const std::string& bytes :
         {std::string("nonsense\r\n\r\n"), std::string("DESCRIBE * RTSP/1.0\r\nCSeq: 1\r\n\r\n"),
          "DESCRIBE / RTSP/1.0\r\n" + std::string(20000, 'x'),
          std::string("DESCRIBE / RTSP/1.0\r\nContent-Length: 99999999\r\n\r\n"),
          std::string("SETUP /mpeg4/1/media.orv RTSP/1.0\r\nTransport: \r\nTransport: x;y=z\r\n\r\n")}) {
        clients.push_back(std::make_unique<Client>(encoder.rtsp()));
        clients.back()->send(bytes);
    }
    EXPECT_EQ(RtspClient(encoder.rtsp()).ask("OPTIONS", "*").status, 200);
}

TEST(RtspRequests, ReceiverReportsBetweenRequestsAreSkipped) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    client.tcp.send(std::string("$\1\0\5", 4) + "junk\n" + std::string("$\1\0\0", 4));
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    client.tcp.send(std::string("$\1\0\5jun", 7)); // in two pieces
    client.tcp.send("k\n");
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
}

TEST(RtspRequests, ATunnelToAMissingCameraGets404) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--inputs", "2"});
    Client client(encoder.http());
    client.send("GET /mpeg4/3/media.orv HTTP/1.0\r\nx-sessioncookie: abc\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 404);
}

TEST(RtspRequests, TheRtspPortRefusesTunnels) {
    const TestEncoder encoder({"--kinds", everyKind});
    for (const char* method : {"GET", "POST"}) {
        Client client(encoder.rtsp());
        client.send(tunnelHead(method));
        EXPECT_EQ(client.readToEnd(), "");
    }
}

TEST(RtspRequests, TheHttpPortAnswersBothProtocols) {
    const TestEncoder encoder({"--kinds", "mjpeg,rtsp-tcp"});
    RtspClient client(encoder.http());
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    EXPECT_EQ(client.ask("DESCRIBE", path).status, 200);
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 200);
    EXPECT_TRUE(client.packet().has_value());
    Client http(encoder.http());
    http.send("OPTIONS * HTTP/1.1\r\n\r\n");
    EXPECT_EQ(http.readReply().status, 405);
    EXPECT_EQ(http.get("/vexo-cgi/jpg/image.cgi").status, 200) << "on the same connection";
}

TEST(RtspRequests, TheFirstLineMayArriveInPieces) {
    const TestEncoder encoder({"--kinds", "rtsp-tcp"});
    Client client(encoder.http());
    for (const char* piece : {"OPT", "IONS", " * RTSP", "/1.0\r\nCSeq: 1\r\n\r\n"}) {
        client.send(piece);
        EXPECT_TRUE(piece[0] == '/' || client.silentFor(50));
    }
    EXPECT_EQ(client.readReply().status, 200);
}

TEST(RtspRequests, TheHttpPortRefusesPlainRtspIfOnlyTunnelsAreOffered) {
    const TestEncoder encoder({"--kinds", "rtsp-http"});
    RtspClient client(encoder.http());
    client.tcp.send(std::string("DESCRIBE ") + path + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    EXPECT_THAT(client.tcp.readToEnd(), testing::StartsWith("HTTP/1.1 400"));
}
