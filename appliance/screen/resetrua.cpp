// resetrua: resets the video output to a video mode.
#include "appliance/screen/frame_store.h"
#include "appliance/screen/program_options.h"

#include <CLI/CLI.hpp>
#include <cstdio>

int main(int argc, char** argv) {
    std::string name;
    CLI::App app("Resets the decoder's video output: black, in the given video mode.", "resetrua");
    app.set_version_flag("--version", HOUSE_VERSION);
    app.add_option("MODE", name, "pal (720x576 at 25 pictures a second) or ntsc (720x480 at 29.97)")
        ->required()
        ->check(CLI::IsMember({"pal", "ntsc"}, CLI::ignore_case));
    if (const auto ended = screen::parseCommandLine(app, argc, argv))
        return *ended;

    if (screen::FrameStore().reset(*screen::videoModeByName(name)))
        return 0;
    std::fprintf(stderr, "resetrua: the screen %s can't be set up; see the log\n",
                 screen::FrameStore::appliancePath().c_str());
    return 1;
}
