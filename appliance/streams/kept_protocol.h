// What a player and the keeper of warm sources say to each other on the keeper's socket.
//
// The player sends one line: "take ADDRESS" with the text of a StreamAddress. The keeper answers with frames: first what
// the stream consists of, or that it does not keep it; then the packets since the last key picture; then those that
// arrive. `live` comes once, right before the packets of the newest picture: what comes before it is decoded and not
// shown. The line "status" is answered with one frame of text, and the connection ends.
#pragma once

#include "appliance/streams/stream_description.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace streams {

enum class KeptFrame : char {
    description = 'd', // the text of a KeptDescription
    notKept = 'n',     // with the reason
    video = 'v',       // an RTP packet
    sound = 's',       // an RTP packet
    bytes = 'b',       // a piece of a byte stream
    picture = 'j',     // a whole JPEG picture
    live = 'l',
    ended = 'e', // with the reason; nothing follows
    status = 't',
};

constexpr std::size_t keptHeaderBytes = 8;
constexpr std::size_t largestKeptFrame = 16 * 1024 * 1024;
constexpr std::size_t longestKeptRequest = 4096;

// The header of a frame; its content follows.
std::string keptHeader(KeptFrame kind, std::size_t bytes);

struct KeptDescription {
    enum class Form { packets, bytes, pictures };
    Form form = Form::packets;
    bool ordered = false;                 // packets: none is out of order
    std::optional<DescribedStream> video; // packets only
    std::optional<DescribedStream> sound;
};
std::string writeKeptDescription(const KeptDescription& description);
// Nothing for a text that is none.
std::optional<KeptDescription> readKeptDescription(std::string_view text);

// Splits what arrives into frames. For one thread.
class KeptFrameReader {
public:
    // `content` is valid during the call; false ends the reading.
    using Take = std::function<bool(KeptFrame kind, std::string_view content)>;

    // False when a frame is too long or `take` returned false.
    bool feed(std::string_view bytes, const Take& take);

private:
    std::string waiting_; // the beginning of a frame
};

// The path of the keeper's socket below the appliance root.
std::string keptSocketPath();

// A connected or listening Unix socket at that path, which may be longer than an address can be; -1 with errno. It does
// not block. `listen`: makes the socket file, readable and writable by this user only; an existing file has to be removed
// first.
int openKeptSocket(const std::string& path, bool listen);

} // namespace streams
