// Follows the decoder for the panel: reads its files when they change, and tells what is new.
//
// The kernel says when a file has changed (ChangeWatch). A slow tick finds what changes without a file: a text whose time is
// over, a supervisor that has died, pictures. So a decoder that does nothing costs the panel one wake-up in two seconds, or
// one in a second while somebody looks.
//
// Main loop's thread only; every read is of small local files.
#pragma once

#include "appliance/panel/state/change_watch.h"
#include "appliance/panel/state/decoder_json.h"
#include "appliance/panel/state/switch_times.h"
#include "appliance/reporting/changes.h"
#include "appliance/screen/frame_store.h"
#include "appliance/streams/kept_status.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace panel {

struct ObserverNews {
    std::function<void(const std::string& json)> status;  // the whole object has changed
    std::function<void(const std::string& json)> sources; // the whole list has changed
    std::function<void(const std::string& json)> change;  // one value, as `decoderctl watch --json` prints it
    std::function<void(const SwitchEvent&, const std::string& sourceName)> switched;
    std::function<void(const std::string& code, const std::string& sourceName)>
        error;                           // a source has a new error
    std::function<void()> configured;    // the configuration may have changed
    std::function<void()> sourceChanged; // another source is on the screen, or none
};

class Observer {
public:
    Observer(ObserverNews news, FindStill still);
    ~Observer();
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    // Somebody looks: the tick is faster.
    void setWatched(bool watched);

    // A source was selected through the panel just now; its first picture is the answer.
    void selected(int source);

    // What the keeper of warm sources said last; read by a thread that may wait.
    void setWarm(std::vector<streams::KeptReport> reports);

    // The supervisor's state, from its log; "": not known.
    void setMachineState(std::string state);

    // Reads everything now and tells what is new. For a reply after a command, and for a tick.
    void look();
    // The same, unless it was done a moment ago: for the many requests of many clients.
    void refresh();
    // The list of sources may have changed in a way that no file tells, such as a new still.
    void lookAtSources();

    // As they are now.
    nlohmann::json statusNow();
    nlohmann::json sourcesNow();
    const DecoderStatus& status() const { return status_; }
    const std::vector<SourceReport>& sources() const { return sources_; }

private:
    void lookSoon();
    void armTick();
    void readFiles();
    void lookAtPictures();
    void tellChanges(const DecoderStatus& before);
    void tellErrors();
    void addWarm();
    StatusContext context();
    std::string nameOfShown(int source) const;

    ObserverNews news_;
    FindStill still_;
    ChangeWatch watch_;
    screen::FrameStore store_;
    SwitchTimes times_;
    DecoderStatus status_;
    InForce inForce_;
    std::vector<SourceReport> sources_;
    std::vector<streams::KeptReport> warm_;
    std::vector<std::pair<std::string, std::string>> errors_; // name and code of each source
    FrameRate rate_;
    std::string machineState_;
    std::string shownStatus_; // the last ones that were told, without what changes all the time
    std::string shownSources_;
    std::int64_t shownSince_ = 0;
    std::string shownSinceText_; // of shownSince_
    std::int64_t lookedAt_ = 0;  // gettimeusec()'s clock
    bool watched_ = false;
    bool first_ = true;
    unsigned watchId_ = 0; // GLib's sources; 0: none
    unsigned soonId_ = 0;
    unsigned tickId_ = 0;
};

// The time on the wall clock of a moment on gettimeusec()'s clock, in ISO 8601 with milliseconds and offset.
std::string wallTime(std::int64_t moment);

} // namespace panel
