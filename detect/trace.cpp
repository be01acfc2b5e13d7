#include "detect/trace.h"

#include "detect/detection_state.h"
#include "detect/verdict.h"

#include <libcommon/clock.h>
#include <libcommon/status.h>

#include <cstdio>
#include <vector>

namespace detect {
namespace {

constexpr std::size_t quotedBytes = 64;
constexpr std::size_t reservedForEnd = 512; // the line that says the trace is full, and the outcome
constexpr std::size_t longestLine = 400;

// Process-wide state: the trace of the present or the last detection. Main thread.
struct Trace {
    std::string text;
    std::vector<std::string> secrets; // what must not be in it: the password, plain and as Basic credentials
    std::int64_t began = 0;           // gettimeusec()
    bool full = false;
};
Trace& trace = *new Trace;

// Milliseconds with one decimal.
std::string milliseconds(std::int64_t microseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", static_cast<double>(microseconds) / 1000.0);
    return text;
}

void appendLine(std::string line) {
    if (trace.full)
        return;
    if (line.size() > longestLine)
        line.resize(longestLine);
    if (trace.text.size() + line.size() + 1 > traceLimit - reservedForEnd) {
        trace.full = true;
        line = "= trace full: what follows is left out";
    }
    trace.text += line + '\n';
}

bool holdsSecret(std::string_view text) {
    for (const std::string& secret : trace.secrets)
        if (text.find(secret) != std::string_view::npos)
            return true;
    return false;
}

void appendEscaped(std::string& out, unsigned char c) {
    if (c == '"' || c == '\\') {
        out += '\\';
        out += static_cast<char>(c);
    } else if (c >= 0x20 && c < 0x7f) {
        out += static_cast<char>(c);
    } else {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
        out += escaped;
    }
}

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text.substr(0, quotedBytes))
        appendEscaped(out, static_cast<unsigned char>(c));
    if (text.size() > quotedBytes)
        out += "...";
    return out;
}

// Some people write credentials before the host.
std::string_view withoutUser(std::string_view address) {
    const auto at = address.rfind('@');
    return at == std::string_view::npos ? address : address.substr(at + 1);
}

} // namespace

void beginTrace(const SourceEntry& entry) {
    trace = {};
    trace.began = gettimeusec();
    if (!entry.password.empty()) {
        const std::string credentials = entry.userName + ":" + entry.password;
        trace.secrets = {entry.password, base64encode(credentials.data(), credentials.size())};
    }
    appendLine("detection of " + escaped(withoutUser(entry.address)) + ", source " +
               std::to_string(entry.sourceNumber) + ", configured type " + typeText(entry.configuredType) +
               ", timeout " + std::to_string(state.timeoutSeconds) + " s");
}

TraceStep::TraceStep(std::string request) : request_(std::move(request)), began_(gettimeusec()) {}

void TraceStep::answered(const std::string& result) {
    appendLine(milliseconds(began_ - trace.began) + " " + milliseconds(gettimeusec() - began_) + " " +
               request_ + " -> " + result);
}

void traceDecision(const std::string& text) {
    appendLine("= " + text);
}

std::string finishTrace(const std::string& outcome) {
    trace.text +=
        "end " + milliseconds(gettimeusec() - trace.began) + " " + outcome.substr(0, longestLine) + "\n";
    return trace.text;
}

std::string quoted(std::string_view text) {
    if (holdsSecret(text))
        return "(not shown: it holds the credentials)";
    return '"' + escaped(text) + '"';
}

std::string downloadResultText(int result) {
    if (result > 0)
        return std::to_string(result) + (result == 1 ? " byte" : " bytes");
    if (result == 0)
        return "nothing";
    if (result == -4011)
        return "no connection";
    if (result >= -99)
        return "transport failure " + std::to_string(result);
    return "refused: " + std::to_string(-result);
}

} // namespace detect
