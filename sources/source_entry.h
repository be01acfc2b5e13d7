// A source entry: what is known about an encoder input after its detection.
//
// The source cache owns the entries and hands out pointers. The detection fills them; launching a player and sending
// a PTZ request read them. Main thread.
#pragma once

#include "sources/stream_kinds.h"

#include <cstdint>
#include <string>

struct SourceEntry {
    int index = 0;           // source whose detection filled this; its status values are the master copy
    std::string address;     // "Address"
    std::string userName;    // "UserName"
    std::string password;    // "Password"
    int sourceNumber = 0;    // 0 the quad view, 1..N a camera input
    int configuredType = 0;  // "VideoSourceType" as an index; 0 automatic, -1 unknown text
    bool detectedOK = false; // the entry is usable
    int errorCode = 0;
    int detectedType = 0; // a StreamType
    bool audioAvailable = false;
    int connectMode = 0;  // index into connectModeString
    int recoveryStep = 0; // 0 when the entry is filled
    std::string rtspHost; // host and port for the player, for every kind of stream
    std::uint16_t rtspPort = 0;
    std::string audioHost;
    std::uint16_t audioPort = 0;
    std::string streamOptions; // camera selection of an MJPEG source: "camera=2", "quad=1"
};
