// The trace of a detection: which requests were made, what was decided, and why. It answers "why this kind of stream?".
//
// The trace is one text, published as the status value "DetectionTrace" when the detection is over, interrupted or not.
// Each line ends with a newline, and its first word says what it is:
//
//   detection of 10.0.0.9:8080, source 1, configured type auto, timeout 10 s
//   0.0 4.1 GET /vexo-cgi/mjpg/video.cgi -> 1 bytes via http
//   = API version 1: too old to be asked for inputs, rotation and image formats
//   end 41.7 accepted: kind 1 (mjpeg), connect mode 1 (http), "10.0.0.9" port 8080
//
//   a number   a request: milliseconds since the detection began, milliseconds that it took, what was asked, " -> ",
//              the answer. Text from an encoder is in double quotes, escaped and cut at 64 bytes.
//   "="        a decision, a colon and its reason
//   "end"      always the last line: milliseconds that the detection took, and its outcome
//
// Credentials are never part of the trace, not even when an encoder sends them back. The trace has at most 8 KiB: a
// line says that the rest is left out, and the outcome follows in any case. Main thread; one detection at a time.
#pragma once

#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace detect {

inline constexpr const char* traceKey = "DetectionTrace";
inline constexpr std::size_t traceLimit = 8192; // bytes

// Forgets the previous detection and starts the clock.
void beginTrace(const SourceEntry& entry);

// One request: its clock starts with the object, its line is written by answered().
class TraceStep {
public:
    explicit TraceStep(std::string request);
    void answered(const std::string& result);

private:
    std::string request_;
    std::int64_t began_; // gettimeusec()
};

// A decision with its reason: "error 20: no kind of stream was found".
void traceDecision(const std::string& text);

// Writes the last line and returns the whole text.
std::string finishTrace(const std::string& outcome);

// Text from an encoder, escaped so that it fits into a line.
std::string quoted(std::string_view text);

// A result of the downloads: "refused: 404".
std::string downloadResultText(int result);

} // namespace detect
