// Soak: does the supervisor hold more after many switches than after the first ones?
//
//   tiny   100,000 switches with players that only meet the supervisor
//   real   5,000 switches between two encoders with real players
//   day    24 simulated hours of a decoder that shows each source for a minute, with four alarms, a lock and a new
//          detection of every source in each hour. Simulated: the display time is one second instead of sixty, and
//          nothing else is quicker: the lock's ten seconds, alarms, timers and the clock are real.
//
// An item is a block of a hundred switches (25 with real players), or an hour. After each item it looks at private memory, descriptors,
// threads, queues, semaphores, files and shared memory of the appliance. The first items fill caches and memory pools;
// from then on nothing may grow. A line of each look goes to FILE.csv beside the state file, for the chart.
#include "tests/appliance/event_sender.h"
#include "tests/appliance/isolation.h"
#include "tests/faults/processes.h"
#include "tests/faults/progress.h"
#include "tests/walk/encoders.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>

namespace {

namespace fs = std::filesystem;
using appliance::Appliance;
using appliance::eventually;
using appliance::Seconds;
using faults::Progress;

constexpr int skipped = 77;
constexpr int selectEvent = 11;
constexpr int alarmEvent = 8;
constexpr int lockEvent = 12;
constexpr int flushEvent = 10;
constexpr int tinyBlock = 100;
constexpr int realBlock = 25;
constexpr int minutesOfAnHour = 60;
constexpr Seconds switchLimit{60};
constexpr Seconds restLimit{30};

volatile std::sig_atomic_t interrupted = 0;

// What the appliance holds at rest.
struct Look {
    faults::Holdings supervisor;
    int queues = 0;
    int semaphoreSets = 0;
    int files = 0;       // below run, var/tmp and etc
    double sharedKb = 0; // the frame store; the supervisor has no other shared memory
    int processes = 0;   // of the appliance
};

int filesBelow(const std::string& folder) {
    int count = 0;
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored))
        count += entry->is_directory(ignored) ? 0 : 1;
    return count;
}

double fileKb(const std::string& file) {
    std::error_code error;
    const auto size = fs::file_size(file, error);
    return error ? 0 : static_cast<double>(size) / 1024;
}

class Soak {
public:
    explicit Soak(Progress& progress) : progress_(progress) {}
    virtual ~Soak() = default;
    Soak(const Soak&) = delete;
    Soak& operator=(const Soak&) = delete;

    virtual void item() = 0;
    virtual bool atRest() = 0; // one player, nothing under way

    Look look() {
        eventually([this] { return atRest() && decoder_.players().size() == 1; }, restLimit);
        Look now;
        now.supervisor = faults::holdingsOf(decoder_.supervisor().pid());
        now.queues = static_cast<int>(appliance::queues().size());
        now.semaphoreSets = static_cast<int>(appliance::semaphoreSets().size());
        now.files = filesBelow(decoder_.root() + "/run") + filesBelow(decoder_.root() + "/var/tmp") +
                    filesBelow(decoder_.root() + "/etc");
        now.sharedKb = fileKb(decoder_.root() + "/run/decoder/screen/frames");
        now.processes = static_cast<int>(appliance::processesUnder(decoder_.root()).size());
        return now;
    }

    // The files that would grow: a real system rotates its log, and the output goes to the journal.
    void emptyLogs() {
        for (const char* file : {"/var/log/decoder.log", "/var/log/output", "/run/walk/players.log"})
            if (fs::exists(decoder_.root() + file))
                fs::resize_file(decoder_.root() + file, 0);
    }

protected:
    bool running() { return decoder_.supervisor().running() && interrupted == 0; }
    void broken(const std::string& text) { progress_.broken(text); }
    void raiseEvent(int id, int value) {
        eventually([&] { return appliance::sendRaw(appliance::eventQueue(decoder_), id, value); },
                   Seconds(5));
    }

    Progress& progress_;
    Appliance decoder_;
};

// ---- Switches

class Switches : public Soak {
public:
    Switches(Progress& progress, int block) : Soak(progress), block_(block) {}

    void item() override {
        for (int i = 0; i < block_ && running(); ++i) {
            const int source = shown_ == 0 ? 1 : 0;
            raiseEvent(selectEvent, source);
            if (!eventually([&] { return shows(source) || !running(); }, switchLimit))
                return broken("source " + std::to_string(source) + " does not show; " + decoder_.state());
            shown_ = source;
            progress_.add("switches");
        }
    }

protected:
    // The supervisor's own record is written when the switch is over.
    bool shows(int source) {
        return appliance::readFile(decoder_.root() + "/run/decoder/info.conf")
                   .find("CurrentSource = " + std::to_string(source) + '\n') != std::string::npos;
    }
    bool atRest() override { return shows(shown_); }
    void begin() {
        if (!eventually([&] { return shows(0); }, switchLimit))
            throw std::runtime_error("the first source does not show: " + decoder_.log());
    }

    int shown_ = 0;

private:
    const int block_;
};

class TinySwitches : public Switches {
public:
    explicit TinySwitches(Progress& progress) : Switches(progress, tinyBlock) {
        fs::create_directories(decoder_.root() + "/run/walk");
        replace("mjpeg_player", WALK_PLAYER);
        replace("blankscreen", "/bin/true");
        replace("resetrua", "/bin/true");
        for (const char* name : {"Door", "Gate"})
            decoder_.addSource(name, {{"Address", encoder_.address()}, {"VideoSourceType", "mjpeg"}});
        decoder_.setManual();
        decoder_.start({});
        begin();
    }

private:
    void replace(const std::string& program, const std::string& by) {
        fs::remove(decoder_.root() + "/bin/" + program);
        fs::create_symlink(by, decoder_.root() + "/bin/" + program);
    }
    walk::ScriptedEncoder encoder_;
};

appliance::Keys shortDisplay() {
    return {{"DisplayTime", "1"}};
}

std::vector<std::string> smallPictures() {
    return {"--width", "352", "--height", "288", "--fps", "10"};
}

class RealSwitches : public Switches {
public:
    explicit RealSwitches(Progress& progress) : Switches(progress, realBlock) {
        for (const char* name : {"Door", "Gate"})
            decoder_.addEncoder(name, smallPictures());
        decoder_.setManual();
        decoder_.start({});
        begin();
        if (!decoder_.showsMoving(0))
            throw std::runtime_error("no pictures");
    }
    void item() override {
        Switches::item();
        if (running() && !decoder_.showsMoving(shown_, switchLimit))
            broken("no moving pictures");
    }
};

// ---- A day

class Day : public Soak {
public:
    explicit Day(Progress& progress) : Soak(progress) {
        for (const char* name : {"Door", "Gate", "Yard"})
            decoder_.addEncoder(name, smallPictures(), shortDisplay());
        decoder_.set("Alarm.DisplayTime", "1");
        decoder_.start({});
        if (!moves(switchLimit))
            throw std::runtime_error("no pictures: " + decoder_.log());
    }

    // The sixty displays of an hour. In automatic mode an alarm is no change of the picture, but it is taken.
    void item() override {
        for (int minute = 0; minute < minutesOfAnHour && running(); ++minute) {
            if (minute % 15 == 7)
                raiseEvent(alarmEvent, minute % 3);
            if (minute == 20)
                raiseEvent(flushEvent, 0);
            if (minute == 40)
                lock();
            awaitNext();
        }
        if (running() && !moves(switchLimit))
            broken("no moving pictures");
    }

private:
    int current() {
        const std::string text = appliance::readFile(decoder_.root() + "/run/decoder/info.conf");
        const std::size_t at = text.find("CurrentSource = ");
        return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + std::strlen("CurrentSource = "));
    }
    bool atRest() override { return current() >= 0; }
    bool moves(Seconds limit) {
        const std::uint64_t before = decoder_.screen().newestInfo().number;
        return eventually([&] { return decoder_.screen().newestInfo().number > before + 10; }, limit);
    }
    void awaitNext() {
        const int before = current();
        if (!eventually([&] { return (current() >= 0 && current() != before) || !running(); }, switchLimit))
            return broken("the sequence does not go on");
        progress_.add("displays");
    }
    void lock() {
        raiseEvent(lockEvent, 0);
        if (!eventually([&] { return current() < 0 || !running(); }, switchLimit))
            return broken("a lock does not stop the picture");
        if (!eventually([&] { return current() >= 0 || !running(); }, switchLimit))
            return broken("no picture after a lock");
        progress_.add("locks");
    }
};

// ---- What may not grow

// The first looks are those of a program that fills its caches and memory pools.
constexpr long warmUp = 3;
constexpr Seconds settleLimit{3};
constexpr double memoryAllowanceKb = 512; // pages that come and go with the moment of the look

class Growth {
public:
    Growth(Progress& progress, std::string file) : progress_(progress), file_(std::move(file)) {}

    void see(Soak& soak) {
        Look look = soak.look();
        if (++looks_ <= warmUp) {
            first_ = most(first_, look);
        } else {
            // A look may fall into a moment of work, such as the write of a file.
            eventually(
                [&] {
                    look = soak.look();
                    return !isMore(look);
                },
                settleLimit);
            compare(look);
        }
        append(look);
        keep("supervisor-private-kb", look.supervisor.privateKb);
        keep("descriptors", look.supervisor.descriptors);
        keep("threads", look.supervisor.threads);
        keep("queues", look.queues);
        keep("semaphore-sets", look.semaphoreSets);
        keep("files", look.files);
        keep("shared-kb", look.sharedKb);
    }

private:
    // A timer or a second player may run at one look and not at the next one.
    static Look most(const Look& one, const Look& other) {
        return {
            .supervisor = {.privateKb = std::max(one.supervisor.privateKb, other.supervisor.privateKb),
                           .descriptors = std::max(one.supervisor.descriptors, other.supervisor.descriptors),
                           .threads = std::max(one.supervisor.threads, other.supervisor.threads)},
            .queues = std::max(one.queues, other.queues),
            .semaphoreSets = std::max(one.semaphoreSets, other.semaphoreSets),
            .files = std::max(one.files, other.files),
            .sharedKb = std::max(one.sharedKb, other.sharedKb),
            .processes = std::max(one.processes, other.processes)};
    }

    void keep(const std::string& name, double value) {
        if (looks_ == warmUp)
            progress_.set(name + "-at-first", value);
        progress_.set(name + "-at-last", value);
    }

    bool isMore(const Look& now) const {
        return now.supervisor.privateKb > first_.supervisor.privateKb + memoryAllowanceKb ||
               now.supervisor.descriptors > first_.supervisor.descriptors ||
               now.supervisor.threads > first_.supervisor.threads || now.queues > first_.queues ||
               now.semaphoreSets > first_.semaphoreSets || now.files > first_.files ||
               now.sharedKb > first_.sharedKb || now.processes > first_.processes;
    }

    // A timer may run for some seconds, so only the third item in a row that shows more is growth.
    void compare(const Look& now) {
        inARow_ = isMore(now) ? inARow_ + 1 : 0;
        constexpr int growth = 3;
        if (inARow_ == growth)
            progress_.broken("it holds more than at first: " + describe(now) +
                             "; at first: " + describe(first_));
    }

    static std::string describe(const Look& look) {
        return std::to_string(look.supervisor.privateKb) + " kB, " +
               std::to_string(look.supervisor.descriptors) + " descriptors, " +
               std::to_string(look.supervisor.threads) + " threads, " + std::to_string(look.queues) +
               " queues, " + std::to_string(look.semaphoreSets) + " semaphore sets, " +
               std::to_string(look.files) + " files, " + std::to_string(look.sharedKb) + " kB shared, " +
               std::to_string(look.processes) + " processes";
    }

    void append(const Look& look) const {
        if (file_.empty())
            return;
        std::ofstream out(file_, std::ios::app);
        out << progress_.next() << ',' << look.supervisor.privateKb << ',' << look.supervisor.descriptors
            << ',' << look.supervisor.threads << ',' << look.queues << ',' << look.semaphoreSets << ','
            << look.files << ',' << look.sharedKb << '\n';
    }

    Progress& progress_;
    std::string file_;
    long looks_ = 0;
    Look first_;
    int inARow_ = 0;
};

struct Kind {
    const char* name;
    long items;
    std::unique_ptr<Soak> (*make)(Progress&);
};

template<class T>
std::unique_ptr<Soak> make(Progress& progress) {
    return std::make_unique<T>(progress);
}

const Kind kinds[] = {
    {"tiny", 100'000 / tinyBlock, make<TinySwitches>},
    {"real", 5'000 / realBlock, make<RealSwitches>},
    {"day", 24, make<Day>},
};

int run(const Kind& kind, const faults::Options& options) {
    Progress progress(options, kind.items);
    if (!appliance::isolate()) {
        std::cout << "needs System V queues and a network namespace of its own\n";
        return skipped;
    }
    {
        const std::unique_ptr<Soak> soak = kind.make(progress);
        Growth growth(progress, options.stateFile.empty() ? "" : options.stateFile + ".csv");
        while (progress.more() && interrupted == 0) {
            soak->item();
            growth.see(*soak);
            soak->emptyLogs();
            progress.done();
        }
    }
    if (testing::Test::HasFailure())
        progress.broken("something was left behind, see above");
    return progress.end();
}

const Kind* kindOf(const char* name) {
    const Kind* found =
        std::ranges::find_if(kinds, [&](const Kind& kind) { return std::strcmp(kind.name, name) == 0; });
    return found == std::end(kinds) ? nullptr : found;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(); // the decoder reports what it left behind through it
    const Kind* kind = argc > 1 ? kindOf(argv[1]) : nullptr;
    int status = 0;
    const std::string first = argc > 1 ? argv[1] : "";
    if (kind == nullptr && first != "--help") {
        std::cerr << argv[0] << ": the first word is tiny, real or day (--help)\n";
        return 2;
    }
    const int behind = kind == nullptr ? 0 : 1;
    const auto options = faults::readOptions(argc - behind, argv + behind,
                                             "Looks whether the supervisor holds more after many switches "
                                             "(first word tiny or real) or a day (day).",
                                             status);
    if (!options)
        return status;
    signal(SIGINT, [](int) { interrupted = 1; });
    signal(SIGTERM, [](int) { interrupted = 1; });
    try {
        return run(*kind, *options);
    } catch (const std::exception& error) {
        std::cout << "broken: " << error.what() << '\n';
        return 1;
    }
}
