// The command line of decoderctl.
#pragma once

#include "appliance/ctl/discover_request.h"

#include "appliance/mqtt/fleet/fleet_request.h"

#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

enum class Command {
    Status,
    Sources,
    Source,
    Explain,
    Parameters,
    Get,
    Set,
    Apply,
    Check,
    Select,
    Alarm,
    Lock,
    Reconnect,
    Flush,
    Connect,
    Disconnect,
    Button,
    Snapshot,
    Report,
    Watch,
    Sweep,
    Discover,
    Mute,
    Unmute,
    Volume,
    Add,
    Remove,
    Rename,
    Order,
    PanelOpen,
    PanelPassword,
    PanelToken,
    PanelTokens,
};

struct Request {
    Command command = Command::Status;
    bool json = false;
    std::string root;                 // --root, "" when it is not given
    mqtt::FleetRequest fleet;         // --fleet: its broker is "" when it is not given
    std::string source;               // source, explain, select, alarm, remove, rename: as typed
    std::vector<std::string> sources; // order: as typed
    std::string url;                  // add
    std::string subUrl;               // add: of a smaller stream; "" when it is not given
    int found = 0;                    // add: number of a camera that discover found; 0: none
    std::string profile;              // add: which stream of that camera; "": main
    std::string user;                 // add; "" when it is not given
    bool passwordInput = false;       // add: the password is a line of standard input
    bool unchecked = false;           // add: without a connection to the camera
    bool apply = true;                // add, remove, rename, order: a decoder that plays connects again
    std::string name;                 // get, set; parameters --values; add, rename: the new name
    std::string value;                // set; "-": a line of standard input
    std::string text;                 // alarm
    std::string file;                 // snapshot, report, check; "" when it is not given
    std::string size;                 // snapshot; "" when it is not given
    bool names = false;               // sources, parameters: only the names
    bool hold = false;                // button
    bool force = false;               // set
    int volume = 0;                   // volume: percent
    double seconds = 0;               // watch; 0: until it is interrupted
    double wait = 15;                 // connect, disconnect: the longest wait in seconds
    std::string role;                 // panel-password, panel-token
    bool remove = false;              // panel-password, panel-tokens: remove `name`
    int days = 0;                     // panel-token: until it expires; 0: never
    DiscoverRequest discover;
};

inline constexpr int usageStatus = 2;

// Returns the request, or the exit status after help (0) or a usage error (2). Help goes to `out`, usage
// errors to `errors`.
std::variant<Request, int> parseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                            std::ostream& errors);
