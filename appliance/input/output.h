// What camera-input sends to the gateway: packets of video and sound, and before them their description.
#pragma once

#include "appliance/input/gateway_socket.h"
#include "appliance/input/rtp_writer.h"

#include <memory>

namespace input {

// For one thread. The socket must outlive it.
class Output {
public:
    explicit Output(const GatewaySocket& socket) : socket_(socket) {}

    // Announces sound before the video. False when RTP can't carry it.
    bool addSound(const AVCodecParameters& parameters);
    // Announces the video, and with it the description. Called again, it changes nothing. Throws InputFailure when RTP
    // can't carry it.
    void addVideo(const AVCodecParameters& parameters);
    // The video is decoded and encoded anew.
    void sayEncoded(const std::string& codec) const { socket_.send(FromInput::encoded, codec); }

    // Packets before the description are left out.
    void writeVideo(AVPacket& packet, AVRational unit);
    void writeSound(AVPacket& packet, AVRational unit);

private:
    const GatewaySocket& socket_;
    std::unique_ptr<RtpWriter> video_;
    std::unique_ptr<RtpWriter> sound_;
};

} // namespace input
