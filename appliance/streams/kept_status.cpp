#include "appliance/streams/kept_status.h"

#include "appliance/streams/kept_protocol.h"

#include <libcommon/clock.h>

#include <array>
#include <cerrno>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace streams {
namespace {

constexpr std::string_view reasonKey = " reason=";

std::vector<int> indicesIn(const std::string& text) {
    std::vector<int> indices;
    std::istringstream in(text);
    for (std::string one; std::getline(in, one, ',');)
        indices.push_back(std::atoi(one.c_str()));
    return indices;
}

void setValue(KeptReport& report, const std::string& key, const std::string& value) {
    if (key == "sources")
        report.sources = indicesIn(value);
    else if (key == "kept")
        report.kept = value == "yes";
    else if (key == "keyAge")
        report.keyAgeMs = std::atoll(value.c_str());
    else if (key == "bitRate")
        report.bitRate = std::atoll(value.c_str());
    else if (key == "bytes")
        report.bytes = static_cast<std::size_t>(std::atoll(value.c_str()));
    else if (key == "players")
        report.players = std::atoi(value.c_str());
}

// Receives until the keeper closes the connection; false when it does not in time.
bool receiveAll(int fd, int limitMs, std::string& text) {
    const std::int64_t until = gettimeusec() + std::int64_t{1000} * limitMs;
    std::array<char, 4096> bytes;
    KeptFrameReader reader;
    for (;;) {
        const ssize_t got = recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (got == 0)
            return true;
        if (got < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        if (got > 0)
            reader.feed({bytes.data(), static_cast<std::size_t>(got)},
                        [&](KeptFrame kind, std::string_view content) {
                            if (kind == KeptFrame::status)
                                text = content;
                            return true;
                        });
        const std::int64_t left = until - gettimeusec();
        if (left <= 0)
            return false;
        pollfd readable{fd, POLLIN, 0};
        poll(&readable, 1, static_cast<int>(left / 1000) + 1);
    }
}

} // namespace

std::string writeKeptReport(const KeptReport& report) {
    std::ostringstream line;
    line << "sources=";
    for (std::size_t i = 0; i < report.sources.size(); ++i)
        line << (i == 0 ? "" : ",") << report.sources[i];
    line << " kept=" << (report.kept ? "yes" : "no") << " keyAge=" << report.keyAgeMs
         << " bitRate=" << report.bitRate << " bytes=" << report.bytes << " players=" << report.players
         << reasonKey << report.reason;
    return line.str();
}

std::optional<KeptReport> readKeptReport(std::string_view line) {
    const std::size_t reason = line.find(reasonKey);
    if (reason == std::string_view::npos)
        return std::nullopt;
    KeptReport report;
    report.reason = line.substr(reason + reasonKey.size());
    std::istringstream values{std::string(line.substr(0, reason))};
    for (std::string value; values >> value;) {
        const std::size_t sign = value.find('=');
        if (sign != std::string::npos)
            setValue(report, value.substr(0, sign), value.substr(sign + 1));
    }
    return report.sources.empty() ? std::nullopt : std::optional(report);
}

std::optional<std::vector<KeptReport>> askKeeper(int limitMs) {
    const int fd = openKeptSocket(keptSocketPath(), false);
    if (fd < 0)
        return std::nullopt;
    constexpr std::string_view request = "status\n";
    std::string text;
    const bool good = send(fd, request.data(), request.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                          static_cast<ssize_t>(request.size()) &&
                      receiveAll(fd, limitMs, text);
    close(fd);
    if (!good)
        return std::nullopt;
    std::vector<KeptReport> reports;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (const auto report = readKeptReport(line))
            reports.push_back(*report);
    return reports;
}

} // namespace streams
