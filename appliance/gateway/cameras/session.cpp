#include "appliance/gateway/cameras/session.h"

#include "appliance/gateway/cameras/mjpeg_session.h"
#include "appliance/gateway/cameras/rtsp_session.h"

namespace gateway {

std::unique_ptr<CameraSession> makeSession(EventLoop& loop, Transfers& transfers, const CameraUrl& url,
                                           Delivery delivery, const SessionTimes& times,
                                           const SessionEvents& events) {
    if (url.isRtsp())
        return std::make_unique<RtspSession>(loop, transfers, url, delivery, times, events);
    return std::make_unique<MjpegSession>(loop, transfers, url, times, events);
}

} // namespace gateway
