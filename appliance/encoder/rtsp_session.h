// One RTSP connection of the encoder, plain or tunnelled through HTTP. Runs on the connection's own thread;
// the media are sent by another. A stream lives no longer than the connection that asked for it, so that a
// client that dies leaves nothing behind.
//
// URLs are "/mpeg4/N/media.orv" and "/mpeg4/quad/media.orv", alone or within a whole rtsp:// URL; the one
// track may be left out. PLAY starts with the newest picture; a Range is accepted and not obeyed, since this
// is live.
#pragma once

#include "appliance/encoder/connection.h"
#include "appliance/encoder/device.h"
#include "appliance/encoder/http_message.h"
#include "appliance/encoder/media_sender.h"
#include "appliance/encoder/multicast.h"
#include "appliance/encoder/rtsp_transport.h"
#include "appliance/encoder/tunnel.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct MediaPath {
    int channel;       // 0 is the quad view
    std::string track; // what follows the path, "" for nothing
};

// Reads "/mpeg4/..." paths; nothing when it is none.
std::optional<MediaPath> mediaPathOf(std::string_view path);

// The description of a channel's stream, or "" when it has no pictures.
std::string descriptionOf(Device& device, int channel, const std::string& localAddress);

class RtspSession {
public:
    // Answers and media go to `connection`. With a tunnel the requests come from there, else from the
    // connection.
    RtspSession(Device& device, Connection& connection, std::uint64_t number, Tunnel* tunnel);
    ~RtspSession();

    void run();

private:
    struct Answer {
        int status = 200;
        std::string headers; // whole lines
        std::string body;
    };

    long read(char* buffer, std::size_t size, Deadline deadline);
    bool readMore(Deadline deadline);
    bool skipInterleaved();
    bool readRequest();
    bool skipBody();
    void handle();
    bool refused(const FaultSet& faults, Answer& answer);
    Answer answerTo();
    Answer describe(int channel);
    Answer setUp(const MediaPath& path);
    bool offer(const Transport& wish, Channel& channel, std::string& reply);
    Answer play();
    void endStream();
    void send(const Answer& answer, const FaultSet& faults);
    void record(int status);

    Device& device_;
    Connection& connection_;
    const std::uint64_t number_;
    Tunnel* const tunnel_;
    std::string pending_;
    Request request_;
    std::int64_t requestTime_ = 0;
    bool goOn_ = true;
    int answers_ = 0;

    std::string session_; // its id; "" before SETUP
    CodecStream* stream_ = nullptr;
    SharedMulticast* group_ = nullptr;    // from a multicast SETUP on; joined while playing
    std::unique_ptr<MediaOutput> output_; // from every other SETUP to PLAY
    std::unique_ptr<MediaSender> sender_; // from PLAY on, without a group
    bool playing_ = false;
};
