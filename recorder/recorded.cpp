#include "recorder/recorded.h"

#include "recorder/secrets.h"

#include <libcommon/clock.h>
#include <libcommon/interrupt.h>
#include <libcommon/status.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace recorded {
namespace {

using recorder::Crossing;

// All process-wide state of this file: the sources as they were recorded or replayed since the last checkpoint, by their
// position. Most looks at a source find what the look before found, and the line then only says so. Main thread.
struct KnownSources {
    std::uint64_t checkpoint = 0;
    std::map<std::size_t, SourceParams> records;
};
KnownSources& knownSources = *new KnownSources;

KnownSources& sourcesSinceCheckpoint() {
    if (knownSources.checkpoint != recorder::checkpointsBegun()) {
        knownSources.records.clear();
        knownSources.checkpoint = recorder::checkpointsBegun();
    }
    return knownSources;
}

void writeSource(Crossing& crossing, std::size_t position, const SourceParams& source) {
    SourceParams kept = recorder::recordable(source);
    SourceParams& known = sourcesSinceCheckpoint().records[position];
    bool isNew = known != kept;
    crossing.out(isNew);
    if (!isNew)
        return;
    crossing.in(static_cast<std::int64_t>(kept.size()));
    for (auto& [key, value] : kept)
        crossing.in(std::string_view(key.data(), key.size())).out(value);
    known = std::move(kept);
}

SourceParams readSource(Crossing& crossing, std::size_t position) {
    SourceParams& known = sourcesSinceCheckpoint().records[position];
    bool isNew = false;
    crossing.out(isNew);
    if (!isNew)
        return known;
    std::int64_t count = 0;
    crossing.out(count);
    known.clear();
    for (std::int64_t i = 0; i < count; ++i) {
        std::string key;
        std::string value;
        crossing.out(key).out(value);
        known[istring(key.data(), key.size())] = value;
    }
    return known;
}

// The list that getSubGroups() returned; the supervisor looks at it whenever it wants to.
class RecordedList : public SubGroupList {
public:
    explicit RecordedList(SubGroups inner) : inner_(std::move(inner)) {}

    std::size_t size() const override {
        Crossing crossing("sources");
        auto count = crossing.replays() ? 0 : static_cast<std::int64_t>(inner_.size());
        crossing.out(count);
        return static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
    }

    SourceParams record(std::size_t position) const override {
        Crossing crossing("source");
        crossing.in(static_cast<std::int64_t>(position));
        if (crossing.replays())
            return readSource(crossing, position);
        SourceParams source = inner_[position];
        if (crossing.records())
            writeSource(crossing, position, source);
        return source;
    }

private:
    SubGroups inner_;
};

int descriptorOf(const Crossing& crossing, int fd) {
    return crossing.replays() && fd >= 0 ? open("/dev/null", O_RDWR | O_CLOEXEC) : fd;
}

// What a download left in its buffer. After a failure the first byte is enough: nothing reads more.
void exchangeBody(Crossing& crossing, int result, char* buffer, int size) {
    if (buffer == nullptr || size <= 0)
        return;
    const auto room = static_cast<std::size_t>(size);
    const std::size_t used = std::min(room, static_cast<std::size_t>(std::max(result, 1)));
    std::string body(crossing.replays() ? 0 : used, '\0');
    body.assign(crossing.replays() ? "" : std::string_view(buffer, used));
    crossing.out(body);
    if (crossing.replays())
        body.copy(buffer, used);
}

void exchangeWay(Crossing& crossing, ConnectMode* mode, unsigned short* port, char* host) {
    int modeNumber = mode == nullptr ? 0 : *mode;
    int portNumber = port == nullptr ? 0 : *port;
    std::string hostText = host == nullptr ? "" : host;
    crossing.out(modeNumber).out(portNumber).out(hostText);
    if (!crossing.replays())
        return;
    if (mode != nullptr)
        *mode = static_cast<ConnectMode>(std::clamp<int>(modeNumber, CONNECT_AUTO, CONNECT_UNKNOWN));
    if (port != nullptr)
        *port = static_cast<unsigned short>(portNumber);
    if (host != nullptr)
        host[hostText.copy(host, hostBufferSize - 1)] = '\0';
}

} // namespace

int Parameter::toInt() const {
    Crossing crossing("number");
    crossing.in(fileId_).in(name_);
    int value = crossing.replays() ? 0 : parameter_.toInt();
    crossing.out(value);
    return value;
}

std::string Parameter::toString() const {
    Crossing crossing("text");
    crossing.in(fileId_).in(name_);
    std::string value = crossing.replays() ? "" : parameter_.toString();
    crossing.out(value);
    return value;
}

bool Parameter::operator==(const char* text) const {
    Crossing crossing("is");
    crossing.in(fileId_).in(name_).in(text);
    bool equal = !crossing.replays() && parameter_ == text;
    crossing.out(equal);
    return equal;
}

SubGroups getSubGroups(int fileId, const char* group) {
    SubGroups inner = recorder::replayed() != nullptr ? SubGroups() : ::getSubGroups(fileId, group);
    return SubGroups(std::make_shared<const RecordedList>(std::move(inner)));
}

std::string status(int index, const std::string& key) {
    Crossing crossing("status");
    crossing.in(index).in(key);
    std::string value = crossing.replays() ? "" : ::status(index, key);
    crossing.out(value);
    return value;
}

std::int64_t gettimeusec() {
    Crossing crossing("time");
    std::int64_t now = crossing.replays() ? 0 : ::gettimeusec();
    crossing.out(now);
    return now;
}

bool isInterrupted() {
    Crossing crossing("interrupted");
    bool interrupted = !crossing.replays() && ::isInterrupted();
    crossing.out(interrupted);
    return interrupted;
}

int download(const std::string& address, const std::string& user, const std::string& password,
             const std::string& path, char* buffer, int size, int timeout, ConnectMode* mode,
             unsigned short* port, char* host) {
    Crossing crossing("download");
    crossing.in(recorder::withoutUser(address)).in(path);
    int result = crossing.replays()
                     ? 0
                     : ::download(address, user, password, path, buffer, size, timeout, mode, port, host);
    crossing.out(result);
    exchangeBody(crossing, result, buffer, size);
    if (result >= 0)
        exchangeWay(crossing, mode, port, host);
    return result;
}

int downloadHTTP(const std::string& host, unsigned short port, const std::string& path, bool withCredentials,
                 const std::string& user, const std::string& password, char* buffer, int size, int timeout,
                 char* errorText) {
    Crossing crossing("http");
    crossing.in(host).in(port).in(path).in(withCredentials);
    int result = crossing.replays() ? 0
                                    : ::downloadHTTP(host, port, path, withCredentials, user, password,
                                                     buffer, size, timeout, errorText);
    crossing.out(result);
    exchangeBody(crossing, result, buffer, size);
    return result;
}

int downloadHTTPS(const std::string& host, unsigned short port, const std::string& path,
                  const std::string& user, const std::string& password, char* buffer, int size, int timeout) {
    Crossing crossing("https");
    crossing.in(host).in(port).in(path);
    int result =
        crossing.replays() ? 0 : ::downloadHTTPS(host, port, path, user, password, buffer, size, timeout);
    crossing.out(result);
    exchangeBody(crossing, result, buffer, size);
    return result;
}

int connectTCP(const std::string& host, unsigned short port, bool blocking, int timeout) {
    Crossing crossing("connect");
    crossing.in(host).in(port);
    int fd = crossing.replays() ? -1 : ::connectTCP(host, port, blocking, timeout);
    crossing.out(fd);
    return descriptorOf(crossing, fd);
}

int connectUDP(const std::string& host, unsigned short port, bool fromHostOnly) {
    Crossing crossing("udp");
    crossing.in(host).in(port);
    int fd = crossing.replays() ? -1 : ::connectUDP(host, port, fromHostOnly);
    crossing.out(fd);
    return descriptorOf(crossing, fd);
}

int parseResponseHeader(int fd, ResponseHeader& header) {
    Crossing crossing("header");
    int result = crossing.replays() ? 0 : ::parseResponseHeader(fd, header);
    crossing.out(result);
    if (result != 0)
        return result;
    auto count = static_cast<std::int64_t>(header.headers.size());
    crossing.out(header.statusCode).out(header.reason).out(count);
    if (crossing.records())
        for (auto& [name, value] : header.headers)
            crossing.in(std::string_view(name.data(), name.size())).out(value);
    for (std::int64_t i = 0; crossing.replays() && i < count; ++i) {
        std::string name;
        std::string value;
        crossing.out(name).out(value);
        header.headers[istring(name.data(), name.size())] = value;
    }
    return result;
}

int writeFD(int fd, const void* buffer, std::size_t length) {
    Crossing crossing("write");
    int result = crossing.replays() ? 0 : ::writeFD(fd, buffer, length);
    crossing.out(result);
    return result;
}

// The text of an alarm is the only payload that the supervisor reads.
void exchangeEvent(Crossing& crossing, Event& event) {
    crossing.out(event.id).out(event.value1).out(event.value2);
    if (event.id != EID_ALARM)
        return;
    char text[sizeof event.payload];
    std::memcpy(text, event.payload, sizeof text);
    std::string alarm(text, crossing.replays() ? 0 : strnlen(text, sizeof text));
    crossing.out(alarm);
    if (!crossing.replays())
        return;
    std::memset(event.payload, 0, sizeof event.payload);
    std::memcpy(event.payload, alarm.data(), std::min(alarm.size(), sizeof event.payload));
}

void noteArrival(const Event& event) {
    Crossing crossing("event");
    Event copy = event;
    exchangeEvent(crossing, copy);
}

} // namespace recorded
