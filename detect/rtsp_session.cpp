#include "detect/rtsp_session.h"

#include "detect/decimal.h"
#include "detect/network_wait.h"
#include "detect/rtsp_connection.h"

#include <libcommon/interrupt.h>

namespace detect {

bool RtspSession::setup(const std::string& transportLine) {
    RtspAnswer answer = askRtsp(connection_, entry_, RTSP_SETUP, transportLine, mode_);
    if (!answer.ok || isInterrupted())
        return false;
    advanceCSeq();
    // A session that is no number counts as 0, and is named so from then on.
    sessionLine_ = "Session: " + std::to_string(decimal(answer.header.headers["Session"].c_str()));
    transport_ = parseTransport(answer.header.headers["Transport"]);
    return true;
}

bool RtspSession::play() {
    const RtspAnswer answer = askRtsp(connection_, entry_, RTSP_PLAY, sessionLine_, mode_);
    if (!answer.ok || isInterrupted())
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
