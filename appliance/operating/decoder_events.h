// Events that an operator sends to the decoder. A failure throws Refused.
#pragma once

#include <libcommon/events.h>

#include <string>

// Sends an event.
void sendToDecoder(const Event& event);

// Sends an event that has only an identifier.
void sendPlainEvent(EventId id);

// Shows a source. Returns the sentence to print: `selected 1 "Garage"`, and when it shows if the decoder is locked.
std::string selectSource(int index, const std::string& name);

// `1 "Garage"`.
std::string numberAndName(int index, const std::string& name);
