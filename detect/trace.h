// What one detection asked and why it decided as it did, for the people who ask "why this kind of stream?".
//
// One text, published as the status value "DetectionTrace" when the detection is over, interrupted or not. It
// is made of lines, each ended by a newline; the first word tells what a line is:
//
//   detection of 10.0.0.9:8080, source 1, configured type auto, timeout 10 s
//   0.0 4.1 GET /vexo-cgi/view/param.cgi?action=list&group=Brand.ProdFullName -> 23 bytes "Brand.Prod..." via
//   http = API version 1: the encoder does not know the parameter end 41.7 accepted: kind 1 (mjpeg), connect
//   mode 1 (http), 10.0.0.9 port 8080
//
// a number    a request: milliseconds since the detection began, milliseconds that it took, what was asked, "
// -> ",
//             what came back. What an encoder sent stands in double quotes, escaped, cut at 64 bytes.
// "="         a decision, a colon and its reason
// "end"       always the last line: milliseconds that the detection took and its outcome
//
// Credentials never stand in it, not even when an encoder sends them back. At most 8 KiB: what would go
// beyond is left out and said so, but never the outcome. Main thread; one detection at a time.
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

// Forgets the former detection and starts the clock.
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

// Writes the last line and hands the whole text out.
std::string finishTrace(const std::string& outcome);

// Text that an encoder sent, safe to stand in a line.
std::string quoted(std::string_view text);

// A result of the downloads: "refused: 404".
std::string downloadResultText(int result);

} // namespace detect
