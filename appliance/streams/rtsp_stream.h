// One stream over RTSP, from the first request to the TEARDOWN.
//
// Only the transport that the source names is used; there is no fallback to another one. The whole session runs on the
// thread that calls run(): requests, packets from UDP sockets or from the connection, and the periodic keep-alive. Only
// end() may be called from another thread.
#pragma once

#include "appliance/streams/datagrams.h"
#include "appliance/streams/rtsp_client.h"
#include "appliance/streams/rtsp_source.h"
#include "appliance/streams/stream_description.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace streams {

// The user of a stream. All functions are called on the session's thread.
struct RtspReceiver {
    Usable usesVideo; // which encodings of the description can be used
    Usable usesSound;

    // The video stream is set up and its packets follow. `ordered`: they arrive in order, because they share the RTSP
    // connection. Returns "" or why the stream can't be used, which ends the session.
    std::function<std::string(const DescribedStream& stream, bool ordered)> beginVideo;
    std::function<void(const DescribedStream& stream)> beginSound;
    std::function<void(const std::string& reason)> noSound; // the encoder refused its sound stream

    std::function<bool(std::string_view packet)> video; // an RTP packet; false ends the session
    std::function<void(std::string_view packet)> sound;
};

class RtspStream {
public:
    RtspStream(RtspSource source, RtspReceiver receiver);
    // Not before run() has returned. Players never destroy it.
    ~RtspStream();
    RtspStream(const RtspStream&) = delete;
    RtspStream& operator=(const RtspStream&) = delete;

    // Runs the session until it ends; returns the reason, for the log.
    std::string run();

    // Ends a running session with a TEARDOWN; waits at most 150 ms for it. Any thread.
    void end();

    // Makes run() end soon, before or during the session, without waiting for it. Any thread.
    void endSoon();

private:
    // Where the packets of one stream arrive: on sockets or on channels of the connection.
    struct Reception {
        SocketPair sockets;
        int dataChannel = -1;
        bool ready = false; // its SETUP succeeded
        bool begun = false; // the receiver takes its packets
    };

    std::string begin();
    std::string describe();
    std::string setUp(const DescribedStream& stream, int number, Reception& reception);
    std::string setUpVideo();
    void setUpSound();
    std::string transportLine(int number, Reception& reception) const;
    std::string acceptTransport(const std::string& answer, Reception& reception) const;
    std::string play();
    std::string receive();
    bool receiveOnce();
    void keepAlive();
    void tearDown();

    void takeVideo(std::string_view packet);
    void takeSound(std::string_view packet);
    void takeControl(std::string_view packet);
    void takeChannel(int channel, std::string_view packet);
    void sendReport();
    std::string sessionLine() const;

    const RtspSource source_;
    const RtspReceiver receiver_;
    RtspClient client_;
    const std::string url_;
    StreamDescription description_;
    std::string session_;     // the encoder's session identifier
    int sessionTimeout_ = 60; // seconds
    Reception video_;
    Reception sound_;
    std::string from_; // only datagrams from this address are taken; "": from any
    bool connected_ = true;
    bool saidGoodbye_ = false; // an RTCP BYE arrived after the last video packet
    bool refused_ = false;     // the receiver wants no more video
    std::int64_t lastPacket_ = 0;
    std::int64_t nextKeepAlive_ = 0;
    std::int64_t nextReport_ = 0;
    const std::uint32_t reporter_; // our own synchronisation source, in RTCP reports

    std::atomic<bool> receiving_{false}; // the session is open, so a TEARDOWN makes sense
    int wake_;                           // eventfd, signalled by end()
    std::mutex lock_;
    std::condition_variable ended_;
    bool endAsked_ = false; // guarded by lock_
    bool hasEnded_ = false; // guarded by lock_
};

} // namespace streams
