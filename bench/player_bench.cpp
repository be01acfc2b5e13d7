// player_bench: what a player costs, and how soon it asks for its stream.
//
//   cpu   percent of a core that a player uses, beside gst-launch, which decodes the same stream and hands the pictures on
//         through shared memory, too
//   play  milliseconds from the start of a player to its PLAY request
//   first milliseconds from the start of a player to its first picture, confined and with all rights, in turn
//
// Figures are lines "sample ROW SIDE VALUE".
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"
#include "bench/looping_camera.h"
#include "bench/process_cost.h"
#include "bench/recording.h"
#include "bench/samples.h"
#include "bench/screen/streams.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/isolation.h"
#include "tests/support/programs.h"

#include <libcommon/clock.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <optional>
#include <random>

namespace {

using appliance::Appliance;
using appliance::Process;

constexpr int skipped = 77;

struct Options {
    std::string kind = "rtsp-unicast";
    std::string codec = "h264";
    int width = 720;
    int height = 576;
    int rounds = 3;
    int seconds = 5;
};

double cpuOf(pid_t pid, int seconds) {
    const double before = bench::processorMsOf({pid});
    const std::int64_t begin = gettimeusec();
    appliance::pause(std::chrono::seconds(seconds));
    return 100'000 * (bench::processorMsOf({pid}) - before) / static_cast<double>(gettimeusec() - begin);
}

double cpuOfPipeline(const Options& options, const std::string& host, const std::string& folder) {
    const std::string socket = folder + "/run/pictures";
    std::vector<std::string> command{findProgram("gst-launch-1.0"), "-q"};
    for (const std::string& word : bench::wordsOf(bench::pipelineOf(options.kind, options.codec, host) +
                                                  " ! shmsink wait-for-connection=false sync=false "
                                                  "shm-size=33554432"))
        command.push_back(word);
    command.push_back("socket-path=" + socket);
    const Process pipeline(command, {}, folder + "/var/log/pipeline.log");
    appliance::pause(std::chrono::seconds(2));
    const double cpu = cpuOf(pipeline.pid(), options.seconds);
    std::filesystem::remove(socket);
    return cpu;
}

int measureCpu(const Options& options) {
    Appliance decoder; // first: it isolates this process
    if (!appliance::isolate()) {
        std::cout << "skipped: this user may not make a network namespace\n";
        return skipped;
    }
    const std::string host = decoder
                                 .addHost("Front door", {"--kinds", options.kind, "--codec", options.codec,
                                                         "--width", std::to_string(options.width), "--height",
                                                         std::to_string(options.height), "--gop", "25"})
                                 .address();
    decoder.setManual();
    decoder.start();
    const bool hasPeer = !bench::pipelineOf(options.kind, options.codec, host).empty() &&
                         !findProgram("gst-launch-1.0").empty();
    if (!hasPeer)
        bench::tellMissing("cpu", "gst-launch", "no pipeline of gst-launch-1.0 plays it");
    for (int round = 0; round < options.rounds; ++round) {
        if (!decoder.showsMoving(0)) {
            std::cerr << "player_bench: the player shows nothing\n";
            return 1;
        }
        appliance::pause(std::chrono::seconds(1));
        bench::tellSample("cpu", "ours", cpuOf(decoder.playerPid(), options.seconds));
        if (!hasPeer)
            continue;
        decoder.ctl({"disconnect"});
        bench::tellSample("cpu", "gst-launch", cpuOfPipeline(options, host, decoder.root()));
        decoder.ctl({"connect"});
    }
    return 0;
}

int measurePlay(const Options& options) {
    player::FakeSupervisor supervisor;
    const std::string stream = bench::recordedStream(1000, player::FakeSupervisor::root());
    if (stream.empty()) {
        std::cout << "skipped: ffmpeg records no H.264 stream here\n";
        return skipped;
    }
    const bench::LoopingCamera camera(stream);
    for (int round = 0; round < options.rounds; ++round) {
        const std::int64_t began = gettimeusec();
        const pid_t pid = supervisor.start(Appliance::program("mpeg4player"),
                                           {"-m", "pal", "-o", "tv", "-n", "0", "-r", "10000", "-P",
                                            std::to_string(camera.port()), "-c", "1", "-M", "rtsp-tcp", "-H",
                                            "http", "127.0.0.1"});
        const bool played =
            appliance::eventually([&] { return camera.playedAt() > began; }, appliance::Seconds(20));
        if (played)
            bench::tellSample("play", "ours", static_cast<double>(camera.playedAt() - began) / 1000);
        kill(pid, SIGINT);
        supervisor.end(pid);
        if (!played) {
            std::cerr << "player_bench: the player does not ask for its stream\n"
                      << player::FakeSupervisor::log();
            return 1;
        }
    }
    return 0;
}

// From the start to the announcement of the first picture.
std::optional<double> firstPictureMs(player::FakeSupervisor& supervisor, const std::string& program,
                                     const std::vector<std::string>& stream, bool confined) {
    player::FakeSupervisor::setParameters(confined ? "" : "[Player]\nConfined = no\n");
    std::vector<std::string> arguments{"-m", "pal", "-o", "tv", "-n", "0", "-r", "10000"};
    arguments.insert(arguments.end(), stream.begin(), stream.end());
    arguments.emplace_back("127.0.0.1");
    const std::int64_t began = gettimeusec();
    const pid_t pid = supervisor.start(Appliance::program(program), arguments);
    const bool pictured = supervisor.arrived(pid, 0);
    const double ms = static_cast<double>(gettimeusec() - began) / 1000;
    kill(pid, SIGINT);
    supervisor.end(pid);
    return pictured ? std::optional(ms) : std::nullopt;
}

int measureFirst(const Options& options) {
    player::FakeSupervisor supervisor;
    const std::string stream = bench::recordedStream(25, player::FakeSupervisor::root());
    if (stream.empty()) {
        std::cout << "skipped: ffmpeg records no H.264 stream here\n";
        return skipped;
    }
    const std::size_t second = stream.find(std::string("\0\0\1\x41", 4)); // the first that is no key picture
    const bench::LoopingCamera camera(
        std::string_view(stream).substr(0, second)); // so no wait for a key picture
    const scripted::Server encoder(player::pictureStream(0, 100));
    const std::vector<std::string> jpeg{"-P", std::to_string(encoder.port())};
    const std::vector<std::string> h264{
        "-P", std::to_string(camera.port()), "-c", "1", "-M", "rtsp-tcp", "-H", "http"};
    // The camera sends a picture every 40 ms: no start may always be at the same moment between two.
    std::minstd_rand random(1);
    constexpr int pictureTimeMs = 40;
    for (int round = 0; round < 2 * options.rounds; ++round) {
        const bool confined = round % 2 == 0;
        for (const bool isJpeg : {true, false}) {
            appliance::pause(std::chrono::milliseconds(random() % pictureTimeMs));
            const auto ms = firstPictureMs(supervisor, isJpeg ? "mjpeg_player" : "mpeg4player",
                                           isJpeg ? jpeg : h264, confined);
            if (!ms) {
                std::cerr << "player_bench: no picture\n" << player::FakeSupervisor::log();
                return 1;
            }
            bench::tellSample(isJpeg ? "first-mjpeg" : "first-h264", confined ? "ours" : "all-rights", *ms);
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Measures what a player costs and how soon it asks for its stream."};
    app.require_subcommand(1);
    app.fallthrough();
    Options options;
    app.add_option("--kind", options.kind, "cpu: kind of stream")
        ->check(CLI::IsMember(bench::kindsOfStream()));
    app.add_option("--codec", options.codec, "cpu: codec of RTSP")->check(CLI::IsMember({"h264", "mpeg4"}));
    app.add_option("--width", options.width, "cpu: width of the pictures")->check(CLI::Range(160, 1920));
    app.add_option("--height", options.height, "cpu: height of the pictures")->check(CLI::Range(120, 1080));
    app.add_option("--rounds", options.rounds, "measurements of each side")->check(CLI::Range(1, 1000));
    app.add_option("--seconds", options.seconds, "cpu: length of each measurement")
        ->check(CLI::Range(1, 600));
    const CLI::App* cpu = app.add_subcommand("cpu", "processor time of a player");
    const CLI::App* first =
        app.add_subcommand("first", "from the start of a player to its first picture, confined and not");
    app.add_subcommand("play", "from the start of a player of RTSP to its PLAY request");
    CLI11_PARSE(app, argc, argv);
    try {
        if (cpu->parsed())
            return measureCpu(options);
        return first->parsed() ? measureFirst(options) : measurePlay(options);
    } catch (const std::exception& error) {
        std::cerr << "player_bench: " << error.what() << '\n';
        return 1;
    }
}
