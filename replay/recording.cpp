#include "replay/recording.h"

#include "recorder/ring_reader.h"
#include "recorder/text_fields.h"

#include <optional>
#include <stdexcept>
#include <utility>

namespace replay {
namespace {

using recorder::TapeLine;

constexpr std::int64_t formatVersion = 1; // of the lines

std::vector<std::string> splitText(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

// Whether the state of the machine that begins at this line is there to its end.
bool isWholeState(const std::vector<TapeLine>& lines, std::size_t at) {
    for (; at < lines.size(); ++at) {
        if (lines[at].call == "ready")
            return true;
        if (lines[at].call != "machine" && lines[at].call != "cache" && lines[at].call != "entry")
            return false;
    }
    return false;
}

// Drops what comes before the first state of the machine.
void beginAtState(Part& part) {
    std::size_t first = 0;
    while (first < part.lines.size() &&
           (part.lines[first].call != "machine" || !isWholeState(part.lines, first)))
        ++first;
    part.leftOut = first;
    part.lines.erase(part.lines.begin(), part.lines.begin() + static_cast<std::ptrdiff_t>(first));
}

// Reads the line that says who records.
void readSupervisor(Part& part, const TapeLine& line) {
    std::string_view fields = line.fields;
    std::int64_t format = 0;
    std::int64_t pid = 0;
    std::int64_t now = 0;
    if (!recorder::takeNumber(fields, format) || !recorder::takeNumber(fields, pid) ||
        !recorder::takeNumber(fields, now) || !recorder::takeText(fields, part.version))
        return;
    if (format != formatVersion)
        throw std::runtime_error("the lines have version " + std::to_string(format) +
                                 ", this program reads version " + std::to_string(formatVersion));
    part.pid = static_cast<int>(pid);
    part.timeOfDay = now - line.time;
}

class Splitter {
public:
    void add(const std::string& text) {
        std::optional<TapeLine> line = recorder::parseLine(text);
        if (!line || line->call == "run")
            next(line && line->call == "run" ? Part{} : partAfterGap());
        if (!line)
            return;
        if (line->call == "run" || line->call == "about")
            readSupervisor(part_, *line);
        else if (line->thread == 'm')
            part_.lines.push_back(*std::move(line));
    }

    std::vector<Part> finish() {
        next({});
        return std::move(parts_);
    }

private:
    // Of the same supervisor.
    Part partAfterGap() const {
        Part part;
        part.pid = part_.pid;
        part.version = part_.version;
        part.timeOfDay = part_.timeOfDay;
        return part;
    }

    void next(Part part) {
        if (!part_.lines.empty()) {
            beginAtState(part_);
            parts_.push_back(std::move(part_));
        }
        part_ = std::move(part);
    }

    Part part_;
    std::vector<Part> parts_;
};

} // namespace

std::vector<std::string> linesOf(std::string_view bytes) {
    if (recorder::looksLikeRing(bytes))
        return recorder::readRing(bytes);
    std::vector<std::string> lines = splitText(bytes);
    if (lines.empty() || lines.front() != textHeader)
        throw std::runtime_error("this is no recording of a supervisor");
    lines.erase(lines.begin());
    return lines;
}

std::vector<Part> partsOf(const std::vector<std::string>& lines) {
    Splitter splitter;
    for (const std::string& line : lines)
        splitter.add(line);
    return splitter.finish();
}

std::string asText(const std::vector<std::string>& lines) {
    std::string text(textHeader);
    text += '\n';
    for (const std::string& line : lines)
        text += line + '\n';
    return text;
}

} // namespace replay
