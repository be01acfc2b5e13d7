#include "tests/walk/checker.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace walk {

namespace {

constexpr std::size_t contextLines = 60;
constexpr Time signalDelay = second / 5;

std::string withoutEnd(std::string text) {
    while (!text.empty() && text.back() == ' ') {
        text.pop_back();
    }
    return text;
}

} // namespace

Verdict check(const History& history) {
    return Checker(history).verdict();
}

Checker::Checker(const History& history) : history_(history), machines_(1) {
    renewWindow(history_.lines.empty() ? 0 : history_.lines.front().time);
}

Verdict Checker::verdict() {
    for (std::size_t i = 0; i < history_.lines.size() && !lost_ && !shutdown_; ++i) {
        read(i);
    }
    if (!lost_) {
        atEnd();
    }
    return verdict_;
}

void Checker::fail(const std::string& text, std::size_t number) {
    verdict_.violations.push_back(text + "\n" + context(number));
}

std::string Checker::context(std::size_t number) const {
    std::string text;
    const std::size_t end = std::min(number + 1, history_.lines.size());
    for (std::size_t i = end > contextLines ? end - contextLines : 0; i < end; ++i) {
        text += "    " + describe(history_.lines[i]) + '\n';
    }
    return text;
}

void Checker::renewWindow(Time begin) {
    window_ = {};
    window_.begin = begin;
    // The signal itself may arrive a little later than its log line.
    window_.interrupted = begin < lastSignal_ + signalDelay;
    window_.versions = open_;
    window_.versions.insert(settled_);
    if (writing_) {
        window_.connects.insert(writes_.back().text);
        writes_ = {writes_.back()};
    } else {
        writes_.clear();
    }
}

void Checker::read(std::size_t number) {
    const Line& line = history_.lines[number];
    Event event{line.id, line.value1, line.value2, line.time, static_cast<int>(window_.events.size())};
    switch (line.kind) {
    case Kind::state:
        transition(line, number);
        break;
    case Kind::added:
        window_.events.push_back(event);
        childEnded(line);
        break;
    case Kind::pushed:
        event.pushed = true;
        window_.events.push_back(event);
        break;
    case Kind::pushDropped:
        window_.dropped.insert(line.id);
        break;
    case Kind::text:
        window_.texts.push_back(withoutEnd(line.text));
        if (line.text.find("Sending SIGUSR1") != std::string::npos) {
            window_.interrupted = true;
            lastSignal_ = line.time;
        }
        if (line.text.find("[SHUTDOWN] Skelmor shutdown started!!!") == 0) {
            shutdown_ = number;
        }
        unexpectedError(line);
        break;
    case Kind::writeBegins:
    case Kind::writeEnds:
    case Kind::connectBegins:
    case Kind::connectEnds:
        write(line);
        break;
    case Kind::video:
        window_.videos.insert(line.text);
        break;
    case Kind::moved:
        window_.moves.insert(line.text);
        break;
    case Kind::looked:
        look(line);
        break;
    case Kind::discarded:
    case Kind::sent:
    case Kind::pressed:
    case Kind::killed:
    case Kind::player:
    case Kind::blanked:
        break; // counted at the end
    }
}

void Checker::childEnded(const Line& line) {
    if (line.id == child) {
        alive_.erase(line.value1);
        gone_.insert(line.value1);
    }
}

void Checker::write(const Line& line) {
    switch (line.kind) {
    case Kind::writeBegins:
        open_.insert(line.number);
        window_.versions.insert(line.number);
        break;
    case Kind::writeEnds:
        open_.erase(line.number);
        settled_ = line.number;
        break;
    case Kind::connectBegins:
        window_.connects.insert(line.text);
        writes_.push_back(line);
        writing_ = true;
        break;
    default:
        writes_.push_back(line);
        writing_ = false;
        break;
    }
}

// The values that Decoder.Connected may have after what the walk wrote within the window.
void Checker::settleConnected() {
    for (Machine& machine : machines_) {
        for (const Line& line : writes_) {
            const bool alone = !machine.wroteConnected && !mixed_;
            if (line.kind == Kind::connectEnds && alone) {
                machine.connected = {line.text};
            } else {
                machine.connected.insert(line.text);
            }
        }
    }
    const bool wrote = std::ranges::any_of(machines_, &Machine::wroteConnected);
    mixed_ = writing_ && (mixed_ || wrote);
}

void Checker::transition(const Line& line, std::size_t number) {
    window_.end = line.time;
    std::vector<Machine> next;
    std::set<std::string> possible;
    Time late = 0;
    for (const Machine& machine : machines_) {
        if (machine.state != line.from) {
            continue;
        }
        for (Machine& outcome : Run(history_, window_).outcomes(machine)) {
            possible.insert(outcome.state);
            if (outcome.state != line.to) {
                continue;
            }
            const Time delay = window_.end - std::max(outcome.cause, window_.begin);
            late = std::max(late, delay);
            if (delay <= lateness && std::ranges::find(next, outcome) == next.end()) {
                next.push_back(std::move(outcome));
            }
        }
    }
    if (next.empty() || !isArrow(line.from, line.to)) {
        std::ostringstream text;
        text << line.from << " -> " << line.to << " is wrong here; possible:";
        for (const std::string& name : possible) {
            text << ' ' << name;
        }
        if (late > lateness) {
            text << "; late by " << late / 1000 << " ms";
        }
        text << (isArrow(line.from, line.to) ? "" : "; the table does not have this arrow");
        fail(text.str(), number);
        lost_ = true;
        return;
    }
    if (line.to.find("WAIT_LAUNCHED") == 0 && line.from.find("LAUNCH_") == 0 &&
        launches_ < history_.launched.size()) {
        const int player = history_.launched[launches_++];
        if (!gone_.contains(player)) {
            alive_.insert(player);
        }
    }
    machines_ = std::move(next);
    verdict_.machines = std::max(verdict_.machines, machines_.size());
    verdict_.seen.insert({line.from, line.to});
    ++verdict_.transitions;
    settleConnected();
    renewWindow(line.time);
}

// Errors that events of the walk explain; any other error is a violation.
void Checker::unexpectedError(const Line& line) {
    static constexpr std::array explained{"Unknown child event. pid=",
                                          "Player crashed due to an uncaught signal. signo=",
                                          "No sources available in this mode.",
                                          "handleError called with -1 sourceID",
                                          "launchPlayer called with NULL entry.",
                                          "Illegal mode 'Auto' in Decoder.SequenceMode!"};
    const bool barriers = line.text.find("masterBarrier(") == 0 &&
                          (line.text.find("wrong barrierID") != std::string::npos ||
                           line.text.find("multiple barrier from same PID") != std::string::npos);
    if (line.level <= 3 && !barriers &&
        std::ranges::none_of(explained, [&](const char* start) { return line.text.find(start) == 0; })) {
        verdict_.violations.push_back("an error that nothing explains: " + describe(line));
    }
}

bool Checker::matches(const Machine& machine, const Look& look, Time time) const {
    const Machine shown = Run(history_, window_).resting(machine);
    for (std::size_t i = 0; i < 3; ++i) {
        const OsdLine& wanted = shown.osd[i];
        const Time length = wanted.seconds * second;
        const bool may = wanted.seconds == 0 || time <= wanted.shown.high + length + second;
        const bool must = wanted.seconds == 0 || time + second / 2 < wanted.shown.low + length;
        const bool same = look.osd[i] == wanted.text;
        if (!(same && may) && !(look.osd[i].empty() && !must)) {
            return false;
        }
    }
    return look.colour == shown.colour && look.pattern == shown.pattern &&
           look.currentSource == std::to_string(shown.infoSource) &&
           look.infoConnected == shown.infoConnected;
}

void Checker::look(const Line& line) {
    const Look& look = history_.looks[static_cast<std::size_t>(line.number)];
    ++verdict_.looks;
    const auto number = static_cast<std::size_t>(&line - history_.lines.data());
    const auto agrees = [&](const Machine& machine) { return matches(machine, look, line.time); };
    std::ostringstream text;
    if (std::ranges::none_of(machines_, agrees)) {
        const Machine wanted = Run(history_, window_).resting(machines_.front());
        text << "in " << wanted.state << ": texts \"" << look.osd[0] << "\", \"" << look.osd[1] << "\", \""
             << look.osd[2] << "\", LED " << look.colour << ',' << look.pattern << ", CurrentSource "
             << look.currentSource << ", Connected " << look.infoConnected << "; expected \""
             << wanted.osd[0].text << "\", \"" << wanted.osd[1].text << "\", \"" << wanted.osd[2].text
             << "\", LED " << wanted.colour << ',' << wanted.pattern << ", CurrentSource "
             << wanted.infoSource << ", Connected " << wanted.infoConnected;
        fail(text.str(), number);
    }
    const std::set<int> children(look.children.begin(), look.children.end());
    if (children != alive_ || children.size() > 2) {
        text.str("");
        text << "children of the supervisor:";
        for (const int pid : children) {
            text << ' ' << pid;
        }
        text << "; expected:";
        for (const int pid : alive_) {
            text << ' ' << pid;
        }
        fail(text.str(), number);
    }
}

} // namespace walk
