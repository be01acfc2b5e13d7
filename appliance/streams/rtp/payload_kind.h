// What an RTP payload carries, as far as handing it on depends on it: where key pictures begin, and parameter sets.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace streams {

enum class Encoding { h264, h265, mpeg4, jpeg, mpeg2, other };

// Of the encoding name in a stream's description ("H264").
Encoding encodingOf(const std::string& name);

struct PayloadKind {
    bool keyPicture = false;   // a key picture, or the parameter sets before one, begins in this packet
    bool parameterSet = false; // it has whole parameter sets, and they can be taken with parameterSetsIn()
    bool picture = false;      // it has a part of a picture
    // More about H.264 and H.265:
    bool prefix = false; // it has no part of a picture and belongs to the next one: sets, SEI, delimiters
    bool recoveryPoint = false; // decoding can begin with the next picture, which needs no key picture
    bool whole = false;         // an IDR or random access picture begins in it
    bool intra = false;         // a picture or slice begins in it that refers to no other one
};

// `other` counts every packet as a part of a picture and none as a key picture.
PayloadKind kindOf(Encoding encoding, std::string_view payload);

// Calls `take` for each whole parameter set (H.264 and H.265: a NAL unit without a start code) in a payload.
void parameterSetsIn(Encoding encoding, std::string_view payload,
                     const std::function<void(std::string_view set)>& take);

// Whether key pictures can be recognised, so that packets can be kept from one on.
bool knowsKeyPictures(Encoding encoding);

} // namespace streams
