// A power cut at every system call that changes a file.
//
// A first run of each program counts the calls that change something below the decoder's folders. Then there is an item
// for each call and each kind of loss: the program runs until that call, everything of it is killed, the files become
// what a disk would have at this moment, and the next program has to find the old or the new contents: not nothing, and
// no mixture. The kinds of loss are in disk.h; "killed" loses nothing and keeps queues and semaphores: a kill -9.
#include "tests/appliance/isolation.h"
#include "tests/appliance/process.h"
#include "tests/faults/items.h"
#include "tests/faults/power_cut/disk.h"
#include "tests/faults/power_cut/writer.h"

#include "tests/faults/small_decoder.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <random>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using faults::Call;
using faults::Deed;
using faults::Disk;
using faults::Loss;
using faults::Report;
using faults::Traced;
using faults::Writer;

constexpr int atOnce = 6;
constexpr double itemLimit = 240;
constexpr int killed = static_cast<int>(std::size(faults::losses)); // one more than the losses
constexpr int kinds = killed + 1;

struct Row {
    std::string writer;
    int call = 1; // one more than all calls: after the last one
    int kind = 0;
};

const char* kindName(int kind) {
    return kind == killed ? "killed" : faults::nameOf(faults::losses[kind]);
}

const std::vector<std::string> folders{"/etc", "/run", "/var"}; // of the decoder

std::vector<std::string> foldersOf(const Writer& writer) {
    std::vector<std::string> all;
    for (const std::string& folder : folders)
        all.push_back(writer.root() + folder);
    return all;
}

// The calls after which a disk may be different.
bool changes(const Call& call, const std::string& root) {
    static const std::set<std::string> names{
        "write",     "pwrite64", "writev",    "ftruncate", "rename", "renameat", "renameat2",
        "unlink",    "unlinkat", "mkdir",     "mkdirat",   "rmdir",  "fchmod",   "fchown",
        "utimensat", "fsync",    "fdatasync", "link",      "linkat", "symlink",  "mknod"};
    const std::string name = faults::callName(call.number);
    const bool opens = name == "openat" || name == "open";
    constexpr std::uint64_t writing = 0101; // O_CREAT, O_WRONLY
    if (opens ? (call.arguments[name == "open" ? 1 : 2] & writing) == 0 : names.count(name) == 0)
        return false;
    const std::string text = faults::describe(call, root);
    return std::ranges::any_of(folders, [&](const std::string& folder) {
        return text.find(' ' + folder + '/') != std::string::npos;
    });
}

// Follows a run: counts, keeps the model of the disk, and cuts the power before the given call.
class Follower {
public:
    Follower(Disk& disk, std::string root, int until) : disk_(disk), root_(std::move(root)), until_(until) {}

    Deed operator()(const Call& call) {
        const std::string name = faults::callName(call.number);
        if (!call.entry && call.result == 0 && (name == "fsync" || name == "fdatasync"))
            disk_.synced(call.process, static_cast<int>(call.arguments[0]));
        if (!call.entry || !changes(call, root_) || ++count_ != until_)
            return {};
        return {Deed::Kind::kill, 0, 0};
    }

    int count() const { return count_; }

private:
    Disk& disk_;
    const std::string root_;
    int until_;
    int count_ = 0;
};

// The run, and what is left of it after the power cut.
int runUntil(Writer& writer, int call, int kind, bool& reached) {
    Disk disk(foldersOf(writer));
    Follower follower(disk, writer.root(), call);
    {
        Traced program(writer.command(), writer.environment(), writer.output(),
                       [&](const Call& one) { return follower(one); });
        writer.use(program);
        reached = program.acted();
    }
    if (kind == killed)
        return follower.count();
    for (const std::string& process : appliance::processesUnder(writer.root()))
        kill(std::stoi(process), SIGKILL);
    appliance::eventually([&] { return appliance::processesUnder(writer.root()).empty(); },
                          appliance::Seconds(5));
    appliance::removeQueues();
    appliance::removeSemaphoreSets();
    disk.cut(faults::losses[kind]);
    return follower.count();
}

void runItem(const Row& row, Report& report) {
    if (!appliance::isolate())
        throw std::runtime_error("no queues of its own");
    const std::unique_ptr<Writer> writer = faults::makeWriter(row.writer);
    bool reached = false;
    runUntil(*writer, row.call, row.kind, reached);
    report.add(row.kind == killed ? "kills" : "power-cuts");
    report.add(row.writer + (reached ? "-calls" : "-not-reached"));
    if (const std::string failure = writer->nextFails(); !failure.empty())
        report.broken(row.writer + " before change " + std::to_string(row.call) + ", " + kindName(row.kind) +
                      ": " + failure);
}

// ---- The list

int countCalls(const std::string& name, bool& slow) {
    const std::unique_ptr<Writer> writer = faults::makeWriter(name);
    bool reached = false;
    const int count = runUntil(*writer, 0, killed, reached);
    const std::string failure = writer->nextFails();
    if (count == 0 || !failure.empty())
        throw std::runtime_error(name + " without any fault: " + std::to_string(count) + " changes; " +
                                 failure);
    slow = writer->isSlow();
    return count;
}

void writeRows(const std::string& file) {
    std::ofstream out(file);
    for (const std::string& name : faults::writerNames()) {
        bool slow = false;
        const int count = countCalls(name, slow);
        for (int call = 1; call <= count + 1; ++call)
            for (int kind = 0; kind < kinds; ++kind)
                if (!slow || call % kinds == kind)
                    out << name << ' ' << call << ' ' << kind << '\n';
    }
}

// Recorded in a process of its own, with queues of its own; shuffled, so that a short run sees something of everything.
std::vector<Row> rowsOf(const faults::Options& options) {
    const bool keeps = !options.stateFile.empty();
    const std::string file =
        keeps ? options.stateFile + ".calls" : "/tmp/power-cut-calls." + std::to_string(getpid());
    if (!keeps || access(file.c_str(), R_OK) != 0) {
        const pid_t child = fork();
        if (child == 0) {
            try {
                appliance::isolate();
                writeRows(file);
            } catch (const std::exception& error) {
                std::printf("broken: %s\n", error.what());
                std::fflush(stdout);
                unlink(file.c_str());
            }
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }
    std::ifstream in(file);
    std::vector<Row> rows;
    for (Row row; in >> row.writer >> row.call >> row.kind;)
        rows.push_back(row);
    if (!keeps)
        unlink(file.c_str());
    std::shuffle(rows.begin(), rows.end(), std::mt19937(options.seed));
    return rows;
}

} // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = faults::readOptions(
        argc, argv,
        "Cuts the power at every system call that changes a file, and looks what the next start sees.",
        status);
    if (!options)
        return status;
    if (!faults::canRunHere()) {
        std::printf("skipped: programs can't be traced here, or have no queues of their own\n");
        return 77;
    }
    const std::vector<Row> rows = rowsOf(*options);
    if (rows.empty()) {
        std::printf("broken: no system call was recorded\n");
        return 1;
    }
    const long total = static_cast<long>(rows.size());
    faults::Progress progress(*options, total);
    std::printf("%ld pairs of a change and a loss\n", total);
    faults::runItems(progress, total, atOnce, itemLimit, [&](long item, Report& report) {
        runItem(rows[static_cast<std::size_t>(item)], report);
    });
    return progress.end();
}
