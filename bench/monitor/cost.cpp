// CPU time and memory of the players and the monitor, beside a pipeline.
#include "bench/distribution.h"
#include "bench/monitor/measures.h"
#include "bench/process_cost.h"
#include "bench/screen/streams.h"
#include "tests/appliance/appliance.h"
#include "tests/support/programs.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <functional>
#include <iomanip>
#include <iostream>

namespace bench {

using appliance::Appliance;
using appliance::Process;
using x_server::XServer;

namespace {

struct Cost {
    double cpu = 0;      // percent of a core
    double memory = 0;   // MB, private
    double pictures = 0; // on the display, per second
};

// Pictures that the screen shows in that time, and what `family` uses meanwhile.
Cost measureFamily(DisplayWatch& watch, int seconds, const std::function<std::vector<pid_t>()>& family) {
    const std::vector<pid_t> pids = family();
    watch.skip();
    const double before = cpuSecondsOf(pids);
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
    return {100 * (cpuSecondsOf(pids) - before) / time, privateMegabytesOf(pids), shown / time};
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

// Shows the stream with a pipeline of its own, without the decoder.
Cost costOfPipeline(const MonitorOptions& options, const std::string& pipeline) {
    XServer server(options.width, options.height, true);
    std::vector<std::string> arguments{findProgram("gst-launch-1.0"), "-q"};
    for (const std::string& word : wordsOf(pipeline))
        arguments.push_back(word);
    Process process(arguments, {{"DISPLAY", server.display()}, {"WAYLAND_DISPLAY", ""}}, "");
    DisplayWatch watch(server);
    if (!awaitSource(watch, 0))
        throw std::runtime_error("the pipeline shows nothing: " + pipeline);
    appliance::pause(std::chrono::seconds(2));
    return measureFamily(watch, options.seconds, [&] { return familyOf(process.pid()); });
}

Cost costOfDecoder(const MonitorOptions& options, Appliance& decoder) {
    XServer server(options.width, options.height, true);
    const auto monitor = startMonitor(options, server, decoder.root());
    DisplayWatch watch(server);
    if (!awaitSource(watch, 0))
        throw std::runtime_error("the monitor shows nothing");
    appliance::pause(std::chrono::seconds(2));
    const Cost cost = measureFamily(watch, options.seconds, [&] {
        std::vector<pid_t> all = familyOf(monitor->pid());
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
double compareCost(const MonitorOptions& options, const std::string& name) {
    const Stream stream = streamOf(name, options.sink);
    Appliance decoder;
    std::vector<std::string> arguments = sizeArguments(options);
    arguments.insert(arguments.end(), stream.encoder.begin(), stream.encoder.end());
    const appliance::Encoder& encoder = decoder.addEncoder("Front door", arguments, stream.keys);
    decoder.setManual();
    decoder.set("Screen.Fit", "fill"); // the mark is read where the picture covers the screen
    decoder.start();
    std::cout << name << " at " << options.width << 'x' << options.height << ":\n";
    Distribution ratios;
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

} // namespace

int measureCost(const MonitorOptions& options) {
    if (findProgram("gst-launch-1.0").empty()) {
        std::cout << "skipped: gst-launch-1.0 is not installed\n";
        return skippedStatus;
    }
    bool good = true;
    for (const std::string& name : options.streams)
        good = compareCost(options, name) <= options.ratio && good;
    std::cout << (good ? "within" : "NOT within") << " the limit: ratio " << options.ratio << '\n';
    return options.assertLimits && !good ? 1 : 0;
}

} // namespace bench
