// Why a source is played as it is: the trace of its last detection in readable form.
//
// The detection publishes the trace as the source's status value "DetectionTrace", one line for each step:
//   detection of 127.0.0.1:8081, source 1, configured type auto, timeout 10 s
//   0.0 4.1 GET /path -> 23 bytes "..."      milliseconds since the beginning, duration in milliseconds
//   = API version 1: the reason
//   end 41.7 accepted: ...
// Any other line is shown unchanged.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

struct TraceLine {
    enum class Kind { Heading, Request, Decision, End, Other };
    Kind kind = Kind::Other;
    double begin = 0; // milliseconds since the detection began: Request, End
    double took = 0;  // milliseconds: Request
    std::string text; // the request, decision or result
    std::string answer;
};

std::vector<TraceLine> readTrace(const std::string& trace);

// Each request with its time, below it the answer with its time, and the decisions.
std::string explanationText(const std::vector<TraceLine>& lines);
nlohmann::json explanationJson(const std::vector<TraceLine>& lines);
