// What is known about one encoder input once it was detected.
//
// Owned by the source cache, which hands it out by pointer; filled by the detection; read where players are
// started and PTZ requests sent. Main thread (and, after a fork, the child that becomes the player).
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
    std::string rtspHost; // host and port that the player is to use, whatever the kind of stream
    std::uint16_t rtspPort = 0;
    std::string audioHost;
    std::uint16_t audioPort = 0;
    std::string streamOptions; // camera selection of an MJPEG source: "camera=2", "quad=1"
};
