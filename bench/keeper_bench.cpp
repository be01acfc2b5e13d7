// keeper_bench: what it costs to keep sources warm, beside `ffmpeg -c copy` reading the same in the same run.
//
// A camera sends one H.264 stream, recorded by ffmpeg, which the keeper keeps as N sources. Figures are lines
// "sample ROW SIDE VALUE": keeper-cpu in percent of a core for a source, keeper-memory in MB for a source beside the bytes
// of its group of pictures, keeper-delay in milliseconds: between a picture's last packet arriving directly and through the
// keeper.
#include "appliance/streams/http_stream.h"
#include "appliance/streams/kept_status.h"
#include "appliance/streams/kept_stream.h"
#include "appliance/streams/stream_address.h"
#include "bench/process_cost.h"
#include "bench/recording.h"
#include "bench/samples.h"
#include "bench/stream_readers.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <libcommon/paths.h>
#include <libcommon/status.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;

constexpr int skipped = 77;

struct Settings {
    int streams = 8;
    double seconds = 8;
    int bitrate = 4000;
};

// Each source is another input of the camera, which does not look at the path. What a detection would have found is
// written as its result.
void addSources(Appliance& decoder, const Settings& settings, const bench::LoopingCamera& camera) {
    decoder.set("Warm.Sources", "all");
    decoder.set("Warm.MaxSources", std::to_string(settings.streams));
    decoder.set("Warm.MaxMemory", "256");
    const std::string port = std::to_string(camera.port());
    for (int i = 0; i < settings.streams; ++i)
        decoder.addSource("Camera " + std::to_string(i + 1), {{"Address", "127.0.0.1:" + port},
                                                              {"VideoSourceNumber", std::to_string(i + 1)},
                                                              {"VideoSourceType", "rtsp-tcp"}});
    for (int i = 0; i < settings.streams; ++i) {
        status(i, "ErrorCode", 0);
        status(i, "VideoSourceType", "rtsp-tcp");
        status(i, "ConnectMode", "http");
        status(
            i, "DetectionTrace",
            ("0 0 accepted: kind 6 (rtsp-tcp), connect mode 1 (http), \"127.0.0.1\" port " + port).c_str());
    }
}

// What the keeper keeps, when all sources are kept; empty when that takes too long.
std::vector<streams::KeptReport> awaitKept(std::size_t wanted) {
    std::vector<streams::KeptReport> reports;
    appliance::eventually([&] {
        reports = streams::askKeeper(2000).value_or(std::vector<streams::KeptReport>());
        std::erase_if(reports, [](const streams::KeptReport& one) { return !one.kept; });
        return reports.size() == wanted;
    });
    return reports.size() == wanted ? reports : std::vector<streams::KeptReport>();
}

// A player of the first source, on a thread of its own.
class Player {
public:
    Player(std::uint16_t port, bench::Arrivals& arrivals) {
        streams::RtspSource source;
        source.host = "127.0.0.1";
        source.port = port;
        source.path = "/mpeg4/1/media.orv";
        source.transport = streams::RtspTransport::tcp;
        kept_ = streams::KeptStream::open(addressOf(source), 2000);
        if (kept_ != nullptr)
            thread_ = std::thread([this, &arrivals] {
                kept_->run({.video =
                                [&arrivals](std::string_view packet) {
                                    arrivals.add(packet);
                                    return true;
                                },
                            .sound = [](std::string_view) {},
                            .bytes = [](std::string_view) { return true; },
                            .picture = [](std::string_view) {},
                            .live = [] {}});
            });
    }
    ~Player() {
        if (kept_ != nullptr)
            kept_->end();
        if (thread_.joinable())
            thread_.join();
    }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

private:
    std::unique_ptr<streams::KeptStream> kept_;
    std::thread thread_;
};

int measure(const Settings& settings, Appliance& decoder, const bench::LoopingCamera& camera) {
    CameraGateway keeper(decoder);
    const pid_t pid = keeper.process().pid();
    const double empty = bench::privateMegabytesOf({pid});
    const auto reports = awaitKept(static_cast<std::size_t>(settings.streams));
    if (reports.empty()) {
        std::fprintf(stderr, "%s\nkeeper_bench: the sources are not kept\n", keeper.log().c_str());
        return 1;
    }
    bench::settle(3); // whole groups of pictures
    const double before = bench::processorMsOf({pid});
    bench::settle(settings.seconds);
    const double cost = (bench::processorMsOf({pid}) - before) / 10 / settings.seconds / settings.streams;
    bench::tellSample("keeper-cpu", "ours", cost);
    bench::tellSample("keeper-memory", "ours", (bench::privateMegabytesOf({pid}) - empty) / settings.streams);
    bench::tellSample("keeper-memory", "pictures", settings.bitrate / 8.0 / 1024); // of one second
    bench::Arrivals direct;
    bench::Arrivals kept;
    {
        const bench::StreamReader reference(camera.port(), "/live", &direct);
        const Player player(camera.port(), kept);
        bench::settle(1);
        const auto begin = std::chrono::steady_clock::now();
        bench::settle(settings.seconds);
        const bench::Distribution delays = bench::delaysBetween(direct, kept, begin);
        for (const double delay : delays.samples())
            bench::tellSample("keeper-delay", "ours", delay);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Measures what it costs to keep sources warm."};
    Settings settings;
    app.add_option("--streams", settings.streams, "number of sources")->check(CLI::Range(1, 64));
    app.add_option("--seconds", settings.seconds, "duration of each measurement")
        ->check(CLI::Range(1.0, 600.0));
    app.add_option("--bitrate", settings.bitrate, "kilobits per second of a source")
        ->check(CLI::Range(100, 50000));
    CLI11_PARSE(app, argc, argv);
    if (access("/usr/bin/ffmpeg", X_OK) != 0) {
        std::puts("skipped: ffmpeg is not installed");
        return skipped;
    }
    try {
        Appliance decoder; // first: it isolates this process
        setenv("APPLIANCE_ROOT", decoder.root().c_str(), 1);
        setenv("LIBCOMMON_LOG", "stderr", 1);
        const std::string stream = bench::recordedStream(settings.bitrate, decoder.root());
        if (stream.empty()) {
            std::puts("skipped: ffmpeg records no H.264 stream here");
            return skipped;
        }
        const bench::LoopingCamera camera(stream);
        addSources(decoder, settings, camera);
        bench::tellSample("keeper-cpu", "ffmpeg",
                          100 * bench::costOfCopies(settings.streams, settings.seconds, camera,
                                                    {"-f", "null", "-"}, decoder.root()));
        return measure(settings, decoder, camera);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "keeper_bench: %s\n", error.what());
        return 1;
    }
}
