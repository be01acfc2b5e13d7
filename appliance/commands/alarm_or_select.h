// An alarm from a program outside the decoder, such as a detector or a door contact, in both modes.
//
// A decoder takes alarms in manual mode only. In automatic mode an alarm would stay in its queue and show much later.
#pragma once

#include <string>

struct AlarmAnswer {
    bool selected = false; // the source was selected; false: an alarm was raised
    std::string sentence;  // what was done, for the log or the caller
};

// Shows the source with the text. In manual mode this raises an alarm. In automatic mode it selects the source and shows
// the name and the text on the screen for Alarm.DisplayTime. `text` may be empty.
//
// Throws Refused, and changes nothing, when the decoder would not show it now: Alarm.Enabled is not "yes", no decoder runs,
// or it is in automatic mode and disconnected or locked. Any thread.
AlarmAnswer alarmOrSelect(int index, const std::string& name, const std::string& text);
