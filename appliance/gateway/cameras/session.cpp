#include "appliance/gateway/cameras/session.h"

#include "appliance/gateway/cameras/encoding_session.h"
#include "appliance/gateway/cameras/input_session.h"
#include "appliance/gateway/cameras/rtsp_session.h"
#include "appliance/gateway/cameras/web_session.h"

namespace gateway {

std::unique_ptr<CameraSession> makeSession(EventLoop& loop, Transfers& transfers, const CameraUrl& url,
                                           Delivery delivery, const SessionTimes& times,
                                           const SessionEvents& events) {
    if (url.isRtsp()) {
        const auto make = [&](const SessionEvents& its) {
            return std::make_unique<RtspSession>(loop, transfers, url, delivery, times, its);
        };
        return std::make_unique<EncodingSession>(loop, make, events);
    }
    if (url.isHttp())
        return std::make_unique<WebSession>(loop, transfers, url, times, events);
    return std::make_unique<InputSession>(loop, url, input::WebForm::none, times, events);
}

} // namespace gateway
