// The address of a broker: `mqtt://broker.example`, `mqtts://[2001:db8::1]:8884`. Pure; any thread.
#pragma once

#include <string>
#include <string_view>

namespace mqtt {

struct BrokerUrl {
    bool tls = false;
    std::string host; // without brackets
    int port = 0;     // 1 to 65535; the scheme's own when the URL has none
    std::string user; // of MQTT; "" when the URL has none
    std::string password;
    std::string path; // what is behind the first slash after the port

    // "mqtts://broker.example:8883": without credentials.
    std::string text() const;
};

// Reads a URL. Returns what is wrong with it, never with a password; "" for nothing.
std::string readBrokerUrl(std::string_view text, BrokerUrl& url);

// What is wrong with the parameter Mqtt.Broker: like above, and it has neither credentials nor a path.
std::string brokerMistake(std::string_view text);

} // namespace mqtt
