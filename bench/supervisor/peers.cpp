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

// What happens between the death of a player and the next one.
enum class Duties {
    none,
    decoder, // what a decoder has to do: blank the screen, ask the encoder what it delivers now
};

// A program that watches over one service, which is tiny_player without a supervisor of ours.
struct Watchman {
    std::string name;
    std::string side; // of the row
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

std::string sideOf(const std::string& name, Duties duties) {
    return duties == Duties::none ? name : name + "-decoder";
}

// The questions of a detection of Motion JPEG, on one connection, and the beginning of the stream. The last command does
// not wait for curl, which notices only at the next picture that nobody reads on.
std::string scriptOf(Duties duties, const std::string& encoder) {
    std::string script = "#!/bin/sh\n";
    const std::string address = "http://" + encoder + "/vexo-cgi/";
    if (duties == Duties::decoder) {
        script += "blankscreen\n{ curl --silent --no-buffer --max-time 10";
        for (const char* group : {"Properties.API.HTTP.Version", "Brand.ProdFullName",
                                  "ImageSource.NbrOfSources", "Image.Rotation"})
            script += " '" + address + "view/param.cgi?action=list&group=" + group + "'";
        script += " " + address + "mjpg/video.cgi & } | head -c 300 >/dev/null\n";
    }
    return script + "exec " + benchProgram("first_instruction") + "\n";
}

// The folders and files that the three of them want to have.
std::vector<std::string> setUp(const std::string& name, const fs::path& folder, Duties duties,
                               const std::string& encoder) {
    const fs::path script = folder / "service" / "run";
    writeScript(script, scriptOf(duties, encoder));
    if (name == "supervisord") {
        const std::string command =
            duties == Duties::none ? benchProgram("first_instruction") : script.string();
        appliance::writeFile(
            folder / "supervisord.conf",
            "[supervisord]\nnodaemon=true\nlogfile=/dev/null\nlogfile_maxbytes=0\npidfile=" +
                (folder / "pid").string() + "\n[program:player]\ncommand=" + command +
                "\nautorestart=true\nstartsecs=1\nstdout_logfile=/dev/null\nstderr_logfile=/dev/null\n");
        return {findProgram(name), "-c", folder / "supervisord.conf"};
    }
    return {findProgram(name), folder / "service"};
}

std::unique_ptr<Watchman> startWatchman(const std::string& name, Duties duties, const std::string& encoder,
                                        const std::string& root) {
    const std::string side = sideOf(name, duties);
    if (findProgram(name).empty()) {
        tellMissing("restart", side, name + " is not installed");
        return nullptr;
    }
    const fs::path folder = fs::path(root) / ("run/" + side);
    fs::create_directories(folder);
    auto watchman = std::make_unique<Watchman>();
    watchman->name = name;
    watchman->side = side;
    watchman->command = setUp(name, folder, duties, encoder);
    watchman->starts = std::make_unique<Starts>(folder / "starts");
    watchman->process = std::make_unique<appliance::Process>(
        watchman->command,
        std::map<std::string, std::string>{{"BENCH_STARTS", watchman->starts->file()},
                                           {"BENCH_BECOMES", benchProgram("tiny_player")},
                                           {"TINY_PLAYER_ALONE", "1"}},
        folder / "log");
    const auto first = watchman->starts->next(20);
    if (!first) {
        tellMissing("restart", side,
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
        tellMissing("restart", watchman.side, "it does not start the program again");
        return false;
    }
    watchman.current = *next;
    const double whole = static_cast<double>(next->time - killed) / 1e6;
    const double sleep = sleepMsOf(watchman.name);
    tellSample("restart", watchman.side, whole > sleep ? whole - sleep : whole);
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
        const std::string encoder = decoder.appliance().encoder(0).address();
        for (const char* name : {"runsv", "s6-supervise", "supervisord"})
            for (const Duties duties : {Duties::none, Duties::decoder})
                if (auto watchman = startWatchman(name, duties, encoder, folder))
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
