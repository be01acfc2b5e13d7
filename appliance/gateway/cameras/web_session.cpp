#include "appliance/gateway/cameras/web_session.h"

#include "appliance/gateway/cameras/input_session.h"
#include "appliance/gateway/cameras/mjpeg_session.h"

#include <utility>

namespace gateway {

WebSession::WebSession(EventLoop& loop, Transfers& transfers, CameraUrl url, SessionTimes times,
                       SessionEvents events)
    : loop_(loop), transfers_(transfers), url_(std::move(url)), times_(times), events_(std::move(events)),
      promised_(input::webFormOf(url_.target)) {}

void WebSession::open() {
    if (promised_ == input::WebForm::none)
        askServer();
    else
        read(promised_);
}

// The former session may be in the middle of a call.
void WebSession::use(std::shared_ptr<CameraSession> session) {
    if (session_ != nullptr)
        loop_.later([former = session_] {});
    session_ = std::move(session);
    session_->open();
}

SessionEvents WebSession::eventsOfOne() {
    SessionEvents events = events_;
    events.opened = [this](const StreamInfo& info) {
        opened_ = true;
        events_.opened(info);
    };
    events.ended = [this](const Failure& failure) { onEnded(failure); };
    return events;
}

void WebSession::askServer() {
    asked_ = true;
    use(std::make_shared<MjpegSession>(loop_, transfers_, url_, times_, eventsOfOne(),
                                       [this](input::WebForm form) { onForm(form); }));
}

void WebSession::read(input::WebForm form) {
    use(std::make_shared<InputSession>(loop_, url_, form, times_, eventsOfOne()));
}

void WebSession::onForm(input::WebForm form) {
    if (form == promised_)
        return events_.ended(refusal_);
    read(form);
}

void WebSession::onEnded(const Failure& failure) {
    const bool otherForm = !opened_ && failure.fault == Fault::notUnderstood;
    if (otherForm && !asked_) {
        refusal_ = failure;
        return askServer();
    }
    events_.ended(otherForm && !refusal_.none() ? refusal_ : failure);
}

} // namespace gateway
