// The strict check of a request's header, before any other program text reads it.
//
// libsoup reads headers generously, as browsers' old habits need it: it takes bare line feeds and skips lines that it
// does not understand. A proxy in front of the panel may read the same bytes in another way, and then the two disagree
// where a request ends. So only headers pass that every reader understands alike.
#pragma once

#include <cstddef>
#include <string_view>

namespace panel {

struct HeadCheck {
    int status = 0;            // 0: good; else the status to answer with before the connection is closed
    std::string_view reason;   // a sentence for the client; lasts as long as the program
    std::size_t bodyBytes = 0; // that follow the header
};

// Bytes from the beginning of `received` up to the end of the header with its empty line; 0: the end has not come yet.
// The bytes before `from` were looked at before. `bad` becomes true when the bytes can't become a good header any more: a
// line feed without carriage return, a zero.
std::size_t headLength(std::string_view received, std::size_t from, bool& bad);

// Checks a whole header, with the empty line at its end.
HeadCheck checkHead(std::string_view head, std::size_t mostBodyBytes);

} // namespace panel
