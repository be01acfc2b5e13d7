#include "appliance/streams/kept_stream.h"

#include <libcommon/clock.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace streams {
namespace {

constexpr std::size_t readBytes = 64 * 1024;

enum class Got { some, nothing, closed };

// Waits for bytes until that time, on gettimeusec()'s clock.
Got receive(int fd, std::array<char, readBytes>& bytes, std::int64_t until, std::size_t& count) {
    for (;;) {
        const ssize_t got = recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (got > 0) {
            count = static_cast<std::size_t>(got);
            return Got::some;
        }
        if (got == 0 || (errno != EAGAIN && errno != EINTR))
            return Got::closed;
        const std::int64_t left = until - gettimeusec();
        if (left <= 0)
            return Got::nothing;
        pollfd readable{fd, POLLIN, 0};
        poll(&readable, 1, static_cast<int>((left + 999) / 1000));
    }
}

} // namespace

std::unique_ptr<KeptStream> KeptStream::open(const StreamAddress& address, int limitMs) {
    const int fd = openKeptSocket(keptSocketPath(), false);
    if (fd < 0)
        return nullptr;
    std::unique_ptr<KeptStream> stream(new KeptStream(fd));
    const std::string request = "take " + address.text() + "\n";
    const ssize_t sent = send(fd, request.data(), request.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent != static_cast<ssize_t>(request.size()) || !stream->awaitDescription(limitMs))
        return nullptr;
    return stream;
}

KeptStream::~KeptStream() {
    close(fd_);
}

// The frames after the description wait for run().
bool KeptStream::awaitDescription(int limitMs) {
    const std::int64_t until = gettimeusec() + std::int64_t{1000} * limitMs;
    bool described = false;
    bool answered = false;
    std::array<char, readBytes> bytes;
    const auto take = [&](KeptFrame kind, std::string_view content) {
        if (answered) {
            early_ += keptHeader(kind, content.size());
            early_ += content;
            return true;
        }
        answered = true;
        const auto description = kind == KeptFrame::description ? readKeptDescription(content) : std::nullopt;
        described = description.has_value();
        if (described)
            description_ = *description;
        return described;
    };
    while (!answered) {
        std::size_t count = 0;
        if (receive(fd_, bytes, until, count) != Got::some || !reader_.feed({bytes.data(), count}, take))
            return false;
    }
    return described;
}

std::string KeptStream::run(const KeptTaker& taker) {
    const auto take = [&](KeptFrame kind, std::string_view content) { return pass(taker, kind, content); };
    std::array<char, readBytes> bytes;
    // The beginning of a frame may wait in reader_, behind the whole ones in early_.
    if (!KeptFrameReader().feed(early_, take))
        return reason_;
    early_ = {};
    for (;;) {
        std::size_t count = 0;
        switch (receive(fd_, bytes, gettimeusec() + std::int64_t{1000} * silenceMs, count)) {
        case Got::nothing:
            return "the keeper sends nothing";
        case Got::closed:
            return "the keeper is gone";
        case Got::some:
            if (!reader_.feed({bytes.data(), count}, take))
                return reason_.empty() ? "the keeper sends what is not understood" : reason_;
        }
    }
}

bool KeptStream::pass(const KeptTaker& taker, KeptFrame kind, std::string_view content) {
    bool good = true;
    switch (kind) {
    case KeptFrame::video:
        good = taker.video(content);
        break;
    case KeptFrame::sound:
        if (taker.sound)
            taker.sound(content);
        break;
    case KeptFrame::bytes:
        good = taker.bytes(content);
        break;
    case KeptFrame::picture:
        taker.picture(content);
        break;
    case KeptFrame::live:
        taker.live();
        break;
    case KeptFrame::ended:
        reason_ = content;
        return false;
    case KeptFrame::description:
    case KeptFrame::notKept:
    case KeptFrame::status:
        return false;
    }
    if (!good)
        reason_ = "the decoder failed";
    return good;
}

void KeptStream::end() {
    shutdown(fd_, SHUT_RDWR);
}

} // namespace streams
