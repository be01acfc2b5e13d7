#include "appliance/encoder/testing/test_client.h"

#include "appliance/jpeg/test_jpeg.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int patience = 10000;

Options optionsOf(std::vector<std::string> words) {
    std::vector<std::string> all{"video-encoder"};
    if (std::find(words.begin(), words.end(), "--width") == words.end())
        all.insert(all.end(), {"--width", "160", "--height", "120"});
    all.insert(all.end(), words.begin(), words.end());
    std::vector<const char*> pointers;
    pointers.reserve(all.size());
    for (const std::string& word : all)
        pointers.push_back(word.c_str());
    const CommandLine line = parseCommandLine(static_cast<int>(pointers.size()), pointers.data());
    EXPECT_TRUE(line.options.has_value()) << line.end.message;
    return line.options.value();
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

} // namespace

TestEncoder::TestEncoder(std::vector<std::string> words)
    : device_(std::make_unique<Device>(optionsOf(std::move(words)))),
      server_(std::make_unique<Server>(*device_)) {
    const std::string error = server_->start();
    EXPECT_EQ(error, "");
}

TestEncoder::~TestEncoder() {
    server_->stop();
}

void TestEncoder::setFaults(const std::string& list) {
    FaultSet faults;
    EXPECT_EQ(faults.add(list), "");
    device_->faults.set(faults);
}

Client::Client(std::uint16_t port, int receiveBufferBytes)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (receiveBufferBytes > 0)
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

Client::~Client() {
    if (fd_ >= 0)
        close(fd_);
}

bool Client::send(std::string_view bytes) {
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool Client::readMore(int milliseconds, bool* reset) {
    pollfd poller{fd_, POLLIN, 0};
    if (poll(&poller, 1, milliseconds) <= 0)
        return false;
    std::array<char, 65536> buffer{};
    const ssize_t count = recv(fd_, buffer.data(), buffer.size(), 0);
    if (reset != nullptr)
        *reset = count < 0 && errno == ECONNRESET;
    if (count <= 0)
        return false;
    pending_.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

std::optional<std::string> Client::readUntil(std::string_view mark) {
    std::size_t at = 0;
    while ((at = pending_.find(mark)) == std::string::npos) {
        if (!readMore(patience))
            return std::nullopt;
    }
    std::string text = pending_.substr(0, at);
    pending_.erase(0, at + mark.size());
    return text;
}

std::optional<char> Client::nextByte() {
    if (pending_.empty() && !readMore(patience))
        return std::nullopt;
    return pending_.front();
}

std::optional<std::string> Client::readBytes(std::size_t count) {
    while (pending_.size() < count) {
        if (!readMore(patience))
            return std::nullopt;
    }
    std::string bytes = pending_.substr(0, count);
    pending_.erase(0, count);
    return bytes;
}

std::string Client::readToEnd(bool* reset) {
    while (readMore(patience, reset)) {
    }
    return std::exchange(pending_, {});
}

bool Client::silentFor(int milliseconds) {
    return pending_.empty() && !readMore(milliseconds);
}

ClientReply Client::readHead() {
    ClientReply reply;
    std::string head = readUntil("\r\n\r\n").value_or("");
    const std::size_t space = head.find(' ');
    if (space == std::string::npos)
        return reply;
    reply.status = std::atoi(head.c_str() + space);
    head += "\r\n";
    for (std::size_t at = head.find("\r\n") + 2; at < head.size();) {
        const std::size_t end = head.find("\r\n", at);
        const std::size_t colon = head.find(": ", at);
        if (colon < end)
            reply.headers[lowered(head.substr(at, colon - at))] = head.substr(colon + 2, end - colon - 2);
        at = end + 2;
    }
    return reply;
}

ClientReply Client::readReply() {
    ClientReply reply = readHead();
    const std::string& length = reply.headers["content-length"];
    if (!length.empty())
        reply.body = readBytes(std::stoul(length)).value_or("(incomplete)");
    return reply;
}

ClientReply Client::get(const std::string& target, const std::string& moreHeaders) {
    send("GET " + target + " HTTP/1.1\r\nHost: encoder\r\n" + moreHeaders + "\r\n");
    return readReply();
}

ClientReply get(std::uint16_t port, const std::string& target, const std::string& moreHeaders) {
    return Client(port).get(target, moreHeaders);
}

std::optional<std::string> nextPart(Client& client) {
    const std::optional<std::string> head = client.readUntil("\r\n\r\n");
    if (!head)
        return std::nullopt;
    const std::size_t length = head->find("Content-Length: ");
    EXPECT_NE(head->find("Content-Type: image/jpeg"), std::string::npos) << *head;
    EXPECT_NE(length, std::string::npos) << *head;
    return client.readBytes(std::stoul(head->substr(length + 16)));
}

JpegInfo lookAt(const std::string& jpeg) {
    const DecodedJpeg decoded = decodeJpeg(jpeg);
    JpegInfo info;
    info.width = decoded.width;
    info.height = decoded.height;
    info.mark = readFrameMark(decoded.bgrx.data(), info.width, info.height, info.width * 4);
    return info;
}
