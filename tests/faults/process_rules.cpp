#include "tests/faults/watch.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <unistd.h>

namespace faults {

namespace {

constexpr int mostPlayersAllowed = 2;
constexpr double zombieLimit = 2;
constexpr double orphanLimit = 5; // a program whose parent was killed notices it and ends

// What this process starts itself. Everything else with this parent is an orphan.
bool startedByTest(const std::string& name) {
    constexpr std::array own{
        "video-encoder",   "skelmor",    "camera-gateway", "decoder-panel", "decoder-mqtt",
        "decoder-monitor", "decoderctl", "mosquitto",      "Xvfb",          "tc",
        "faults_chaos",    "faults_soak"};
    return std::ranges::any_of(own,
                               [&](const char* one) { return name == std::string_view(one).substr(0, 15); });
}

std::string describe(const ProcessEntry& entry) {
    return entry.name + " (pid " + std::to_string(entry.pid) + ", parent " + std::to_string(entry.parent) +
           ", state " + entry.state + ")";
}

// The number behind `before`; -1 if the line does not have it.
pid_t pidAfter(std::string_view line, std::string_view before) {
    const std::size_t at = line.find(before);
    if (at == std::string_view::npos)
        return -1;
    const std::string_view rest = line.substr(at + before.size());
    pid_t pid = -1;
    std::from_chars(rest.data(), rest.data() + rest.size(), pid);
    return pid;
}

} // namespace

// A look that comes late must not make a zombie old: it may be another moment of a busy machine.
double ProcessRules::age(std::map<Key, double>& ages, const ProcessEntry& entry, double seconds) const {
    constexpr double mostOfOneLook = 0.2;
    return ages[{entry.pid, entry.started}] += std::min(seconds, mostOfOneLook);
}

std::vector<std::string> ProcessRules::look(const std::vector<ProcessEntry>& all,
                                            const std::vector<pid_t>& supervisors, double seconds) {
    std::vector<std::string> problems;
    std::map<Key, double> zombies;
    std::map<Key, double> orphans;
    std::map<pid_t, int> players;
    const auto report = [&](const ProcessEntry& entry, const std::string& what) {
        if (reported_.insert({entry.pid, entry.started}).second)
            problems.push_back(what + ": " + describe(entry));
    };
    for (const ProcessEntry& entry : all) {
        const bool ofSupervisor = std::ranges::find(supervisors, entry.parent) != supervisors.end();
        if (ofSupervisor && entry.state != 'Z' && isPlayerName(entry.name) &&
            ++players[entry.parent] > mostPlayersAllowed)
            report(entry, "a third player");
        if (ofSupervisor && entry.state == 'Z') {
            const double old = age(zombies_, entry, seconds);
            zombies[{entry.pid, entry.started}] = old;
            longestZombie_ = std::max(longestZombie_, old);
            if (old > zombieLimit)
                report(entry, "a zombie for more than two seconds");
        }
        if (entry.parent == getpid() && !startedByTest(entry.name) && entry.state != 'Z') {
            orphans[{entry.pid, entry.started}] = age(orphans_, entry, seconds);
            if (orphans[{entry.pid, entry.started}] > orphanLimit)
                report(entry, "an orphan");
        }
    }
    for (const auto& [parent, count] : players)
        mostPlayers_ = std::max(mostPlayers_, count);
    zombies_ = std::move(zombies);
    orphans_ = std::move(orphans);
    return problems;
}

void ExitAccount::readOutput(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const pid_t pid = pidAfter(line, "Launched pid: ");
        if (pid < 0)
            continue;
        ++started_;
        if (ended_.erase(pid) == 0)
            open_.insert(pid);
    }
}

void ExitAccount::readLog(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        signals_ += line.find("Player crashed due to an uncaught signal") != std::string::npos ? 1 : 0;
        const pid_t pid = pidAfter(line, "adding event to queue (id=2, val=(");
        if (pid >= 0 && open_.erase(pid) == 0)
            ended_.insert(pid);
    }
    // Forged exits fill this; a real one that is still missed here came just before its start's line.
    constexpr std::size_t mostKept = 100'000;
    if (ended_.size() > mostKept)
        ended_.clear();
}

std::vector<pid_t> ExitAccount::missing(const std::vector<pid_t>& running) const {
    std::vector<pid_t> missing;
    std::ranges::copy_if(open_, std::back_inserter(missing),
                         [&](pid_t pid) { return std::ranges::find(running, pid) == running.end(); });
    return missing;
}

} // namespace faults
