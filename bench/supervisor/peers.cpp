// How long it takes until a killed program runs again, with the supervisors that watch over services.
#include "bench/samples.h"
#include "bench/supervisor/measures.h"
#include "bench/supervisor/tiny_decoder.h"
#include "tests/support/programs.h"

#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>

namespace bench {
namespace {

namespace fs = std::filesystem;

// The documented sleeps after a death, which are not counted: the supervisor waits four seconds before it looks at the
// encoder again, s6-supervise one second, supervisord looks at its programs once a second. runsv waits only after a program
// that has run for less than a second.
constexpr double ourSleepMs = 4000;
double sleepMsOf(const std::string& name) {
    return name == "runsv" ? 0 : 1000;
}
constexpr std::chrono::milliseconds longEnough{1500};

// A program that watches over one service, which is tiny_player without a supervisor of ours.
struct Watchman {
    std::string name;
    std::vector<std::string> command;
    std::unique_ptr<appliance::Process> process;
    std::unique_ptr<Starts> starts;
    Start current;
};

void writeScript(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    appliance::writeFile(file, text);
    fs::permissions(file, fs::perms(0755));
}

// The folders and files that the three of them want to have.
std::vector<std::string> setUp(const std::string& name, const fs::path& folder) {
    if (name == "supervisord") {
        appliance::writeFile(
            folder / "supervisord.conf",
            "[supervisord]\nnodaemon=true\nlogfile=/dev/null\nlogfile_maxbytes=0\npidfile=" +
                (folder / "pid").string() +
                "\n[program:player]\ncommand=" + benchProgram("first_instruction") +
                "\nautorestart=true\nstartsecs=1\nstdout_logfile=/dev/null\nstderr_logfile=/dev/null\n");
        return {findProgram(name), "-c", folder / "supervisord.conf"};
    }
    writeScript(folder / "service" / "run", "#!/bin/sh\nexec " + benchProgram("first_instruction") + "\n");
    return {findProgram(name), folder / "service"};
}

std::unique_ptr<Watchman> startWatchman(const std::string& name, const std::string& root) {
    if (findProgram(name).empty()) {
        tellMissing("restart", name, name + " is not installed");
        return nullptr;
    }
    const fs::path folder = fs::path(root) / ("run/" + name);
    fs::create_directories(folder);
    auto watchman = std::make_unique<Watchman>();
    watchman->name = name;
    watchman->command = setUp(name, folder);
    watchman->starts = std::make_unique<Starts>(folder / "starts");
    watchman->process = std::make_unique<appliance::Process>(
        watchman->command,
        std::map<std::string, std::string>{{"BENCH_STARTS", watchman->starts->file()},
                                           {"BENCH_BECOMES", benchProgram("tiny_player")},
                                           {"TINY_PLAYER_ALONE", "1"}},
        folder / "log");
    const auto first = watchman->starts->next(20);
    if (!first) {
        tellMissing("restart", name,
                    "it starts nothing: " + appliance::readFile(folder / "log").substr(0, 80));
        return nullptr;
    }
    watchman->current = *first;
    return watchman;
}

bool killAndMeasure(Watchman& watchman) {
    const std::int64_t killed = clockNs();
    kill(watchman.current.pid, SIGKILL);
    const auto next = watchman.starts->next(20);
    if (!next) {
        tellMissing("restart", watchman.name, "it does not start the program again");
        return false;
    }
    watchman.current = *next;
    const double whole = static_cast<double>(next->time - killed) / 1e6;
    const double sleep = sleepMsOf(watchman.name);
    tellSample("restart", watchman.name, whole > sleep ? whole - sleep : whole);
    return true;
}

bool killPlayer(TinyDecoder& decoder) {
    const std::int64_t killed = clockNs();
    kill(decoder.current()->pid, SIGKILL);
    const auto next = decoder.awaitPlayer(20);
    if (!next)
        return false;
    tellSample("restart", "ours", static_cast<double>(next->time - killed) / 1e6 - ourSleepMs);
    return true;
}

} // namespace

bool measureRestart(const SupervisorOptions& options) {
    TinyDecoder decoder;
    if (!decoder.start({})) {
        std::cerr << "supervisor_bench: the first player does not start\n";
        return false;
    }
    // A path without blanks, which scripts and supervisord would take apart.
    std::string folder = fs::temp_directory_path() / "bench-watchmen-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
        return false;
    bool good = true;
    {
        std::vector<std::unique_ptr<Watchman>> watchmen;
        for (const char* name : {"runsv", "s6-supervise", "supervisord"})
            if (auto watchman = startWatchman(name, folder))
                watchmen.push_back(std::move(watchman));
        for (int i = 0; i < options.repetitions && good; ++i) {
            appliance::pause(longEnough);
            good = killPlayer(decoder);
            for (const auto& watchman : watchmen)
                killAndMeasure(*watchman);
        }
        // They would start their program again, so they go first.
        for (const auto& watchman : watchmen) {
            watchman->process.reset();
            kill(watchman->current.pid, SIGKILL);
        }
    }
    fs::remove_all(folder);
    return good;
}

} // namespace bench
