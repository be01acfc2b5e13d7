// The text of a response header: collecting it byte by byte from hostile peers, and reading it.
#pragma once

#include <libcommon/network.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace network {

inline constexpr std::size_t maximumHeaderLength = 16 * 1024;

// Finds one response header in a stream. Interleaved packets ('$', channel, 16-bit length, data) and empty
// lines before it are skipped. Garbage is refused at the first byte that can't belong to a header, so that a
// caller does not wait for its end.
class HeaderCollector {
public:
    enum class State { Collecting, Complete, Malformed, TooLong };

    // Takes bytes of the header and of the packets before it; returns how many it took. They are fewer
    // than offered only at the end: state() is no longer Collecting.
    std::size_t take(std::string_view bytes);

    State state() const { return state_; }

    // The header, first line to empty line, once it is complete.
    const std::string& text() const { return text_; }

private:
    void takeByte(char byte);
    void takeFirstByte(char byte);
    void takeHeaderByte(char byte);
    bool canBecomeHeader() const;

    State state_ = State::Collecting;
    std::string text_;
    std::size_t lineStart_ = 0;
    std::size_t blankBytes_ = 0; // line ends before the header: counted, so that they can't be endless
    int packetHeaderLeft_ = 0;   // bytes of '$' channel length still to come
    unsigned packetLength_ = 0;  // the length as far as it came, then the data still to come
};

// Reads a complete header text. False, and an untouched `header`, when it is malformed.
bool parseHeaderText(std::string_view text, ResponseHeader& header);

} // namespace network
