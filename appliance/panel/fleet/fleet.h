// All decoders of the site, as their broker knows them, and commands to them.
//
// What the decoders have published stays known while the broker is away; state() says that it is. Main loop's thread.
#pragma once

#include "appliance/mqtt/fleet/fleet_view.h"
#include "appliance/panel/fleet/broker.h"
#include "appliance/panel/web/source_handle.h"

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <vector>

namespace panel {

struct FleetSettings {
    std::string mistake; // why there is no broker; "" when there is one
    mqtt::LinkSettings link;
    std::string site;

    bool operator==(const FleetSettings& other) const = default;
};

// From the section [Mqtt] of this decoder's configuration.
FleetSettings readFleetSettings();

struct FleetCommand {
    std::string word;   // "select" or "alarm"
    std::string source; // a number, a name or the beginning of a name; each decoder looks in its own list
    std::string text;   // alarm
    std::string group;  // "": all
    std::vector<std::string> decoders; // names; empty: all
};

struct FleetOutcome {
    std::string name;
    bool done = false;
    bool online = false;
    std::string text; // what was done, or why it was not
};

class Fleet {
public:
    static constexpr unsigned replyLimit = 5000;    // milliseconds
    static constexpr unsigned betweenEvents = 500;  // milliseconds
    static constexpr std::size_t mostCommands = 16; // that wait for replies

    // `changed` gets the text of now() when it has changed, at most once in `betweenEvents`.
    Fleet(std::unique_ptr<Broker> broker, std::function<void(const std::string& json)> changed);
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    // Connects to this broker. The same settings as before change nothing.
    void configure(const FleetSettings& settings);

    // {"broker": {...}, "decoders": [...]}
    nlohmann::json now() const;
    // Throws Refused with the reason when no broker is configured.
    void requireBroker() const;
    // The panels of all decoders that publish theirs, as Prometheus wants it over HTTP. Throws like requireBroker().
    nlohmann::json targets() const;

    // Sends a command to the decoders that are meant. `done` is called once, when those that are online have answered, or
    // after `replyLimit`. Throws Refused when nothing can be sent.
    using Done = std::function<void(const std::vector<FleetOutcome>&)>;
    void command(const FleetCommand& command, Done done);

private:
    enum class State { None, Connecting, Connected, Lost };
    struct Waiting {
        std::vector<mqtt::FleetDecoder> meant;
        std::set<std::string> expected; // have not answered
        std::map<std::string, FleetOutcome> answers;
        Done done;
        SourceHandle limit;
    };

    void connected();
    void take(const mqtt::Message& message);
    void takeReply(const std::string& decoder, const std::string& payload);
    void lost(const std::string& reason);
    void setState(State state, const std::string& reason);
    void finish(const std::string& id);
    void tellSoon();
    void tell();
    std::vector<mqtt::FleetDecoder> meantBy(const FleetCommand& command) const;
    std::string marker() const { return settings_.site + "/_fleet/" + id_; }

    std::unique_ptr<Broker> broker_;
    std::function<void(const std::string&)> changed_;
    FleetSettings settings_;
    mqtt::FleetView view_{""};
    State state_ = State::None;
    std::string reason_;
    double since_ = 0; // of state_; seconds since 1970
    std::string id_;   // of this panel at the broker
    unsigned commands_ = 0;
    std::map<std::string, Waiting> waiting_; // by the command's id
    std::string told_;
    bool newsWaits_ = false;
    SourceHandle pause_; // after an event
};

} // namespace panel
