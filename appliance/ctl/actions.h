// Events for the decoder, and its button.
//
// Each command returns the sentence to print, which says what the decoder will do. It throws Refused when it
// was refused or failed.
#pragma once

#include <libcommon/events.h>

#include <string>

// Sends an event that has only an identifier.
void sendPlainEvent(EventId id);

std::string selectSource(int index, const std::string& name);

// Says when the text had to be cut, and why the alarm may not be shown.
std::string raiseAlarm(int index, const std::string& name, const std::string& text);

std::string lockDecoder();
std::string endLock();
std::string flushDetections();

// The sound of the player on the screen; in force within a second.
std::string muteSound(bool muted);
std::string setSoundVolume(int percent);

// Presses the button file. A held press reads as '2', a short one as '1'.
std::string pressButton(bool hold);
