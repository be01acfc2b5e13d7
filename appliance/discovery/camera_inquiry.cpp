#include "appliance/discovery/camera_inquiry.h"

#include <algorithm>
#include <ctime>

namespace {

class Inquiry {
public:
    Inquiry(Camera& camera, const WebAddress& service, const LocalNetwork& network,
            const Credentials& credentials, Moment end)
        : camera_(camera), service_(service), network_(network), hasUser_(!credentials.user.empty()),
          client_(credentials, end) {}

    void run() {
        if (askTime() && askInformation() && askServices()) {
            askStreams();
        }
    }

private:
    // Each step returns false when the camera's state is decided.

    bool askTime() {
        const SoapReply reply = client_.ask(service_, timeRequest(), true);
        if (reply.outcome == SoapOutcome::NoConnection || reply.outcome == SoapOutcome::NotUnderstood) {
            return fail(reply);
        }
        // A camera that does not tell the time gets ours.
        if (const std::optional<std::int64_t> time = readTime(reply.content); time) {
            client_.setClockDifference(*time - static_cast<std::int64_t>(std::time(nullptr)));
        }
        return true;
    }

    bool askInformation() {
        const SoapReply reply = client_.ask(service_, informationRequest());
        if (reply.outcome == SoapOutcome::Answered) {
            camera_.information = readInformation(reply.content);
            return true;
        }
        return reply.outcome == SoapOutcome::Fault || fail(reply);
    }

    bool askServices() {
        SoapReply reply = client_.ask(service_, servicesRequest());
        MediaServices named;
        if (reply.outcome == SoapOutcome::Answered) {
            named = readServices(reply.content);
        }
        if (named.media1.empty() && named.media2.empty()) {
            reply = client_.ask(service_, capabilitiesRequest());
            if (reply.outcome != SoapOutcome::Answered) {
                return fail(reply);
            }
            named = readCapabilities(reply.content);
        }
        media1_ = ownAddress(named.media1);
        media2_ = ownAddress(named.media2);
        return media1_ || media2_ || decide(CameraState::NoStreams, "it has no media service");
    }

    void askStreams() {
        SoapReply reply;
        if (media2_) {
            reply = askProfiles(*media2_, MediaVersion::Two);
        }
        if (camera_.streams.empty() && media1_) {
            reply = askProfiles(*media1_, MediaVersion::One);
        }
        if (reply.outcome != SoapOutcome::Answered) {
            fail(reply);
        } else if (camera_.streams.empty()) {
            decide(CameraState::NoStreams, "none of its profiles has video");
        } else if (std::ranges::all_of(camera_.streams, &std::string::empty, &CameraStream::url)) {
            decide(CameraState::NoStreams, camera_.streams.front().problem);
        } else {
            decide(CameraState::Ready, "");
        }
    }

    SoapReply askProfiles(const WebAddress& media, MediaVersion version) {
        SoapReply reply = client_.ask(media, profilesRequest(version));
        for (MediaProfile& profile : readProfiles(reply.content)) {
            SoapReply stream = client_.ask(media, streamRequest(version, profile.token));
            if (stream.outcome == SoapOutcome::NotAuthorized) {
                camera_.streams.clear();
                return stream;
            }
            camera_.streams.push_back(streamOf(std::move(profile), stream));
        }
        return reply;
    }

    CameraStream streamOf(MediaProfile profile, const SoapReply& reply) const {
        if (reply.outcome != SoapOutcome::Answered) {
            return {std::move(profile), {}, reply.reason.empty() ? "it has no address" : reply.reason};
        }
        const std::optional<WebAddress> address = readStreamUrl(readStreamAddress(reply.content));
        if (!address) {
            return {std::move(profile), {}, "its address is not understood"};
        }
        if (!isNear(address->host)) {
            return {std::move(profile), {}, "its address is in another network: " + address->hostAndPort()};
        }
        return {std::move(profile), address->url(), {}};
    }

    bool isNear(const std::string& host) const {
        const std::optional<std::uint32_t> number = ipv4Of(host);
        return host == service_.host || (number && network_.contains(*number));
    }

    // A service of the camera: on the host that answered, whatever host it names, so that the digest of the password
    // goes nowhere else.
    std::optional<WebAddress> ownAddress(const std::string& named) const {
        std::optional<WebAddress> address = readServiceUrl(named);
        if (address) {
            address->host = service_.host;
        }
        return address;
    }

    bool fail(const SoapReply& reply) {
        switch (reply.outcome) {
        case SoapOutcome::NotAuthorized:
            return decide(hasUser_ ? CameraState::WrongPassword : CameraState::NeedsPassword, reply.reason);
        case SoapOutcome::NoConnection:
            return decide(CameraState::NoAnswer, reply.reason);
        case SoapOutcome::NotUnderstood:
            return decide(CameraState::NotUnderstood, reply.reason);
        case SoapOutcome::Fault:
        case SoapOutcome::Answered:
            break;
        }
        return decide(CameraState::NoStreams,
                      reply.reason.empty() ? "it refuses to list them" : reply.reason);
    }

    bool decide(CameraState state, const std::string& reason) {
        camera_.state = state;
        camera_.reason = reason;
        return false;
    }

    Camera& camera_;
    const WebAddress service_;
    const LocalNetwork network_;
    const bool hasUser_;
    SoapClient client_;
    std::optional<WebAddress> media1_;
    std::optional<WebAddress> media2_;
};

} // namespace

void inquire(Camera& camera, const WebAddress& service, const LocalNetwork& network,
             const Credentials& credentials, Moment end) {
    Inquiry(camera, service, network, credentials, end).run();
    if (camera.name.empty()) {
        const DeviceInformation& known = camera.information;
        camera.name =
            known.manufacturer + (known.manufacturer.empty() || known.model.empty() ? "" : " ") + known.model;
    }
}
