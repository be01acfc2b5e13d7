#include "recorder/tape.h"

#include "recorder/text_fields.h"

namespace recorder {

std::optional<TapeLine> parseLine(std::string_view text) {
    TapeLine line;
    if (!takeNumber(text, line.time))
        return std::nullopt;
    const std::string_view thread = takeWord(text);
    line.call = takeWord(text);
    if ((thread != "m" && thread != "e") || line.call.empty())
        return std::nullopt;
    line.thread = thread.front();
    line.fields = text;
    return line;
}

const TapeLine& Tape::take(std::string_view call) {
    if (next_ == lines_.size())
        throw EndOfTape("the recording ends here");
    const TapeLine& line = lines_[next_];
    if (line.call != call)
        throw Different("recorded: " + line.call + line.fields + "; now: " + std::string(call));
    ++next_;
    now_ = line.time;
    return line;
}

bool Tape::isNext(std::string_view call) const {
    return next_ < lines_.size() && lines_[next_].call == call;
}

} // namespace recorder
