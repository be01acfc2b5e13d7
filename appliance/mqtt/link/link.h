// One connection to an MQTT broker, from the attempt to its end.
//
// It has no thread of its own: the owner polls socket() for events(), calls serve() when something happened and at least
// every `betweenTicks`, and takes the news. So everything of a program happens in one thread, without locks, and an idle
// program sleeps. The library's own loop would wake up every second; its thread would need locks around the decoder's
// files; and its queue would keep messages while the broker is away, which are old when it is back.
//
// A lost connection stays lost: the owner makes a new Link, when it wants to try again. Nothing of the old one remains.
// One thread.
#pragma once

#include "appliance/mqtt/link/tls_failure.h"
#include "appliance/mqtt/rules/broker_url.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct mosquitto;

namespace mqtt {

struct LinkSettings {
    BrokerUrl broker;
    std::string user;
    std::string password;
    std::string caFile; // "": the system's authorities
    std::string certFile;
    std::string keyFile;
    std::string clientId;  // "": the broker chooses one
    std::string willTopic; // gets "offline", retained, when the connection is lost; "": nothing
    bool version5 = true;  // MQTT 5; otherwise 3.1.1

    bool operator==(const LinkSettings& other) const;
};

struct Message {
    std::string topic;
    std::string payload;
    bool retained = false;           // see Link::Old
    std::optional<int> subscription; // its number, if the broker says it
};

class Link {
public:
    static constexpr int betweenTicks = 20'000; // milliseconds
    static constexpr int attemptLimit = 15'000; // milliseconds from the start to the broker's answer

    enum class State { Connecting, Connected, Lost };

    // The retained messages of a subscription. With MQTT 3.1.1 all are like Sent.
    enum class Old {
        Sent,   // the broker sends those that it keeps, marked as retained; later ones are not marked
        Left,   // it sends none; later ones are not marked
        Marked, // it sends none; later ones are marked, too, if they were published as retained
    };

    explicit Link(const LinkSettings& settings);
    ~Link(); // without a word to the broker, which then publishes the will
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // Begins to connect. It looks up the host's name, which may take seconds; the rest happens in serve().
    void start();

    int socket() const;   // -1: none
    short events() const; // for poll()

    // Reads and writes what is possible now, after `revents` of poll() (0: a tick).
    void serve(short revents);

    State state() const { return state_; }
    // Why it is lost, in words; never with a password.
    const std::string& reason() const { return reason_; }
    // The broker does not know MQTT 5.
    bool needsOlderVersion() const { return needsOlderVersion_; }

    // What has arrived since the last call, in its order.
    std::vector<Message> takeMessages();

    // Quality of service 1, only while connected. Bytes of the payload are sent as they are.
    void publish(const std::string& topic, const std::string& payload, bool retain, int expirySeconds = 0);
    // `number` (1 or more) comes back in each message's `subscription`.
    void subscribe(const std::string& filter, int number, Old old);

    // How many published messages the broker has not confirmed yet.
    std::size_t unconfirmed() const { return unconfirmed_; }

    // Says goodbye: the broker publishes no will.
    void end();

private:
    struct Callbacks;
    struct Deleter {
        void operator()(mosquitto* client) const;
    };

    bool prepare();
    bool prepareTls();
    void noteHandshake();
    bool hasInput() const;
    int socketError() const;
    std::string failedAttempt(int result) const;
    void lose(const std::string& reason);
    // A result of the library other than success ends the connection.
    bool check(int result, const char* what);

    LinkSettings settings_;
    std::unique_ptr<mosquitto, Deleter> client_;
    State state_ = State::Connecting;
    std::string reason_;
    bool needsOlderVersion_ = false;
    std::vector<Message> messages_;
    std::size_t unconfirmed_ = 0;
    std::int64_t started_ = 0;
    TlsFailure tlsFailure_;
    bool handshaken_ = false; // with TLS; the broker's answer is still to come
};

} // namespace mqtt
