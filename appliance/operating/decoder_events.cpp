#include "appliance/operating/decoder_events.h"

#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"

#include <cerrno>
#include <cstring>

void sendToDecoder(const Event& event) {
    if (sendEvent(&event) == 0) {
        return;
    }
    switch (errno) {
    case ENOENT:
        throw Refused("no decoder is running " + applianceText());
    case EAGAIN:
        throw Refused("the decoder's event queue is full: it does not keep up, try again");
    case EACCES:
        throw Refused("not allowed to talk to the decoder " + applianceText() + ": use its user or group");
    default:
        throw Refused(std::string("the event could not be sent: ") + std::strerror(errno));
    }
}

void sendPlainEvent(EventId id) {
    Event event{};
    event.id = id;
    sendToDecoder(event);
}

std::string numberAndName(int index, const std::string& name) {
    return std::to_string(index) + ' ' + inQuotes(name);
}

std::string selectSource(int index, const std::string& name) {
    const bool heldBack = isHeldBack();
    Event event{};
    event.id = EID_SELECT;
    event.value1 = index;
    sendToDecoder(event);
    return "selected " + numberAndName(index, name) + (heldBack ? "; shown when the lock ends" : "");
}
