// Checks that are possible only when the walk is over: totals, timers, players, the shutdown.
#include "tests/walk/checker.h"

#include <algorithm>
#include <sstream>

namespace walk {

// Sources with the same input share one detection, and with it the index that is passed to the player.
bool Checker::sameInput(int one, int other) const {
    return std::ranges::any_of(history_.settings, [&](const Settings& settings) {
        return settings.key(one) == settings.key(other);
    });
}

void Checker::atEnd() {
    checkReaction();
    // One machine that fits is enough. Without one, the report has what is wrong with each.
    std::string wrong;
    if (std::ranges::none_of(machines_, [&](const Machine& machine) {
            const std::string findings = wrongTotals(machine);
            wrong += "if the last state is " + machine.state + ":\n" + findings;
            return findings.empty();
        })) {
        verdict_.violations.push_back(wrong);
    }
    checkCounts();
    checkPlayers();
    checkShutdown();
}

// The machine must have left its state if an event from long ago requires it.
void Checker::checkReaction() {
    window_.end = shutdown_ ? history_.lines[*shutdown_].time : history_.lines.back().time;
    std::string waiting;
    for (const Machine& machine : machines_) {
        bool overdue = false;
        bool any = false;
        for (const Machine& outcome : Run(history_, window_).outcomes(machine)) {
            any = true;
            overdue = window_.end - std::max(outcome.cause, window_.begin) > lateness;
            waiting = machine.state + " should have become " + outcome.state;
            if (!overdue) {
                return;
            }
        }
        if (!any) {
            return;
        }
    }
    fail("no reaction: " + waiting, history_.lines.size() - 1);
}

std::string Checker::wrongTotals(const Machine& machine) const {
    std::ostringstream text;
    // The last state may have set one more timer, or blanked the screen for each event that it dropped.
    const std::size_t printed = history_.timers.size();
    if (printed < machine.timers.size() || printed > machine.timers.size() + 1 + window_.events.size()) {
        text << "timers set: " << printed << ", expected " << machine.timers.size() << '\n';
    }
    for (std::size_t i = 0; i < std::min(printed, machine.timers.size()); ++i) {
        const Timer& wanted = machine.timers[i];
        if (history_.timers[i] != std::pair(wanted.milliseconds, wanted.id)) {
            text << "timer " << history_.timers[i].second << " of " << history_.timers[i].first
                 << " ms, expected timer " << wanted.id << " of " << wanted.milliseconds << " ms\n";
        }
        std::size_t came = 0;
        const Time length = wanted.milliseconds * 1000;
        for (const Line& line : history_.lines) {
            if (line.kind != Kind::added || line.id != timeout || line.value1 != wanted.id) {
                continue;
            }
            ++came;
            if (line.time < wanted.armed.low + length || line.time > wanted.armed.high + length + lateness) {
                text << "timer " << wanted.id << " of " << wanted.milliseconds << " ms came after "
                     << (line.time - wanted.armed.low) / 1000 << " ms\n";
            }
        }
        const bool due = wanted.armed.high + length + lateness < history_.ended;
        if (came > 1 || (due && came == 0)) {
            text << "timer " << wanted.id << " came " << came << " times\n";
        }
    }
    const auto blanks = static_cast<std::size_t>(
        std::ranges::count_if(history_.lines, [](const Line& line) { return line.kind == Kind::blanked; }));
    if (blanks < machine.blanks || blanks > machine.blanks + 1 + window_.events.size()) {
        text << "the screen was blanked " << blanks << " times, expected " << machine.blanks << '\n';
    }
    return text.str();
}

// Every event that the walk sent entered the queue or was refused by it. The walk ends with a flush and waits until the
// flush has taken effect; events keep their order, so all earlier events have arrived by then.
void Checker::checkCounts() {
    Time last = 0;
    for (const Line& line : history_.lines) {
        last = line.kind == Kind::sent && line.id == flush ? line.time : last;
    }
    std::map<int, int> missing;
    for (const Line& line : history_.lines) {
        if (line.kind == Kind::sent && line.time <= last) {
            ++missing[line.id];
        } else if (line.kind == Kind::pressed && line.time + lateness < history_.ended) {
            ++missing[button]; // through the button thread, which has its own timing
        } else if (line.kind == Kind::added || line.kind == Kind::discarded) {
            --missing[line.id];
        }
    }
    for (const int id : {button, property, flush, select, lock, reconnect}) {
        if (missing[id] > 0) {
            verdict_.violations.push_back(std::to_string(missing[id]) + " events with identifier " +
                                          std::to_string(id) + " did not arrive");
        }
    }
}

// Each player ended with the status that the supervisor saw, played the source that was asked for, and was told to stop
// only when the supervisor logged it.
void Checker::checkPlayers() {
    std::map<int, int> wantedSource;
    for (const Machine& machine : machines_) {
        for (std::size_t i = 0; i < machine.launchedFor.size() && i < history_.launched.size(); ++i) {
            wantedSource[history_.launched[i]] = machine.launchedFor[i];
        }
    }
    std::map<int, std::set<int>> ends; // wait statuses: a signal may meet a player that is just leaving
    std::map<int, int> hangUps;
    std::set<int> told;
    for (const Line& line : history_.lines) {
        if (line.kind == Kind::killed || (line.kind == Kind::player && line.text == "signal")) {
            ends[line.pid].insert(line.number);
        } else if (line.kind == Kind::player && line.text == "exit") {
            ends[line.pid].insert(line.number << 8);
        } else if (line.kind == Kind::player && line.text == "hup") {
            ++hangUps[line.pid];
        } else if (line.kind == Kind::player && line.text == "start" && wantedSource.contains(line.pid) &&
                   !sameInput(wantedSource[line.pid], line.number)) {
            verdict_.violations.push_back("player " + std::to_string(line.pid) + " plays source " +
                                          std::to_string(line.number) + " instead of " +
                                          std::to_string(wantedSource[line.pid]));
        } else if (line.kind == Kind::added && line.id == child && ends.contains(line.value1) &&
                   told.insert(line.value1).second && !ends[line.value1].contains(line.value2 & ~0x80)) {
            verdict_.violations.push_back("player " + std::to_string(line.value1) +
                                          " did not end with status " + std::to_string(line.value2) +
                                          ", which the supervisor saw");
        }
    }
    // The last window is still open: its line may be there, although the model has not sent the signal yet.
    const bool justSent =
        std::ranges::find(window_.texts, "Sending HUP to current player") != window_.texts.end();
    for (const auto& player : hangUps) {
        const bool explained = std::ranges::any_of(machines_, [&](const Machine& machine) {
            return std::ranges::count(machine.hangUps, player.first) >= player.second;
        });
        if (!explained && !justSent) {
            verdict_.violations.push_back("player " + std::to_string(player.first) +
                                          " was told to stop without a reason");
        }
    }
}

void Checker::checkShutdown() {
    static const std::vector<std::string> wanted{
        "[SHUTDOWN] Skelmor shutdown started!!!",  "[SHUTDOWN] Sending SIGINT to children...",
        "[SHUTDOWN] All children dead...",         "[SHUTDOWN] Removing barriers...",
        "[SHUTDOWN] Shutting down event queue...", "[SHUTDOWN] Closing log system..."};
    std::vector<std::string> found;
    std::map<int, Time> interrupted;
    for (const Line& line : history_.lines) {
        if (line.kind == Kind::text && line.text.find("[SHUTDOWN]") == 0) {
            found.push_back(line.text);
        }
        if (line.kind == Kind::player && line.text == "int") {
            interrupted[line.pid] = line.time;
        }
    }
    if (found != wanted) {
        verdict_.violations.push_back("the lines of the shutdown are wrong");
    }
    for (const auto& [pid, time] : interrupted) {
        if (time < history_.ended) {
            verdict_.violations.push_back("player " + std::to_string(pid) + " got SIGINT before the end");
        }
    }
}

} // namespace walk
