// The parameter sets of an H.264 or H.265 stream.
//
// Many cameras send them once, or only in the description, and a player that joins later never decodes. They are
// collected here from both, and repeated before each key picture that comes without them. For one thread.
#pragma once

#include "appliance/streams/rtp/payload_kind.h"

#include <string>
#include <string_view>
#include <vector>

namespace streams {

class ParameterSets {
public:
    // `fmtp` of the description may have sets ("sprop-parameter-sets", "sprop-vps", ...).
    ParameterSets(Encoding encoding, std::string_view fmtp);

    // Takes the sets of a payload. A sequence set that differs from the present one replaces all sets after it.
    void learn(std::string_view payload);

    // Each with its NAL header, in the order of their use; may be empty.
    const std::vector<std::string>& all() const { return sets_; }

private:
    void add(std::string_view set);

    Encoding encoding_;
    std::vector<std::string> sets_; // ordered by rank: video, sequence, picture
};

// The bytes of base64 text, as far as it is valid.
std::string fromBase64(std::string_view text);

} // namespace streams
