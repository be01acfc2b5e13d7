// The decoders of a site, from what each of them has published. Pure; one thread.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace mqtt {

struct FleetDecoder {
    std::string name;
    bool online = false;
    double since = 0;     // when it came, or was stopped; seconds since 1970; 0: unknown
    double seen = 0;      // its last sign
    bool stopped = false; // offline because it was stopped; otherwise it was lost
    std::vector<std::string> groups;
    std::string mode;
    std::string source;               // "1 Yard"; "" for none
    std::string sourceName;           // "Yard"
    std::vector<std::string> sources; // names, if they are subscribed to
    std::string panel;                // "https://hall.example:8088"; "" for none
    std::string errorCode;            // "" for none
    std::string error;                // in words
    std::string alarm;                // its text
    bool running = false;             // its supervisor
    bool connected = false;
};

class FleetView {
public:
    explicit FleetView(std::string site) : site_(std::move(site)) {}

    // The filters to subscribe to.
    std::vector<std::string> filters() const;

    // The broker says again who is online: everybody else was lost.
    void forgetPresence();

    // Takes a message. One that is not about a decoder's state, or can't be read, changes nothing.
    void take(std::string_view topic, std::string_view payload);

    // All decoders that are known, by name.
    std::vector<FleetDecoder> decoders() const;

    // Those that a group ("": any) and a list of names (empty: any) mean.
    std::vector<FleetDecoder> decoders(const std::string& group, const std::vector<std::string>& names) const;

private:
    std::string site_;
    std::map<std::string, FleetDecoder> decoders_;
};

// A table for people, one line for each decoder.
std::string fleetText(const std::vector<FleetDecoder>& decoders);
nlohmann::json fleetJson(const std::vector<FleetDecoder>& decoders);

} // namespace mqtt
