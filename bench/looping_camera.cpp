#include "bench/looping_camera.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr std::size_t largestPayload = 1400;
constexpr std::uint32_t pictureTime = 3600; // at 90 kHz
constexpr std::chrono::milliseconds pictureInterval(40);

std::vector<std::string> unitsIn(std::string_view stream) {
    constexpr std::string_view startCode("\0\0\1", 3);
    std::vector<std::string> units;
    std::size_t at = stream.find(startCode);
    while (at != std::string_view::npos) {
        const std::size_t begin = at + startCode.size();
        at = stream.find(startCode, begin);
        std::string unit(stream.substr(begin, at == std::string_view::npos ? at : at - begin));
        unit.erase(unit.find_last_not_of('\0') + 1); // the zeros belong to the next start code
        if (!unit.empty())
            units.push_back(unit);
    }
    return units;
}

void append(std::string& to, std::uint32_t number, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        to += static_cast<char>(number >> shift & 255);
}

bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string lineOf(const std::string& request, const std::string& name) {
    const std::size_t at = request.find(name);
    return at == std::string::npos ? "" : request.substr(at, request.find("\r\n", at) - at) + "\r\n";
}

std::string answerTo(const std::string& request, const std::string& url) {
    const std::string head = "RTSP/1.0 200 OK\r\n" + lineOf(request, "CSeq:");
    if (request.starts_with("OPTIONS"))
        return head + "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n\r\n";
    if (request.starts_with("DESCRIBE")) {
        const std::string body = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\n"
                                 "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:track1\r\n";
        return head + "Content-Type: application/sdp\r\nContent-Base: " + url +
               "/\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }
    if (request.starts_with("SETUP"))
        return head + "Session: 12345678\r\nTransport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n";
    return head + "Session: 12345678\r\n\r\n";
}

} // namespace

LoopingCamera::LoopingCamera(std::string_view stream) {
    std::vector<std::string> picture;
    for (std::string& unit : unitsIn(stream)) {
        const int type = static_cast<unsigned char>(unit[0]) & 31;
        const bool isPicture = type == 1 || type == 5;
        picture.push_back(std::move(unit));
        if (isPicture) {
            pictures_.push_back(picture);
            picture.clear();
        }
    }
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
    listen(listener_, 64);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    threads_.emplace_back(&LoopingCamera::accept, this);
    threads_.emplace_back(&LoopingCamera::send, this);
}

LoopingCamera::~LoopingCamera() {
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);
    threads_[0].join();
    {
        const std::lock_guard guard(lock_);
        for (const int fd : open_)
            shutdown(fd, SHUT_RDWR);
    }
    for (std::size_t i = 1; i < threads_.size(); ++i)
        threads_[i].join();
    close(listener_);
}

void LoopingCamera::accept() {
    while (!ending_) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const std::lock_guard guard(lock_);
        open_.push_back(fd);
        threads_.emplace_back(&LoopingCamera::serve, this, fd);
    }
}

void LoopingCamera::serve(int fd) {
    std::string received;
    char bytes[4096];
    for (ssize_t count = 0; (count = recv(fd, bytes, sizeof bytes, 0)) > 0;) {
        received.append(bytes, static_cast<std::size_t>(count));
        for (;;) {
            if (received.size() >= 4 && received[0] == '$') { // a report
                const std::size_t length = static_cast<std::size_t>(static_cast<unsigned char>(received[2]))
                                               << 8 |
                                           static_cast<unsigned char>(received[3]);
                if (received.size() < 4 + length)
                    break;
                received.erase(0, 4 + length);
                continue;
            }
            const std::size_t end = received.find("\r\n\r\n");
            if (end == std::string::npos)
                break;
            const std::string request = received.substr(0, end + 2);
            received.erase(0, end + 4);
            if (request.starts_with("PLAY"))
                playedAt_ = gettimeusec();
            const std::lock_guard guard(lock_); // packets must not come in between
            if (!writeAll(fd, answerTo(request, url())))
                break;
            if (request.starts_with("PLAY"))
                playing_.push_back(fd);
        }
    }
    const std::lock_guard guard(lock_);
    std::erase(playing_, fd);
    std::erase(open_, fd);
    close(fd);
}

// All packets of a picture, framed for the RTSP connection.
std::string LoopingCamera::packetsOf(std::size_t picture, std::uint32_t time) {
    std::string framed;
    const auto packet = [&](std::string_view header, std::string_view payload, bool last) {
        framed += '$';
        framed += '\0';
        append(framed, static_cast<std::uint32_t>(12 + header.size() + payload.size()), 2);
        framed += static_cast<char>(0x80);
        framed += static_cast<char>(last ? 0xe0 : 0x60);
        append(framed, sequence_++, 2);
        append(framed, time, 4);
        append(framed, 0x12345678, 4);
        framed += header;
        framed += payload;
    };
    const std::vector<std::string>& units = pictures_[picture];
    for (std::size_t i = 0; i < units.size(); ++i) {
        const bool lastUnit = i + 1 == units.size();
        std::string_view unit = units[i];
        if (unit.size() <= largestPayload) {
            packet("", unit, lastUnit);
            continue;
        }
        const char indicator = static_cast<char>((unit[0] & 0x60) | 28);
        const char type = static_cast<char>(unit[0] & 31);
        unit.remove_prefix(1);
        bool first = true;
        while (!unit.empty()) {
            const std::string_view piece = unit.substr(0, largestPayload);
            unit.remove_prefix(piece.size());
            const char header[2] = {indicator,
                                    static_cast<char>(type | (first ? 0x80 : 0) | (unit.empty() ? 0x40 : 0))};
            packet({header, 2}, piece, lastUnit && unit.empty());
            first = false;
        }
    }
    return framed;
}

void LoopingCamera::send() {
    auto next = std::chrono::steady_clock::now();
    std::uint32_t time = 0;
    for (std::size_t picture = 0; !ending_; picture = (picture + 1) % pictures_.size()) {
        std::this_thread::sleep_until(next += pictureInterval);
        const std::string packets = packetsOf(picture, time += pictureTime);
        const std::lock_guard guard(lock_);
        for (const int fd : playing_)
            writeAll(fd, packets);
    }
}

} // namespace bench
