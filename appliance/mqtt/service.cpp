#include "appliance/mqtt/service.h"

#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/home_assistant.h"
#include "appliance/operating/refused.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace mqtt {
namespace {

// Process-wide state of this file.
// Set by the handler of SIGINT and SIGTERM; read by the loop.
volatile std::sig_atomic_t stopAsked = 0;
// Set by connect() while it looks up the broker's name, which may take long; read by the handler. Nothing has to be said
// to the broker then.
volatile std::sig_atomic_t lookingUp = 0;

constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t settleTime = 20'000; // changes come several at a time
constexpr std::int64_t presencePeriod = 60 * second;
constexpr std::int64_t stableAfter = 5 * second; // a connection that lasted so long was a good one
constexpr std::int64_t goodbyeLimit = 2 * second;
constexpr std::size_t mostUnconfirmed = 100; // a broker that does not keep up gets the newest state later
constexpr int ofCommands = 1;                // numbers of subscriptions
constexpr int ofRules = 2;
constexpr int ofIntroduction = 3;

sigset_t endSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// Blocks the signals that end the program everywhere except in waits. Returns the mask for the waits.
sigset_t installHandlers() {
    struct sigaction action {};
    action.sa_handler = [](int) {
        stopAsked = 1;
        if (lookingUp != 0) {
            _exit(0);
        }
    };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    const sigset_t signals = endSignals();
    sigset_t before;
    sigprocmask(SIG_BLOCK, &signals, &before);
    sigdelset(&before, SIGINT);
    sigdelset(&before, SIGTERM);
    return before;
}

// The name lookup takes no notice of signals, so they end the process at once.
void startInterruptibly(Link& link) {
    const sigset_t signals = endSignals();
    lookingUp = 1;
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    link.start();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    lookingUp = 0;
}

std::vector<std::string> keptTopics(const std::string& topic) {
    return {topic + "/availability", topic + "/presence", topic + "/state", topic + "/sources"};
}

std::vector<std::string> ruleTopics(const Configuration& configuration) {
    std::vector<std::string> topics;
    for (const Rule& rule : configuration.rules) {
        topics.push_back(rule.topic);
    }
    return topics;
}

bool needsNewConnection(const Configuration& one, const Configuration& other) {
    return !(one.link == other.link) || one.mistake != other.mistake || one.topic != other.topic ||
           one.groups != other.groups || one.discovery != other.discovery ||
           one.discoveryPrefix != other.discoveryPrefix || ruleTopics(one) != ruleTopics(other);
}

void pollLink(Link& link, int milliseconds) {
    pollfd socket{link.socket(), link.events(), 0};
    poll(&socket, 1, milliseconds);
    link.serve(socket.revents);
}

void sooner(std::optional<std::int64_t>& deadline, std::int64_t time) {
    deadline = deadline ? std::min(*deadline, time) : time;
}

} // namespace

Service::Service() = default;

Service::~Service() {
    if (supervisorFd_ >= 0) {
        close(supervisorFd_);
    }
}

void Service::run() {
    const sigset_t inWait = installHandlers();
    reload();
    while (stopAsked == 0) {
        wait(inWait);
        takeMessages();
        takeLinkChange();
        doWhatIsDue();
    }
    farewell(false);
}

// ---- Waiting.

void Service::wait(const sigset_t& inWait) {
    std::array<pollfd, 3> all{{{watch_.fd(), POLLIN, 0}, {supervisorFd_, POLLIN, 0}, {-1, 0, 0}}};
    if (link_ != nullptr) {
        all[2] = {link_->socket(), link_->events(), 0};
    }
    const Time left = std::max<Time>(nextDeadline() - gettimeusec(), 0);
    const timespec time{left / second, left % second * 1000};
    const int ready = ppoll(all.data(), all.size(), &time, &inWait);
    if (ready > 0 && all[0].revents != 0) {
        takeFileChanges(watch_.take());
    }
    if (ready > 0 && all[1].revents != 0) {
        close(std::exchange(supervisorFd_, -1));
        endedSupervisor_ = std::exchange(supervisor_, -1);
        sooner(readStateAt_, gettimeusec());
    }
    if (link_ != nullptr && (gettimeusec() >= linkTickAt_ || (ready > 0 && all[2].revents != 0))) {
        linkTickAt_ = gettimeusec() + Link::betweenTicks * 1000;
        link_->serve(ready > 0 ? all[2].revents : static_cast<short>(0));
    }
}

Service::Time Service::nextDeadline() const {
    Time next = gettimeusec() + 3600 * second;
    if (link_ != nullptr) {
        next = std::min(next, linkTickAt_);
    }
    if (isConnected()) {
        next = std::min({next, presenceAt_, readStateAt_.value_or(next), readSourcesAt_.value_or(next)});
    }
    return std::min(next, connectAt_.value_or(next));
}

void Service::takeFileChanges(const FolderWatch::Changes& changes) {
    const Time soon = gettimeusec() + settleTime;
    if (changes.state) {
        sooner(readStateAt_, soon);
    }
    if (changes.sources) {
        sooner(readSourcesAt_, soon);
    }
    if (changes.configuration) {
        reload();
    }
}

// ---- The connection.

void Service::reload() {
    Configuration fresh = readConfiguration();
    if (fresh.ruleMistakes != configuration_.ruleMistakes) {
        for (const std::string& mistake : fresh.ruleMistakes) {
            logmsg(3, "%s; the rule is not used", mistake.c_str());
        }
    }
    const bool first = configuration_.topic.empty();
    const bool anew = first || needsNewConnection(configuration_, fresh);
    const bool moves = configuration_.topic != fresh.topic ||
                       configuration_.discoveryPrefix != fresh.discoveryPrefix || !fresh.mistake.empty();
    if (anew && !first) {
        farewell(moves);
    }
    configuration_ = std::move(fresh);
    if (!anew) {
        return;
    }
    olderVersion_ = false;
    backOff_.reset();
    connectAt_ = configuration_.mistake.empty() ? std::optional(gettimeusec()) : std::nullopt;
    if (!configuration_.mistake.empty()) {
        logmsg(6, "No broker is used: %s", configuration_.mistake.c_str());
    }
}

void Service::connect() {
    connectAt_.reset();
    LinkSettings settings = configuration_.link;
    settings.version5 = !olderVersion_;
    link_ = std::make_unique<Link>(settings);
    greeted_ = false;
    startInterruptibly(*link_);
    linkTickAt_ = gettimeusec() + Link::attemptLimit * 1000;
}

void Service::takeLinkChange() {
    if (link_ == nullptr || link_->state() == Link::State::Connecting) {
        return;
    }
    if (link_->state() == Link::State::Connected) {
        if (!greeted_) {
            greet();
        }
        return;
    }
    if (greeted_ && gettimeusec() - greetedAt_ >= stableAfter) {
        backOff_.reset();
    }
    if (link_->reason() != loggedReason_) {
        loggedReason_ = link_->reason();
        logmsg(3, "%s: %s; it is tried again", configuration_.link.broker.text().c_str(),
               loggedReason_.c_str());
    }
    olderVersion_ = olderVersion_ || link_->needsOlderVersion();
    connectAt_ = gettimeusec() + backOff_.next(static_cast<std::uint32_t>(random()));
    link_.reset();
    state_ = sources_ = nullptr;
}

void Service::greet() {
    greeted_ = true;
    greetedAt_ = gettimeusec();
    linkTickAt_ = greetedAt_ + Link::betweenTicks * 1000;
    connectedSince_ = timeNow();
    loggedReason_.clear();
    logmsg(6, "Connected to %s as %s", configuration_.link.broker.text().c_str(),
           configuration_.topic.c_str());
    const std::string command = "/command/+";
    link_->subscribe(configuration_.topic + command, ofCommands, Link::Old::Marked);
    link_->subscribe(configuration_.site() + "/_all" + command, ofCommands, Link::Old::Marked);
    for (const std::string& group : configuration_.groups) {
        link_->subscribe(configuration_.site() + "/_group/" + group + command, ofCommands, Link::Old::Marked);
    }
    for (const Rule& rule : configuration_.rules) {
        link_->subscribe(rule.topic, ofRules, Link::Old::Left);
    }
    if (!configuration_.discovery) {
        link_->subscribe(introductionTopics(configuration_.discoveryPrefix, configuration_.topic).front(),
                         ofIntroduction, Link::Old::Sent);
    }
    publishSources();
    publishState();
    publishPresence(true);
    link_->publish(configuration_.topic + "/availability", "online", true);
}

// Says goodbye, and waits for the broker's confirmation. `forget`: the broker keeps nothing about the decoder.
void Service::farewell(bool forget) {
    if (isConnected()) {
        if (forget) {
            for (const std::string& topic : keptTopics(configuration_.topic)) {
                link_->publish(topic, "", true);
            }
            if (configuration_.discovery) {
                publishIntroduction(false);
            }
        } else {
            publishPresence(false);
            link_->publish(configuration_.topic + "/availability", "offline", true);
        }
        settle(goodbyeLimit);
        link_->end();
    }
    link_.reset();
    greeted_ = false;
    connectAt_.reset();
    state_ = sources_ = nullptr;
}

void Service::settle(Time limit) {
    const Time until = gettimeusec() + limit;
    while (link_->state() == Link::State::Connected && link_->unconfirmed() > 0 && gettimeusec() < until) {
        pollLink(*link_, 50);
    }
}

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
    publish("presence", {{"time", now}, {"online", online}, {"since", online ? connectedSince_ : now}}, true);
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

std::string forgetDecoder() {
    const Configuration configuration = readConfiguration();
    if (!configuration.mistake.empty()) {
        return configuration.mistake;
    }
    LinkSettings settings = configuration.link;
    settings.clientId += "-clear";
    settings.willTopic.clear();
    Link link(settings);
    link.start();
    const auto pollWhile = [&](auto condition) {
        const std::int64_t until = gettimeusec() + Link::attemptLimit * 1000;
        while (condition() && gettimeusec() < until) {
            pollLink(link, 100);
        }
    };
    pollWhile([&] { return link.state() == Link::State::Connecting; });
    if (link.state() == Link::State::Connected) {
        for (const std::string& topic : keptTopics(configuration.topic)) {
            link.publish(topic, "", true);
        }
        for (const std::string& topic :
             introductionTopics(configuration.discoveryPrefix, configuration.topic)) {
            link.publish(topic, "", true);
        }
        pollWhile([&] { return link.state() == Link::State::Connected && link.unconfirmed() > 0; });
    }
    const bool done = link.state() == Link::State::Connected && link.unconfirmed() == 0;
    const std::string reason = link.reason().empty() ? "the broker does not answer" : link.reason();
    link.end();
    return done ? "" : reason;
}

} // namespace mqtt
