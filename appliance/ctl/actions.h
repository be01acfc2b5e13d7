// What decoderctl does to the decoder: events, parameters, the button.
//
// Each returns what to tell the person who typed it ("" nothing but success) and throws Refused when it was
// refused or failed.
#pragma once

#include <libcommon/events.h>

#include <string>

// Throws Refused when no supervisor runs under this appliance root.
void requireRunningAppliance();

// Sends an event with nothing but its identifier.
std::string sendPlainEvent(EventId id);

std::string selectSource(int index, const std::string& name);

// Warns in its answer when the text had to be cut.
std::string raiseAlarm(int index, const std::string& name, const std::string& text);

// Writes "Decoder.Connected" and announces it.
std::string setConnected(bool connected);

// The value of a parameter; Refused when it is not set.
std::string getParameter(const std::string& name);

// Writes it; unknown names, unknown values and values of the supervisor's own only by `force`.
std::string setParameter(const std::string& name, const std::string& value, bool force);

// Presses the button file. A held press reads as '2', a short one as '1'.
std::string pressButton(bool hold);
