// decoder-mqtt: one thread that sleeps until the broker sends something or a file of the decoder changes.
//
// The decoder is a client of the broker, and the supervisor knows nothing of it: the service reads the same files as
// `decoderctl status`, and sends the same events. While the broker is away it waits for the next attempt, reads nothing,
// and keeps nothing to send later.
#pragma once

#include "appliance/mqtt/back_off.h"
#include "appliance/mqtt/commands.h"
#include "appliance/mqtt/configuration.h"
#include "appliance/mqtt/detections.h"
#include "appliance/mqtt/folder_watch.h"
#include "appliance/mqtt/link/link.h"

#include <csignal>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace mqtt {

class Service {
public:
    Service();
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Runs until SIGINT or SIGTERM arrives. Called once, on the main thread.
    void run();

private:
    using Time = std::int64_t; // microseconds of gettimeusec()

    void wait(const sigset_t& inWait);
    Time nextDeadline() const;
    void takeFileChanges(const FolderWatch::Changes& changes);

    void reload();
    void connect();
    void takeLinkChange();
    std::int64_t pauseAfterLoss();
    void greet();
    void farewell(bool forget);
    void settle(Time limit);

    void takeMessages();
    void takeCommand(const std::string& word, const Message& message);
    std::optional<std::string> commandWord(const std::string& topic) const;

    void doWhatIsDue();
    void publishState();
    bool watchSupervisor(int pid);
    void publishSources();
    void publishPresence(bool online);
    void publishIntroduction(bool present);
    void publishEvent(const std::string& event, const nlohmann::json& value);
    void publish(const char* name, const nlohmann::json& value, bool retain);
    bool isConnected() const {
        return greeted_ && link_ != nullptr && link_->state() == Link::State::Connected;
    }

    Configuration configuration_;
    bool olderVersion_ = false; // this broker does not know MQTT 5
    FolderWatch watch_;
    std::unique_ptr<Link> link_;
    bool greeted_ = false; // of link_: subscribed, everything was published once
    BackOff backOff_;
    CommandGate gate_;
    Detections detections_;

    nlohmann::json state_;      // as published last on this connection; null before
    nlohmann::json sources_;    // the same
    bool textShows_ = false;    // an alarm's text shows, and will go without a change of a file
    int supervisor_ = -1;       // pid
    int supervisorFd_ = -1;     // becomes readable when it ends
    int endedSupervisor_ = -1;  // pid of one that has ended
    std::string loggedReason_;  // the failure in the log
    double connectedSince_ = 0; // in seconds since 1970

    Time greetedAt_ = 0;
    Time linkTickAt_ = 0;
    std::optional<Time> connectAt_;
    std::optional<Time> readStateAt_;
    std::optional<Time> readSourcesAt_;
    Time presenceAt_ = 0;
};

// Removes everything that the broker keeps about this decoder. Returns why it failed, "" when it is done. Takes at most
// about half a minute.
std::string forgetDecoder();

} // namespace mqtt
