#include "appliance/reporting/explanation.h"

#include <libcommon/text.h>

#include <charconv>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>

namespace {

constexpr int timeWidth = 9;

// Removes a number and the blank after it from the beginning of `line`.
bool takeNumber(std::string_view& line, double& number) {
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc() || end == line.data() + line.size() || *end != ' ') {
        return false;
    }
    line.remove_prefix(static_cast<std::size_t>(end - line.data()) + 1);
    return true;
}

bool takeWord(std::string_view& line, std::string_view word) {
    if (line.substr(0, word.size()) != word) {
        return false;
    }
    line.remove_prefix(word.size());
    return true;
}

TraceLine readLine(const std::string& whole) {
    TraceLine line;
    std::string_view rest = whole;
    if (takeWord(rest, "detection ")) {
        line.kind = TraceLine::Kind::Heading;
        line.text = whole;
    } else if (takeWord(rest, "= ")) {
        line.kind = TraceLine::Kind::Decision;
        line.text = rest;
    } else if (takeWord(rest, "end ") && takeNumber(rest, line.begin)) {
        line.kind = TraceLine::Kind::End;
        line.text = rest;
    } else if (rest = whole; takeNumber(rest, line.begin) && takeNumber(rest, line.took)) {
        line.kind = TraceLine::Kind::Request;
        // The first arrow separates them: later ones are in the answer, which quotes the encoder.
        const std::size_t arrow = rest.find(" -> ");
        line.text = rest.substr(0, arrow);
        line.answer = arrow == std::string_view::npos ? "" : rest.substr(arrow + 4);
    } else {
        line.text = whole;
    }
    return line;
}

std::string milliseconds(double time) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::setw(timeWidth) << time << " ms  ";
    return text.str();
}

const char* kindName(TraceLine::Kind kind) {
    switch (kind) {
    case TraceLine::Kind::Heading:
        return "detection";
    case TraceLine::Kind::Request:
        return "request";
    case TraceLine::Kind::Decision:
        return "decision";
    case TraceLine::Kind::End:
        return "end";
    case TraceLine::Kind::Other:
        return "other";
    }
    return "";
}

} // namespace

std::vector<TraceLine> readTrace(const std::string& trace) {
    std::vector<TraceLine> lines;
    std::istringstream text(trace);
    for (std::string line; std::getline(text, line);) {
        lines.push_back(readLine(line));
    }
    return lines;
}

std::string explanationText(const std::vector<TraceLine>& lines) {
    const std::string margin(milliseconds(0).size(), ' ');
    std::string text;
    for (const TraceLine& line : lines) {
        switch (line.kind) {
        case TraceLine::Kind::Heading:
            text += libcommon::printable(line.text);
            break;
        case TraceLine::Kind::Request:
            text += milliseconds(line.begin) + libcommon::printable(line.text);
            if (!line.answer.empty()) {
                text +=
                    '\n' + milliseconds(line.begin + line.took) + "  <- " + libcommon::printable(line.answer);
            }
            break;
        case TraceLine::Kind::Decision:
            text += margin + "=> " + libcommon::printable(line.text);
            break;
        case TraceLine::Kind::End:
            text += milliseconds(line.begin) + libcommon::printable(line.text);
            break;
        case TraceLine::Kind::Other:
            text += margin + libcommon::printable(line.text);
            break;
        }
        text += '\n';
    }
    return text;
}

nlohmann::json explanationJson(const std::vector<TraceLine>& lines) {
    nlohmann::json list = nlohmann::json::array();
    for (const TraceLine& line : lines) {
        nlohmann::json entry{{"kind", kindName(line.kind)}, {"text", line.text}};
        if (line.kind == TraceLine::Kind::Request) {
            entry["beginMs"] = line.begin;
            entry["tookMs"] = line.took;
            entry["answer"] = line.answer;
        } else if (line.kind == TraceLine::Kind::End) {
            entry["beginMs"] = line.begin;
        }
        list.push_back(std::move(entry));
    }
    return list;
}
