// decoder-tile: the process of one tile of a wall. decoder-monitor starts it with the appliance root of the tile.
#include "appliance/screen/program_options.h"
#include "appliance/screen/wall/tile_connection.h"
#include "appliance/screen/wall/tile_service.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <sys/socket.h>

namespace {

bool isConnected(int fd) {
    int kind = 0;
    socklen_t size = sizeof kind;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &kind, &size) == 0 && kind == SOCK_SEQPACKET;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Serves one tile of a wall; decoder-monitor --wall starts it.", "decoder-tile");
    app.set_version_flag("--version", HOUSE_VERSION);
    if (const auto ended = screen::parseCommandLine(app, argc, argv))
        return *ended;
    if (isConnected(screen::tileConnection))
        return screen::runTile(screen::tileConnection);
    std::fputs("decoder-tile: there is no connection to a wall; start decoder-monitor --wall\n", stderr);
    return 2;
}
