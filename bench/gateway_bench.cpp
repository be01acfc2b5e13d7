// gateway_bench: what handing a stream on costs, beside `ffmpeg -c copy` doing the same in the same run.
//
//   gateway_bench [--streams N] [--seconds S] [--bitrate KBIT] [--assert]
//
// A camera sends one H.264 stream, recorded by ffmpeg. First N ffmpeg processes read it with -c copy; then the
// gateway hands it on N times, as N cameras, to one reader each. It prints the processor time of a stream for both, their
// ratio, and the delay that the gateway adds: the time between a picture's last packet arriving directly and through it.
#include "appliance/streams/http_stream.h"
#include "appliance/streams/rtsp_stream.h"
#include "appliance/streams/stream_description.h"
#include "bench/looping_camera.h"
#include "bench/process_cost.h"
#include "bench/recording.h"
#include "bench/samples.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <algorithm>
#include <atomic>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Process;
using Clock = std::chrono::steady_clock;

struct Settings {
    int streams = 16;
    double seconds = 10;
    int bitrate = 4000;
    bool check = false;
};

// Seconds of processor time that a process has used.
double processorTime(pid_t pid) {
    return bench::processorMsOf({pid}) / 1000;
}

// When the last packet of each picture arrived, by its timestamp, which the gateway does not change.
class Arrivals {
public:
    void add(std::string_view packet) {
        constexpr std::size_t header = 12;
        if (packet.size() < header || (static_cast<unsigned char>(packet[1]) & 0x80) == 0)
            return;
        const std::lock_guard guard(lock_);
        times_.emplace(packet.substr(4, 4), Clock::now());
    }
    std::map<std::string, Clock::time_point> take() {
        const std::lock_guard guard(lock_);
        return times_;
    }

private:
    std::mutex lock_;
    std::map<std::string, Clock::time_point> times_;
};

// Reads a stream on a thread until the program ends.
class Reader {
public:
    Reader(int port, const std::string& path, Arrivals* arrivals) {
        auto* stream = new streams::RtspStream(
            {.host = "127.0.0.1",
             .port = static_cast<std::uint16_t>(port),
             .path = path,
             .transport = streams::RtspTransport::tcp,
             .user = "",
             .password = ""},
            {.usesVideo = [](const std::string&) { return true; },
             .usesSound = [](const std::string&) { return false; },
             .beginVideo = [](const streams::DescribedStream&, bool) { return std::string(); },
             .beginSound = [](const streams::DescribedStream&) {},
             .noSound = [](const std::string&) {},
             .video =
                 [this, arrivals](std::string_view packet) {
                     ++packets_;
                     if (arrivals != nullptr)
                         arrivals->add(packet);
                     return true;
                 },
             .sound = [](std::string_view) {}});
        stream_ = stream; // never destroyed: its thread uses it
        thread_ = std::thread([stream] { stream->run(); });
    }
    ~Reader() {
        stream_->end();
        thread_.join();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    long packets() const { return packets_; }

private:
    streams::RtspStream* stream_;
    std::thread thread_;
    std::atomic<long> packets_ = 0;
};

void settle(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// Processor seconds for one stream and one second.
double costOfCopy(const Settings& settings, const bench::LoopingCamera& camera, const std::string& log) {
    std::vector<std::unique_ptr<Process>> copies;
    for (int i = 0; i < settings.streams; ++i)
        copies.push_back(std::make_unique<Process>(
            std::vector<std::string>{"/usr/bin/ffmpeg", "-loglevel", "error", "-nostdin", "-rtsp_transport",
                                     "tcp", "-i", camera.url(), "-c", "copy", "-f", "rtp_mpegts",
                                     "rtp://127.0.0.1:9"},
            std::map<std::string, std::string>{}, log));
    settle(8); // ffmpeg looks at a stream for some seconds before it copies
    double before = 0;
    double after = 0;
    for (const auto& copy : copies)
        before += processorTime(copy->pid());
    settle(settings.seconds);
    for (const auto& copy : copies)
        after += copy->running() ? processorTime(copy->pid()) : 1e9;
    return (after - before) / settings.streams / settings.seconds;
}

struct GatewayResult {
    double cost = 0;
    double median = 0; // milliseconds
    double worst = 0;
    std::size_t pictures = 0;
    int served = 0;       // readers that got packets
    double megabytes = 0; // of private memory for a stream
};

GatewayResult measureGateway(const Settings& settings, const bench::LoopingCamera& camera,
                             Appliance& decoder) {
    for (int i = 0; i < settings.streams; ++i)
        decoder.addSource("Camera " + std::to_string(i + 1), {{"URL", camera.url()}, {"Transport", "tcp"}});
    CameraGateway gateway(decoder);
    const double empty = bench::privateMegabytesOf({gateway.process().pid()});
    Arrivals direct;
    Arrivals handedOn;
    const Reader reference(camera.port(), "/live", &direct);
    std::vector<std::unique_ptr<Reader>> readers;
    for (int i = 0; i < settings.streams; ++i)
        readers.push_back(std::make_unique<Reader>(
            gateway.port(), "/mpeg4/" + std::to_string(i + 1) + "/media.orv", i == 0 ? &handedOn : nullptr));
    settle(5);
    const double before = processorTime(gateway.process().pid());
    const double loaded = bench::privateMegabytesOf({gateway.process().pid()});
    const Clock::time_point begin = Clock::now();
    settle(settings.seconds);
    GatewayResult result;
    result.cost = (processorTime(gateway.process().pid()) - before) / settings.streams / settings.seconds;
    result.megabytes = (loaded - empty) / settings.streams;
    std::vector<double> delays;
    const auto straight = direct.take();
    for (const auto& [picture, time] : handedOn.take()) {
        const auto found = straight.find(picture);
        if (found != straight.end() && found->second > begin)
            delays.push_back(std::chrono::duration<double, std::milli>(time - found->second).count());
    }
    std::ranges::sort(delays);
    result.pictures = delays.size();
    if (!delays.empty()) {
        result.median = delays[delays.size() / 2];
        result.worst = delays.back();
    }
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
    if (!streams::startDescriptions())
        return 1;
    const std::string stream = bench::recordedStream(settings.bitrate, decoder.root());
    if (stream.empty()) {
        std::puts("skipped: ffmpeg records no H.264 stream here");
        return 77;
    }
    const bench::LoopingCamera camera(stream);
    const double copy = costOfCopy(settings, camera, decoder.root() + "/var/log/ffmpeg.log");
    const GatewayResult ours = measureGateway(settings, camera, decoder);
    const double ratio = copy > 0 ? ours.cost / copy : 0;
    bench::tellSample("keeper-cpu", "ours", 100 * ours.cost);
    bench::tellSample("keeper-cpu", "ffmpeg", 100 * copy);
    bench::tellSample("keeper-memory", "ours", ours.megabytes);
    bench::tellSample("keeper-memory", "pictures", settings.bitrate / 8.0 / 1024); // of one second
    bench::tellSample("keeper-delay", "ours", ours.median);
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
