#include "appliance/streams/rtp/kept_packets.h"

namespace streams {

void KeptPackets::add(const Packet& packet, bool beginsKeyPicture) {
    if (beginsKeyPicture) {
        clear();
        keeping_ = true;
    }
    if (!keeping_)
        return;
    bytes_ += packet->size();
    if (bytes_ > limit_) {
        clear();
        return;
    }
    packets_.push_back(packet);
}

void KeptPackets::clear() {
    packets_.clear();
    bytes_ = 0;
    keeping_ = false;
}

} // namespace streams
