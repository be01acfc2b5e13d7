// Measures the monitor where the user sees it: on the pixels of an X server's screen.
//
//   gap     the time from the last picture of the old source to the first of the new one
//   cost    CPU time and memory of the players and the monitor, beside a pipeline that decodes and shows the same stream
//   delay   the time from a picture's arrival at the player to its pixels on the screen
//   wall    frames per second and CPU time of several decoders side by side

#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"
#include "appliance/screen/frame_store.h"
#include "bench/display_watch.h"
#include "bench/distribution.h"
#include "bench/picture_server.h"
#include "bench/process_cost.h"
#include "bench/switching.h"
#include "bench/wall_cost.h"
#include "tests/support/programs.h"
#include "tests/support/x_server.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>

#include <algorithm>
#include <chrono>
#include <CLI/CLI.hpp>
#include <csignal>
#include <functional>
#include <iomanip>
#include <iostream>
#include <random>
#include <thread>

namespace {

using appliance::Appliance;
using appliance::Process;
using x_server::XServer;

constexpr int skipped = 77;

struct Options {
    int width = 1920;
    int height = 1080;
    int switches = 100;
    double explain = 0; // milliseconds; gaps longer than this are listed picture by picture; 0: none
    int seconds = 10;
    int rounds = 3;
    int pictures = 500;
    bool assertLimits = false;
    std::optional<double> median; // milliseconds; nothing: that of the command
    std::optional<double> worst;
    double ratio = 1.25;
    std::vector<std::string> streams{"h264", "mjpeg"};
    std::string sink = "ximagesink";
    std::string backEnd = "auto";
};

void sleepMs(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// decoder-monitor on that server, for the appliance below that root.
std::unique_ptr<Process> startMonitor(const Options& options, const XServer& server,
                                      const std::string& root) {
    return std::make_unique<Process>(std::vector<std::string>{Appliance::program("decoder-monitor"),
                                                              "--fullscreen", "--back-end", options.backEnd},
                                     std::map<std::string, std::string>{{"DISPLAY", server.display()},
                                                                        {"WAYLAND_DISPLAY", ""},
                                                                        {"APPLIANCE_ROOT", root}},
                                     "");
}

void endMonitor(Process& monitor) {
    monitor.signal(SIGTERM);
    monitor.waitForEnd();
}

std::vector<std::string> sizeArguments(const Options& options) {
    return {"--width", std::to_string(options.width), "--height", std::to_string(options.height)};
}

// Waits until the screen shows a picture of that source.
bool awaitSource(bench::DisplayWatch& watch, int source, int seconds = 30) {
    const std::int64_t until = gettimeusec() + std::int64_t{1'000'000} * seconds;
    while (const auto seen = watch.next(until))
        if (seen->mark && seen->mark->source == source)
            return true;
    return false;
}

// ---- gap ------------------------------------------------------------------------------------------------------

struct Gap {
    double milliseconds = 0;
    int black = 0;                 // pictures without any light in the strip of the mark
    int damaged = 0;               // pictures whose mark can't be read, which are not whole
    std::vector<bench::Seen> seen; // what the screen showed
};

// What the screen showed and what the players drew around a switch, as one list.
void explain(const Gap& gap) {
    const std::int64_t end = gap.seen.back().time;
    std::cout << "gap of " << gap.milliseconds << " ms:\n";
    for (const screen::FrameInfo& info : screen::FrameStore().infosSince(0))
        if (info.time > end - 200'000)
            std::cout << "  " << static_cast<double>(info.time - end) / 1000.0 << " ms: drawn " << info.number
                      << " by " << info.pid << " of source " << info.source << '\n';
    for (const bench::Seen& seen : gap.seen)
        if (seen.time > end - 200'000)
            std::cout << "  " << static_cast<double>(seen.time - end) / 1000.0 << " ms: shown source "
                      << (seen.mark ? seen.mark->source : -1) << " counter "
                      << (seen.mark ? static_cast<int>(seen.mark->counter) : -1) << '\n';
}

// Watches the old source for `settleMs`, selects `source`, and watches the screen until that shows.
std::optional<Gap> switchTo(bench::DisplayWatch& watch, int source, int settleMs) {
    watch.skip();
    const std::int64_t selectAt = gettimeusec() + std::int64_t{1000} * settleMs;
    std::optional<bench::Seen> last;
    Gap gap;
    while (const auto seen = watch.next(selectAt))
        if (gap.seen.push_back(*seen); seen->mark && (!last || !(seen->mark == last->mark)))
            last = seen;
    Event event{};
    event.id = EID_SELECT;
    event.value1 = source;
    if (!last || sendEvent(&event) != 0)
        return std::nullopt;
    const std::int64_t until = gettimeusec() + 20'000'000;
    while (const auto seen = watch.next(until)) {
        gap.seen.push_back(*seen);
        gap.black += seen->black ? 1 : 0;
        if (!seen->mark) {
            gap.damaged += seen->black ? 0 : 1;
            continue;
        }
        if (seen->mark->source == source) {
            gap.milliseconds = static_cast<double>(seen->time - last->time) / 1000;
            return gap;
        }
        if (!(seen->mark == last->mark))
            last = seen;
    }
    return std::nullopt;
}

int measureGap(const Options& options) {
    const double medianLimit = options.median.value_or(10);
    const double worstLimit = options.worst.value_or(40);
    // The appliance may be in namespaces of its own. The server shares its pictures' memory with the monitor only if it
    // starts there, too; otherwise a picture comes in pieces.
    Appliance decoder;
    XServer server(options.width, options.height, true);
    for (const char* name : {"Front door", "Garage"})
        decoder.addEncoder(name, sizeArguments(options));
    decoder.setManual();
    decoder.set("Screen.Fit", "fill"); // the mark is read where the picture covers the screen
    decoder.start();
    const auto monitor = startMonitor(options, server, decoder.root());
    bench::joinAppliance(decoder);
    bench::DisplayWatch watch(server);
    if (!awaitSource(watch, 0)) {
        std::cerr << "no first picture on the display\n";
        return 1;
    }
    // The first selection detects the second encoder, which must not be measured.
    switchTo(watch, 1, 300);
    switchTo(watch, 0, 300);
    bench::Distribution gaps;
    int black = 0;
    int damaged = 0;
    int failed = 0;
    std::mt19937 random(1);
    for (int i = 0; i < options.switches; ++i) {
        const int settleMs = 400 + std::uniform_int_distribution(0, 79)(random);
        if (const auto gap = switchTo(watch, (i + 1) % 2, settleMs)) {
            gaps.add(gap->milliseconds);
            if (options.explain > 0 && gap->milliseconds > options.explain)
                explain(*gap);
            black += gap->black;
            damaged += gap->damaged;
        } else {
            ++failed;
        }
    }
    endMonitor(*monitor);
    std::cout << options.width << 'x' << options.height
              << ", gap on the display, last picture of the old source to "
              << "first of the new one:\n  " << gaps.summary("ms") << '\n'
              << bench::histogram(gaps, 10, "ms") << "Black pictures: " << black
              << "\nDamaged pictures: " << damaged << "\nSwitches without a picture: " << failed << '\n';
    const bool good = failed == 0 && black == 0 && damaged == 0 && gaps.median() <= medianLimit &&
                      gaps.worst() <= worstLimit;
    std::cout << (good ? "within" : "NOT within") << " the limits: median " << medianLimit << " ms, worst "
              << worstLimit << " ms, nothing black or damaged\n";
    return options.assertLimits && !good ? 1 : 0;
}

// ---- cost -----------------------------------------------------------------------------------------------------

struct Cost {
    double cpu = 0;      // percent of a core
    double memory = 0;   // MB, private
    double pictures = 0; // on the display, per second
};

// Pictures that the screen shows in that time, and what `family` uses meanwhile.
Cost measureFamily(bench::DisplayWatch& watch, int seconds,
                   const std::function<std::vector<pid_t>()>& family) {
    const std::vector<pid_t> pids = family();
    watch.skip();
    const double before = bench::cpuSecondsOf(pids);
    const std::int64_t begin = gettimeusec();
    const std::int64_t until = begin + std::int64_t{1'000'000} * seconds;
    int shown = 0;
    std::optional<FrameMark> last;
    while (const auto seen = watch.next(until)) {
        if (!seen->mark || seen->mark == last)
            continue;
        last = seen->mark;
        ++shown;
    }
    const double time = static_cast<double>(gettimeusec() - begin) / 1e6;
    return {100 * (bench::cpuSecondsOf(pids) - before) / time, bench::privateMegabytesOf(pids), shown / time};
}

struct Stream {
    std::vector<std::string> encoder; // arguments
    appliance::Keys keys;             // of the source
    std::function<std::string(const std::string& address)> pipeline;
};

Stream streamOf(const std::string& name, const std::string& sink) {
    // Without that, a sink takes a screen of 720x576 for a television, whose pixels are not square.
    const std::string show = " ! videoconvert ! " + sink + " pixel-aspect-ratio=1/1 sync=false";
    if (name == "h264")
        return {{"--codec", "h264", "--kinds", "rtsp-tcp"},
                {{"VideoSourceType", "rtsp-tcp"}},
                [=](const std::string& address) {
                    return "rtspsrc protocols=tcp latency=0 location=rtsp://" + address +
                           "/mpeg4/1/media.orv ! rtph264depay ! h264parse ! avdec_h264" + show;
                }};
    return {{}, {}, [=](const std::string& address) {
                return "souphttpsrc location=http://" + address +
                       "/vexo-cgi/mjpg/video.cgi ! multipartdemux ! jpegdec" + show;
            }};
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

// Shows the stream with a pipeline of its own, without the decoder.
Cost costOfPipeline(const Options& options, const std::string& pipeline) {
    XServer server(options.width, options.height, true);
    std::vector<std::string> arguments{findProgram("gst-launch-1.0"), "-q"};
    for (const std::string& word : wordsOf(pipeline))
        arguments.push_back(word);
    Process process(arguments, {{"DISPLAY", server.display()}, {"WAYLAND_DISPLAY", ""}}, "");
    bench::DisplayWatch watch(server);
    if (!awaitSource(watch, 0))
        throw std::runtime_error("the pipeline shows nothing: " + pipeline);
    sleepMs(2000);
    return measureFamily(watch, options.seconds, [&] { return bench::familyOf(process.pid()); });
}

Cost costOfDecoder(const Options& options, Appliance& decoder) {
    XServer server(options.width, options.height, true);
    const auto monitor = startMonitor(options, server, decoder.root());
    bench::DisplayWatch watch(server);
    if (!awaitSource(watch, 0))
        throw std::runtime_error("the monitor shows nothing");
    sleepMs(2000);
    const Cost cost = measureFamily(watch, options.seconds, [&] {
        std::vector<pid_t> all = bench::familyOf(monitor->pid());
        for (const int player : decoder.players())
            all.push_back(player);
        return all;
    });
    endMonitor(*monitor);
    return cost;
}

void printCost(const char* what, const Cost& cost) {
    std::cout << "  " << std::left << std::setw(22) << what << std::right << std::fixed
              << std::setprecision(1) << std::setw(7) << cost.cpu << " % of a core" << std::setw(8)
              << cost.memory << " MB private" << std::setw(7) << cost.pictures << " pictures/s\n";
}

// Both, one after the other, several times. Returns the median ratio of their CPU times.
double compareCost(const Options& options, const std::string& name) {
    const Stream stream = streamOf(name, options.sink);
    Appliance decoder;
    std::vector<std::string> arguments = sizeArguments(options);
    arguments.insert(arguments.end(), stream.encoder.begin(), stream.encoder.end());
    const appliance::Encoder& encoder = decoder.addEncoder("Front door", arguments, stream.keys);
    decoder.setManual();
    decoder.set("Screen.Fit", "fill"); // the mark is read where the picture covers the screen
    decoder.start();
    std::cout << name << " at " << options.width << 'x' << options.height << ":\n";
    bench::Distribution ratios;
    for (int round = 0; round < options.rounds; ++round) {
        const Cost ours = costOfDecoder(options, decoder);
        decoder.ctl({"disconnect"});
        const Cost theirs = costOfPipeline(options, stream.pipeline(encoder.address()));
        decoder.ctl({"connect"});
        printCost("player and monitor", ours);
        printCost("pipeline in a window", theirs);
        ratios.add(ours.cpu / std::max(theirs.cpu, 0.01));
    }
    std::cout << "  CPU ratio: median " << std::setprecision(2) << ratios.median() << ", worst "
              << ratios.worst() << '\n';
    return ratios.median();
}

int measureCost(const Options& options) {
    if (findProgram("gst-launch-1.0").empty()) {
        std::cout << "skipped: gst-launch-1.0 is not installed\n";
        return skipped;
    }
    bool good = true;
    for (const std::string& name : options.streams)
        good = compareCost(options, name) <= options.ratio && good;
    std::cout << (good ? "within" : "NOT within") << " the limit: ratio " << options.ratio << '\n';
    return options.assertLimits && !good ? 1 : 0;
}

// ---- delay ----------------------------------------------------------------------------------------------------

constexpr int counters = 100; // pictures that are sent in turn
constexpr int delaySource = 5;

// At most one picture's time and one refresh of a display with 60 of them.
int measureDelay(const Options& options) {
    const double medianLimit = options.median.value_or(40);
    const double worstLimit = options.worst.value_or(57);
    std::vector<std::string> pictures;
    for (int counter = 0; counter < counters; ++counter)
        pictures.push_back(player::jpegPicture(delaySource, counter, options.width, options.height, 1));
    bench::PictureServer camera(pictures);
    player::FakeSupervisor supervisor;
    player::FakeSupervisor::setParameters("[Screen]\nFit = fill\n");
    XServer server(options.width, options.height, true);
    const auto monitor = startMonitor(options, server, player::FakeSupervisor::root());
    const pid_t pid = supervisor.start(Appliance::program("mjpeg_player"),
                                       {"-m", "pal", "-o", "tv", "-n", "3", "-r", "10000", "-P",
                                        std::to_string(camera.port()), "127.0.0.1"});
    if (!supervisor.letShow(pid)) {
        std::cerr << "the player does not start: " << player::FakeSupervisor::log() << '\n';
        return 1;
    }
    bench::DisplayWatch watch(server);
    awaitSource(watch, delaySource);
    bench::Distribution delays;
    std::optional<FrameMark> last;
    const std::int64_t until = gettimeusec() + std::int64_t{60'000} * options.pictures + 10'000'000;
    while (delays.count() < static_cast<std::size_t>(options.pictures)) {
        const auto seen = watch.next(until);
        if (!seen)
            break;
        if (!seen->mark || seen->mark == last)
            continue;
        last = seen->mark;
        delays.add(static_cast<double>(seen->time - camera.sentAt(seen->mark->counter)) / 1000);
    }
    kill(pid, SIGINT);
    supervisor.end(pid);
    endMonitor(*monitor);
    std::cout << options.width << 'x' << options.height
              << ", from a picture's arrival at the player to its pixels:\n  " << delays.summary("ms") << '\n'
              << bench::histogram(delays, 5, "ms");
    const bool good = delays.count() == static_cast<std::size_t>(options.pictures) &&
                      delays.median() <= medianLimit && delays.percentile(99) <= worstLimit;
    std::cout << (good ? "within" : "NOT within") << " the limits: median " << medianLimit
              << " ms, 99 of 100 within " << worstLimit << " ms\n";
    return options.assertLimits && !good ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures the monitor on the pixels of a screen."};
    app.require_subcommand(1);
    app.fallthrough(); // inherited by the subcommands, so that the common options may follow them
    app.add_option("--width", options.width, "width of pictures and screen")->check(CLI::Range(160, 1920));
    app.add_option("--height", options.height, "height of pictures and screen")->check(CLI::Range(120, 1080));
    app.add_option("--back-end", options.backEnd, "of the monitor: auto, memory, gpu");
    app.add_flag("--assert", options.assertLimits, "exit 1 when a limit is passed");
    app.add_option("--median", options.median, "gap, delay: largest median, milliseconds");
    app.add_option("--worst", options.worst, "gap: largest; delay: 99th percentile, milliseconds");
    CLI::App* gap = app.add_subcommand("gap", "the gap between two sources");
    gap->add_option("--switches", options.switches, "how many switches")->check(CLI::Range(1, 10'000));
    gap->add_option("--explain", options.explain,
                    "list the pictures around gaps longer than this, milliseconds");
    CLI::App* cost = app.add_subcommand("cost", "CPU time and memory beside a pipeline");
    cost->add_option("--seconds", options.seconds, "length of each measurement")->check(CLI::Range(1, 600));
    cost->add_option("--rounds", options.rounds, "measurements of each")->check(CLI::Range(1, 100));
    cost->add_option("--ratio", options.ratio, "largest median ratio of CPU times");
    cost->add_option("--streams", options.streams, "h264, mjpeg")->check(CLI::IsMember({"h264", "mjpeg"}));
    cost->add_option("--sink", options.sink, "what shows the pipeline's pictures")
        ->check(CLI::IsMember({"ximagesink", "xvimagesink", "glimagesink"}));
    CLI::App* delay = app.add_subcommand("delay", "from a picture's arrival to its pixels");
    delay->add_option("--pictures", options.pictures, "how many pictures")->check(CLI::Range(10, 100'000));
    bench::WallOptions several;
    CLI::App* wall = app.add_subcommand("wall", "frames per second and CPU time of a wall of decoders");
    wall->add_option("--decoders", several.decoders, "how many")->check(CLI::Range(1, 9));
    wall->add_option("--seconds", several.seconds, "length of the measurement")->check(CLI::Range(1, 600));
    wall->add_option("--rate", several.rate, "least frames per second of each decoder");
    CLI11_PARSE(app, argc, argv);
    if (const std::string reason = XServer::whyNot(); !reason.empty()) {
        std::cout << "skipped: " << reason << '\n';
        return skipped;
    }
    try {
        several.assertLimits = options.assertLimits;
        return gap->parsed()    ? measureGap(options)
               : wall->parsed() ? bench::measureWall(several)
               : cost->parsed() ? measureCost(options)
                                : measureDelay(options);
    } catch (const std::exception& error) {
        std::cerr << "monitor_bench: " << error.what() << '\n';
        return 1;
    }
}
