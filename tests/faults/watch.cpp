#include "tests/faults/watch.h"

#include "tests/appliance/event_sender.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faults {

using appliance::Appliance;
using appliance::Seconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds lookEach{100};
constexpr std::chrono::milliseconds askEach{1500};
constexpr Seconds answerLimit{10};
constexpr long largestLog = 64L << 20;
constexpr int strangeEvent = 7; // "a player is at a barrier", of a process that does not exist
constexpr int nobody = 4'500'000;

double secondsSince(Clock::time_point begin) {
    return Seconds(Clock::now() - begin).count();
}

// Reaps orphans that came to this process and ended. Processes of the test are reaped where they were started.
void reapOrphans(const std::vector<ProcessEntry>& all) {
    for (const ProcessEntry& entry : all)
        if (entry.parent == getpid() && entry.state == 'Z' && isPlayerName(entry.name))
            waitpid(entry.pid, nullptr, WNOHANG);
}

} // namespace

void becomeSubreaper() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Watch::Watch(std::vector<Appliance*> decoders) {
    for (Appliance* decoder : decoders)
        decoders_.push_back({.appliance = decoder,
                             .log = FollowedLog(decoder->logFile(), largestLog),
                             .output = FollowedLog(decoder->root() + "/var/log/output", 0),
                             .exits = {}});
    looker_ = std::thread([this] { run(); });
    asker_ = std::thread([this] {
        while (!over_) {
            for (Decoder& decoder : decoders_) {
                askStatus(decoder);
                probeEvents(decoder);
            }
            for (auto waited = Clock::now(); !over_ && Clock::now() - waited < askEach;)
                appliance::pause(lookEach);
        }
    });
}

Watch::~Watch() {
    over_ = true;
    looker_.join();
    asker_.join();
}

void Watch::run() {
    auto last = Clock::now();
    while (!over_) {
        const double seconds = secondsSince(last);
        last = Clock::now();
        lookAtProcesses(seconds);
        readLogs();
        appliance::pause(lookEach);
    }
}

void Watch::report(const std::string& problem) {
    const std::lock_guard guard(lock_);
    problems_.push_back(problem);
}

void Watch::lookAtProcesses(double seconds) {
    const std::vector<ProcessEntry> all = descendants();
    std::vector<pid_t> supervisors;
    for (const Decoder& decoder : decoders_)
        supervisors.push_back(decoder.appliance->supervisor().pid());
    std::vector<std::string> found;
    {
        const std::lock_guard guard(lock_);
        found = rules_.look(all, supervisors, seconds);
    }
    for (const pid_t pid : supervisors)
        if (std::ranges::none_of(all,
                                 [&](const ProcessEntry& one) { return one.pid == pid && one.state != 'Z'; }))
            found.push_back("the supervisor " + std::to_string(pid) + " has ended");
    for (const std::string& problem : found)
        report(problem);
    reapOrphans(all);
}

void Watch::readLogs() {
    for (Decoder& decoder : decoders_) {
        const std::vector<std::string> output = decoder.output.newLines();
        const std::vector<std::string> log = decoder.log.newLines();
        const std::lock_guard guard(lock_);
        decoder.exits.readOutput(output);
        decoder.exits.readLog(log);
    }
}

void Watch::askStatus(Decoder& decoder) {
    const auto begin = Clock::now();
    const nlohmann::json status = decoder.appliance->status();
    const double took = secondsSince(begin);
    {
        const std::lock_guard guard(lock_);
        slowestAnswer_ = std::max(slowestAnswer_, took);
    }
    if (!status.contains("currentSource"))
        report("decoderctl status does not answer: " + decoder.appliance->ctl({"status"}).errors);
    else if (took > answerLimit.count())
        report("decoderctl status took " + std::to_string(took) + " s");
}

// The kernel notes when a message was last taken. A queue that is empty, or from which one was taken since, is read.
void Watch::probeEvents(Decoder& decoder) {
    const auto begin = time(nullptr);
    appliance::sendRaw(appliance::eventQueue(*decoder.appliance), strangeEvent,
                       nobody + static_cast<int>(++decoder.probes % 10'000));
    const auto isTaken = [&] {
        msqid_ds queue{};
        return msgctl(appliance::eventQueue(*decoder.appliance), IPC_STAT, &queue) == 0 &&
               (queue.msg_qnum == 0 || queue.msg_rtime >= begin);
    };
    if (!appliance::eventually([&] { return over_ || isTaken(); }, answerLimit))
        report("the supervisor " + std::to_string(decoder.appliance->supervisor().pid()) +
               " took no event for ten seconds");
}

std::vector<std::string> Watch::problems() {
    const std::lock_guard guard(lock_);
    return std::exchange(problems_, {});
}

std::vector<std::string> Watch::lostExits() {
    std::vector<pid_t> running;
    for (const ProcessEntry& entry : descendants())
        if (entry.state != 'Z')
            running.push_back(entry.pid);
    std::vector<std::string> lost;
    const std::lock_guard guard(lock_);
    for (const Decoder& decoder : decoders_)
        for (const pid_t pid : decoder.exits.missing(running))
            lost.push_back("the log has no exit of the player " + std::to_string(pid));
    return lost;
}

std::size_t Watch::playersStarted() {
    const std::lock_guard guard(lock_);
    std::size_t all = 0;
    for (const Decoder& decoder : decoders_)
        all += decoder.exits.started();
    return all;
}

double Watch::longestZombie() {
    const std::lock_guard guard(lock_);
    return rules_.longestZombie();
}

int Watch::mostPlayers() {
    const std::lock_guard guard(lock_);
    return rules_.mostPlayers();
}

double Watch::slowestAnswer() {
    const std::lock_guard guard(lock_);
    return slowestAnswer_;
}

} // namespace faults
