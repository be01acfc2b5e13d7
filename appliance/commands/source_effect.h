// How a change of the list of sources reaches a decoder that runs.
//
// A decoder reads its sources when it connects. A change is therefore applied by connecting it again; it then shows the
// same source as before, after a pause of less than a second as a rule.
#pragma once

#include <string>

// The decoder before the change. Names are those of sections of the parameter file.
struct DecoderBefore {
    bool running = false;
    bool lacksSources = false; // it would play, but there was no source that it could show
    std::string shown;         // the source that it shows; "": none
};

DecoderBefore lookAtDecoder();

// Waits until camera-gateway has completed the section of a new source; false after 5 seconds.
bool awaitCompletion(const std::string& name);

// Applies a change of the sources, and says in a few words when it is in force. `show`: the section of the source that
// is shown afterwards; "" or one that does not exist: the first one. With `apply` false it only says what to do.
std::string applyChange(const DecoderBefore& before, const std::string& show, bool apply);
