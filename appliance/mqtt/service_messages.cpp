// What the service publishes, and what it does about messages.
#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/home_assistant.h"
#include "appliance/mqtt/panel_address.h"
#include "appliance/mqtt/service.h"
#include "appliance/mqtt/service_parts.h"
#include "appliance/operating/refused.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/text.h>

#include <algorithm>
#include <sys/syscall.h>
#include <unistd.h>

namespace mqtt {
namespace {

constexpr std::int64_t presencePeriod = 60 * second;

} // namespace

// ---- What arrives.

void Service::takeMessages() {
    if (link_ == nullptr) {
        return;
    }
    for (const Message& message : link_->takeMessages()) {
        const std::optional<std::string> word = commandWord(message.topic);
        const int number = message.subscription.value_or(word ? ofCommands : ofRules);
        if (number == ofIntroduction) {
            if (!message.payload.empty()) {
                publishIntroduction(false);
            }
        } else if (number == ofCommands && word) {
            takeCommand(*word, message);
        } else if (number == ofRules && !message.retained) {
            for (const nlohmann::json& event : detections_.take(configuration_.rules, message.topic,
                                                                message.payload, configuration_.maximumAge)) {
                publishEvent("rule", event);
            }
        }
    }
}

std::optional<std::string> Service::commandWord(const std::string& topic) const {
    const std::size_t slash = topic.rfind('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const std::string_view before = std::string_view(topic).substr(0, slash);
    const std::string site = configuration_.site();
    const auto is = [&](const std::string& whose) { return before == whose + "/command"; };
    const bool mine = is(configuration_.topic) || is(site + "/_all") ||
                      std::ranges::any_of(configuration_.groups, [&](const std::string& group) {
                          return is(site + "/_group/" + group);
                      });
    return mine ? std::optional(topic.substr(slash + 1)) : std::nullopt;
}

void Service::takeCommand(const std::string& word, const Message& message) {
    if (message.payload.empty() && message.retained) {
        return; // the broker forgets a retained command
    }
    Command command;
    bool done = false;
    std::string text;
    try {
        readCommand(word, message.payload, command);
        text = gate_.refusal(command, message.retained, configuration_.maximumAge, timeNow());
        if (text.empty()) {
            text = carryOut(command);
            done = true;
        }
    } catch (const Refused& refused) {
        text = refused.what();
    }
    logmsg(6, "Command %s: %s", command.word.c_str(), libcommon::printable(text).c_str());
    const nlohmann::json reply = replyJson(command, done, text);
    publish("reply", reply, false);
    publishEvent("command", reply);
}

// ---- What is published.

void Service::doWhatIsDue() {
    const Time now = gettimeusec();
    if (link_ == nullptr && connectAt_ && now >= *connectAt_) {
        connect();
        takeLinkChange(); // it may have failed at once
        return;
    }
    if (!isConnected() || link_->unconfirmed() > mostUnconfirmed) {
        if (readStateAt_) {
            readStateAt_ = now + second; // later, when the broker has confirmed more
        }
        if (readSourcesAt_) {
            readSourcesAt_ = now + second;
        }
        return;
    }
    if (readStateAt_ && now >= *readStateAt_) {
        publishState();
    }
    if (readSourcesAt_ && now >= *readSourcesAt_) {
        publishSources();
    }
    if (now >= presenceAt_) {
        publishPresence(true);
        sooner(readStateAt_, now);
    }
}

void Service::publishState() {
    DecoderState more;
    nlohmann::json state = readState(more);
    // The kernel does not tell through a file that a supervisor was killed, or that a text's time is over.
    const bool again = more.textShows || watch_.fd() < 0 || watchSupervisor(more.supervisorPid);
    readStateAt_ = again ? std::optional(gettimeusec() + second) : std::nullopt;
    if (state == state_) {
        return;
    }
    for (const auto& [event, value] : eventsBetween(state_, state)) {
        publishEvent(event, value);
    }
    state_ = state;
    state["time"] = timeNow();
    state["name"] = configuration_.name();
    state["groups"] = configuration_.groups;
    publish("state", state, true);
}

// True when the state has to be read again soon: the supervisor has ended, but its parent has not noticed yet.
bool Service::watchSupervisor(int pid) {
    if (pid >= 0 && pid == endedSupervisor_) {
        return true;
    }
    if (pid != supervisor_) {
        if (supervisorFd_ >= 0) {
            close(supervisorFd_);
        }
        supervisor_ = pid;
        supervisorFd_ = pid < 0 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        endedSupervisor_ = -1;
    }
    return false;
}

void Service::publishSources() {
    nlohmann::json sources = readSources();
    readSourcesAt_.reset();
    if (sources == sources_) {
        return;
    }
    sources_ = std::move(sources);
    publish("sources", sources_, true);
    if (configuration_.discovery) {
        publishIntroduction(true);
    }
}

void Service::publishPresence(bool online) {
    presenceAt_ = gettimeusec() + presencePeriod;
    const double now = timeNow();
    nlohmann::json presence{{"time", now}, {"online", online}, {"since", online ? connectedSince_ : now}};
    if (const std::string panel = panelAddress(); !panel.empty()) {
        presence["panel"] = panel;
    }
    publish("presence", presence, true);
}

void Service::publishIntroduction(bool present) {
    if (!present) {
        for (const std::string& topic :
             introductionTopics(configuration_.discoveryPrefix, configuration_.topic)) {
            link_->publish(topic, "", true);
        }
        return;
    }
    std::vector<std::string> options;
    for (const nlohmann::json& source : sources_) {
        options.push_back(source["option"]);
    }
    for (const auto& [topic, payload] :
         introduction(configuration_.discoveryPrefix, configuration_.topic, options)) {
        link_->publish(topic, payload, true);
    }
}

void Service::publishEvent(const std::string& event, const nlohmann::json& value) {
    if (isConnected() && link_->unconfirmed() <= mostUnconfirmed) {
        publish("event", {{"time", timeNow()}, {"event", event}, {"value", value}}, false);
    }
}

void Service::publish(const char* name, const nlohmann::json& value, bool retain) {
    link_->publish(configuration_.topic + '/' + name,
                   value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), retain);
}

} // namespace mqtt
