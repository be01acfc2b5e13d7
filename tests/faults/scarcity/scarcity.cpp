// Every system call of a program fails once, with each of its likely errors.
//
// A first run records which calls the program makes, as texts such as "openat /run/decoder/info.conf". Then there is one
// item for each call and error: the program runs again, the call fails, and the program has to go on: no crash, no hang,
// no lost source, nothing left behind, and a next start that works.
#include "tests/appliance/isolation.h"
#include "tests/faults/items.h"
#include "tests/faults/scarcity/errors.h"
#include "tests/faults/scarcity/subject.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using faults::Call;
using faults::Deed;
using faults::Report;
using faults::Subject;
using faults::Traced;

constexpr int atOnce = 8; // they mostly wait
constexpr double itemLimit = 420;

// One item: this call fails with this error, when it is made for the `hit`-th time.
struct Row {
    std::string call;
    int error = 0;
    int hit = 1;
};

// ---- The recorded run

struct Seen {
    int times = 0;
    std::set<int> errors;
};
using Record = std::map<std::string, Seen>;

// The loader's work before main is left alone: nothing of ours runs then.
bool isOurs(const Call& call, const Subject& subject, bool& begun) {
    begun = begun || faults::describe(call, subject.root()).find("/run/decoder") != std::string::npos;
    return begun;
}

Record record(const std::string& name) {
    const std::unique_ptr<Subject> subject = faults::makeSubject(name);
    Record calls;
    bool begun = false;
    Traced program(subject->command(), subject->environment(), subject->output(), [&](const Call& call) {
        const std::vector<int> errors = call.entry ? faults::likelyErrors(call) : std::vector<int>{};
        if (!errors.empty() && isOurs(call, *subject, begun)) {
            Seen& seen = calls[faults::describe(call, subject->root())];
            ++seen.times;
            seen.errors.insert(errors.begin(), errors.end());
        }
        return Deed{};
    });
    std::string failure = subject->use(program);
    failure += subject->end(program);
    if (!failure.empty()) {
        throw std::runtime_error("without any fault: " + failure);
    }
    return calls;
}

void writeRows(const std::string& file, const Record& calls, unsigned seed) {
    std::mt19937 random(seed);
    std::ofstream out(file);
    for (const auto& [call, seen] : calls) {
        for (const int error : seen.errors) {
            // The first time often, a later one sometimes.
            const auto times = static_cast<unsigned long>(std::max(1, seen.times));
            const auto hit = random() % 2 == 0 ? 1 : 1 + random() % times;
            out << error << ' ' << hit << ' ' << call << '\n';
        }
    }
}

std::vector<Row> readRows(const std::string& file) {
    std::ifstream in(file);
    std::vector<Row> rows;
    Row row;
    while (in >> row.error >> row.hit && in.ignore() && std::getline(in, row.call)) {
        rows.push_back(row);
    }
    return rows;
}

// Recorded in a process of its own, with queues of its own.
std::vector<Row> rowsOf(const std::string& name, const faults::Options& options) {
    const bool keeps = !options.stateFile.empty();
    const std::string file =
        keeps ? options.stateFile + ".calls" : "/tmp/scarcity-calls." + std::to_string(getpid());
    if (!keeps || access(file.c_str(), R_OK) != 0) {
        const pid_t child = fork();
        if (child == 0) {
            try {
                appliance::isolate();
                writeRows(file, record(name), options.seed);
            } catch (const std::exception& error) {
                std::printf("broken: %s\n", error.what());
                std::fflush(stdout);
            }
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }
    std::vector<Row> rows = readRows(file);
    if (!keeps) {
        unlink(file.c_str());
        // A short run sees something of everything.
        std::shuffle(rows.begin(), rows.end(), std::mt19937(options.seed));
    }
    return rows;
}

// ---- One item

// Fails the call of a row once.
class Failing {
public:
    Failing(const Row& row, std::string root) : row_(row), root_(std::move(root)) {}

    Deed operator()(const Call& call) {
        if (!call.entry || done_ || !fits(call) || ++hits_ != row_.hit) {
            return {};
        }
        done_ = true;
        return {Deed::Kind::fail, row_.error, 0};
    }

private:
    bool fits(const Call& call) const {
        const std::string name = faults::callName(call.number);
        const std::vector<int> errors = faults::likelyErrors(call);
        return row_.call.compare(0, name.size(), name) == 0 && std::ranges::count(errors, row_.error) != 0 &&
               faults::describe(call, root_) == row_.call;
    }

    Row row_;
    std::string root_;
    int hits_ = 0;
    bool done_ = false;
};

// What the log says about it: the first line of level 3 or worse.
std::string complaint(const std::string& log) {
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t bracket = line.find("] ");
        if (bracket != std::string::npos && bracket + 2 < line.size() && line[bracket + 2] <= '3') {
            return line.substr(bracket + 4);
        }
    }
    return "";
}

void runItem(const std::string& name, const Row& row, Report& report) {
    if (!appliance::isolate()) {
        throw std::runtime_error("no queues of its own");
    }
    const std::string what = name + ": " + row.call + " number " + std::to_string(row.hit) + " fails with " +
                             faults::errorName(row.error) + ": ";
    const std::unique_ptr<Subject> subject = faults::makeSubject(name);
    {
        Traced program(subject->command(), subject->environment(), subject->output(),
                       Failing(row, subject->root()));
        const double begin = faults::secondsNow();
        const std::string failure = subject->use(program);
        report.max("seconds-to-recover-max", faults::secondsNow() - begin);
        const std::optional<int> status = program.waitForEnd(0);
        report.add(program.acted() ? "failed-calls" : "not-reached");
        if (status && subject->mayEndItself(*status)) {
            report.add("ended-as-documented");
        } else if (status) {
            report.broken(what + "it ended with status " + std::to_string(*status));
        } else if (!failure.empty()) {
            report.broken(what + failure);
        } else if (const std::string end = subject->end(program); !end.empty()) {
            report.broken(what + end);
        }
    }
    const std::string said = complaint(subject->log());
    report.add(said.empty() ? "without-a-line" : "with-a-line");
    report.note(what + (said.empty() ? "(silent)" : said));
    if (const std::string failure = subject->nextStartFails(); !failure.empty()) {
        report.broken(what + failure);
    }
}

} // namespace

int main(int argc, char** argv) {
    int status = 0;
    std::string name = "supervisor";
    if (argc > 1 && argv[1][0] != '-') {
        name = argv[1];
        --argc;
        ++argv;
    }
    const auto options = faults::readOptions(
        argc, argv, "Lets every system call of a program fail once with each of its likely errors.", status);
    if (!options) {
        return status;
    }
    if (!std::ranges::count(faults::subjectNames(), name)) {
        std::printf("there is no subject %s\n", name.c_str());
        return 2;
    }
    if (!faults::canRunHere()) {
        std::printf("skipped: programs can't be traced here, or have no queues of their own\n");
        return 77;
    }
    const std::vector<Row> rows = rowsOf(name, *options);
    if (rows.empty()) {
        std::printf("broken: no system call was recorded\n");
        return 1;
    }
    const long total = static_cast<long>(rows.size());
    faults::Progress progress(*options, total);
    std::printf("%ld pairs of a call and an error\n", total);
    faults::runItems(progress, total, atOnce, itemLimit, [&](long item, Report& report) {
        runItem(name, rows[static_cast<std::size_t>(item)], report);
    });
    return progress.end();
}
