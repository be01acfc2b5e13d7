// The lines of a parameter file, for programs that explain its mistakes.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace libcommon {

struct ParameterLine {
    enum class Kind {
        Blank, // or a comment
        Section,
        Key,
        Unreadable, // skipped when the file is read; `reason` says why
    };
    Kind kind = Kind::Blank;
    std::size_t number = 0; // from 1
    std::string section;    // that the line opens or is in; "" before the first one
    std::string key;
    std::string value;
    std::string reason;
};

// Splits the text of a parameter file exactly as the library reads it. Any thread.
std::vector<ParameterLine> parameterLines(std::string_view text);

// Replaces a whole parameter file by what `edit` makes of its text, with the guarantees of a write (<libcommon/params.h>):
// under the lock, atomically, with the file's rights. `edit` returns nothing to leave the file as it is; it may be called
// again when another program has changed the file meanwhile. False when nothing was written; a failure is logged. Any
// thread.
bool rewriteParameterFile(int fileId,
                          const std::function<std::optional<std::string>(const std::string& text)>& edit);

} // namespace libcommon
