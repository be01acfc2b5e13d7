#include "appliance/players/programs/stream_request.h"

namespace player {
namespace {

constexpr int defaultAnswerMs = 10'000;

} // namespace

streams::HttpSource httpSourceOf(const PlayerOptions& options, const std::string& target) {
    streams::HttpSource source;
    source.host = options.host;
    source.port = options.port;
    source.https = options.https;
    source.user = options.user;
    source.password = options.password;
    source.target = target;
    source.connectMs = options.patienceMs;
    return source;
}

streams::RtspSource rtspSourceOf(const PlayerOptions& options) {
    streams::RtspSource source;
    source.host = options.host;
    source.port = options.port;
    source.path = streams::rtspPath(options.sourceNumber);
    source.transport = options.transport;
    source.tls = options.https;
    source.user = options.user;
    source.password = options.password;
    source.udpPort = options.udpPort;
    source.answerMs = options.patienceMs > 0 ? options.patienceMs : defaultAnswerMs;
    return source;
}

} // namespace player
