// What supervisors cost while they do nothing, after many switches, and when there are many of them.
#include "bench/process_cost.h"
#include "bench/samples.h"
#include "bench/supervisor/bare.h"
#include "bench/supervisor/measures.h"
#include "bench/supervisor/tiny_decoder.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

namespace bench {
namespace {

bool fails(const std::string& what) {
    std::cerr << "supervisor_bench: " << what << '\n';
    return false;
}

// How often each of its threads was given the processor.
std::map<std::string, long> wakeUpsOf(int pid) {
    std::map<std::string, long> counts;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (line.find("ctxt_switches:") != std::string::npos)
                counts[thread.path().filename()] += std::stol(line.substr(line.find(':') + 1));
    }
    return counts;
}

// Of the threads that exist all the time.
long wakeUpsBetween(const std::map<std::string, long>& before, const std::map<std::string, long>& after) {
    long sum = 0;
    for (const auto& [thread, count] : after)
        if (const auto old = before.find(thread); old != before.end())
            sum += count - old->second;
    return sum;
}

double megabytes(long kilobytes) {
    return static_cast<double>(kilobytes) / 1024;
}

// Of the supervisor, and of a program that has the same libraries and nothing else. Both run, so that what the libraries
// share belongs to neither.
void measureMemory(TinyDecoder& decoder, const std::string& row) {
    BareLauncher floor(decoder.supervisor(), Memory::none, benchProgram("first_instruction"),
                       {{"BENCH_STARTS", "/dev/null"}});
    floor.startAndAwaitEnd(); // now it has its libraries
    tellSample(row, "floor", megabytes(privateKilobytes(floor.pid())));
    tellSample(row, "ours", megabytes(privateKilobytes(decoder.supervisor())));
}

// One select each a second, evenly spread over it. Returns how many supervisors have started a player each second.
int selectEachSecond(std::vector<std::unique_ptr<TinyDecoder>>& decoders, int seconds) {
    const std::int64_t between = 1'000'000'000 / static_cast<std::int64_t>(decoders.size());
    std::int64_t due = clockNs();
    for (int second = 0; second < seconds; ++second)
        for (const auto& decoder : decoders) {
            while (clockNs() < due)
                appliance::pause(std::chrono::milliseconds(1));
            decoder->selectOther();
            due += between;
        }
    int served = 0;
    for (const auto& decoder : decoders) {
        int players = 0;
        while (players < seconds && decoder->starts().next(players == 0 ? 10 : 2))
            ++players;
        served += players == seconds ? 1 : 0;
    }
    return served;
}

std::optional<double> costOfSelects(int supervisors, int seconds) {
    std::vector<std::unique_ptr<TinyDecoder>> decoders;
    for (int i = 0; i < supervisors; ++i) {
        decoders.push_back(std::make_unique<TinyDecoder>(decoders.empty() ? nullptr : decoders[0].get()));
        if (!decoders.back()->start({}))
            return std::nullopt;
    }
    double cost = 0;
    for (const auto& decoder : decoders)
        cost -= processorMsOf({decoder->supervisor()});
    const int served = selectEachSecond(decoders, seconds);
    for (const auto& decoder : decoders)
        cost += processorMsOf({decoder->supervisor()});
    tellSample("many-unserved", supervisors == 1 ? "one" : "many",
               100.0 * (supervisors - served) / supervisors);
    return cost / supervisors / seconds;
}

} // namespace

bool measureIdle(const SupervisorOptions& options) {
    TinyDecoder decoder;
    if (!decoder.start({}))
        return fails("the first player does not start");
    appliance::pause(std::chrono::seconds(2));
    const int pid = decoder.supervisor();
    measureMemory(decoder, "memory-0");
    const auto before = wakeUpsOf(pid);
    appliance::pause(std::chrono::seconds(options.seconds));
    tellSample("wakeups", "ours", static_cast<double>(wakeUpsBetween(before, wakeUpsOf(pid))));
    for (int i = 0; i < options.switches; ++i) {
        decoder.selectOther();
        if (!decoder.awaitSwitch())
            return fails("switch " + std::to_string(i + 1) + " starts no player");
    }
    measureMemory(decoder, "memory-many");
    return true;
}

bool measureMany(const SupervisorOptions& options) {
    const auto one = costOfSelects(1, options.seconds * 2);
    const auto many = costOfSelects(options.supervisors, options.seconds);
    if (!one || !many)
        return fails("a supervisor does not start its player");
    tellSample("many-cpu", "one", *one);
    tellSample("many-cpu", "many", *many);
    return true;
}

} // namespace bench
