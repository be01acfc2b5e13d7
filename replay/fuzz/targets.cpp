#include "replay/fuzz/targets.h"

#include "replay/recording.h"
#include "replay/replay.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

void require(bool promise) {
    if (!promise)
        std::abort();
}

std::size_t transitionsIn(const replay::Part& part) {
    std::size_t count = 0;
    for (const recorder::TapeLine& line : part.lines)
        count += line.call == "state" ? 1 : 0;
    return count;
}

void replayAll(const std::vector<replay::Part>& parts) {
    for (const replay::Part& part : parts) {
        if (part.lines.empty())
            continue;
        std::size_t shown = 0;
        const replay::Result result = replay::replayPart(part, [&](const replay::Transition& transition) {
            require(!replay::textOf(transition).empty());
            ++shown;
        });
        require(result.transitions == shown && shown <= transitionsIn(part));
        require(!result.difference.empty() || shown == transitionsIn(part));
    }
}

} // namespace

int fuzzRecording(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        const std::vector<std::string> lines = replay::linesOf(bytes);
        const std::vector<replay::Part> parts = replay::partsOf(lines);
        replayAll(parts);
        // The text that --print makes is the same recording.
        bool plain = true;
        for (const std::string& line : lines)
            plain = plain && line.find('\n') == std::string::npos;
        if (plain)
            require(replay::linesOf(replay::asText(lines)) == lines);
    } catch (const std::runtime_error&) {
        // refused
    }
    return 0;
}
