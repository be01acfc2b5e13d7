#include "detect/probe_session.h"

#include "detect/decimal.h"
#include "detect/probe_connection.h"
#include "detect/probe_wait.h"
#include "recorder/recorded.h"

namespace detect {

bool RtspSession::setup(const std::string& transportLine) {
    RtspAnswer answer = askRtsp(connection_, entry_, RTSP_SETUP, transportLine, mode_);
    if (!answer.ok || recorded::isInterrupted())
        return false;
    advanceCSeq();
    // kept: a session that is not a number becomes 0, also in the later requests
    sessionLine_ = "Session: " + std::to_string(decimal(answer.header.headers["Session"].c_str()));
    transport_ = parseTransport(answer.header.headers["Transport"]);
    return true;
}

bool RtspSession::play() {
    const RtspAnswer answer = askRtsp(connection_, entry_, RTSP_PLAY, sessionLine_, mode_);
    if (!answer.ok || recorded::isInterrupted())
        return false;
    advanceCSeq();
    return true;
}

bool RtspSession::teardown() {
    if (!sendRtsp(connection_, entry_, RTSP_TEARDOWN, sessionLine_, mode_))
        return false;
    advanceCSeq();
    awaitAnswer(connection_);
    return true;
}

} // namespace detect
