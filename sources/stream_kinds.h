// The kinds of stream: one row each, in the order of their numbers.
//
// The row says which player shows a kind and which arguments describe the stream to that player; the probes of the
// kinds have a table of the same rows in detect/detection.cpp. The compiler checks both for count and order. A kind's
// name is libcommon's, in videoSourceTypeString.
#pragma once

#include <libcommon/status.h>

#include <array>
#include <cstddef>

// Indices into videoSourceTypeString. The members of a source entry are plain integers: an unknown text gives -1.
enum StreamType : int {
    TYPE_AUTO = 0, // only as the configured type: the probes find the kind
    TYPE_MJPEG = 1,
    TYPE_MPEG2 = 2,
    TYPE_SDP = 3,
    TYPE_RTSP_UNICAST = 4,
    TYPE_RTSP_MULTICAST = 5,
    TYPE_RTSP_TCP = 6,
    TYPE_RTSP_HTTP = 7,
};
inline constexpr std::size_t streamTypeCount = 8;

// Which arguments describe the stream to a player.
enum class PlayerArguments {
    None,
    Mjpeg,       // port and host, then the query, rotation and interlacing
    PortAndHost, // port and host
    Groups,      // the addresses and ports that video and audio are sent to
    Mpeg4,       // port, input, the names of kind and connect mode, host
};

// Whether a player gets a pair of UDP ports of its own, which the launch looks for.
enum class PlayerPorts { None, OwnPair };

struct StreamKind {
    StreamType type;
    const char* player; // program; "" for a kind that no player shows, so that exec fails
    PlayerArguments arguments;
    PlayerPorts ports;
};

// clang-format off
inline constexpr std::array streamKinds{
    StreamKind{TYPE_AUTO,           "",                  PlayerArguments::None,        PlayerPorts::None},
    StreamKind{TYPE_MJPEG,          "/bin/mjpeg_player", PlayerArguments::Mjpeg,       PlayerPorts::None},
    StreamKind{TYPE_MPEG2,          "unicastplayer",     PlayerArguments::PortAndHost, PlayerPorts::None},
    StreamKind{TYPE_SDP,            "multicastplayer",   PlayerArguments::Groups,      PlayerPorts::None},
    StreamKind{TYPE_RTSP_UNICAST,   "/bin/mpeg4player",  PlayerArguments::Mpeg4,       PlayerPorts::OwnPair},
    StreamKind{TYPE_RTSP_MULTICAST, "/bin/mpeg4player",  PlayerArguments::Mpeg4,       PlayerPorts::None},
    StreamKind{TYPE_RTSP_TCP,       "/bin/mpeg4player",  PlayerArguments::Mpeg4,       PlayerPorts::None},
    StreamKind{TYPE_RTSP_HTTP,      "/bin/mpeg4player",  PlayerArguments::Mpeg4,       PlayerPorts::None},
};
// clang-format on

// Whether a table has one row for each kind, in the order of their numbers.
template<std::size_t Count, class Row>
constexpr bool hasOneRowPerKind(const std::array<Row, Count>& rows) {
    for (std::size_t i = 0; i < Count; ++i)
        if (static_cast<std::size_t>(rows[i].type) != i)
            return false;
    return Count == streamTypeCount;
}
static_assert(hasOneRowPerKind(streamKinds), "a row is missing, or in the place of another kind");

// The row of a kind; that of TYPE_AUTO, which has no player, for a number that names none.
constexpr const StreamKind& streamKind(int type) {
    const bool isKind = type >= 0 && static_cast<std::size_t>(type) < streamTypeCount;
    return streamKinds[isKind ? static_cast<std::size_t>(type) : 0];
}

// The text of one of libcommon's name tables; the table's last text, "unknown", for a number that is not in it.
template<int Size>
const char* tableText(const char* const (&table)[Size], int index) {
    return index >= 0 && index < Size ? table[index] : table[Size - 1];
}
inline const char* typeText(int type) {
    return tableText(videoSourceTypeString, type);
}
inline const char* connectModeText(int mode) {
    return tableText(connectModeString, mode);
}
