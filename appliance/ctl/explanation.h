// Why a source is played as it is: the trace of its last detection, made readable.
//
// The detection publishes the trace as the source's status value "DetectionTrace", one line a step:
//   detection of 127.0.0.1:8081, source 1, configured type auto, timeout 10 s
//   0.0 4.1 GET /path -> 23 bytes "..."      milliseconds since the beginning, milliseconds it took
//   = API version 1: the reason
//   end 41.7 accepted: ...
// A line that is none of these is shown as it is.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

struct TraceLine {
    enum class Kind { Heading, Request, Decision, End, Other };
    Kind kind = Kind::Other;
    double begin = 0; // milliseconds since the detection began: Request, End
    double took = 0;  // milliseconds: Request
    std::string text; // what was asked, decided, or came of it
    std::string answer;
};

std::vector<TraceLine> readTrace(const std::string& trace);

// A ladder: when, what was asked, below it what came back after how long, and what was decided.
std::string explanationText(const std::vector<TraceLine>& lines);
nlohmann::json explanationJson(const std::vector<TraceLine>& lines);
