// The on-screen display and the front panel's LEDs.
//
// Texts and LED states are kept in /run/decoder/display below the appliance root: one small file for each line and each
// LED, each replaced atomically. The program that composes the picture reads them there. OSD lines are 0 to 2, LEDs 0
// to 255. Bad numbers are logged and change nothing. Any thread.
#pragma once

#include <cstdint>
#include <string>

// Shows a text on a line for `displayTime` seconds; 0 means until it is cleared; a negative time means the same and is
// logged. At most 255 bytes of UTF-8, cut between characters; control characters become blanks.
void osdPrintf(int line, int displayTime, const char* format, ...) __attribute__((format(printf, 3, 4)));

void osdClear(int line);

// Turns the video plane off behind the text; the next frame that is drawn turns it on again.
void osdBlank();

// Sets an LED. `led` 2 is the status LED; `colour` 2 red, 3 amber; `pattern` 2 steady, 3 blinking; other
// values are kept as they are.
void set_led(int led, int colour, int pattern);

namespace libcommon {

inline constexpr int osdLines = 3;

// The text that the line shows now; "" when nothing was shown, or it was cleared or its time is over.
std::string osdText(int line);

// The time of the last osdBlank() on gettimeusec()'s clock; 0 when there was none.
std::int64_t osdBlankTime();

struct LedState {
    int colour = 0;
    int pattern = 0;
};

// The state last set; zeros when it was never set.
LedState ledState(int led);

} // namespace libcommon
