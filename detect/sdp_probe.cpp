#include "detect/parameter_query.h"
#include "detect/probes.h"
#include "detect/sdp_description.h"
#include "detect/trace.h"
#include "detect/verdict.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace detect {
namespace {

constexpr int audioFormatMpeg = 1;

// Copies addresses and ports into the entry; false without a video address.
bool useDescription(SourceEntry& entry, int statusId, std::string_view text) {
    const SdpDescription description = parseSdp(text);
    if (description.videoAddress.empty()) {
        traceDecision("not SDP after all: the description names no address for video");
        return false;
    }
    entry.rtspHost = description.videoAddress;
    entry.rtspPort = description.videoPort;
    entry.audioAvailable = description.hasAudio;
    if (description.hasAudio) {
        publishAudio(statusId, true, audioFormatMpeg);
        entry.audioHost = description.audioAddress;
        entry.audioPort = description.audioPort;
    } else {
        publishAudio(statusId, false, 0);
    }
    return true;
}

} // namespace

int sdpProbe(SourceEntry& entry, int statusId) {
    std::array<char, 10240> buffer{};
    Endpoint endpoint;
    const int result = fetch(entry, "/view/sdp/guide.sdp", buffer, &endpoint);
    if (result < 1)
        return isTransportFailure(result) ? PROBE_FAILED : PROBE_NOT_THIS_KIND;
    // The verdict is published before the text is read, and stays when the text has no address: the next probe
    // overwrites it. The connect mode of the description does not matter, because the stream is sent to a group.
    acceptSource(entry, statusId, TYPE_SDP, CONNECT_AUTO, "an SDP description came");
    publishAudio(statusId, false, 0);
    const std::size_t bytes = std::min(buffer.size(), static_cast<std::size_t>(result));
    return useDescription(entry, statusId, {buffer.data(), bytes}) ? PROBE_ACCEPTED : PROBE_NOT_THIS_KIND;
}

} // namespace detect
