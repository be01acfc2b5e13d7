// Shows a content in the window until something ends it.
//
// The session waits for frames, keys and changes of the window, draws when the content looks different, and does
// nothing otherwise. It handles the keys that concern the window (f, q) and passes the others on.
#pragma once

#include "appliance/screen/monitor/content.h"
#include "appliance/screen/monitor/guard.h"
#include "appliance/screen/monitor/window.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace screen {

enum class BackEndChoice { automatic, memory, gpu };

struct SessionOptions {
    std::optional<bool> fullscreen; // nothing: on a console only
    Size size{1280, 720};           // of a window that is not full screen
    BackEndChoice backEnd = BackEndChoice::automatic;
    std::int64_t until = INT64_MAX; // ends then, on gettimeusec()'s clock
    // Called with the size of the window's picture now and then, on the session's thread; may be null.
    std::function<void(Size)> report;
};

// Opens the window, shows the content made by `make`, and returns why the session ended. `gpu`: the graphics processor
// was tried and is good; only with the choice `automatic`. Messages about a window that can't be opened go to standard
// error at the first attempt, otherwise to the log. Called once in a process, on its only thread; SIGINT and SIGTERM end
// the session.
Ending runSession(const SessionOptions& options, const Attempt& attempt, bool gpu, Shown& shown,
                  const std::function<std::unique_ptr<Content>()>& make);

} // namespace screen
