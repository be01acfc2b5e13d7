// Files that a user breaks, floods, and what people do with a decoder.
#include "tests/faults/plan.h"

#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace faults {

using appliance::Appliance;

namespace fs = std::filesystem;

namespace {

constexpr int selectEvent = 11;
constexpr int propertyEvent = 9;
constexpr int flushEvent = 10;
constexpr int childEvent = 2;
constexpr int barrierEvent = 7;
constexpr int lockEvent = 12;
constexpr int reconnectEvent = 13;
constexpr int strangeId = 77;
constexpr int noSource = 99;
constexpr int nobody = 4'600'000; // no process has this number

// One request whose answer is read to its end or for a second.
void request(int port, const std::string& text) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(static_cast<std::uint16_t>(port));
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0 &&
        send(fd, text.data(), text.size(), MSG_NOSIGNAL) >= 0) {
        char buffer[4096];
        for (int i = 0; i < 64 && recv(fd, buffer, sizeof buffer, 0) > 0; ++i) {
        }
    }
    close(fd);
}

const std::vector<std::string>& panelRequests() {
    const auto get = [](const std::string& path) {
        return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + panelToken +
               "\r\nConnection: close\r\n\r\n";
    };
    const auto post = [](const std::string& path, const std::string& body) {
        return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + panelToken +
               "\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body;
    };
    static const std::vector<std::string> all{get("/"),
                                              get("/api/v1/status"),
                                              get("/api/v1/sources"),
                                              get("/api/v1/pictures/0.jpg"),
                                              get("/api/v1/journal"),
                                              get("/api/v1/events"),
                                              get("/metrics"),
                                              get("/api/v1/sources/0/still.jpg"),
                                              get("/nothing"),
                                              post("/api/v1/select", "{\"source\": 2}"),
                                              post("/api/v1/select", "{\"source\": \"Roof\"}"),
                                              post("/api/v1/flush", "{}"),
                                              post("/api/v1/button", "{}"),
                                              post("/api/v1/select", "{nonsense"),
                                              "GET / HTTP/1.1\r\n",
                                              std::string(20'000, 'x'),
                                              "\r\n\r\n"};
    return all;
}

// All files below a folder.
std::vector<std::string> filesBelow(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code ignored; // files come and go
    for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored))
        if (entry->is_regular_file(ignored))
            files.push_back(entry->path());
    std::ranges::sort(files);
    return files;
}

void spoil(const std::string& file, int manner) {
    const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    const std::string nonsense = "\x00\xff[[[=\nnonsense = \x01\x80 ]\n[Decoder\nSequenceMode";
    if (manner == 0 && ftruncate(fd, 0) != 0)
        std::perror(file.c_str());
    if (manner == 1 && write(fd, nonsense.data(), nonsense.size()) < 0)
        std::perror(file.c_str());
    close(fd);
}

} // namespace

// ---- Files

// The file is restored by a rename, as an editor does it.
void Plan::breakParameters() {
    const std::size_t number = index(site_.decoders());
    const std::string file = site_.decoder(number).parameterFile();
    const std::string whole = site_.parameters(number);
    parametersBroken_[number] = true;
    const int manner = below(5);
    static const std::vector<std::string> how{"empty", "half", "with nonsense", "removed",
                                              "with other sources"};
    note("parameter file of decoder " + std::to_string(number) + ": " + how[static_cast<std::size_t>(manner)],
         "files-broken");
    if (manner == 3)
        fs::remove(file);
    else
        appliance::writeFile(
            file, manner == 0   ? ""
                  : manner == 1 ? whole.substr(0, whole.size() / 2)
                  : manner == 2 ? whole + "\n[[[=\xff\x01\nSequenceMode"
                                : "[Decoder]\nSequenceMode = manual\n[Encoder.X]\nAddress=127.0.0.1:1\n");
    if (below(2) == 0)
        appliance::sendRaw(appliance::eventQueue(site_.decoder(number)), propertyEvent);
    later(4000, [this, number] { restoreParameters(number); });
}

void Plan::restoreParameters(std::size_t number) {
    const std::string file = site_.decoder(number).parameterFile();
    appliance::writeFile(file + ".editor", site_.parameters(number));
    fs::rename(file + ".editor", file);
}

// Any file below run/decoder, except the sockets and the pictures: removed, emptied or overwritten.
void Plan::breakStatus() {
    const std::string folder = anyDecoder().root() + "/run/decoder";
    std::vector<std::string> files = filesBelow(folder);
    std::erase_if(files, [](const std::string& file) { return file.find("/screen/") != std::string::npos; });
    if (files.empty())
        return;
    const std::string file = oneOf(files);
    const int manner = below(3);
    static const std::vector<std::string> how{"emptied", "spoiled", "removed"};
    note(file.substr(folder.size()) + " is " + how[static_cast<std::size_t>(manner)], "files-broken");
    std::error_code ignored;
    if (manner == 2)
        fs::remove(file, ignored);
    else
        spoil(file, manner);
}

void Plan::breakPicture() {
    const std::string file = anyDecoder().root() + "/run/decoder/screen/frames";
    const int manner = below(3);
    note("the frame store: " + std::to_string(manner), "files-broken");
    std::error_code ignored;
    if (manner == 2)
        fs::remove(file, ignored);
    else
        spoil(file, manner);
}

// ---- Floods

void Plan::floodEvents() {
    static const std::vector<std::pair<int, int>> events{
        {selectEvent, 3},     {selectEvent, 99},      {propertyEvent, 0},  {flushEvent, 0},
        {childEvent, nobody}, {barrierEvent, nobody}, {reconnectEvent, 0}, {strangeId, 1}};
    const auto [id, value] = oneOf(events);
    note("a flood of events " + std::to_string(id), "event-floods");
    Appliance& decoder = anyDecoder();
    // Each flush and each selection that is queued is a detection of its own, up to 256 of them. So only a few are sent:
    // otherwise the picture would come back long after the faults.
    const bool detects = id == flushEvent || (id == selectEvent && value != noSource);
    const int pauseUs = detects ? 100'000 : 1 + below(300);
    auto flood = std::make_shared<appliance::Flood>(decoder, id, value, std::chrono::microseconds(pauseUs));
    later(1500, [this, &decoder, flood, choose = value == noSource]() mutable {
        progress_.add("events-sent", flood->sent());
        flood.reset();
        if (choose)
            decoder.ctl({"select", "1"});
    });
}

void Plan::floodPresses() {
    const std::string button = anyDecoder().root() + "/proc/sys/dev/button_videoselect";
    note("a flood of presses", "press-floods");
    const int fd = open(button.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    for (int i = 0; fd >= 0 && i < 300; ++i)
        if (write(fd, i % 7 == 6 ? "2" : "1", 1) != 1)
            break;
    close(fd);
}

void Plan::floodParameters() {
    static const std::vector<std::pair<std::string, std::string>> writes{
        {"Decoder.Connected", "no"}, {"Decoder.Connected", "yes"},      {"Decoder.VideoMode", "ntsc"},
        {"Screen.ShowClock", "yes"}, {"Alarm.DisplayTime", "nonsense"}, {"Encoder.Gate.DisplayTime", "3"}};
    Appliance& decoder = anyDecoder();
    note("a flood of parameter writes", "parameter-floods");
    for (int i = 0; i < 8; ++i) {
        const auto& [name, value] = oneOf(writes);
        decoder.ctl({"set", name, value}); // it may wait long for a player that is stopped
        progress_.add("parameter-writes");
        mendDue(false);
    }
}

// Ten connections at a time, to the panel or the gateway.
void Plan::floodRequests() {
    Service& service = *site_.services()[index(2)];
    const int port = service.port();
    if (port == 0)
        return;
    note("a flood of requests to " + service.name(), "request-floods");
    std::vector<std::thread> clients;
    for (int i = 0; i < 10; ++i)
        clients.emplace_back([port, text = oneOf(panelRequests()), other = oneOf(panelRequests())] {
            request(port, text);
            request(port, other);
        });
    for (std::thread& client : clients)
        client.join();
    progress_.add("requests", 20);
}

// ---- What people do

void Plan::select() {
    const std::size_t decoder = index(site_.decoders());
    const int source = sourceOf(decoder);
    note("decoder " + std::to_string(decoder) + ": select " + std::to_string(source), "selections");
    appliance::sendRaw(appliance::eventQueue(site_.decoder(decoder)), selectEvent, source);
}

void Plan::alarm() {
    const std::size_t decoder = index(site_.decoders());
    note("decoder " + std::to_string(decoder) + ": an alarm", "alarms");
    site_.decoder(decoder).ctl({"alarm", std::to_string(sourceOf(decoder)), "Somebody", "is", "here"});
}

void Plan::lock() {
    note("a lock", "locks");
    appliance::sendRaw(appliance::eventQueue(anyDecoder()), lockEvent);
}

void Plan::reconnect() {
    note("the end of a lock", "locks");
    appliance::sendRaw(appliance::eventQueue(anyDecoder()), reconnectEvent);
}

void Plan::flush() {
    note("all encoders are asked again", "flushes");
    appliance::sendRaw(appliance::eventQueue(anyDecoder()), flushEvent);
}

} // namespace faults
