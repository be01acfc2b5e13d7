// gateway_bench: what handing a stream on costs, beside `ffmpeg -c copy` doing the same in the same run.
//
//   gateway_bench [--streams N] [--seconds S] [--bitrate KBIT] [--assert]
//
// A camera sends one H.264 stream, recorded by ffmpeg. First N ffmpeg processes read it with -c copy; then the
// gateway hands it on N times, as N cameras, to one reader each. It prints the processor time of a stream for both, their
// ratio, and the delay that the gateway adds: the time between a picture's last packet arriving directly and through it.
#include "appliance/streams/http_stream.h"
#include "bench/looping_camera.h"
#include "bench/process_cost.h"
#include "bench/recording.h"
#include "bench/samples.h"
#include "bench/stream_readers.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <chrono>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;

struct Settings {
    int streams = 16;
    double seconds = 10;
    int bitrate = 4000;
    bool check = false;
};

struct GatewayResult {
    double cost = 0;
    double median = 0; // milliseconds
    double worst = 0;
    std::size_t pictures = 0;
    int served = 0; // readers that got packets
};

GatewayResult measureGateway(const Settings& settings, const bench::LoopingCamera& camera,
                             Appliance& decoder) {
    for (int i = 0; i < settings.streams; ++i)
        decoder.addSource("Camera " + std::to_string(i + 1), {{"URL", camera.url()}, {"Transport", "tcp"}});
    CameraGateway gateway(decoder);
    bench::Arrivals direct;
    bench::Arrivals handedOn;
    const bench::StreamReader reference(camera.port(), "/live", &direct);
    std::vector<std::unique_ptr<bench::StreamReader>> readers;
    for (int i = 0; i < settings.streams; ++i)
        readers.push_back(std::make_unique<bench::StreamReader>(
            gateway.port(), "/mpeg4/" + std::to_string(i + 1) + "/media.orv", i == 0 ? &handedOn : nullptr));
    bench::settle(5);
    const double before = bench::processorMsOf({gateway.process().pid()}) / 1000;
    const auto begin = std::chrono::steady_clock::now();
    bench::settle(settings.seconds);
    GatewayResult result;
    result.cost = (bench::processorMsOf({gateway.process().pid()}) / 1000 - before) / settings.streams /
                  settings.seconds;
    const bench::Distribution delays = bench::delaysBetween(direct, handedOn, begin);
    result.pictures = delays.count();
    result.median = delays.median();
    result.worst = delays.worst();
    for (const auto& reader : readers)
        result.served += reader->packets() > 0 ? 1 : 0;
    return result;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"What the gateway's handing on costs, beside ffmpeg -c copy.", "gateway_bench"};
    Settings settings;
    app.add_option("--streams", settings.streams, "number of streams")->check(CLI::Range(1, 64));
    app.add_option("--seconds", settings.seconds, "duration of each measurement")
        ->check(CLI::Range(1.0, 600.0));
    app.add_option("--bitrate", settings.bitrate, "kilobits per second of a stream")
        ->check(CLI::Range(100, 50000));
    app.add_flag("--assert", settings.check, "exit with 1 when a goal is missed");
    CLI11_PARSE(app, argc, argv);
    if (access("/usr/bin/ffmpeg", X_OK) != 0) {
        std::puts("skipped: ffmpeg is not installed");
        return 77;
    }
    Appliance decoder; // first: it isolates this process
    streams::startHttp();
    const std::string stream = bench::recordedStream(settings.bitrate, decoder.root());
    if (stream.empty()) {
        std::puts("skipped: ffmpeg records no H.264 stream here");
        return 77;
    }
    const bench::LoopingCamera camera(stream);
    const double copy = bench::costOfCopies(settings.streams, settings.seconds, camera,
                                            {"-f", "rtp_mpegts", "rtp://127.0.0.1:9"}, decoder.root());
    const GatewayResult ours = measureGateway(settings, camera, decoder);
    const double ratio = copy > 0 ? ours.cost / copy : 0;
    bench::tellSample("handed-cpu", "ours", 100 * ours.cost);
    bench::tellSample("handed-cpu", "ffmpeg", 100 * copy);
    bench::tellSample("handed-delay", "ours", ours.median);
    std::printf("%d streams of %d kbit/s, %g s each\n", settings.streams, settings.bitrate, settings.seconds);
    std::printf(
        "processor time of a stream: gateway %.2f %%, ffmpeg -c copy %.2f %%, ratio %.2f (goal: at most 1)\n",
        100 * ours.cost, 100 * copy, ratio);
    std::printf("added delay of %zu pictures: median %.2f ms, worst %.2f ms (goal: median at most 5)\n",
                ours.pictures, ours.median, ours.worst);
    std::printf("streams served: %d\n", ours.served);
    const bool good = ratio <= 1 && ours.median <= 5 && ours.served == settings.streams && ours.pictures > 0;
    return settings.check && !good ? 1 : 0;
}
