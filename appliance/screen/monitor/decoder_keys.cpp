#include "appliance/screen/monitor/decoder_keys.h"

#include "appliance/operating/button.h"
#include "appliance/operating/muting.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/source_steps.h"

#include <libcommon/log.h>

#include <utility>

namespace screen {

DecoderKeys::DecoderKeys(std::function<void(const std::string&)> notice, std::function<void()> toggleName)
    : notice_(std::move(notice)), toggleName_(std::move(toggleName)) {}

void DecoderKeys::attempt(const std::function<std::string()>& action, bool tell) {
    try {
        const std::string done = action();
        logmsg(6, "Key of the monitor: %s", done.c_str());
        notice_(tell ? done : "");
    } catch (const Refused& refused) {
        logmsg(3, "Key of the monitor: %s", refused.what());
        notice_(refused.what());
    }
}

void DecoderKeys::digit(int value, std::int64_t now) {
    const int count = static_cast<int>(listSources().size());
    if (const auto number = number_.digit(value, count, now))
        attempt([&] { return selectByNumber(*number); });
    else
        notice_(number_.text() + "_");
}

void DecoderKeys::down(const Key& key, std::int64_t now) {
    if (key.kind != KeyKind::digit)
        number_.clear();
    switch (key.kind) {
    case KeyKind::digit:
        return digit(key.digit, now);
    case KeyKind::next:
        return attempt([] { return selectNeighbour(1); });
    case KeyKind::previous:
        return attempt([] { return selectNeighbour(-1); });
    case KeyKind::button:
        buttonDown_ = now;
        return;
    case KeyKind::name:
        return toggleName_();
    case KeyKind::mute:
        // The picture does not show whether the sound is off.
        return attempt([] { return muteSound(!isMuted()); }, true);
    case KeyKind::back:
        return; // one decoder has no way back
    }
}

void DecoderKeys::up(const Key& key, std::int64_t /*now*/) {
    if (key.kind != KeyKind::button || buttonDown_ == 0)
        return;
    buttonDown_ = 0;
    attempt([] { return pressButton(false); });
}

void DecoderKeys::tick(std::int64_t now) {
    if (const auto number = number_.tick(now))
        attempt([&] { return selectByNumber(*number); });
    if (buttonDown_ == 0 || now - buttonDown_ < holdUs)
        return;
    buttonDown_ = 0;
    attempt([] { return pressButton(true); });
}

} // namespace screen
