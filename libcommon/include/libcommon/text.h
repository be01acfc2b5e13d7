// Small functions for texts that come from outside.
#pragma once

#include <string>
#include <string_view>

namespace libcommon {

// `text` as it can be shown on a terminal, in a log or on a page: valid UTF-8 in one line. A control character, a line
// break included, becomes a blank; a byte that is no UTF-8 becomes '?'. Other text comes back unchanged. Any thread.
std::string printable(std::string_view text);

// `text` without blanks and tabs at its ends: a view into the argument, also when it is empty. Any thread; safe in a signal handler.
std::string_view trimmed(std::string_view text);

} // namespace libcommon
