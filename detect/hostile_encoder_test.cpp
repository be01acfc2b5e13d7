// Broken and hostile encoders: each detection ends with an error or an acceptance, within the timeouts of its requests.
#include "detect/network_detection_fixture.h"
#include "tests/support/scripted_server.h"

#include <libcommon/libcommon.h>

#include <gmock/gmock.h>
#include <ostream>
#include <tuple>

using namespace std::chrono_literals;
using scripted::readRequest;
using scripted::send;
using scripted::sendEndlessly;
using scripted::sendSlowly;
using scripted::stall;
using scripted::startOver;

namespace detect_test {
namespace {

constexpr End unicast{0, TYPE_RTSP_UNICAST};
constexpr End overTcp{0, TYPE_RTSP_TCP};
constexpr End mjpeg{0, TYPE_MJPEG};
constexpr End failed{11, 0};
constexpr End nothing{20, 0};

// ---- An encoder that treats every connection in the same way. ----

struct HostileServer {
    const char* name;
    scripted::Script script;
    End end;
};

std::ostream& operator<<(std::ostream& out, const HostileServer& server) {
    return out << server.name;
}

class HostileEncoder : public NetworkDetection, public testing::WithParamInterface<HostileServer> {};

TEST_P(HostileEncoder, EndsInTimeWithTheRightError) {
    EXPECT_TRUE(detect({GetParam().script}, 1));
    expectEnd(GetParam().end);
    expectBounded(1);
}

const std::string ok = "HTTP/1.1 200 OK\r\n";
const std::string block(65536, 'x');

// Always the same answer, on connections that are kept open.
scripted::Script answering(const std::string& answer) {
    return {readRequest(), send(answer), startOver()};
}

INSTANTIATE_TEST_SUITE_P(
    Servers, HostileEncoder,
    testing::Values(
        HostileServer{"AcceptsAndStaysSilent", {readRequest(), stall()}, {11, 0}},
        HostileServer{"ClosesAtOnce", {scripted::close()}, {11, 0}},
        HostileServer{"ClosesAfterEachRequest", {readRequest(), scripted::close()}, {11, 0}},
        HostileServer{"ResetsAfterEachRequest", {readRequest(), scripted::reset()}, {11, 0}},
        HostileServer{
            "EndlessHeader", {readRequest(), send(ok), sendEndlessly("X-Padding: yes\r\n")}, {11, 0}},
        HostileServer{
            "EndlessInformation", {readRequest(), sendEndlessly("HTTP/1.1 100 Continue\r\n\r\n")}, {11, 0}},
        // Every request is answered with the beginning of a gigabyte, the MPEG-2 stream, too.
        HostileServer{"Gigabyte",
                      {readRequest(), send(ok + "Content-Length: 1000000000\r\n\r\n"), sendEndlessly(block)},
                      {0, TYPE_MPEG2}},
        HostileServer{"GigabyteThatNeverComes",
                      {readRequest(), send(ok + "Content-Length: 1000000000\r\n\r\n"), stall()},
                      {11, 0}},
        HostileServer{"EndlessBodyOfUnknownLength",
                      {readRequest(), send(ok + "\r\n"), sendEndlessly(block)},
                      {0, TYPE_MPEG2}},
        HostileServer{"Binary", answering(std::string("\0\1\2\xff\xfe\x80\r\n\r\n\0", 11)), {11, 0}},
        HostileServer{"EndlessBinary", {sendEndlessly(std::string("\0\xff\x80\x7f", 4))}, {11, 0}},
        HostileServer{
            "HeaderBreaksOff", {readRequest(), send(ok + "Content-Le"), scripted::close()}, {11, 0}},
        HostileServer{"BodyBreaksOff",
                      {readRequest(), send(ok + "Content-Length: 100\r\n\r\nBrand"), scripted::close()},
                      {11, 0}},
        HostileServer{"SlowHeader", {readRequest(), sendSlowly(ok + block, 50ms)}, {11, 0}},
        HostileServer{"SlowBody",
                      {readRequest(), send(ok + "Content-Length: 60000\r\n\r\n"), sendSlowly(block, 50ms)},
                      {11, 0}},
        HostileServer{"SpeaksRtspOnly", answering("RTSP/1.0 400 Bad Request\r\nCSeq: 0\r\n\r\n"), {11, 0}},
        HostileServer{"EmptyAnswers", answering(scripted::reply("200 OK", "")), {11, 0}},
        HostileServer{"KnowsNobody", answering(scripted::reply("401 Unauthorized", "")), {24, 0}},
        HostileServer{"KnowsNobodyAndSaysSoForever",
                      {readRequest(), send("HTTP/1.1 401 Unauthorized\r\n\r\n"), sendEndlessly(block)},
                      {24, 0}},
        HostileServer{"HasNothing", answering(scripted::reply("404 Not Found", "")), {20, 0}},
        HostileServer{
            "FailsAtEverything", answering(scripted::reply("500 Internal Server Error", "")), {20, 0}},
        HostileServer{"SendsElsewhere",
                      answering(scripted::reply("302 Found", "", "Location: http://127.0.0.1:1/\r\n")),
                      {20, 0}}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(NetworkDetection, EncoderWhoseConnectionsAreNeverAcceptedIsErrorThirtyTwo) {
    const scripted::FullBacklog port;
    EXPECT_TRUE(detect(port.port(), 1));
    EXPECT_EQ(entry_.errorCode, 32) << trace();
    expectBounded(1);
}

// ---- A good encoder with one bad habit, at one of its requests. ----

enum class Offer { Rtsp, Mjpeg, Nothing };

struct Request {
    const char* name;
    const char* words; // of its first line
    Offer offer;
    End unanswered;
    End closedAfterwards;
};

std::ostream& operator<<(std::ostream& out, const Request& request) {
    return out << request.name;
}

struct Habit {
    const char* name;
    const char* answer; // instead of the right one; null: the right one, and then the connection is closed
    bool closes;
};

std::ostream& operator<<(std::ostream& out, const Habit& habit) {
    return out << habit.name;
}

class BadHabit : public NetworkDetection, public testing::WithParamInterface<std::tuple<Request, Habit>> {
protected:
    static Encoder::Answers answers(UnicastEncoder& encoder, Offer offer) {
        switch (offer) {
        case Offer::Rtsp:
            return encoder.answers();
        case Offer::Mjpeg:
            return {{"Image.Format", always(scripted::reply("200 OK", "Properties.Image.Format=jpeg\n"))},
                    {"mjpg/video.cgi", always("HTTP/1.1 200 OK\r\n\r\n--boundary\r\n")}};
        case Offer::Nothing:
            break;
        }
        return {};
    }
};

TEST_P(BadHabit, EndsInTimeWithTheRightError) {
    const auto& [request, habit] = GetParam();
    UnicastEncoder encoder;
    Encoder::Answers good = answers(encoder, request.offer);
    if (habit.answer != nullptr)
        good[request.words] = always(habit.answer);
    const auto isTheRequest = [words = request.words](const std::string& text) {
        return firstLine(text).find(words) != std::string::npos;
    };
    scripted::Script script = Encoder(good).script();
    if (habit.closes)
        script.insert(script.begin() + 2, scripted::closeWhen(isTheRequest));
    EXPECT_TRUE(detect({script}, 1));
    expectEnd(habit.answer == nullptr ? request.closedAfterwards : request.unanswered);
    expectBounded(1);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, BadHabit,
    testing::Combine(
        testing::Values(Request{"Version", "HTTP.Version", Offer::Rtsp, unicast,
                                unicast}, // it counts as version 2
                        Request{"Model", "Brand.ProdFullName", Offer::Rtsp, failed, unicast},
                        Request{"Sources", "NbrOfSources", Offer::Rtsp, unicast, unicast},
                        Request{"Rotation", "Image.Rotation", Offer::Rtsp, unicast, unicast},
                        Request{"Formats", "Image.Format", Offer::Rtsp, failed, unicast},
                        Request{"Describe", "DESCRIBE", Offer::Rtsp, nothing, unicast},
                        Request{"Setup", "SETUP", Offer::Rtsp, overTcp, overTcp},
                        Request{"Play", "PLAY", Offer::Rtsp, overTcp, unicast},
                        Request{"Teardown", "TEARDOWN", Offer::Rtsp, unicast, unicast},
                        Request{"RtspOverHttp", "GET /mpeg4/1/media.orv", Offer::Nothing, nothing, nothing},
                        Request{"Description", "guide.sdp", Offer::Nothing, nothing, nothing},
                        Request{"Mpeg2", "mpeg2/video.cgi", Offer::Nothing, nothing, nothing},
                        Request{"Mjpeg", "mjpg/video.cgi", Offer::Mjpeg, nothing, mjpeg},
                        Request{"Audio", "audio/receive.cgi", Offer::Mjpeg, mjpeg, mjpeg}),
        testing::Values(Habit{"Silent", "", false}, Habit{"Garbled", "\x80\xff garbage\n\r\n\r\n", false},
                        Habit{"CutOff", "HTTP/1.1 200 OK\r\nContent-Le", true}, Habit{"Closed", "", true},
                        Habit{"ClosedAfterwards", nullptr, true})),
    [](const auto& instance) {
        return std::string(std::get<0>(instance.param).name) + std::get<1>(instance.param).name;
    });

// ---- Answers to DESCRIBE. ----

struct Description {
    const char* name;
    scripted::Script script; // of the RTSP connection
    bool accepted;
};

std::ostream& operator<<(std::ostream& out, const Description& description) {
    return out << description.name;
}

class HostileDescription : public NetworkDetection, public testing::WithParamInterface<Description> {};

TEST_P(HostileDescription, EndsInTime) {
    entry_.configuredType = TYPE_RTSP_TCP;
    EXPECT_TRUE(detect({Encoder({}).script(), GetParam().script}, 1)) << "parameters, then RTSP";
    expectEnd(GetParam().accepted ? overTcp : failed);
    expectBounded(1);
}

const std::string interleaved = std::string("$\0\0\4abcd", 8);

INSTANTIATE_TEST_SUITE_P(
    Answers, HostileDescription,
    testing::Values(
        Description{"Silence", {readRequest(), stall()}, false},
        Description{"Garbage", answering(std::string("\0\xff\x80garbage\n\n\r\n\r\n", 16)), false},
        Description{"TruncatedHeader", {readRequest(), send("RTSP/1.0 200 OK\r\nCSeq: "), stall()}, false},
        Description{"EndlessHeader",
                    {readRequest(), send("RTSP/1.0 200 OK\r\n"), sendEndlessly("X-Padding: yes\r\n")},
                    false},
        Description{"SlowHeader", {readRequest(), sendSlowly(rtspReply(block), 50ms)}, false},
        Description{"EndlessPackets", {readRequest(), sendEndlessly(interleaved)}, false},
        Description{"ClosedAtOnce", {scripted::close()}, false},
        Description{"ClosedInsteadOfAnAnswer", {readRequest(), scripted::close()}, false},
        Description{"ResetInsteadOfAnAnswer", {readRequest(), scripted::reset()}, false},
        Description{"ClosedInTheHeader", {readRequest(), send("RTSP/1.0 200"), scripted::close()}, false},
        Description{"AnswerOfAnHttpServer", answering("HTTP/1.1 200 OK\r\n\r\n"), true},
        Description{"HugeBodyThatNeverComes",
                    {readRequest(), send(rtspReply("Content-Length: 1000000000\r\n")), stall()},
                    true},
        Description{"HugeBodyThatComes",
                    {readRequest(), send(rtspReply("Content-Length: 1000000000\r\n")), sendEndlessly(block)},
                    true},
        Description{"SlowBody",
                    {readRequest(), send(rtspReply("Content-Length: 60000\r\n")), sendSlowly(block, 50ms)},
                    true},
        Description{"NegativeLength", answering(rtspReply("Content-Length: -1\r\n")), true},
        Description{"WrongSequenceNumber", answering("RTSP/1.0 200 OK\r\nCSeq: 4711\r\n\r\n"), true},
        Description{"PacketsBefore", answering(interleaved + interleaved + rtspReply()), true}),
    [](const auto& instance) { return instance.param.name; });

// ---- Sessions that are not numbers. ----

struct Session {
    const char* name;
    const char* header;   // of the answer to SETUP
    const char* expected; // of the requests that follow
};

class OddSession : public NetworkDetection, public testing::WithParamInterface<Session> {};

TEST_P(OddSession, IsNamedAsItsNumber) {
    UnicastEncoder encoder;
    Encoder::Answers answers = encoder.answers();
    answers["SETUP"] = [setup = answers["SETUP"]](const std::string& request) {
        std::string answer = setup(request);
        const std::string named = "Session: 12345678;timeout=60\r\n";
        if (const auto at = answer.find(named); at != std::string::npos)
            answer.replace(at, named.size(), GetParam().header);
        return answer;
    };
    EXPECT_TRUE(detect(Encoder(answers)));
    EXPECT_EQ(entry_.detectedType, TYPE_RTSP_UNICAST) << trace();
    for (const char* method : {"PLAY ", "TEARDOWN "})
        EXPECT_THAT(requests_, testing::Contains(testing::AllOf(testing::StartsWith(method),
                                                                testing::HasSubstr(GetParam().expected))));
}

INSTANTIATE_TEST_SUITE_P(Headers, OddSession,
                         testing::Values(Session{"Missing", "", "\r\nSession: 0\r\n"},
                                         Session{"Empty", "Session:\r\n", "\r\nSession: 0\r\n"},
                                         Session{"Letters", "Session: aBc-4\r\n", "\r\nSession: 0\r\n"},
                                         Session{"DigitsAndLetters", "Session: 47aBc\r\n",
                                                 "\r\nSession: 47\r\n"}),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace detect_test
