// Tells from the pixels of a screen whether it shows the text of an alarm.
#pragma once

#include "bench/screen/pixels.h"
#include "tests/appliance/appliance.h"

#include <optional>
#include <utility>
#include <vector>

namespace bench {

// Raises alarms of source 1 while source 0 shows. The pixels of the text are those that are bright in all pictures with it
// and dark in some without it. One thread.
class AlarmText {
public:
    // Waits for a picture of source 0, raises an alarm and learns the pixels of its text.
    AlarmText(const Pixels& pixels, const appliance::Appliance& decoder, Watcher& watcher);

    bool isKnown() const { return text_.size() >= enough; }

    // Raises an alarm; milliseconds until a picture of source 1 shows with the text. Then waits until source 0 shows
    // again. Nothing: that did not happen in time.
    std::optional<double> raise(double patienceMs);

private:
    static constexpr std::size_t enough = 50;
    bool shows() const;
    bool back(double patienceMs);
    void learn();

    const Pixels& pixels_;
    const appliance::Appliance& decoder_;
    Watcher& watcher_;
    std::vector<std::pair<int, int>> text_;
};

} // namespace bench
