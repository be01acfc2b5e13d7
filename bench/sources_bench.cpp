// What a select and a connect cost the supervisor with few sources and with thousands of them.
//
// The real source cache and the real library over a temporary appliance root; only the detection is replaced by
// one that accepts every encoder at once. Times are processor times of this thread, the smallest of several rounds. A
// processor that runs two threads on one core still takes up to twice as long when the machine is busy: limits for a
// test must allow for that.
#include "bench/memory_files.h"
#include "bench/samples.h"
#include "detect/detection.h"
#include "sources/source_cache.h"
#include "sources/source_list.h"
#include "sources/source_record.h"

#include <libcommon/libcommon.h>

#include <algorithm>
#include <chrono>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

// Replaces the detection of the program.
bool detectSource(SourceEntry& entry, int statusId) {
    entry.detectedOK = true;
    status(statusId, "VideoSourceType", videoSourceTypeString[TYPE_MJPEG]);
    return true;
}

namespace {

namespace fs = std::filesystem;

struct Limits {
    double ratio = 1.2;  // of a select with many sources to one with few
    double connect = 50; // milliseconds
};

// Processor time of this thread in milliseconds.
double threadTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

template<class Act>
double leastOf(int rounds, Act act) {
    double least = std::numeric_limits<double>::max();
    for (int i = 0; i < rounds; ++i) {
        const double begin = threadTime();
        act();
        least = std::min(least, threadTime() - begin);
    }
    return least;
}

void writeParameters(const std::string& root, int sources) {
    std::ofstream file(root + "/etc/decoder/decoder.conf");
    file << "[Decoder]\nConnected = yes\nSequenceMode = manual\nAutoDetectTimeout = 5\n";
    for (int i = 0; i < sources; ++i)
        file << "\n[Encoder.Source" << i << "]\nAddress = 10.0." << i / 250 << "." << i % 250
             << ":80\nVideoSourceNumber = 1\nVideoSourceType = auto\nUserName = viewer\nPassword = x\n"
                "AutoEnabled = yes\nManualEnabled = yes\nDisplayTime = 10\n";
    file.close();
    // A file that has just changed is read at every access, until the clock has moved on.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// What the supervisor asks of its sources from a select to the launch of the player.
void select(int source, int shown) {
    if (getSourceKey(source) == getSourceKey(shown))
        std::abort();
    isSourceDetected(source);
    getSourceEntry(source);            // REQUEST_ENCODER_TYPE
    getSourceEntry(source);            // the launch
    readSource(source);                // the player's command line
    readSource(source);                // the camera's preset
    status(source, "VideoSourceType"); // the log
}

struct Costs {
    double read = 0;    // milliseconds, of the parameter file
    double connect = 0; // milliseconds, with the file read
    double select = 0;  // milliseconds
    double status = 0;  // milliseconds, of publishing a status value and reading it
};

Costs measure(const std::string& root, int sources, int rounds) {
    writeParameters(root, sources);
    Costs costs;
    costs.read = leastOf(1, [] { ParamWrapper(0, true)["Decoder.Connected"].toInt(); });
    flushSourceCache();
    // The write is part of it: at this value the library keeps a copy of the file, for decoderctl.
    costs.connect = leastOf(1, [] {
        buildSourceList();
        ParamWrapper(1, true)["Decoder.Info.Connected"] = "yes";
    });
    const int last = sources - 1;
    getSourceEntry(0);
    getSourceEntry(last);
    costs.select = leastOf(rounds, [&] {
        for (int i = 0; i < 10; ++i)
            select(last, 0);
    });
    costs.select /= 10;
    costs.status = leastOf(rounds,
                           [&] {
                               for (int i = 0; i < 10; ++i) {
                                   status(last, "ErrorCode", i);
                                   status(last, "ErrorCode");
                               }
                           }) /
                   10;
    return costs;
}

bool isWithin(const Limits& limits, const Costs& few, const Costs& many) {
    const bool selects = many.select <= few.select * limits.ratio;
    const bool connects = many.connect <= limits.connect;
    if (!selects)
        std::printf("A select takes more than %.1f times as long with many sources.\n", limits.ratio);
    if (!connects)
        std::printf("A connect takes more than %.0f ms.\n", limits.connect);
    return selects && connects;
}

int run(const std::string& root, int rounds, const Limits* limits) {
    std::printf("%8s %12s %12s %12s %8s\n", "sources", "read ms", "connect ms", "select ms", "ratio");
    Costs few;
    Costs many;
    for (const int sources : {10, 100, 1000, 10000}) {
        many = measure(root, sources, rounds);
        if (sources == 10)
            few = many;
        const std::string side = std::to_string(sources);
        bench::tellSample("select", side, 1000 * many.select);
        bench::tellSample("connect", side, many.connect);
        bench::tellSample("status", side, 1000 * many.status);
        std::printf("%8d %12.3f %12.3f %12.4f %8.2f\n", sources, many.read, many.connect, many.select,
                    many.select / few.select);
    }
    return limits == nullptr || isWithin(*limits, few, many) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("What a select and a connect cost with few sources and with thousands of them.");
    int rounds = 200;
    bool assertLimits = false;
    Limits limits;
    app.add_option("--rounds", rounds, "measurements of each select; the least counts")
        ->check(CLI::PositiveNumber);
    app.add_flag("--assert", assertLimits, "fail when a limit is exceeded");
    app.add_option("--ratio", limits.ratio, "limit: a select with 10,000 sources to one with 10");
    app.add_option("--connect", limits.connect, "limit: milliseconds of a connect with 10,000 sources");
    CLI11_PARSE(app, argc, argv);

    bench::keepFilesInMemory();
    std::string root = (fs::temp_directory_path() / "sources-bench-XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr)
        return 1;
    fs::create_directories(root + "/etc/decoder");
    setenv("APPLIANCE_ROOT", root.c_str(), 1);
    setenv("LIBCOMMON_LOG", (root + "/log").c_str(), 1);
    const int result = run(root, rounds, assertLimits ? &limits : nullptr);
    libcommon::Sweep swept;
    libcommon::sweep(swept);
    fs::remove_all(root);
    return result;
}
