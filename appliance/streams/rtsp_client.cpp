#include "appliance/streams/rtsp_client.h"

#include <libcommon/clock.h>
#include <libcommon/network.h>

#include <array>
#include <cstdio>
#include <glib.h>
#include <poll.h>
#include <utility>
#include <vector>

namespace streams {
namespace {

constexpr std::size_t readBytes = 64 * 1024;
constexpr std::size_t answersKept = 16;
// Limits one read(), so that the caller keeps its time limits even when a server sends without a pause.
constexpr int piecesAtOnce = 64;

std::string hostHeader(const RtspSource& source) {
    return "Host: " + source.host + ":" + std::to_string(source.port) + "\r\n";
}

} // namespace

RtspClient::RtspClient(const RtspSource& source, TakePacket take)
    : source_(source), take_(std::move(take)), credentials_(source.user, source.password) {}

std::string RtspClient::open() {
    return source_.transport == RtspTransport::http ? openTunnel() : openDown();
}

std::string RtspClient::openDown() {
    const auto takeMessage = [this](RtspMessage&& message) {
        if (message.status != 0 && answers_.size() < answersKept)
            answers_.push_back(std::move(message));
    };
    reader_ = std::make_unique<RtspReader>(RtspEvents{.message = takeMessage, .packet = take_});
    down_ = std::make_unique<ByteStream>();
    return down_->open(source_.host, source_.port, source_.tls && source_.transport == RtspTransport::http,
                       source_.answerMs);
}

// Two connections that share a cookie: answers arrive on the one with GET, requests are sent in base64 on the
// one with POST.
std::string RtspClient::openTunnel() {
    char cookie[24];
    std::snprintf(cookie, sizeof cookie, "%08x%08x", g_random_int(), g_random_int());
    cookie_ = cookie;
    for (bool again = true; again;) {
        std::string failure = openDown();
        if (!failure.empty())
            return failure;
        if (!transmit(tunnelRequest("GET", "Accept: application/x-rtsp-tunnelled\r\n")))
            return "the tunnel broke";
        failure = awaitTunnel(again);
        if (!failure.empty() && !again)
            return failure;
    }
    auto up = std::make_unique<ByteStream>();
    std::string failure = up->open(source_.host, source_.port, source_.tls, source_.answerMs);
    if (failure.empty() &&
        !up->send(
            tunnelRequest("POST", "Content-Type: application/x-rtsp-tunnelled\r\nContent-Length: 32767\r\n")))
        failure = "the tunnel broke";
    up_ = std::move(up);
    return failure;
}

std::string RtspClient::tunnelRequest(const char* method, const std::string& more) {
    const std::string answer = credentials_.answer(method, source_.path);
    return std::string(method) + " " + source_.path + " HTTP/1.0\r\n" + hostHeader(source_) +
           "x-sessioncookie: " + cookie_ + "\r\n" + more + "Pragma: no-cache\r\nCache-Control: no-cache\r\n" +
           (answer.empty() ? "" : "Authorization: " + answer + "\r\n") + "\r\n";
}

// `again` is set when the encoder asks for credentials that were not tried yet: the tunnel has to be opened again.
std::string RtspClient::awaitTunnel(bool& again) {
    const std::optional<RtspMessage> answer =
        awaitAnswer(-1, gettimeusec() + std::int64_t{1000} * source_.answerMs);
    again = answer && answer->status == 401 && credentials_.challenge(answer->challenges());
    if (!answer)
        return "no answer to the tunnel";
    return answer->status == 200 ? "" : "the tunnel was answered with " + std::to_string(answer->status);
}

std::string RtspClient::writeMessage(const std::string& method, const std::string& url,
                                     const std::string& headers) {
    const std::string answer = credentials_.answer(method, url);
    return method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(++sequence_) +
           "\r\nUser-Agent: decoder\r\n" + (answer.empty() ? "" : "Authorization: " + answer + "\r\n") +
           headers + "\r\n";
}

bool RtspClient::transmit(std::string_view bytes) {
    if (up_ != nullptr)
        return up_->send(base64encode(bytes.data(), bytes.size()));
    return down_->send(bytes);
}

bool RtspClient::send(const std::string& method, const std::string& url, const std::string& headers) {
    return transmit(writeMessage(method, url, headers));
}

bool RtspClient::sendPacket(int channel, std::string_view packet) {
    std::string framed{'$', static_cast<char>(channel), static_cast<char>(packet.size() >> 8),
                       static_cast<char>(packet.size() & 255)};
    framed += packet;
    return transmit(framed);
}

std::optional<RtspMessage> RtspClient::request(const std::string& method, const std::string& url,
                                               const std::string& headers) {
    return request(method, url, headers, source_.answerMs);
}

std::optional<RtspMessage> RtspClient::request(const std::string& method, const std::string& url,
                                               const std::string& headers, int timeoutMs) {
    const std::int64_t until = gettimeusec() + std::int64_t{1000} * timeoutMs;
    for (int attempt = 0;; ++attempt) {
        if (!send(method, url, headers))
            return std::nullopt;
        std::optional<RtspMessage> answer = awaitAnswer(sequence_, until);
        if (!answer || answer->status != 401 || attempt > 0 || !credentials_.challenge(answer->challenges()))
            return answer;
    }
}

// The answer with that CSeq (-1: any answer). Answers to earlier requests are dropped. An answer without a CSeq counts
// as the answer to the last request: some servers leave it out.
std::optional<RtspMessage> RtspClient::awaitAnswer(int sequence, std::int64_t until) {
    for (;;) {
        while (!answers_.empty()) {
            RtspMessage answer = std::move(answers_.front());
            answers_.pop_front();
            if (sequence == -1 || answer.sequence() == sequence || answer.sequence() == -1)
                return answer;
        }
        const std::int64_t left = until - gettimeusec();
        if (left <= 0)
            return std::nullopt;
        pollfd readable{descriptor(), POLLIN, 0};
        poll(&readable, 1, static_cast<int>(left / 1000) + 1);
        if (!read() && answers_.empty())
            return std::nullopt;
    }
}

bool RtspClient::read() {
    std::array<char, readBytes> bytes{};
    for (int pieces = 0; pieces < piecesAtOnce; ++pieces) {
        std::size_t count = 0;
        switch (down_->receive(bytes.data(), bytes.size(), count)) {
        case ByteStream::Read::nothing:
            return true;
        case ByteStream::Read::closed:
            return false;
        case ByteStream::Read::some:
            if (!reader_->feed(bytes.data(), count))
                return false;
        }
    }
    return true;
}

} // namespace streams
