#include "appliance/panel/pictures/stills.h"

#include <algorithm>

namespace panel {

bool Stills::keep(const std::string& source, JpegPtr jpeg, std::int64_t time) {
    if (jpeg == nullptr || jpeg->size() > mostBytes)
        return false;
    const std::lock_guard lock(mutex_);
    const auto old = std::ranges::find(stills_, source, &Still::source);
    const bool telling = old == stills_.end() || old != stills_.begin() || time - toldAt_ >= tellAfterUs;
    const std::int64_t version = telling ? ++versions_ : old->version;
    if (old != stills_.end()) {
        bytes_ -= old->jpeg->size();
        stills_.erase(old);
    }
    bytes_ += jpeg->size();
    stills_.push_front({source, std::move(jpeg), time, version});
    bound();
    if (telling)
        toldAt_ = time;
    return telling;
}

void Stills::bound() {
    while (stills_.size() > mostStills || bytes_ > mostBytes) {
        bytes_ -= stills_.back().jpeg->size();
        stills_.pop_back();
    }
}

std::optional<Still> Stills::find(const std::string& source) const {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find(stills_, source, &Still::source);
    return found == stills_.end() ? std::nullopt : std::optional(*found);
}

} // namespace panel
