// One session with a camera, from the connection to its end. There is a class for each protocol.
#pragma once

#include "appliance/gateway/cameras/camera_url.h"
#include "appliance/gateway/cameras/stream_info.h"
#include "appliance/gateway/cameras/transfers.h"

#include <chrono>
#include <memory>

namespace gateway {

struct SessionTimes {
    std::chrono::milliseconds connect{5000};
    std::chrono::milliseconds answer{5000};        // to each request
    std::chrono::milliseconds firstPacket{5000};   // after PLAY
    std::chrono::milliseconds firstDatagram{2000}; // after PLAY, over UDP
    std::chrono::milliseconds silence{5000};       // the longest pause in the stream
};

// How the packets of an RTSP camera come. Other cameras have one way only.
enum class Delivery { udp, tcp, multicast };

// Tells its owner everything through SessionEvents. Destroying it ends the session without a further event. For the
// loop's thread.
class CameraSession {
public:
    CameraSession() = default;
    virtual ~CameraSession() = default;
    CameraSession(const CameraSession&) = delete;
    CameraSession& operator=(const CameraSession&) = delete;

    // Called once. Events may come before it returns, but `ended` does not.
    virtual void open() = 0;
};

// The session for a URL's scheme. Loop and transfers must outlive it.
std::unique_ptr<CameraSession> makeSession(EventLoop& loop, Transfers& transfers, const CameraUrl& url,
                                           Delivery delivery, const SessionTimes& times,
                                           const SessionEvents& events);

} // namespace gateway
