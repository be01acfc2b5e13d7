// The operator's keys for one decoder.
#pragma once

#include "appliance/operating/typed_number.h"
#include "appliance/screen/monitor/content.h"

#include <functional>
#include <string>

namespace screen {

// Does what the keys mean, with the decoder of this appliance root. For one thread.
class DecoderKeys {
public:
    static constexpr std::int64_t holdUs = 1'000'000; // the button is held when its key is down for this time

    // `notice` shows the operator a short text: an error, or what was typed so far ("" when that is done).
    // `toggleName` shows or hides the source's name.
    DecoderKeys(std::function<void(const std::string&)> notice, std::function<void()> toggleName);

    // `now` is on gettimeusec()'s clock.
    void down(const Key& key, std::int64_t now);
    void up(const Key& key, std::int64_t now);
    void tick(std::int64_t now);

private:
    void digit(int value, std::int64_t now);
    // Shows what goes wrong, and with `tell` also what was done.
    void attempt(const std::function<std::string()>& action, bool tell = false);

    std::function<void(const std::string&)> notice_;
    std::function<void()> toggleName_;
    TypedNumber number_;
    std::int64_t buttonDown_ = 0; // since when; 0: it is up, or its hold is done
};

} // namespace screen
