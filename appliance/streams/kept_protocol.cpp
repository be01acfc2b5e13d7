#include "appliance/streams/kept_protocol.h"

#include <libcommon/paths.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace streams {
namespace {

const char* const formNames[] = {"packets", "bytes", "pictures"};
constexpr int backlog = 64;

void addStream(std::string& text, const std::string& name, const std::optional<DescribedStream>& stream) {
    if (!stream)
        return;
    const auto add = [&](const char* key, const std::string& value) {
        text += name + "." + key + "=" + value + "\n";
    };
    add("caps", stream->caps);
    add("encoding", stream->encodingName);
    add("payload", std::to_string(stream->payloadType));
    add("rtpmap", stream->rtpmap);
    add("fmtp", stream->fmtp);
}

using Values = std::map<std::string, std::string, std::less<>>;

std::optional<DescribedStream> streamIn(const Values& values, const std::string& name) {
    const auto value = [&](const char* key) {
        const auto found = values.find(name + "." + key);
        return found == values.end() ? "" : found->second;
    };
    if (value("encoding").empty())
        return std::nullopt;
    DescribedStream stream;
    stream.caps = value("caps");
    stream.encodingName = value("encoding");
    const std::string payload = value("payload");
    std::from_chars(payload.data(), payload.data() + payload.size(), stream.payloadType);
    stream.rtpmap = value("rtpmap");
    stream.fmtp = value("fmtp");
    return stream;
}

Values linesOf(std::string_view text) {
    Values values;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (const std::size_t sign = line.find('='); sign != std::string_view::npos)
            values.emplace(line.substr(0, sign), line.substr(sign + 1));
    }
    return values;
}

// Connects or binds. A path that is too long for an address is reached through its folder's descriptor.
int useAddress(int fd, const std::string& path, int (*use)(int, const sockaddr*, socklen_t)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    int folder = -1;
    std::string shortPath = path;
    if (path.size() >= sizeof address.sun_path) {
        const std::size_t slash = path.rfind('/');
        folder = open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (folder < 0)
            return -1;
        shortPath = "/proc/self/fd/" + std::to_string(folder) + path.substr(slash);
    }
    std::strncpy(address.sun_path, shortPath.c_str(), sizeof address.sun_path - 1);
    const int result = use(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    if (folder >= 0)
        close(folder);
    errno = error;
    return result;
}

// The file gets the rights of the socket at its birth: no other user can connect in between.
bool listenAt(int fd, const std::string& path) {
    return fchmod(fd, S_IRUSR | S_IWUSR) == 0 && useAddress(fd, path, &bind) == 0 && listen(fd, backlog) == 0;
}

} // namespace

std::string keptHeader(KeptFrame kind, std::size_t bytes) {
    std::string header(keptHeaderBytes, '\0');
    header[0] = static_cast<char>(kind);
    const auto length = static_cast<std::uint32_t>(bytes);
    std::memcpy(header.data() + 4, &length, sizeof length);
    return header;
}

std::string writeKeptDescription(const KeptDescription& description) {
    std::string text = std::string("form=") + formNames[static_cast<int>(description.form)] + "\n";
    text += std::string("ordered=") + (description.ordered ? "yes" : "no") + "\n";
    addStream(text, "video", description.video);
    addStream(text, "sound", description.sound);
    return text;
}

std::optional<KeptDescription> readKeptDescription(std::string_view text) {
    Values values = linesOf(text);
    KeptDescription description;
    description.ordered = values["ordered"] == "yes";
    description.video = streamIn(values, "video");
    description.sound = streamIn(values, "sound");
    for (int form = 0; form < 3; ++form) {
        if (values["form"] != formNames[form])
            continue;
        description.form = static_cast<KeptDescription::Form>(form);
        const bool hasPackets = description.form == KeptDescription::Form::packets;
        return hasPackets == description.video.has_value() ? std::optional(description) : std::nullopt;
    }
    return std::nullopt;
}

bool KeptFrameReader::feed(std::string_view bytes, const Take& take) {
    waiting_ += bytes;
    std::size_t at = 0;
    bool good = true;
    while (good && waiting_.size() - at >= keptHeaderBytes) {
        std::uint32_t length = 0;
        std::memcpy(&length, waiting_.data() + at + 4, sizeof length);
        if (length > largestKeptFrame)
            return false;
        if (waiting_.size() - at - keptHeaderBytes < length)
            break;
        good = take(static_cast<KeptFrame>(waiting_[at]),
                    std::string_view(waiting_).substr(at + keptHeaderBytes, length));
        at += keptHeaderBytes + length;
    }
    waiting_.erase(0, at);
    return good;
}

std::string keptSocketPath() {
    return libcommon::appliancePath("/run/decoder/warm.sock");
}

int openKeptSocket(const std::string& path, bool listen) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    if (listen ? listenAt(fd, path) : useAddress(fd, path, &connect) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

} // namespace streams
