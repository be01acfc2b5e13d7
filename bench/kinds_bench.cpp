// Measures switches between any two kinds of stream on the frame store, with the real programs and two encoders of
// each kind.
//
// The gap is the time from the last frame of the old source to the first of the new one. The encoders here do not
// send an extra key picture to a new client, so that the new player waits for its first picture as long as with any
// camera. The old picture keeps moving in the meantime.

#include "bench/circuit.h"
#include "bench/distribution.h"
#include "bench/switching.h"
#include "tests/appliance/isolation.h"

#include <array>
#include <chrono>
#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

namespace {

constexpr std::array kinds{"mjpeg",          "mpeg2",    "sdp",      "rtsp-unicast",
                           "rtsp-multicast", "rtsp-tcp", "rtsp-http"};
constexpr int kindCount = static_cast<int>(kinds.size());
constexpr int columnWidth = 16;

struct Options {
    int rounds = 5;
    std::string codec = "mpeg4";
    std::string width = "352";
    std::string height = "288";
    double medianLimit = 20;
    double worstLimit = 60;
    bool assertLimits = false;
    bool each = false;
};

struct Pair {
    bench::Distribution gap;
    int blanked = 0;
    int failed = 0;
};

struct Results {
    std::array<std::array<Pair, kinds.size()>, kinds.size()> pairs;
    bench::Distribution gap;
    bench::Distribution answer;
    bench::Distribution oldPause;
    int blanked = 0;
    int failed = 0;

    void add(int from, int to, const std::optional<bench::Switch>& one);
};

void Results::add(int from, int to, const std::optional<bench::Switch>& one) {
    Pair& pair = pairs.at(static_cast<std::size_t>(from)).at(static_cast<std::size_t>(to));
    if (!one) {
        ++pair.failed;
        ++failed;
        return;
    }
    pair.gap.add(one->gap);
    gap.add(one->gap);
    answer.add(one->answer);
    oldPause.add(one->oldPause);
    pair.blanked += one->blanked ? 1 : 0;
    blanked += one->blanked ? 1 : 0;
}

// Random, so that switches happen at every phase of both sources' frames.
void settle(std::mt19937& random) {
    std::this_thread::sleep_for(
        std::chrono::milliseconds(300 + std::uniform_int_distribution(0, 79)(random)));
}

// Each kind has the sources 2 * kind and 2 * kind + 1.
int sourceOf(int kind, int now, std::mt19937& random) {
    const int either = 2 * kind + std::uniform_int_distribution(0, 1)(random);
    return either == now ? either ^ 1 : either;
}

void addEncoders(appliance::Appliance& decoder, const Options& options) {
    for (int source = 0; source < 2 * kindCount; ++source) {
        const std::string kind = kinds.at(static_cast<std::size_t>(source / 2));
        decoder.addHost(kind + (source % 2 == 0 ? " A" : " B"),
                        {"--kinds", kind, "--codec", options.codec, "--width", options.width, "--height",
                         options.height, "--multicast", "239.255." + std::to_string(source) + ".1",
                         "--no-key-on-join"});
    }
}

// The first selection of a source detects its encoder, which must not be measured.
bool detectAll(appliance::Appliance& decoder) {
    for (int source = 0; source < 2 * kindCount; ++source) {
        if (source > 0)
            decoder.ctl({"select", std::to_string(source)});
        if (!decoder.showsMoving(source)) {
            std::cerr << decoder.log() << "no picture of a source of kind "
                      << kinds.at(static_cast<std::size_t>(source / 2)) << '\n';
            return false;
        }
    }
    return true;
}

void tell(int from, int to, const std::optional<bench::Switch>& one) {
    std::cout << from << " -> " << to << ": ";
    if (one)
        std::cout << "gap " << one->gap << " ms, answer " << one->answer
                  << " ms, old picture stood still for " << one->oldPause << " ms\n";
    else
        std::cout << "no picture\n";
}

void measureRound(appliance::Appliance& decoder, const Options& options, std::mt19937& random,
                  Results& results) {
    int now = decoder.screen().newestInfo().source;
    const std::vector<int> walk = bench::everyStepOnce(kindCount, now / 2, random);
    for (std::size_t i = 1; i < walk.size(); ++i) {
        settle(random);
        const int next = sourceOf(walk[i], now, random);
        const auto one = bench::switchTo(decoder, next);
        results.add(walk[i - 1], walk[i], one);
        if (options.each)
            tell(now, next, one);
        now = next;
    }
}

std::string cell(const Pair& pair) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(1) << pair.gap.median() << " / " << pair.gap.worst();
    if (pair.blanked > 0)
        out << " b" << pair.blanked;
    if (pair.failed > 0)
        out << " f" << pair.failed;
    return out.str();
}

void printTable(const Results& results) {
    const auto column = [](const std::string& text) { std::cout << " | " << std::setw(columnWidth) << text; };
    std::cout << "\nGap in ms, median / worst, from the row's kind to the column's kind:\n\n| "
              << std::setw(columnWidth) << "";
    for (const char* kind : kinds)
        column(kind);
    std::cout << " |\n|" << std::string(columnWidth + 1, '-') << '-';
    for (int i = 0; i < kindCount; ++i)
        std::cout << '|' << std::string(columnWidth + 1, '-') << ':';
    std::cout << "|\n";
    for (std::size_t from = 0; from < kinds.size(); ++from) {
        std::cout << "| " << std::setw(columnWidth) << kinds.at(from);
        for (const Pair& pair : results.pairs.at(from))
            column(cell(pair));
        std::cout << " |\n";
    }
}

void print(const Results& results) {
    printTable(results);
    std::cout << "\nGap, all pairs:\n  " << results.gap.summary("ms")
              << "\nAnswer, select event to first frame of the new source:\n  "
              << results.answer.summary("ms")
              << "\nLongest standstill of the old picture while the new player starts:\n  "
              << results.oldPause.summary("ms") << "\nSwitches with a black screen: " << results.blanked
              << "\nSwitches without a picture: " << results.failed << '\n';
}

bool withinLimits(const Results& results, const Options& options) {
    return results.gap.count() > 0 && results.failed == 0 && results.blanked == 0 &&
           results.gap.median() <= options.medianLimit && results.gap.worst() <= options.worstLimit;
}

Results measure(const Options& options) {
    Results results;
    appliance::Appliance decoder;
    decoder.set("Decoder.AutoDetectTimeout", "10");
    decoder.setManual();
    addEncoders(decoder, options);
    decoder.start();
    bench::joinAppliance(decoder); // only now, so that the programs started above do not inherit it
    if (!detectAll(decoder)) {
        ++results.failed;
        return results;
    }
    std::mt19937 random(1);
    for (int round = 0; round < options.rounds; ++round)
        measureRound(decoder, options, random, results);
    return results;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures switches between all kinds of streams on the screen."};
    app.add_option("--rounds", options.rounds, "switches for each pair of kinds")->check(CLI::Range(1, 1000));
    app.add_option("--codec", options.codec, "codec of RTSP: mpeg4 or h264")
        ->check(CLI::IsMember({"mpeg4", "h264"}));
    app.add_option("--width", options.width, "width of the pictures");
    app.add_option("--height", options.height, "height of the pictures");
    app.add_flag("--each", options.each, "print each switch (sources 2 * kind and 2 * kind + 1)");
    app.add_flag("--assert", options.assertLimits, "exit 1 when a limit is passed");
    app.add_option("--median", options.medianLimit, "largest median gap, milliseconds");
    app.add_option("--worst", options.worstLimit, "largest gap, milliseconds");
    CLI11_PARSE(app, argc, argv);
    if (!appliance::isolate()) {
        std::cerr << "kinds_bench: needs a network namespace for hosts and multicast; run it as root\n";
        return 1;
    }
    const Results results = measure(options);
    print(results);
    const bool good = withinLimits(results, options);
    std::cout << (good ? "within" : "NOT within") << " the limits: median " << options.medianLimit
              << " ms, worst " << options.worstLimit << " ms, no black frame\n";
    return options.assertLimits && !good ? 1 : 0;
}
