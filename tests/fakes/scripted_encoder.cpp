#include "tests/fakes/scripted_encoder.h"

#include "detect/detection.h"
#include "detect/multicast_group.h"
#include "detect/probe_wait.h"
#include "detect/rtsp_transport_wait.h"
#include "player/port_pairs.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace detect_test {
namespace {

// The encoder in one run.
class Encoder {
public:
    Encoder(const Case& one, Disturbance disturbance, std::size_t where)
        : case_(one), disturbance_(disturbance), where_(where) {}

    // Plays the next exchange, which must be this request. Null: it fails because of a disturbance, or because the
    // request was not expected.
    const Exchange* play(const std::string& request) {
        if (disturbed_ && disturbance_ == Disturbance::NetworkInterrupted) {
            afterwards_ += request.starts_with("LEAVE") ? 0 : 1;
            return nullptr;
        }
        const std::size_t step = next_++;
        if (step >= case_.exchanges.size() || !matches(case_.exchanges[step].request, request)) {
            ADD_FAILURE() << case_.name << ", exchange " << step << "\n  asked: " << request
                          << "\n  expected: "
                          << (step < case_.exchanges.size() ? case_.exchanges[step].request : "nothing more");
            return nullptr;
        }
        if (disturbance_ != Disturbance::None && step == where_ && disturb())
            return nullptr;
        return &case_.exchanges[step];
    }

    std::string replyTo(const std::string& request) {
        const Exchange* exchange = play(request);
        return exchange == nullptr || exchange->reply.empty() ? "failed" : exchange->reply.front();
    }

    const Case& theCase() const { return case_; }
    std::size_t exchanges() const { return next_; }
    std::size_t afterwards() const { return afterwards_; }
    int sequenceBegan() const { return firstSequence_; }

    const Exchange* lastRtsp = nullptr; // what the next answer is read from
    int connection = -1;                // the RTSP connection that was opened last

private:
    // True: the exchange fails.
    bool disturb() {
        disturbed_ = true;
        if (disturbance_ == Disturbance::SignalPending) {
            kill(getpid(), SIGUSR1);
            return false;
        }
        fake::interrupted = true;
        return true;
    }

    // Case files count sequence numbers from 0. A process that runs several cases continues to count, so the first
    // request of a case gives the offset.
    bool matches(const std::string& expected, const std::string& actual) {
        const int expectedNumber = sequenceNumber(expected);
        const int actualNumber = sequenceNumber(actual);
        if (expectedNumber == -1 || actualNumber == -1)
            return expected == actual;
        if (firstSequence_ == -1)
            firstSequence_ = actualNumber - expectedNumber;
        std::string shifted = expected;
        const auto at = shifted.find(sequenceHeader) + sequenceHeader.size();
        shifted.replace(at, shifted.find('\r', at) - at, std::to_string(expectedNumber + firstSequence_));
        return shifted == actual;
    }

    static int sequenceNumber(const std::string& request) {
        const auto at = request.find(sequenceHeader);
        return at == std::string::npos ? -1 : std::atoi(request.c_str() + at + sequenceHeader.size());
    }

    inline static const std::string sequenceHeader = "CSeq: ";

    const Case& case_;
    Disturbance disturbance_;
    std::size_t where_;
    std::size_t next_ = 0;
    std::size_t afterwards_ = 0;
    bool disturbed_ = false;
    int firstSequence_ = -1;
};

Encoder* encoder = nullptr; // the one of the run

int openNothing() {
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

fake::Reply httpReply(const std::string& text) {
    fake::Reply reply;
    std::string rest = text;
    if (text.starts_with('"')) {
        reply.body = unquoted(text.substr(0, text.rfind('"') + 1));
        rest = text.substr(text.rfind('"') + 1);
    } else {
        reply.result = std::atoi(text.c_str());
    }
    std::istringstream words(rest);
    for (std::string word; words >> word;) {
        const std::string value = word.substr(word.find('=') + 1);
        if (word.starts_with("mode="))
            reply.mode = static_cast<ConnectMode>(std::stoi(value));
        else if (word.starts_with("port="))
            reply.port = static_cast<unsigned short>(std::stoi(value));
        else if (word.starts_with("host="))
            reply.host = value;
        else if (word.starts_with("took="))
            fake::now += 1000LL * std::stoi(value);
        else if (word.starts_with("times=")) {
            const std::string once = reply.body;
            for (int i = 1; i < std::stoi(value); ++i)
                reply.body += once;
        }
    }
    return reply;
}

fake::Reply answerDownload(const fake::Request& request) {
    const Case& one = encoder->theCase();
    EXPECT_EQ(request.timeout, one.timeout == 0 ? 1 : one.timeout);
    std::string text;
    if (request.function == "download") {
        EXPECT_EQ(request.address, one.entry.address);
        EXPECT_EQ(request.user, one.entry.userName);
        EXPECT_EQ(request.password, one.entry.password);
        text = "GET " + request.path;
    } else {
        EXPECT_EQ(request.function, "downloadHTTP");
        EXPECT_FALSE(request.flag) << "no credentials";
        EXPECT_EQ(request.user + request.password, "");
        text = "HTTP " + request.address + " " + std::to_string(request.port) + " " + request.path;
    }
    const Exchange* exchange = encoder->play(text);
    if (exchange == nullptr || exchange->reply.empty())
        return {.body = {}, .result = -42};
    return httpReply(exchange->reply.front());
}

int connectToEncoder(const std::string& host, unsigned short port, bool blocking, int timeout) {
    EXPECT_TRUE(blocking);
    EXPECT_EQ(timeout, encoder->theCase().timeout);
    EXPECT_TRUE(encoder->connection == -1 || fcntl(encoder->connection, F_GETFD) == -1)
        << "the former connection is closed first: some encoders have only one";
    const bool connected = encoder->replyTo("TCP " + host + " " + std::to_string(port)) == "ok";
    encoder->connection = connected ? openNothing() : -1;
    return encoder->connection;
}

int openUdpSocket(const std::string& host, unsigned short port, bool fromHostOnly) {
    EXPECT_TRUE(fromHostOnly);
    return encoder->replyTo("UDP " + host + " " + std::to_string(port)) == "ok" ? openNothing() : -1;
}

int takeRequest(int connection, const void* bytes, std::size_t length) {
    if (connection == -1)
        return -1;
    encoder->lastRtsp = encoder->play("RTSP " + std::string(static_cast<const char*>(bytes), length));
    const bool unsent = encoder->lastRtsp == nullptr ||
                        (!encoder->lastRtsp->reply.empty() && encoder->lastRtsp->reply.front() == "unsent");
    return unsent ? -1 : 1;
}

int giveAnswer(int, ResponseHeader& header) {
    const Exchange* exchange = encoder->lastRtsp;
    if (exchange == nullptr || exchange->reply.empty() || exchange->reply.front() == "unread")
        return -1;
    header.statusCode = std::atoi(exchange->reply.front().c_str());
    for (std::size_t i = 1; i < exchange->reply.size(); ++i) {
        const std::string& line = exchange->reply[i];
        const auto colon = line.find(": ");
        header.headers[line.substr(0, colon).c_str()] = line.substr(colon + 2);
    }
    return 0;
}

int openDescriptors() {
    const auto all = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

void setUp(const Case& one) {
    fake::reset();
    fake::setParam(0, "Decoder.AutoDetectTimeout", std::to_string(one.timeout));
    fake::onRequest = answerDownload;
    fake::onConnectTCP = connectToEncoder;
    fake::onConnectUDP = openUdpSocket;
    fake::onWriteFD = takeRequest;
    fake::onParseResponseHeader = giveAnswer;
}

} // namespace

CaseRun runCase(const Case& one, Disturbance disturbance, std::size_t where) {
    setUp(one);
    Encoder theEncoder(one, disturbance, where);
    encoder = &theEncoder;
    CaseRun run;
    run.entry = one.entry;
    // Descriptor 0 is opened for this purpose: a detection that finds RTSP over HTTP closes it.
    const int standardInput = dup(0);
    const int before = openDescriptors();
    testing::internal::CaptureStdout();
    run.returned = detectSource(run.entry, statusId);
    std::fflush(stdout);
    run.output = testing::internal::GetCapturedStdout();
    run.inputClosed = fcntl(0, F_GETFD) == -1;
    run.descriptorsLeaked = openDescriptors() + (run.inputClosed ? 1 : 0) - before;
    dup2(standardInput, 0);
    close(standardInput);
    run.calls = fake::calls;
    run.exchanges = theEncoder.exchanges();
    run.afterwards = theEncoder.afterwards();
    run.sequenceBegan = theEncoder.sequenceBegan();
    encoder = nullptr;
    return run;
}

} // namespace detect_test

// Replaces the waits on sockets and the port search.

namespace detect {

using detect_test::encoder;

int skipBody(int, const ResponseHeader& header) {
    const auto found = header.headers.find("Content-Length");
    const std::string length = found == header.headers.end() ? "0" : found->second;
    encoder->play("BODY " + length);
    return std::atoi(length.c_str());
}

void awaitAnswer(int) {
    encoder->play("AWAIT");
}

bool joinMulticast(int& socket, const std::string& group, std::uint16_t port, ip_mreq& membership) {
    membership.imr_multiaddr.s_addr = port;
    if (encoder->replyTo("JOIN " + group + " " + std::to_string(port)) != "ok")
        return false;
    socket = detect_test::openNothing();
    return true;
}

void leaveMulticast(int& socket, const ip_mreq& membership) {
    if (socket == -1)
        return;
    encoder->play("LEAVE " + std::to_string(membership.imr_multiaddr.s_addr));
    close(socket);
    socket = -1;
}

int waitForTransport(int, int, int seconds) {
    EXPECT_EQ(seconds, encoder->theCase().timeout);
    const std::string reply = encoder->replyTo("WAIT");
    if (reply == "interrupted")
        setInterrupted();
    return reply == "packets" ? 1 : -1;
}

} // namespace detect

int allocateProbePortPair() {
    return detect_test::encoder->theCase().portsFound ? 10000 : -1;
}
