#include "appliance/gateway/warm/camera_feed.h"

#include "appliance/gateway/serving/description.h"

#include <utility>

namespace gateway {
namespace {

// As a player gets it that asks the gateway's port.
std::optional<streams::KeptDescription> descriptionOf(const StreamInfo& info) {
    streams::KeptDescription description;
    description.ordered = true;
    if (info.isPictures()) {
        description.form = streams::KeptDescription::Form::pictures;
        return description;
    }
    const auto any = [](const std::string& /*encoding*/) { return true; };
    std::string reason;
    const auto content = streams::readDescription(describe(info, ""), "rtsp://127.0.0.1/", any, any, reason);
    if (!content || !PacketMarks::knows(content->video->encodingName))
        return std::nullopt;
    description.video = content->video;
    description.sound = content->sound;
    return description;
}

} // namespace

CameraFeed::CameraFeed(EventLoop& loop, Cameras& cameras, int number, FeedEvents events)
    : cameras_(cameras), number_(number), events_(std::move(events)), watched_(cameras, [] {}), loop_(loop) {
    loop_.later([this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired())
            ask();
    });
}

void CameraFeed::ask() {
    if (cameras_.find(number_) == nullptr)
        return events_.ended("the camera was removed from the configuration");
    watched_.ask(number_,
                 [this](const StreamInfo& info, const Failure& failure) { answered(info, failure); });
}

void CameraFeed::answered(const StreamInfo& info, const Failure& failure) {
    if (!failure.none())
        return events_.ended(failure.text);
    const auto description = descriptionOf(info);
    if (!description)
        return events_.ended("its key pictures can't be recognised");
    if (description->video)
        marks_ = std::make_unique<PacketMarks>(description->video->encodingName);
    events_.opened(*description);
    joining_ = true;
    watched_.join(number_, viewer());
    joining_ = false;
    if (!watched_.isWatching())
        events_.ended("the camera has just failed");
}

Viewer CameraFeed::viewer() {
    return {.packet =
                [this](Track track, const streams::Packet& packet, bool start) {
                    KeptItem item;
                    if (track == Track::video) {
                        item = marks_->mark(packet);
                        item.key = start; // it knows streams, too, that recover without key pictures
                    }
                    item.kind = track == Track::video ? streams::KeptFrame::video : streams::KeptFrame::sound;
                    item.bytes = packet; // the camera keeps the same one
                    events_.item(item, joining_);
                },
            .picture =
                [this](const streams::Packet& jpeg) {
                    KeptItem item;
                    item.kind = streams::KeptFrame::picture;
                    item.bytes = jpeg;
                    item.unit = ++pictures_;
                    item.newPicture = item.key = true;
                    events_.item(item, joining_);
                },
            .flush = [this] { events_.pause(); },
            .ended = [this](const Failure& failure) { events_.ended(failure.text); }};
}

} // namespace gateway
