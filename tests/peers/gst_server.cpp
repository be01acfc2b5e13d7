// GStreamer's RTSP server as a program: gst_server [--basic|--digest] [--tcp] ADDRESS PORT PATH[,PATH...] PIPELINE. It
// prints "ready" when it listens, and runs until it is ended. --basic and --digest ask for viewer/s3cret; --tcp offers RTP
// on the RTSP connection only.
#include "tests/peers/stock_rtsp_server.h"

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv) {
    peers::StockRtspOptions options;
    std::vector<std::string> words;
    for (const std::string& word : std::vector<std::string>(argv + 1, argv + argc)) {
        options.basic |= word == "--basic";
        options.digest |= word == "--digest";
        options.overTcp |= word == "--tcp";
        if (!word.starts_with("--"))
            words.push_back(word);
    }
    if (words.size() != 4) {
        std::fputs("usage: gst_server [--basic|--digest] [--tcp] ADDRESS PORT PATH[,PATH...] PIPELINE\n",
                   stderr);
        return 2;
    }
    options.address = words[0];
    options.port = words[1];
    options.path = words[2];
    options.pipeline = words[3];
    const peers::StockRtspServer server(options);
    if (server.port() == 0) {
        std::fprintf(stderr, "port %s of %s can't be used\n", words[1].c_str(), words[0].c_str());
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        pause();
}
