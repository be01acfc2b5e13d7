#include "appliance/panel/web/gate.h"

#include <algorithm>

namespace panel {

void Gate::receive(std::string_view bytes) {
    if (phase_ == Phase::Refused)
        return;
    received_.append(bytes);
    readHead();
    if (phase_ == Phase::Body && received_.size() >= open_)
        phase_ = Phase::Request;
}

void Gate::readHead() {
    if (phase_ == Phase::Idle && !received_.empty())
        phase_ = Phase::Head;
    if (phase_ != Phase::Head)
        return;
    bool bad = false;
    const std::size_t length = headLength(received_, scanned_, bad);
    scanned_ = received_.size();
    if (bad)
        return refuse(400, "The header has a line that is not allowed");
    if (length > limits_.headBytes || (length == 0 && received_.size() >= limits_.headBytes))
        return refuse(431, "The header is too long");
    if (length == 0)
        return;
    check_ = checkHead(std::string_view(received_).substr(0, length), limits_.bodyBytes);
    if (check_.status != 0)
        return refuse(check_.status, check_.reason);
    open_ = length + check_.bodyBytes;
    phase_ = Phase::Body;
}

std::string Gate::pass(std::size_t most) {
    const std::size_t count = std::min({most, open_, received_.size()});
    std::string passed = received_.substr(0, count);
    received_.erase(0, count);
    open_ -= count;
    return passed;
}

bool Gate::hasBytes() const {
    return open_ > 0 && !received_.empty();
}

bool Gate::wantsBytes() const {
    switch (phase_) {
    case Phase::Idle:
    case Phase::Head:
    case Phase::Body:
        return true;
    case Phase::Request:
    case Phase::Refused:
        return false;
    }
    return false;
}

void Gate::answered() {
    if (phase_ != Phase::Request)
        return;
    phase_ = Phase::Idle;
    scanned_ = 0;
    receive({});
}

void Gate::refuse(int status, std::string_view reason) {
    phase_ = Phase::Refused;
    check_ = {status, reason, 0};
    received_.clear();
    open_ = 0;
}

} // namespace panel
