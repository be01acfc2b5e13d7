// The cost of a detection for each kind of encoder: the requests that it sends, and its time compared with the
// round trips that those requests need.

#include "bench/detection_cost.h"
#include "bench/distribution.h"
#include "bench/samples.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

namespace {

constexpr int skipped = 77; // exit status

struct Options {
    int repetitions = 5;
    int delay = 20;
    double limit = 1.15;
    bool assertLimit = false;
    bool quick = false;
    bool traces = false;
    bool samples = false;
    std::vector<std::string> kinds;
};

struct Row {
    bench::Cost counted;
    bench::Distribution plain; // without the wait for packets; the same holds for the delayed ones
    bench::Distribution plainWait;
    bench::Distribution plainFfprobe;
    bench::Distribution delayed;
    bench::Distribution delayedWait;
    bench::Distribution delayedFfprobe;
    bool found = true; // with the right type, each time
};

// For the table of bench/run. The waits for packets are by design: they count beside the peers, which wait, too.
void tellSamples(const std::string& kind, const bench::Cost& cost, const Options& options, const Row& row,
                 bench::Way way) {
    const std::string delay = way == bench::Way::Direct ? "0" : "20";
    const auto tell = [&](const std::string& side, double value) {
        const std::string name = "detect-" + delay + ":" + kind;
        if (options.samples && value >= 0)
            bench::tellSample(name, side, value);
        else if (options.samples)
            bench::tellMissing(name, side, "it finds no stream");
    };
    tell("ours", cost.total);
    tell("ffprobe", cost.ffprobe.asking);
    tell("ffprobe-told", cost.ffprobe.told);
    tell("gst-discoverer", cost.discoverer.asking);
    tell("gst-discoverer-told", cost.discoverer.told);
    if (options.samples && way == bench::Way::Delayed) {
        bench::tellSample("detect-trips:" + kind, "ours", cost.requests());
        bench::tellSample("detect-trips:" + kind, "round-trips",
                          2.0 * options.delay * row.counted.roundTrips());
    }
}

void measure(const bench::StreamKind& kind, bench::Way way, const Options& options, Row& row) {
    // Without packets a detection waits for its whole timeout, so this one is short.
    const int timeout = kind.ffprobe.empty() ? 1 : 10;
    const bool counts = way == bench::Way::Counted;
    for (int i = 0; i < (counts ? 1 : options.repetitions); ++i) {
        const bench::Cost cost =
            bench::detectOnce(kind, way, std::chrono::milliseconds(options.delay), timeout, !counts);
        row.found = row.found && cost.type == kind.type;
        if (options.traces || cost.type != kind.type)
            std::cout << kind.name << ":\n" << cost.trace;
        if (counts) {
            row.counted = cost;
            continue;
        }
        tellSamples(kind.name, cost, options, row, way);
        const bool isPlain = way == bench::Way::Direct;
        (isPlain ? row.plain : row.delayed).add(cost.requests());
        (isPlain ? row.plainWait : row.delayedWait).add(cost.mediaWait);
        if (cost.ffprobe.told >= 0)
            (isPlain ? row.plainFfprobe : row.delayedFfprobe).add(cost.ffprobe.told);
    }
}

double ratio(const Row& row, const Options& options) {
    return row.delayed.median() / (2.0 * options.delay * row.counted.roundTrips());
}

void printComparison(const bench::Distribution& ours, double wait, const bench::Distribution& ffprobe) {
    if (ffprobe.count() == 0)
        std::printf(" %7s %7s", "-", "-");
    else
        std::printf(" %7.0f %7.2f", ffprobe.median(), (ours.median() + wait) / ffprobe.median());
}

void printHeading(const Options& options) {
    std::printf(
        R"(One detection of a fresh encoder, medians of %d, milliseconds. The delay is %d ms in each direction, made by
%s.
A round trip is a new TCP connection ("conn") or a request with its answer ("exch"), counted on the wire;
%s "needed" is round trips times %d ms, "ratio" is the delayed
detection's time divided by it. The wait for a stream's packets is by design; it has its own column ("media")
and counts only in the comparison with ffprobe, which reads the same stream of the same encoder right after
the detection.

)",
        options.repetitions, options.delay,
        bench::kernelDelays() ? "the kernel" : "relays; packets of streams and refusals come at once",
        bench::kernelDelays() ? "or a connection that is refused (\"ref\")."
                              : "a connection that is refused (\"ref\") is not counted.",
        2 * options.delay);
    std::printf("%-16s %4s %4s %4s %5s | %6s %7s %7s | %6s %7s %6s %6s %7s %7s\n", "", "", "", "", "round",
                "plain", "", "by", "", "", "", "", "", "by");
    std::printf("%-16s %4s %4s %4s %5s | %6s %7s %7s | %6s %7s %6s %6s %7s %7s\n", "kind", "conn", "ref",
                "exch", "trips", "time", "ffprobe", "ffprobe", "needed", "delayed", "ratio", "media",
                "ffprobe", "ffprobe");
}

void print(const bench::StreamKind& kind, const Row& row, const Options& options) {
    std::printf("%-16s %4d %4d %4d %5d | %6.1f", kind.name.c_str(), row.counted.connections,
                row.counted.refused, row.counted.exchanges, row.counted.roundTrips(), row.plain.median());
    printComparison(row.plain, row.plainWait.median(), row.plainFfprobe);
    std::printf(" | %6d %7.1f %6.3f %6.0f", 2 * options.delay * row.counted.roundTrips(),
                row.delayed.median(), ratio(row, options), row.delayedWait.median());
    printComparison(row.delayed, row.delayedWait.median(), row.delayedFfprobe);
    std::printf("%s\n", row.found ? "" : "  NOT FOUND AS WHAT IT IS");
    std::fflush(stdout);
}

bool isWanted(const bench::StreamKind& kind, const Options& options) {
    if (options.quick)
        return kind.name == "mjpeg" || kind.name == "rtsp-unicast";
    return options.kinds.empty() ||
           std::find(options.kinds.begin(), options.kinds.end(), kind.name) != options.kinds.end();
}

// Whether every kind was found within the limit.
bool measureAll(const Options& options) {
    bool good = true;
    int measured = 0;
    printHeading(options);
    for (const bench::StreamKind& kind : bench::streamKinds()) {
        if (!isWanted(kind, options))
            continue;
        Row row;
        for (const bench::Way way : {bench::Way::Counted, bench::Way::Direct, bench::Way::Delayed})
            measure(kind, way, options, row);
        print(kind, row, options);
        good = good && row.found && ratio(row, options) <= options.limit;
        ++measured;
    }
    return good && measured > 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures what it costs to detect an encoder."};
    app.add_option("--repetitions", options.repetitions, "detections of each kind")
        ->check(CLI::Range(1, 1000));
    app.add_option("--delay", options.delay, "milliseconds each way")->check(CLI::Range(1, 1000));
    app.add_option("--kind", options.kinds, "only these kinds");
    app.add_option("--limit", options.limit, "largest ratio");
    app.add_flag("--assert", options.assertLimit, "exit 1 when a ratio passes the limit");
    app.add_flag("--quick", options.quick, "two kinds, once each");
    app.add_flag("--samples", options.samples, "print each figure for bench/run");
    app.add_flag("--traces", options.traces, "show each detection's own record");
    CLI11_PARSE(app, argc, argv);
    if (options.quick)
        options.repetitions = 1;
    if (const std::string reason = bench::enterBench(); !reason.empty()) {
        std::cout << "skipped: " << reason << '\n';
        return skipped;
    }
    const bool good = measureAll(options);
    std::cout << (good ? "within" : "NOT within") << " the limit: every kind found, ratio at most "
              << options.limit << '\n';
    return options.assertLimit && !good ? 1 : 0;
}
