// Where the packets of one track of an RTSP camera arrive: UDP sockets, a multicast group, or channels of the RTSP
// connection. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/rtsp_dialogue.h"
#include "appliance/gateway/cameras/session.h"
#include "appliance/streams/datagrams.h"
#include "appliance/streams/rtp/reordering.h"
#include "appliance/streams/rtp/reports.h"
#include "appliance/streams/stream_description.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace gateway {

struct ReceptionEvents {
    std::function<void(std::string_view packet)> packet; // RTP, in order; valid during the call
    std::function<void()> goodbye;                       // the camera says that it ends the track
    std::function<void()> pause;                         // all that has arrived was passed on
};

class Reception {
public:
    // `number`: of the track in its session, from 0. Loop and dialogue must outlive it.
    Reception(EventLoop& loop, RtspDialogue& dialogue, streams::DescribedStream described, int number,
              ReceptionEvents events);
    ~Reception();
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

    const streams::DescribedStream& described() const { return described_; }

    // The value of SETUP's "Transport"; "" when no UDP ports are free.
    std::string offer(Delivery delivery);
    // Takes the camera's answer to it. A camera may answer with another delivery. False when it can't be received.
    bool accept(const std::string& transport);
    bool ready() const { return ready_; }           // accept() was successful
    Delivery delivery() const { return delivery_; } // as accepted

    // Takes a packet that came on a channel of the connection; false when it belongs to another track.
    bool takeChannel(int channel, std::string_view packet);

    // Gives up gaps that have lasted too long; `now` in microseconds.
    void look(std::int64_t now);
    // Tells the camera what has come. `reporter` is our own synchronisation source.
    void sendReport(std::uint32_t reporter);

private:
    bool joinGroup(const std::string& transport);
    void listen();
    void takePacket(std::string_view packet);
    void takeReports(std::string_view packet);
    void closeSockets();

    EventLoop& loop_;
    RtspDialogue& dialogue_;
    const streams::DescribedStream described_;
    const int number_;
    const ReceptionEvents events_;
    Delivery delivery_ = Delivery::udp;
    bool ready_ = false;
    streams::SocketPair sockets_;
    int channel_ = -1;          // of the data, over TCP; its reports come on the next one
    std::string sender_;        // over UDP: datagrams from other addresses are dropped; "": from none
    std::string reportAddress_; // where our reports go, over UDP
    int reportPort_ = 0;        // 0: unknown
    std::unique_ptr<streams::Reordering> order_; // over UDP
    streams::ReceivedSoFar received_;
};

} // namespace gateway
