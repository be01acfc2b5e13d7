#include "tests/walk/history.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <regex>
#include <sstream>

namespace walk {

Time now() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

const Source* Settings::source(int index) const {
    return index >= 0 && index < static_cast<int>(sources.size()) ? &sources[static_cast<std::size_t>(index)]
                                                                  : nullptr;
}

std::string Settings::key(int index) const {
    const Source* found = source(index);
    return found == nullptr ? "" : found->key();
}

namespace {

// "2026-11-21T07:58:01.123456Z"
Time timeOf(const std::string& text) {
    std::tm date{};
    int micros = 0;
    if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d.%dZ", &date.tm_year, &date.tm_mon, &date.tm_mday,
                    &date.tm_hour, &date.tm_min, &date.tm_sec, &micros) != 7) {
        return 0;
    }
    date.tm_year -= 1900;
    date.tm_mon -= 1;
    return static_cast<Time>(timegm(&date)) * second + micros;
}

void classify(Line& line) {
    static const std::regex transition(R"(State transition: (\w+)\(\d+\) -> (\w+)\(\d+\))");
    std::smatch found;
    const std::string& text = line.text;
    const char* raw = text.c_str();
    if (std::regex_search(text, found, transition)) {
        line.kind = Kind::state;
        line.from = found[1];
        line.to = found[2];
    } else if (std::sscanf(raw, "eventHandler() adding event to queue (id=%d, val=(%d,%d))", &line.id,
                           &line.value1, &line.value2) == 3) {
        line.kind = Kind::added;
    } else if (std::sscanf(raw, "eventHandler() discarding event (event queue full id=%d", &line.id) == 1) {
        line.kind = Kind::discarded;
    } else if (std::sscanf(raw, "eventHandler::pushEvent() pushing event to queue (id=%d)", &line.id) == 1) {
        line.kind = Kind::pushed;
    } else if (std::sscanf(raw, "eventHandler::pushEvent() discarding event (event queue full id=%d",
                           &line.id) == 1) {
        line.kind = Kind::pushDropped;
    }
}

} // namespace

std::vector<Line> parseLog(const std::string& text, int supervisor) {
    static const std::regex colour("\x1b\\[[0-9;]*m");
    static const std::regex form(R"((\S+Z) (\S+)\[(\d+)\] (\d) (.*))");
    std::vector<Line> lines;
    std::istringstream rest(text);
    std::smatch found;
    for (std::string row; std::getline(rest, row);) {
        if (!std::regex_match(row, found, form)) {
            continue;
        }
        Line line;
        line.time = timeOf(found[1]);
        line.pid = std::stoi(found[3]);
        line.level = std::stoi(found[4]);
        line.text = std::regex_replace(found[5].str(), colour, "");
        classify(line);
        if (line.pid == supervisor) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<Line> parsePlayers(const std::string& text) {
    std::vector<Line> lines;
    std::istringstream rest(text);
    for (std::string row; std::getline(rest, row);) {
        std::istringstream words(row);
        Line line;
        line.kind = Kind::player;
        line.number = -1;
        if (words >> line.time >> line.pid >> line.text) {
            words >> line.number;
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<std::pair<long, int>> parseTimers(const std::string& output) {
    std::vector<std::pair<long, int>> timers;
    std::istringstream rest(output);
    for (std::string row; std::getline(rest, row);) {
        long milliseconds = 0;
        int id = 0;
        if (std::sscanf(row.c_str(), ">>> setTimeout(%ld, %d)", &milliseconds, &id) == 2) {
            timers.emplace_back(milliseconds, id);
        }
    }
    return timers;
}

std::vector<int> parseLaunches(const std::string& output) {
    std::vector<int> pids;
    std::istringstream rest(output);
    for (std::string row; std::getline(rest, row);) {
        int pid = 0;
        if (std::sscanf(row.c_str(), "Launched pid: %d", &pid) == 1) {
            pids.push_back(pid);
        }
    }
    return pids;
}

std::vector<Line> merge(std::vector<Line> log, std::vector<Line> others) {
    std::ranges::stable_sort(others, {}, &Line::time);
    std::vector<Line> all;
    std::size_t next = 0;
    for (Line& line : log) {
        while (next < others.size() && others[next].time <= line.time) {
            all.push_back(std::move(others[next++]));
        }
        all.push_back(std::move(line));
    }
    all.insert(all.end(), std::make_move_iterator(others.begin() + static_cast<std::ptrdiff_t>(next)),
               std::make_move_iterator(others.end()));
    return all;
}

std::string describe(const Line& line) {
    static const std::map<Kind, std::string> names{{Kind::writeBegins, "walk: writes settings"},
                                                   {Kind::writeEnds, "walk: settings written"},
                                                   {Kind::connectBegins, "walk: writes Decoder.Connected"},
                                                   {Kind::connectEnds, "walk: Connected written"},
                                                   {Kind::sent, "walk: sends"},
                                                   {Kind::pressed, "walk: button"},
                                                   {Kind::killed, "walk: signals player"},
                                                   {Kind::player, "player:"},
                                                   {Kind::video, "encoder: video from"},
                                                   {Kind::moved, "encoder: preset"},
                                                   {Kind::blanked, "shell:"},
                                                   {Kind::looked, "walk: looks"}};
    const auto name = names.find(line.kind);
    char clock[32];
    const std::time_t seconds = line.time / second;
    std::tm date{};
    std::strftime(clock, sizeof clock, "%H:%M:%S", gmtime_r(&seconds, &date));
    std::ostringstream out;
    out << clock << '.' << std::to_string(second + line.time % second).substr(1) << ' ';
    if (name == names.end()) {
        out << line.text;
    } else {
        out << name->second << ' ' << line.text;
        if (line.kind == Kind::sent) {
            out << " id=" << line.id << " (" << line.value1 << ',' << line.value2 << ')';
        } else {
            out << ' ' << line.number;
        }
        if (line.pid != 0) {
            out << " [" << line.pid << ']';
        }
    }
    return out.str();
}

} // namespace walk
