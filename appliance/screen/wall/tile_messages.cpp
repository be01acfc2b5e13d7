#include "appliance/screen/wall/tile_messages.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace screen {
namespace {

constexpr std::uint32_t orderMagic = 0x314f5457;  // "WTO1"
constexpr std::uint32_t reportMagic = 0x31525457; // "WTR1"
constexpr int maxSide = 16384;
constexpr std::uint64_t maxPixels = 32U << 20U; // of all overlays of a report

struct OrderPacket {
    std::uint32_t magic = orderMagic;
    std::uint32_t isKey = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint32_t kind = 0;
    std::int32_t digit = 0;
    std::uint32_t down = 0;
};

struct PlacePacket {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint64_t version = 0;
};

// The pixels of the overlays follow each other in the file that comes with the packet.
struct ReportPacket {
    std::uint32_t magic = reportMagic;
    std::uint32_t supervisor = 0;
    std::int64_t blankedAt = 0;
    std::uint32_t fit = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint32_t overlays = 0;
    std::array<PlacePacket, maxTileOverlays> at{};
};

// A file descriptor that is closed at the end.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() {
        if (fd_ != -1)
            close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

bool isSide(std::int32_t value) {
    return value >= 1 && value <= maxSide;
}

std::uint64_t pixelsOf(const PlacePacket& place) {
    return static_cast<std::uint64_t>(place.width) * static_cast<std::uint64_t>(place.height);
}

bool writeAll(int fd, const std::vector<std::uint32_t>& pixels) {
    const auto* at = reinterpret_cast<const char*>(pixels.data());
    std::size_t left = pixels.size() * sizeof pixels[0];
    while (left > 0) {
        const ssize_t done = write(fd, at, left);
        if (done <= 0)
            return false;
        at += done;
        left -= static_cast<std::size_t>(done);
    }
    return true;
}

bool readAll(int fd, std::uint64_t offset, std::vector<std::uint32_t>& pixels) {
    auto* at = reinterpret_cast<char*>(pixels.data());
    std::size_t left = pixels.size() * sizeof pixels[0];
    while (left > 0) {
        const ssize_t done = pread(fd, at, left, static_cast<off_t>(offset));
        if (done <= 0)
            return false;
        at += done;
        offset += static_cast<std::uint64_t>(done);
        left -= static_cast<std::size_t>(done);
    }
    return true;
}

using Control = std::array<char, CMSG_SPACE(sizeof(int))>;

// `fd` goes with the packet unless it is -1.
bool sendPacket(int socket, void* data, std::size_t size, int fd) {
    iovec part{data, size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) Control control{};
    if (fd != -1) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof fd);
        std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    }
    return sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

// Receives a packet of exactly this size. `fd` becomes the descriptor that came with it, or -1.
Received receivePacket(int socket, void* data, std::size_t size, int& fd) {
    iovec part{data, size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) Control control{};
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    fd = -1;
    const ssize_t got = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got == -1)
        return errno == EAGAIN || errno == EINTR ? Received::nothing : Received::ended;
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS && header->cmsg_len >= CMSG_LEN(sizeof fd))
        std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    const bool whole = got == static_cast<ssize_t>(size) && (message.msg_flags & MSG_TRUNC) == 0;
    return whole ? Received::message : Received::ended;
}

std::optional<TileOrder> orderOf(const OrderPacket& packet) {
    if (packet.magic != orderMagic)
        return std::nullopt;
    if (packet.isKey == 0) {
        if (!isSide(packet.width) || !isSide(packet.height))
            return std::nullopt;
        return TileSize{{packet.width, packet.height}};
    }
    if (packet.kind > static_cast<std::uint32_t>(KeyKind::back) || packet.digit < 0 || packet.digit > 9)
        return std::nullopt;
    return TileKey{{static_cast<KeyKind>(packet.kind), packet.digit}, packet.down != 0};
}

bool isUsable(const ReportPacket& packet) {
    if (packet.magic != reportMagic || packet.overlays > maxTileOverlays || !isSide(packet.width) ||
        !isSide(packet.height) || packet.fit > static_cast<std::uint32_t>(Fit::crop))
        return false;
    std::uint64_t pixels = 0;
    for (std::size_t i = 0; i < packet.overlays; ++i) {
        const PlacePacket& at = packet.at[i];
        if (!isSide(at.width) || !isSide(at.height) || std::abs(at.x) > maxSide || std::abs(at.y) > maxSide)
            return false;
        pixels += pixelsOf(at);
    }
    return pixels <= maxPixels;
}

bool readOverlays(const ReportPacket& packet, int fd, std::vector<OverlayImage>& overlays) {
    std::uint64_t offset = 0;
    for (std::size_t i = 0; i < packet.overlays; ++i) {
        const PlacePacket& at = packet.at[i];
        OverlayImage image{{at.x, at.y, at.width, at.height}, {}, at.version};
        image.pixels.resize(static_cast<std::size_t>(pixelsOf(at))); // bounded by maxPixels
        if (!readAll(fd, offset, image.pixels))
            return false;
        offset += image.pixels.size() * sizeof image.pixels[0];
        overlays.push_back(std::move(image));
    }
    return true;
}

} // namespace

bool sendOrder(int socket, const TileOrder& order) {
    OrderPacket packet;
    if (const auto* size = std::get_if<TileSize>(&order)) {
        packet.width = size->size.width;
        packet.height = size->size.height;
    } else {
        const auto& key = std::get<TileKey>(order);
        packet.isKey = 1;
        packet.kind = static_cast<std::uint32_t>(key.key.kind);
        packet.digit = key.key.digit;
        packet.down = key.down ? 1 : 0;
    }
    return sendPacket(socket, &packet, sizeof packet, -1);
}

Received receiveOrder(int socket, TileOrder& order) {
    OrderPacket packet;
    int fd = -1;
    const Received received = receivePacket(socket, &packet, sizeof packet, fd);
    const Fd owned(fd);
    if (received != Received::message)
        return received;
    const std::optional<TileOrder> read = orderOf(packet);
    if (!read)
        return Received::ended;
    order = *read;
    return Received::message;
}

bool sendReport(int socket, const TileReport& report) {
    ReportPacket packet;
    packet.supervisor = report.supervisor ? 1 : 0;
    packet.blankedAt = report.blankedAt;
    packet.fit = static_cast<std::uint32_t>(report.fit);
    packet.width = report.screen.width;
    packet.height = report.screen.height;
    if (report.overlays.size() > maxTileOverlays) {
        errno = EMSGSIZE;
        return false;
    }
    const Fd memory(report.overlays.empty() ? -1 : memfd_create("overlays", MFD_CLOEXEC));
    for (const OverlayImage& image : report.overlays) {
        packet.at[packet.overlays++] = {image.at.x, image.at.y, image.at.width, image.at.height,
                                        image.version};
        if (!writeAll(memory.get(), image.pixels))
            return false;
    }
    if (!isUsable(packet)) {
        errno = EINVAL;
        return false;
    }
    return sendPacket(socket, &packet, sizeof packet, memory.get());
}

Received receiveReport(int socket, TileReport& report) {
    ReportPacket packet;
    int fd = -1;
    const Received received = receivePacket(socket, &packet, sizeof packet, fd);
    const Fd memory(fd);
    if (received != Received::message)
        return received;
    TileReport read;
    if (!isUsable(packet) || !readOverlays(packet, memory.get(), read.overlays))
        return Received::ended;
    read.supervisor = packet.supervisor != 0;
    read.blankedAt = packet.blankedAt;
    read.fit = static_cast<Fit>(packet.fit);
    read.screen = {packet.width, packet.height};
    report = std::move(read);
    return Received::message;
}

} // namespace screen
