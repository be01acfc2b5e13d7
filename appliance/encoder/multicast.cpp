#include "appliance/encoder/multicast.h"

bool SharedMulticast::join() {
    const std::lock_guard lock(mutex_);
    if (members_ == 0) {
        auto output = UdpOutput::open(localAddress_, place_.group, place_.port);
        if (!output)
            return false;
        sender_ = std::make_unique<MediaSender>(stream_, std::move(output), faults_, nullptr);
        sender_->start();
    }
    ++members_;
    return true;
}

void SharedMulticast::leave() {
    std::unique_ptr<MediaSender> ending;
    const std::lock_guard lock(mutex_);
    if (--members_ == 0)
        ending = std::move(sender_);
}
