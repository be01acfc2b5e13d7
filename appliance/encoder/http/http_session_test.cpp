#include "appliance/encoder/http/http_session.h"

#include "appliance/encoder/testing/test_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

constexpr const char* modelQuery = "/vexo-cgi/view/param.cgi?action=list&group=Brand.ProdFullName";

std::string basic(const std::string& pair) {
    return "Authorization: Basic " + base64Encoded(pair) + "\r\n";
}

} // namespace

TEST(HttpSession, AllThreeParameterCgisAnswer) {
    const TestEncoder encoder({"--model", "My Encoder 2"});
    EXPECT_EQ(get(encoder.http(), modelQuery).body, "Brand.ProdFullName=My Encoder 2\n");
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/admin/param.cgi?action=list&group=root.BRAND.PRODFULLNAME").body,
              "root.BRAND.PRODFULLNAME=My Encoder 2\n");
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/admin/getparam.cgi?Properties.API.HTTP.Version").body,
              "Properties.API.HTTP.Version=2\n");
    EXPECT_THAT(get(encoder.http(), "/vexo-cgi/view/param.cgi?action=list&group=No").body,
                testing::StartsWith("#"));
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/view/param.cgi?action=set").status, 400);
}

TEST(HttpSession, AnOldDeviceAnswers404OnTheViewerCgi) {
    const TestEncoder encoder({"--api-version", "1"});
    EXPECT_EQ(
        get(encoder.http(), "/vexo-cgi/view/param.cgi?action=list&group=Properties.API.HTTP.Version").status,
        404);
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/admin/getparam.cgi?Brand.ProdFullName").status, 404);
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/admin/getparam.cgi?root.BRAND.PRODFULLNAME").body,
              "root.BRAND.PRODFULLNAME=Network Video Encoder\n");
}

TEST(HttpSession, AConnectionServesManyRequestsAlsoPipelined) {
    const TestEncoder encoder;
    Client client(encoder.http());
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(client.get(modelQuery).status, 200);
    client.send(std::string("GET ") + modelQuery + " HTTP/1.1\r\n\r\nGET /nothing HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 200);
    EXPECT_EQ(client.readReply().status, 404);
    EXPECT_THAT(get(encoder.http(), "/requests").body,
                HasSubstr("\"connection\": 1, \"method\": \"GET\", \"target\": \"/nothing\""));
}

TEST(HttpSession, AnHttp10ConnectionIsClosed) {
    const TestEncoder encoder;
    Client client(encoder.http());
    client.send(std::string("GET ") + modelQuery + " HTTP/1.0\r\n\r\n");
    EXPECT_THAT(client.readToEnd(), HasSubstr("Connection: close"));
    Client asking(encoder.http());
    EXPECT_EQ(asking.get(modelQuery, "Connection: close\r\n").headers["connection"], "close");
    EXPECT_EQ(asking.readToEnd(), "");
}

TEST(HttpSession, HeadGetsNoBody) {
    const TestEncoder encoder;
    Client client(encoder.http());
    client.send(std::string("HEAD ") + modelQuery + " HTTP/1.1\r\nConnection: close\r\n\r\n");
    const std::string all = client.readToEnd();
    EXPECT_THAT(all, HasSubstr("Content-Length: 41"));
    EXPECT_THAT(all, testing::EndsWith("\r\n\r\n"));
}

TEST(HttpSession, PresetNamesArriveUnchanged) {
    TestEncoder encoder;
    testing::internal::CaptureStdout();
    Client client(encoder.http());
    client.send("GET /vexo-cgi/com/ptz.cgi?gotoserverpresetname=Front door & gate=2% HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 200);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ptz gotoserverpresetname=Front door & gate=2%\n");
    EXPECT_THAT(get(encoder.http(), "/requests").body,
                HasSubstr("\"target\": \"/vexo-cgi/com/ptz.cgi?gotoserverpresetname=Front door & gate=2%\""));
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/com/ptz.cgi?pan=1").status, 400);
}

TEST(HttpSession, BasicCredentialsOpenTheCgis) {
    const TestEncoder encoder({"--user", "joe", "--password", "p w"});
    Client client(encoder.http());
    const ClientReply refused = client.get(modelQuery);
    EXPECT_EQ(refused.status, 401);
    EXPECT_THAT(refused.headers.at("www-authenticate"), HasSubstr("Basic realm="));
    EXPECT_EQ(client.get(modelQuery, basic("joe:p w")).status, 200); // on the same connection
    EXPECT_EQ(client.get(modelQuery, basic("joe:no")).status, 401);
    EXPECT_EQ(client.get("/vexo-cgi/mjpg/video.cgi").status, 401);
    const std::string log = get(encoder.http(), "/requests").body;
    EXPECT_THAT(log, HasSubstr("\"user\": \"joe\", \"status\": 200"));
    EXPECT_THAT(log, HasSubstr("\"user\": \"\", \"status\": 401"));
    EXPECT_THAT(log, testing::Not(HasSubstr("p w")));
}

TEST(HttpSession, RequestsAreListed) {
    const TestEncoder encoder;
    get(encoder.http(), "/nothing?a=\"b\"");
    EXPECT_THAT(get(encoder.http(), "/requests").body,
                testing::MatchesRegex(
                    "\\[\n\\{\"time\": [0-9]+, \"protocol\": \"http\", \"connection\": 1, \"method\": "
                    "\"GET\", \"target\": \"/nothing\\?a=\\\\\"b\\\\\"\", \"user\": \"\", \"status\": "
                    "404\\}\n\\]\n"));
    Client client(encoder.http());
    client.send("DELETE /requests HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readReply().body, "[\n]\n");
}

TEST(HttpSession, FaultsAreSwitchedByPost) {
    const TestEncoder encoder;
    const auto post = [&](const std::string& list) {
        Client client(encoder.http());
        client.send("POST /faults HTTP/1.1\r\nContent-Length: " + std::to_string(list.size()) + "\r\n\r\n" +
                    list);
        return client.readReply();
    };
    EXPECT_EQ(post("404 stall=3").body, "404 stall=3\n");
    EXPECT_EQ(get(encoder.http(), modelQuery).status, 404);
    EXPECT_EQ(post("nonsense").status, 400);
    EXPECT_EQ(get(encoder.http(), "/faults").body, "404 stall=3\n");
    EXPECT_EQ(post("").body, "\n");
    EXPECT_EQ(get(encoder.http(), modelQuery).status, 200);
    Client page(encoder.http());
    EXPECT_EQ(page.get("/faults", "Origin: http://elsewhere\r\n").status, 403);
}

TEST(HttpSession, TheControlPortHasOnlyTheControlPages) {
    const TestEncoder encoder({"--control", "0", "--fault", "404"});
    EXPECT_EQ(get(encoder.control(), "/faults").body, "404\n");
    EXPECT_EQ(get(encoder.control(), "/requests").status, 200);
    const ClientReply reply = get(encoder.control(), modelQuery);
    EXPECT_EQ(reply.status, 404);
    EXPECT_THAT(reply.body, HasSubstr("only /faults"));
}

TEST(HttpSession, MalformedRequestsAreRefusedAndTheConnectionClosed) {
    const TestEncoder encoder;
    const std::pair<std::string, const char*> cases[] = {
        {"nonsense\r\n\r\n", "400"},
        {"GET / HTTP/3.0\r\n\r\n", "400"},
        {"DESCRIBE / RTSP/1.0\r\nCSeq: 1\r\n\r\n", "400"},
        {"GET / HTTP/1.1\r\nno colon here\r\n\r\n", "400"},
        {"POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", "400"},
        {"POST / HTTP/1.1\r\nContent-Length: 999999\r\n\r\n", "413"},
        {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n", "501"},
        {std::string("\x16\x03\x01\x02\x00\x01\x00\n\n", 9), "400"},
    };
    for (const auto& [bytes, status] : cases) {
        Client client(encoder.http());
        client.send(bytes);
        EXPECT_THAT(client.readToEnd(), testing::StartsWith(std::string("HTTP/1.1 ") + status)) << bytes;
    }
    Client client(encoder.http());
    EXPECT_EQ(client.get(modelQuery).status, 200);
    client.send("PUT / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 405);
}

TEST(HttpSession, AnEndlessHeadIsCutOff) {
    const TestEncoder encoder;
    Client client(encoder.http());
    std::string head = "GET / HTTP/1.1\r\n";
    while (head.size() <= maxHeadBytes + 4096)
        head += "X: " + std::string(1000, 'x') + "\r\n";
    client.send(head);
    EXPECT_THAT(client.readToEnd(), testing::StartsWith("HTTP/1.1 431"));
    EXPECT_EQ(get(encoder.http(), modelQuery).status, 200);
}

TEST(HttpSession, AMissingBodyDelaysNoOtherClient) {
    TestEncoder encoder;
    Client waiting(encoder.http());
    waiting.send("POST /faults HTTP/1.1\r\nContent-Length: 10\r\n\r\nhalf");
    EXPECT_EQ(get(encoder.http(), modelQuery).status, 200);
    encoder.stop(); // returns although the client still holds its connection
    EXPECT_EQ(waiting.readToEnd(), "");
}
