// stock_server: an RTSP server that is not ours, to measure with. It is GStreamer's server library with a live test picture
// and a frame mark. It refuses seeks, so that no client gets a key picture out of turn, as with most cameras.
//
// It prints "rtsp=PORT" and runs until SIGINT or SIGTERM. The stream is at /mpeg4/1/media.orv.
#include "appliance/players/testing/test_rtsp_server.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <iostream>
#include <string>

namespace {

constexpr int picturesPerSecond = 25;

struct Options {
    std::string codec = "h264";
    double keyEvery = 1;
    int bitrate = 4000;
    player::RtspServerOptions server;
};

std::string encodingOf(const Options& options) {
    const std::string interval =
        std::to_string(std::max(1L, std::lround(options.keyEvery * picturesPerSecond)));
    const std::string kilobits = std::to_string(options.bitrate);
    if (options.codec == "mpeg4")
        return "avenc_mpeg4 gop-size=" + interval + " bitrate=" + kilobits +
               "000 ! rtpmp4vpay name=pay0 pt=96 config-interval=1";
    return "x264enc tune=zerolatency speed-preset=ultrafast bitrate=" + kilobits +
           " key-int-max=" + interval + " ! rtph264pay name=pay0 pt=96 config-interval=1";
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    options.server.seeks = false;
    CLI::App app{"An RTSP server made of GStreamer's, with a key picture at fixed times only."};
    app.add_option("--codec", options.codec, "h264 or mpeg4")->check(CLI::IsMember({"h264", "mpeg4"}));
    app.add_option("--key-every", options.keyEvery, "seconds from one key picture to the next")
        ->check(CLI::Range(0.04, 10.0));
    app.add_option("--bitrate", options.bitrate, "kilobits per second")->check(CLI::Range(100, 50'000));
    app.add_option("--width", options.server.width, "width of the pictures")->check(CLI::Range(160, 1920));
    app.add_option("--height", options.server.height, "height of the pictures")->check(CLI::Range(120, 1080));
    app.add_option("--mark", options.server.source, "source in the frame mark")->check(CLI::Range(0, 255));
    CLI11_PARSE(app, argc, argv);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // before the server has threads
    options.server.encoding = encodingOf(options);
    const player::TestRtspServer server(options.server);
    std::cout << "rtsp=" << server.port() << std::endl;
    int signal = 0;
    sigwait(&ends, &signal);
    return 0;
}
