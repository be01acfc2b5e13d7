// Parts of a player that are loaded while it already connects, because loading them takes long.
//
// libavcodec needs some ninety libraries and GStreamer its plugins. A player that was linked with them would send its first
// request only after all of them are loaded. So they are linked into modules, which are beside the player's program and are
// loaded on other threads.
#pragma once

#include "appliance/players/decoding/stream_sink.h"
#include "appliance/streams/http_stream.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace player {

// Decodes access units. For one thread at a time.
class UnitDecoder {
public:
    using Give = std::function<void(const screen::PictureView&)>;

    UnitDecoder() = default;
    UnitDecoder(const UnitDecoder&) = delete;
    UnitDecoder& operator=(const UnitDecoder&) = delete;
    virtual ~UnitDecoder() = default;

    // Opens the decoder: "h264", "hevc", "mpeg4" or "mpeg2video", with the stream's own description of the codec, which may
    // be empty. False with a log line when there is no such decoder.
    virtual bool open(const std::string& codec, const std::uint8_t* description, std::size_t bytes) = 0;

    // Decodes one access unit and calls `give` for each picture that is complete with it; it is valid during the call.
    // False when the unit is broken.
    virtual bool decode(const std::uint8_t* unit, std::size_t bytes, const Give& give) = 0;
};

// Decodes a stream that is passed in packet by packet. Never destroyed.
class StreamDecoder {
public:
    StreamDecoder() = default;
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;
    virtual ~StreamDecoder() = default;

    // False after the decoder failed. For one thread.
    virtual bool feed(const char* bytes, std::size_t count) = 0;
};

// Decodes and plays sound, one stream at a time. Never destroyed: it has its own threads.
class SoundPlayer {
public:
    SoundPlayer() = default;
    SoundPlayer(const SoundPlayer&) = delete;
    SoundPlayer& operator=(const SoundPlayer&) = delete;
    virtual ~SoundPlayer() = default;

    // Plays the sound from that address while the picture is shown. Blocks until it ends.
    virtual void playHttp(const streams::HttpSource& source, bool verbose) = 0;
    // Prepares for packets with these caps.
    virtual void beginRtp(const std::string& caps) = 0;
    // Takes a packet. One thread.
    virtual void feedRtp(const char* packet, std::size_t bytes) = 0;
    // Fades out, because the player ends; waits for that, but at most that long. Any thread.
    virtual void end(int patienceMs) = 0;
};

// GStreamer: sound, and the pictures that libavcodec and libjpeg do not decode.
class GStreamerModule {
public:
    GStreamerModule() = default;
    GStreamerModule(const GStreamerModule&) = delete;
    GStreamerModule& operator=(const GStreamerModule&) = delete;
    virtual ~GStreamerModule() = default;

    // Decodes RTP packets that come in order. Null with a log line when a plugin is missing. `sink` must outlive the process's threads.
    virtual StreamDecoder* decodeRtp(const std::string& encodingName, const std::string& caps,
                                     const StreamSink& sink) = 0;
    virtual SoundPlayer* playSound(const StreamSink& sink) = 0;
};

// Sets the environment of GStreamer, which reads and writes no registry then. Called once, before other threads exist, by a
// player that may need the module.
void prepareGStreamer();

// Loads the module and starts GStreamer, the first time. Null with a log line when that fails. Any thread.
GStreamerModule* loadGStreamer();

// Loads libavcodec, the first time. Null with a log line when that fails. Any thread.
std::unique_ptr<UnitDecoder> makeUnitDecoder();

// The names of the functions that the modules export, and their types.
inline constexpr const char* makeUnitDecoderName = "playerMakeUnitDecoder";
using MakeUnitDecoder = UnitDecoder*();
inline constexpr const char* startGStreamerName = "playerStartGStreamer";
// `pluginFolders` are separated by colons.
using StartGStreamer = GStreamerModule*(const char* pluginFolders);

} // namespace player
