// Measures switches between two MJPEG sources on the frame store, with the real programs.
//
// The gap is the time from the last frame of the old source to the first of the new one. At 25 frames/s frames are
// 40 ms apart, so a switch with a gap of about 40 ms or less is not visible.

#include "bench/chart.h"
#include "bench/switching.h"

#include <chrono>
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <random>
#include <thread>

namespace {

struct Options {
    int switches = 100;
    int stops = 20;
    std::string chart;
    double medianLimit = 20;
    double worstLimit = 60;
    bool assertLimits = false;
};

struct Results {
    bench::Distribution gap;
    bench::Distribution answer;
    bench::Distribution oldPause;
    bench::Distribution stopGap;
    int blanked = 0;
    int failed = 0;
};

// Random, so that switches happen at every phase of both sources' frames.
void settle(std::mt19937& random) {
    std::this_thread::sleep_for(
        std::chrono::milliseconds(250 + std::uniform_int_distribution(0, 79)(random)));
}

void measureSwitches(appliance::Appliance& decoder, const Options& options, Results& results) {
    std::mt19937 random(1);
    for (int i = 0; i < options.switches; ++i) {
        settle(random);
        const auto one = bench::switchTo(decoder, (i + 1) % 2);
        if (!one) {
            ++results.failed;
            continue;
        }
        results.gap.add(one->gap);
        results.answer.add(one->answer);
        results.oldPause.add(one->oldPause);
        results.blanked += one->blanked ? 1 : 0;
    }
}

void measureStops(appliance::Appliance& decoder, const Options& options, Results& results) {
    std::mt19937 random(2);
    for (int i = 0; i < options.stops; ++i) {
        settle(random);
        if (const auto one = bench::stopThenStart(decoder, (decoder.screen().newestInfo().source + 1) % 2))
            results.stopGap.add(one->gap);
        else
            ++results.failed;
    }
}

void print(const Results& results) {
    std::cout << "\nGap, last frame of the old source to first of the new one:\n  "
              << results.gap.summary("ms") << '\n'
              << bench::histogram(results.gap, 5, "ms")
              << "\nAnswer, select event to first frame of the new source:\n  "
              << results.answer.summary("ms")
              << "\nLongest standstill of the old picture while the new player starts:\n  "
              << results.oldPause.summary("ms") << "\nSwitches with a black screen: " << results.blanked
              << "\nSwitches without a picture: " << results.failed << '\n';
    if (results.stopGap.count() > 0)
        std::cout << "\nThe same with a stop-then-start switch on this machine:\n  "
                  << results.stopGap.summary("ms") << "\n  median ratio "
                  << results.stopGap.median() / std::max(results.gap.median(), 0.001) << " : 1\n";
}

void writeChart(const std::string& file, const Results& results) {
    std::ofstream(file) << bench::stripChart(
        "From the last frame of the old source to the first of the new one", "ms",
        {{"overlapping players", results.gap},
         {"stop, then start", results.stopGap},
         {"select to picture", results.answer}});
}

bool withinLimits(const Results& results, const Options& options) {
    return results.failed == 0 && results.blanked == 0 && results.gap.median() <= options.medianLimit &&
           results.gap.worst() <= options.worstLimit;
}

Results measure(const Options& options) {
    Results results;
    appliance::Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    bench::joinAppliance(decoder); // only now, so that the programs started above do not inherit it
    if (!decoder.showsMoving(0)) {
        std::cerr << "no first picture\n";
        results.failed = options.switches;
        return results;
    }
    // The first selection detects the second encoder, which must not be measured.
    bench::switchTo(decoder, 1);
    bench::switchTo(decoder, 0);
    measureSwitches(decoder, options, results);
    measureStops(decoder, options, results);
    return results;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures switches between two sources on the screen."};
    app.add_option("--switches", options.switches, "how many switches")->check(CLI::Range(1, 10000));
    app.add_option("--stops", options.stops, "how many stop-then-start switches to compare with")
        ->check(CLI::Range(0, 1000));
    app.add_option("--svg", options.chart, "write a chart to this file");
    app.add_flag("--assert", options.assertLimits, "exit 1 when a limit is passed");
    app.add_option("--median", options.medianLimit, "largest median gap, milliseconds");
    app.add_option("--worst", options.worstLimit, "largest gap, milliseconds");
    CLI11_PARSE(app, argc, argv);
    const Results results = measure(options);
    print(results);
    if (!options.chart.empty())
        writeChart(options.chart, results);
    const bool good = withinLimits(results, options);
    std::cout << (good ? "within" : "NOT within") << " the limits: median " << options.medianLimit
              << " ms, worst " << options.worstLimit << " ms, no black frame\n";
    return options.assertLimits && !good ? 1 : 0;
}
