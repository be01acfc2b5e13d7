// Measures the monitor where the user sees it: on the pixels of an X server's screen.
//
//   gap     the time from the last picture of the old source to the first of the new one
//   cost    CPU time and memory of the players and the monitor, beside a pipeline that decodes and shows the same stream
//   delay   the time from a picture's arrival at the player to its pixels on the screen
//   wall    frames per second and CPU time of several decoders side by side

#include "bench/monitor/measures.h"
#include "bench/wall_cost.h"

#include <CLI/CLI.hpp>
#include <iostream>

int main(int argc, char** argv) {
    bench::MonitorOptions options;
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
    if (const std::string reason = x_server::XServer::whyNot(); !reason.empty()) {
        std::cout << "skipped: " << reason << '\n';
        return bench::skippedStatus;
    }
    try {
        several.assertLimits = options.assertLimits;
        return gap->parsed()    ? bench::measureGap(options)
               : wall->parsed() ? bench::measureWall(several)
               : cost->parsed() ? bench::measureCost(options)
                                : bench::measureDelay(options);
    } catch (const std::exception& error) {
        std::cerr << "monitor_bench: " << error.what() << '\n';
        return 1;
    }
}
