// decoder-address: writes this machine's address into the decoder's configuration.
#include "appliance/network/address_service.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
    bool once = false;
    CLI::App app(
        "Writes this machine's address to the parameter Network.eth0.IPAddress, which the disconnected "
        "decoder shows, now and after each change of the network.",
        "decoder-address");
    app.set_version_flag("--version", HOUSE_VERSION);
    app.add_flag("--once", once, "Write it once and exit");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return network::runAddressService(once);
}
