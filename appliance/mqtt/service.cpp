#include "appliance/mqtt/service.h"

#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/home_assistant.h"
#include "appliance/mqtt/service_parts.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace mqtt {
namespace {

// Process-wide state of this file.
// Set by the handler of SIGINT and SIGTERM; read by the loop.
volatile std::sig_atomic_t stopAsked = 0;
// Set by connect() while it looks up the broker's name, which may take long; read by the handler. Nothing has to be said
// to the broker then.
volatile std::sig_atomic_t lookingUp = 0;

constexpr std::int64_t settleTime = 20'000;      // changes come several at a time
constexpr std::int64_t stableAfter = 5 * second; // a connection that lasted so long was a good one
constexpr std::int64_t goodbyeLimit = 2 * second;

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
    const timespec time{.tv_sec = left / second, .tv_nsec = static_cast<long>(left % second) * 1000};
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
    connectAt_ = gettimeusec() + pauseAfterLoss();
    link_.reset();
    state_ = sources_ = nullptr;
}

// Microseconds until the next attempt. Logs why there is no connection, but each reason only once.
std::int64_t Service::pauseAfterLoss() {
    const std::string broker = configuration_.link.broker.text();
    if (link_->needsOlderVersion() && !std::exchange(olderVersion_, true)) {
        logmsg(6, "%s: the broker does not know MQTT 5, so MQTT 3.1.1 is used", broker.c_str());
        return 0;
    }
    if (link_->reason() != loggedReason_) {
        loggedReason_ = link_->reason();
        logmsg(3, "%s: %s; it is tried again", broker.c_str(), loggedReason_.c_str());
    }
    return backOff_.next(static_cast<std::uint32_t>(random()));
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

} // namespace mqtt
