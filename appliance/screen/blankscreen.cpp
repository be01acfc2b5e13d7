// blankscreen: turns the screen black until the next frame.
#include "appliance/screen/frame_store.h"
#include "appliance/screen/program_options.h"

#include <libcommon/params.h>

#include <CLI/CLI.hpp>
#include <cstdio>

int main(int argc, char** argv) {
    CLI::App app("Turns the decoder's screen black until the next picture is drawn.", "blankscreen");
    app.set_version_flag("--version", HOUSE_VERSION);
    if (const auto ended = screen::parseCommandLine(app, argc, argv))
        return *ended;

    screen::FrameStore store;
    const auto configured = screen::videoModeByName(ParamWrapper(0, false)["Decoder.VideoMode"].toString());
    const bool done =
        store.present() ? store.blank() : store.reset(configured.value_or(screen::VideoMode::ntsc));
    if (!done)
        std::fprintf(stderr, "blankscreen: the screen %s can't be written; see the log\n",
                     screen::FrameStore::appliancePath().c_str());
    return done ? 0 : 1;
}
