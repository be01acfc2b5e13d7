// One stream over RTSP, from the first request to the parting.
//
// The transport is the one that the options name and no other: what the encoder was found to deliver is asked
// for. All of a session happens on one thread: requests, packets from sockets or from the connection itself,
// a sign of life to the encoder now and then.
#pragma once

#include "appliance/players/datagrams.h"
#include "appliance/players/decoder_pipeline.h"
#include "appliance/players/player.h"
#include "appliance/players/rtp_sound.h"
#include "appliance/players/rtsp_connection.h"
#include "appliance/players/sdp.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace player {

class RtspSession {
public:
    RtspSession(const PlayerOptions& options, const StreamSink& sink);
    // Not destroyed: the process ends first.

    // Runs the whole session; tells the sink of its end.
    void run();

    // Asks the running session to part from the encoder, and waits a moment until it has. Another thread.
    void part();

private:
    // A stream's packets: from sockets, or from channels of the connection.
    struct Reception {
        SocketPair sockets;
        int dataChannel = -1;
        bool playing = false;
    };

    std::string begin();
    std::string describe();
    std::string setUp(const SdpStream& stream, int number, Reception& reception);
    std::string transportLine(int number, Reception& reception) const;
    std::string acceptTransport(const std::string& answer, Reception& reception) const;
    std::string startDecoding();
    std::string play();
    std::string receive();
    bool receiveOnce();
    void stayAlive();
    void leave();

    void takeVideo(std::string_view packet);
    void takeControl(std::string_view packet);
    void takeChannel(int channel, std::string_view packet);
    void sendReport();
    int patience() const;
    std::string sessionLine() const;

    const PlayerOptions& options_;
    const StreamSink& sink_;
    RtspConnection connection_;
    const std::string url_;
    std::string base_;
    SdpContent content_;
    std::string session_;
    int sessionTimeout_ = 60; // seconds
    Reception video_;
    Reception sound_;
    std::string from_; // address that datagrams come from
    std::unique_ptr<DecoderPipeline> decoder_;
    RtpSound* player_ = nullptr; // of sound; null: none. Never destroyed.
    bool connected_ = true;
    bool saidGoodbye_ = false; // the encoder ended the stream
    bool failed_ = false;      // the decoder did
    std::int64_t lastPacket_ = 0;
    std::int64_t nextSign_ = 0;
    std::int64_t nextReport_ = 0;
    const std::uint32_t source_; // our own synchronisation source, in reports

    std::atomic<bool> receiving_{false}; // there is something to part from
    int wake_;                           // rung by part()
    std::mutex lock_;
    std::condition_variable parted_;
    bool partAsked_ = false; // guarded by lock_
    bool hasParted_ = false; // guarded by lock_
};

} // namespace player
