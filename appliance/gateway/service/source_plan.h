// Which sources are the gateway's, and what their sections lack. Pure: no files.
#pragma once

#include "appliance/gateway/cameras/camera.h"

#include <libcommon/istring.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

// A section [Encoder.NAME] of the parameter file.
struct SourceSection {
    std::string name;                    // NAME as the section has it
    std::map<istring, std::string> keys; // the last value of a repeated key
};

struct ParameterWrite {
    std::string name; // "Encoder.Yard.Address"
    std::string value;
};

struct PlannedSource {
    int index = 0; // of the source, in file order
    CameraSettings camera;
};

// By the text of a URL: whether Motion JPEG comes over HTTP, and not something that is played over RTSP.
using LearnedKinds = std::map<std::string, bool>;

struct SourcePlan {
    std::vector<PlannedSource> sources;  // the gateway's
    std::vector<ParameterWrite> missing; // to be written, in this order
    int highestNumber = 0;               // that was ever given, those of this plan included
    int port = 0;                        // "Gateway.Port" of this version of the file; 0: not set
};

// All sections of sources in a parameter file's text, in the order of their indices.
std::vector<SourceSection> sectionsIn(std::string_view text);

// A source is the gateway's when its section has a URL. `highestNumber`: given so far; `port`: the gateway's own.
// A number that is missing, or that an earlier section has, is replaced by a new one. A user name and a password in the
// URL become values of their own, so that no program that shows the URL shows them.
// With `smallScreen`, sources with the quality "auto" and a sub stream play that one.
// `learned`: what web servers were found to send.
SourcePlan planSources(const std::vector<SourceSection>& sections, int highestNumber, int port,
                       bool smallScreen = false, const LearnedKinds& learned = {});

} // namespace gateway
