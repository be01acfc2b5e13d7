#include "appliance/mqtt/home_assistant.h"
#include "appliance/mqtt/service.h"
#include "appliance/mqtt/service_parts.h"

#include <libcommon/clock.h>

namespace mqtt {

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
