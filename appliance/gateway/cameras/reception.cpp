#include "appliance/gateway/cameras/reception.h"

#include "appliance/streams/rtp/rtp_packet.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace gateway {
namespace {

bool isAddress(const std::string& text) {
    in_addr number{};
    return inet_pton(AF_INET, text.c_str(), &number) == 1;
}

bool isGroup(const std::string& address) {
    in_addr number{};
    return inet_pton(AF_INET, address.c_str(), &number) == 1 && IN_MULTICAST(ntohl(number.s_addr));
}

std::string pairFrom(int first) {
    return std::to_string(first) + "-" + std::to_string(first + 1);
}

} // namespace

Reception::Reception(EventLoop& loop, RtspDialogue& dialogue, streams::DescribedStream described, int number,
                     ReceptionEvents events)
    : loop_(loop), dialogue_(dialogue), described_(std::move(described)), number_(number),
      events_(std::move(events)) {}

Reception::~Reception() {
    closeSockets();
}

void Reception::closeSockets() {
    for (const int socket : {sockets_.data, sockets_.control}) {
        if (socket < 0)
            continue;
        loop_.forget(socket);
        close(socket);
    }
    sockets_ = {};
}

// ---- SETUP.

std::string Reception::offer(Delivery delivery) {
    delivery_ = delivery;
    switch (delivery) {
    case Delivery::tcp:
        channel_ = 2 * number_;
        return "RTP/AVP/TCP;unicast;interleaved=" + pairFrom(channel_);
    case Delivery::multicast:
        return "RTP/AVP;multicast";
    case Delivery::udp:
        break;
    }
    sockets_ = streams::bindPair(0);
    return sockets_.data < 0 ? "" : "RTP/AVP;unicast;client_port=" + pairFrom(sockets_.port);
}

bool Reception::accept(const std::string& transport) {
    if (delivery_ == Delivery::tcp) {
        if (const int channel = streams::numberAt(streams::parameterIn(transport, "interleaved"));
            channel >= 0)
            channel_ = channel;
        return ready_ = true;
    }
    if (delivery_ == Delivery::multicast || isGroup(streams::parameterIn(transport, "destination"))) {
        ready_ = joinGroup(transport);
    } else {
        const int port = streams::numberAt(streams::parameterIn(transport, "server_port"));
        reportAddress_ = sender_ = dialogue_.peer();
        reportPort_ = port > 0 ? port + 1 : 0;
        ready_ = true;
    }
    if (ready_)
        listen();
    return ready_;
}

bool Reception::joinGroup(const std::string& transport) {
    const std::string group = streams::parameterIn(transport, "destination");
    const int port = streams::numberAt(streams::parameterIn(transport, "port"));
    if (!isGroup(group) || port < 1 || port >= 65535)
        return false;
    closeSockets();
    delivery_ = Delivery::multicast;
    const auto join = [&](int at) {
        return streams::joinGroup(group, static_cast<std::uint16_t>(at), dialogue_.local());
    };
    sockets_ = {.data = join(port), .control = join(port + 1), .port = static_cast<std::uint16_t>(port)};
    // A camera with several addresses may send from another one than it was asked at.
    const std::string source = streams::parameterIn(transport, "source");
    sender_ = isAddress(source) ? source : "";
    reportAddress_ = group;
    reportPort_ = port + 1;
    return sockets_.data >= 0 && sockets_.control >= 0;
}

// ---- Packets.

void Reception::listen() {
    order_ = std::make_unique<streams::Reordering>([this](std::string_view packet) { takePacket(packet); });
    loop_.watch(sockets_.data, EPOLLIN, [this](std::uint32_t /*events*/) {
        streams::receiveWaiting(sockets_.data, sender_,
                                [this](std::string_view packet) { order_->add(packet, gettimeusec()); });
        events_.pause();
    });
    loop_.watch(sockets_.control, EPOLLIN, [this](std::uint32_t /*events*/) {
        streams::receiveWaiting(sockets_.control, sender_,
                                [this](std::string_view packet) { takeReports(packet); });
    });
}

bool Reception::takeChannel(int channel, std::string_view packet) {
    if (!ready_ || channel_ < 0 || (channel != channel_ && channel != channel_ + 1))
        return false;
    if (channel == channel_)
        takePacket(packet);
    else
        takeReports(packet);
    return true;
}

void Reception::takePacket(std::string_view packet) {
    const auto header = streams::readRtp(packet);
    if (!header)
        return;
    received_.sender = header->source;
    const auto ahead =
        static_cast<std::int16_t>(header->sequence - static_cast<std::uint16_t>(received_.highest));
    received_.highest = received_.packets++ == 0
                            ? header->sequence
                            : received_.highest + static_cast<std::uint32_t>(std::max<int>(ahead, 0));
    events_.packet(packet);
}

void Reception::takeReports(std::string_view packet) {
    if (streams::hasGoodbye(packet))
        events_.goodbye();
}

void Reception::look(std::int64_t now) {
    if (order_ != nullptr)
        order_->look(now);
}

void Reception::sendReport(std::uint32_t reporter) {
    if (!ready_)
        return;
    const std::string report = streams::receiverReport(reporter, received_);
    if (channel_ >= 0)
        return dialogue_.sendPacket(channel_ + 1, report);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(reportPort_));
    if (reportPort_ > 0 && inet_pton(AF_INET, reportAddress_.c_str(), &to.sin_addr) == 1)
        sendto(sockets_.control, report.data(), report.size(), MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

} // namespace gateway
