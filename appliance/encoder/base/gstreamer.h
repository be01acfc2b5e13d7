// What every room that runs GStreamer needs.
#pragma once

#include <initializer_list>
#include <string>

// Initialises GStreamer at the first call. Any thread.
void startGStreamer();

// An error text about the first of these GStreamer elements that this machine does not have, or "".
std::string missingElement(std::initializer_list<const char*> names);
