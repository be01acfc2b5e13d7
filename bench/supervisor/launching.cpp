// Starts and deaths of players, beside a bare program that starts and loses the same one.
#include "bench/log_time.h"
#include "bench/samples.h"
#include "bench/supervisor/bare.h"
#include "bench/supervisor/measures.h"
#include "bench/supervisor/tiny_decoder.h"

#include <csignal>
#include <iostream>

namespace bench {
namespace {

double microseconds(std::int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1000;
}

double milliseconds(std::int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e6;
}

bool fails(const char* what) {
    std::cerr << "supervisor_bench: " << what << '\n';
    return false;
}

} // namespace

bool measureLaunch(const SupervisorOptions& options) {
    TinyDecoder decoder;
    if (!decoder.start({}))
        return fails("the first player does not start");
    Starts bareStarts(decoder.appliance().root() + "/run/bare");
    BareLauncher bare(decoder.supervisor(), Memory::same, benchProgram("first_instruction"),
                      {{"BENCH_STARTS", bareStarts.file()}});
    for (int i = 0; i < options.repetitions; ++i) {
        appliance::pause(std::chrono::milliseconds(50));
        const std::int64_t asked = decoder.selectOther();
        const auto player = decoder.awaitSwitch();
        if (!player)
            return fails("a select starts no player");
        tellSample("launch", "ours", microseconds(player->time - asked));
        appliance::pause(std::chrono::milliseconds(50));
        const std::int64_t forked = bare.startAndAwaitEnd().first;
        const auto start = bareStarts.next();
        if (!start)
            return fails("the bare program starts nothing");
        tellSample("launch", "bare", microseconds(start->time - forked));
    }
    return true;
}

bool measureDeath(const SupervisorOptions& options) {
    TinyDecoder decoder;
    if (!decoder.start({"-v"}))
        return fails("the first player does not start");
    BareLauncher bare(decoder.supervisor(), Memory::same, benchProgram("tiny_player"),
                      {{"TINY_PLAYER_ALONE", "1"}});
    const double logBegan = beginOfLog(decoder.appliance());
    for (int i = 0; i < options.repetitions; ++i) {
        appliance::pause(std::chrono::milliseconds(100));
        // The first line of the thread that decides what happens next.
        const std::string reaction = "Got EID_CHILD from pid:" + std::to_string(decoder.current()->pid);
        const double killed = secondsOfDay();
        kill(decoder.current()->pid, SIGKILL);
        if (!decoder.appliance().waitForLog(reaction))
            return fails("the supervisor does not react to a death");
        const double reacted = logBegan + decoder.appliance().timesInLog(reaction).back();
        tellSample("death", "ours", (reacted - killed) * 1e6);
        bare.start();
        appliance::pause(std::chrono::milliseconds(50));
        const BareLauncher::Times times = bare.killIt();
        tellSample("death", "bare", microseconds(times.third - times.first));
        tellSample("death", "signal", microseconds(times.second - times.first));
        if (!decoder.awaitPlayer())
            return fails("no player comes after a death");
    }
    return true;
}

bool measureStart(const SupervisorOptions& options) {
    for (int i = 0; i < options.repetitions; ++i) {
        TinyDecoder decoder;
        // As the last run has left it: only the first start of all must write this, durably.
        decoder.appliance().set("Decoder.Connected", "yes");
        const std::int64_t began = clockNs();
        if (!decoder.start({"-v"}, false))
            return fails("the first player does not start");
        const double whole = milliseconds(decoder.current()->time - began);
        const appliance::Appliance& log = decoder.appliance();
        if (!log.waitForLog("REQUEST_ENCODER_TYPE(6) -> "))
            return fails("no detection is in the log");
        const double detection =
            1000 * log.secondsInLog("-> REQUEST_ENCODER_TYPE(6)", "REQUEST_ENCODER_TYPE(6) -> ");
        tellSample("start", "ours", whole - detection);
        tellSample("start-detection", "ours", detection);

        Starts starts(log.root() + "/run/bare");
        const std::int64_t bareBegan = clockNs();
        appliance::Process bare(
            {benchProgram("bare_launcher"), "launch", "0", benchProgram("first_instruction")},
            {{"BENCH_STARTS", starts.file()}}, "");
        const auto start = starts.next();
        bare.waitForEnd();
        if (!start)
            return fails("the bare program starts nothing");
        tellSample("start", "bare", milliseconds(start->time - bareBegan));
    }
    return true;
}

} // namespace bench
