#include "detect/probe_connection.h"

#include "detect/detection_state.h"
#include "detect/probe_wait.h"
#include "detect/trace.h"
#include "detect/verdict.h"
#include "recorder/recorded.h"

#include <utility>

namespace detect {
namespace {

// Process-wide state: the sequence number of the next RTSP request; it is not reset between detections.
int cseq = 0;

RtspRequest makeRequest(const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
                        ConnectMode mode) {
    return {method, cseq, mediaPath(entry.sourceNumber), extraLine, entry.userName, entry.password, mode};
}

bool writeRequest(int connection, const RtspRequest& request) {
    const std::string text = buildRequest(request);
    return recorded::writeFD(connection, text.data(), text.size()) == 1;
}

void skipDescription(int connection, const ResponseHeader& header) {
    TraceStep step("body of the DESCRIBE");
    step.answered(std::to_string(skipBody(connection, header)) + " bytes skipped");
}

} // namespace

RtspAddress rtspAddress(const SourceEntry& entry) {
    RtspAddress address;
    splitAddress(entry.address, address.host, address.port);
    return address;
}

Descriptor connectRtsp(const SourceEntry& entry) {
    const RtspAddress address = rtspAddress(entry);
    TraceStep step("RTSP connection to port " + std::to_string(address.port));
    Descriptor connection(recorded::connectTCP(address.host, address.port, true, state.timeoutSeconds));
    step.answered(connection.isOpen() ? "connected" : "no connection");
    return connection;
}

void advanceCSeq() {
    ++cseq;
}

RtspAnswer askRtsp(int connection, const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
                   ConnectMode mode) {
    const RtspRequest request = makeRequest(entry, method, extraLine, mode);
    TraceStep step(requestName(request));
    RtspAnswer answer;
    answer.sent = writeRequest(connection, request);
    if (!answer.sent) {
        step.answered("could not be sent");
        return answer;
    }
    if (recorded::parseResponseHeader(connection, answer.header) != 0) {
        step.answered("no answer that can be read");
        return answer;
    }
    answer.ok = answer.header.statusCode == 200;
    std::string text = std::to_string(answer.header.statusCode) + " " + quoted(answer.header.reason);
    if (const auto transport = answer.header.headers.find("Transport");
        transport != answer.header.headers.end())
        text += ", Transport: " + quoted(transport->second);
    step.answered(text);
    return answer;
}

bool sendRtsp(int connection, const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
              ConnectMode mode) {
    const RtspRequest request = makeRequest(entry, method, extraLine, mode);
    TraceStep step(requestName(request));
    const bool sent = writeRequest(connection, request);
    step.answered(sent ? "sent" : "could not be sent");
    return sent;
}

Descriptor describeOverTcp(const SourceEntry& entry, ConnectMode& mode) {
    Descriptor connection = connectRtsp(entry);
    if (recorded::isInterrupted() || !connection.isOpen())
        return Descriptor();
    mode = CONNECT_HTTP;
    RtspAnswer answer = askRtsp(connection.get(), entry, RTSP_DESCRIBE, "", mode);
    if (!answer.sent)
        return Descriptor();
    if (!answer.ok) {
        // kept: with the same sequence number, and after any refusal
        mode = CONNECT_HTTP_AUTH;
        answer = askRtsp(connection.get(), entry, RTSP_DESCRIBE, "", mode);
    }
    if (!answer.ok)
        return Descriptor();
    skipDescription(connection.get(), answer.header);
    advanceCSeq();
    return recorded::isInterrupted()
               ? Descriptor()
               : std::move(connection); // the body may be incomplete after an interruption
}

void acceptRtsp(SourceEntry& entry, int statusId, StreamType type, ConnectMode mode,
                const std::string& reason) {
    acceptSource(entry, statusId, type, mode, reason);
    publishAudio(statusId, false, 0);
    const RtspAddress address = rtspAddress(entry);
    entry.rtspHost = address.host;
    entry.rtspPort = address.port;
}

} // namespace detect
