#include "detect/network_detection_fixture.h"

#include "detect/detection.h"
#include "tests/fakes/network_namespace.h"

#include <libcommon/libcommon.h>

#include <arpa/inet.h>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace detect_test {

namespace {

using namespace std::chrono_literals;

constexpr auto busyMachine = 5s;

void sendPacket(const std::string& address, int port) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    sendto(fd, "packet", 6, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    close(fd);
}

bool holds(const std::string& text, const std::string& words) {
    return text.find(words) != std::string::npos;
}

} // namespace

PacketSender::PacketSender(std::string address, int port)
    : thread_([this, address = std::move(address), port] {
          while (!done_) {
              sendPacket(address, port);
              sendPacket(address, port + 1);
              std::this_thread::sleep_for(5ms);
          }
      }) {}

PacketSender::~PacketSender() {
    done_ = true;
    thread_.join();
}

std::string firstLine(const std::string& request) {
    return request.substr(0, request.find('\r'));
}

scripted::Answer always(const std::string& text) {
    return [text](const std::string&) { return text; };
}

std::string rtspReply(const std::string& headers) {
    return "RTSP/1.0 200 OK\r\nCSeq: 0\r\n" + headers + "\r\n";
}

std::string Encoder::operator()(const std::string& request) const {
    const std::string line = firstLine(request);
    for (const auto& [words, answer] : answers_)
        if (holds(line, words))
            return answer(request);
    for (const char* parameter :
         {"Properties.API.HTTP.Version=2", "Brand.ProdFullName=Model 240", "ImageSource.NbrOfSources=4",
          "Image.Rotation=0", "Properties.Image.Format=jpeg,mpeg4"}) {
        const std::string value = parameter;
        if (holds(line, value.substr(0, value.find('='))))
            return scripted::reply("200 OK", value + "\n");
    }
    return line.ends_with("RTSP/1.0") ? "RTSP/1.0 404 Not Found\r\n\r\n"
                                      : scripted::reply("404 Not Found", "");
}

scripted::Script Encoder::script() const {
    return {scripted::readRequest(), scripted::answer(*this), scripted::startOver()};
}

Encoder::Answers UnicastEncoder::answers(bool withPackets) {
    return {{"DESCRIBE", always(rtspReply("Content-Length: 4\r\n") + "v=0\n")},
            {"SETUP", [this](const std::string& request) { return setup(request); }},
            {"PLAY",
             [this, withPackets](const std::string&) {
                 if (withPackets)
                     sender_.emplace("127.0.0.1", port_);
                 return rtspReply();
             }},
            {"TEARDOWN", always(rtspReply())}};
}

std::string UnicastEncoder::setup(const std::string& request) {
    const std::string wanted = "client_port=";
    const auto at = request.find(wanted);
    if (at == std::string::npos)
        return "RTSP/1.0 461 Unsupported Transport\r\n\r\n";
    port_ = std::atoi(request.c_str() + at + wanted.size());
    return rtspReply(
        "Session: 12345678;timeout=60\r\nTransport: RTP/AVP;unicast;client_port=" + std::to_string(port_) +
        "-" + std::to_string(port_ + 1) + ";server_port=50000-50001\r\n");
}

const std::string& NetworkDetection::ownNetwork() {
    static const std::string refused = enterNetworkNamespace();
    return refused;
}

NetworkDetection::NetworkDetection() : input_(dup(0)) {
    ownNetwork();
    entry_.userName = "operator";
    entry_.password = "secret";
    entry_.sourceNumber = 1;
    std::signal(SIGUSR1, SIG_IGN);
    // A detection may close descriptor 0, so it is opened for this purpose.
    dup2(open("/dev/null", O_RDONLY), 0);
}

NetworkDetection::~NetworkDetection() {
    dup2(input_, 0);
    close(input_);
}

bool NetworkDetection::detect(const std::string& address, int timeout) {
    write(parameterFile(0), "[Decoder]\nAutoDetectTimeout = " + std::to_string(timeout) + "\n" + settings_);
    entry_.address = address;
    const auto began = std::chrono::steady_clock::now();
    testing::internal::CaptureStdout();
    const bool result = detectSource(entry_, statusId);
    output_ = testing::internal::GetCapturedStdout();
    took_ = std::chrono::steady_clock::now() - began;
    return result;
}

bool NetworkDetection::detect(unsigned short port, int timeout) {
    return detect("127.0.0.1:" + std::to_string(port), timeout);
}

bool NetworkDetection::detect(const std::vector<scripted::Script>& scripts, int timeout) {
    const scripted::Server server(scripts);
    const bool result = detect(server.port(), timeout);
    requests_ = server.requests();
    return result;
}

void NetworkDetection::expectEnd(const End& end) const {
    EXPECT_EQ(entry_.errorCode, end.error) << trace();
    EXPECT_EQ(status(statusId, "ErrorCode"), std::to_string(end.error));
    EXPECT_EQ(entry_.detectedOK, end.error == 0) << trace();
    EXPECT_EQ(entry_.detectedType, end.type) << trace();
}

void NetworkDetection::expectBounded(int timeout) const {
    const double limit = 1000.0 * timeout;
    const double slack = static_cast<double>(std::chrono::milliseconds(busyMachine).count());
    std::istringstream lines(trace());
    int steps = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || std::isdigit(static_cast<unsigned char>(line.front())) == 0)
            continue; // a heading, a decision or the end
        std::istringstream numbers(line);
        double began = 0;
        double took = 0;
        EXPECT_TRUE(numbers >> began >> took) << line;
        EXPECT_LT(took, limit + slack) << line;
        ++steps;
    }
    EXPECT_GT(steps, 0) << trace();
    EXPECT_LT(std::chrono::duration<double>(took_).count() * 1000, limit * steps + slack) << trace();
}

} // namespace detect_test
