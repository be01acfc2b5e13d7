#include "appliance/players/decoding/packet_pictures.h"

#include "appliance/players/decoding/access_units.h"
#include "appliance/players/decoding/mpeg2_packets.h"
#include "appliance/streams/rtp/reordering.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace player {
namespace {

constexpr std::size_t mostWaiting =
    16384; // more than a long group of pictures that the keeper hands over at once
constexpr std::chrono::milliseconds gapCheck{10}; // how often a gap in the packets is looked at

struct Known {
    const char* encodingName;
    const char* codec; // of libavcodec; "": GStreamer decodes it
};

constexpr Known known[] = {{"H264", "h264"},      {"H265", "hevc"},       {"MP4V-ES", "mpeg4"},
                           {"MPV", "mpeg2video"}, {"MP2T", "mpeg2video"}, {"JPEG", ""}};

const Known* find(const std::string& encodingName) {
    const auto* found =
        std::ranges::find_if(known, [&](const Known& one) { return encodingName == one.encodingName; });
    return found == std::end(known) ? nullptr : found;
}

// The bytes of "config=0001b0..." in a description of MPEG-4: the headers that come before the first picture.
std::string configOf(const std::string& fmtp) {
    constexpr std::string_view name = "config=";
    const auto isHex = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    };
    std::string bytes;
    const std::size_t found = fmtp.find(name);
    for (std::size_t at = found + name.size();
         found != std::string::npos && at + 1 < fmtp.size() && isHex(fmtp[at]) && isHex(fmtp[at + 1]);
         at += 2)
        bytes += static_cast<char>(std::stoi(fmtp.substr(at, 2), nullptr, 16));
    return bytes;
}

struct Packet {
    std::string bytes;
    std::int64_t arrived = 0;
    bool shown = true;
};

} // namespace

struct PacketPictures::State {
    State(const StreamSink& given, MakeDecoder maker) : sink(given), make(std::move(maker)) {}

    void run();
    bool open();
    bool openUnits(const std::string& codec);
    std::deque<Packet> await();
    void take(const Packet& packet);
    void fail(const char* reason);

    const StreamSink& sink;
    const MakeDecoder make;
    streams::DescribedStream stream;
    bool ordered = false;

    std::mutex lock; // guards packets
    std::condition_variable changed;
    std::deque<Packet> packets;
    std::atomic<bool> failed{false};

    // Of the decoding thread.
    std::unique_ptr<UnitDecoder> decoder; // null: GStreamer decodes
    std::function<void(std::string_view packet)> inOrder;
    bool shown = true;                               // of the packet that is taken now
    std::unique_ptr<streams::Reordering> reordering; // null: the packets come in order
};

bool decodesVideo(const std::string& encodingName) {
    return find(encodingName) != nullptr;
}

PacketPictures::PacketPictures(const StreamSink& sink, MakeDecoder make)
    : state_(*new State(sink, std::move(make))) {}

void PacketPictures::preload() {
    std::thread([make = state_.make] { make(); }).detach();
}

void PacketPictures::begin(const streams::DescribedStream& stream, bool ordered) {
    state_.stream = stream;
    state_.ordered = ordered;
    std::thread([&state = state_] { state.run(); }).detach();
}

bool PacketPictures::feed(std::string_view packet, bool shown) {
    {
        const std::lock_guard guard(state_.lock);
        state_.packets.push_back({std::string(packet), gettimeusec(), shown});
        if (state_.packets.size() > mostWaiting)
            state_.packets.pop_front();
    }
    state_.changed.notify_one();
    return !state_.failed;
}

void PacketPictures::State::fail(const char* reason) {
    if (!failed.exchange(true))
        sink.ended(reason);
}

bool PacketPictures::State::openUnits(const std::string& codec) {
    decoder = make();
    const std::string config = codec == "mpeg4" ? configOf(stream.fmtp) : "";
    if (decoder == nullptr ||
        !decoder->open(codec, reinterpret_cast<const std::uint8_t*>(config.data()), config.size()))
        return false;
    const auto decode = [this](const std::string& unit, bool show) {
        decoder->decode(reinterpret_cast<const std::uint8_t*>(unit.data()), unit.size(),
                        [&](const screen::PictureView& picture) {
                            if (show)
                                sink.picture(picture);
                        });
    };
    if (codec == "mpeg2video") {
        auto units = std::make_shared<Mpeg2Packets>(stream.encodingName == "MP2T", decode);
        inOrder = [this, units](std::string_view packet) { units->add(packet, shown); };
        return true;
    }
    auto units = std::make_shared<AccessUnits>(streams::encodingOf(stream.encodingName), stream.fmtp, decode);
    inOrder = [this, units](std::string_view packet) { units->add(packet, shown); };
    return true;
}

bool PacketPictures::State::open() {
    const Known* one = find(stream.encodingName);
    if (one != nullptr && *one->codec != '\0') {
        if (!openUnits(one->codec))
            return false;
    } else {
        GStreamerModule* gstreamer = one == nullptr ? nullptr : loadGStreamer();
        StreamDecoder* chain =
            gstreamer == nullptr ? nullptr : gstreamer->decodeRtp(stream.encodingName, stream.caps, sink);
        if (chain == nullptr)
            return false;
        inOrder = [this, chain](std::string_view packet) {
            if (!chain->feed(packet.data(), packet.size()))
                fail("the decoder failed");
        };
    }
    if (!ordered)
        reordering = std::make_unique<streams::Reordering>(inOrder);
    return true;
}

// Waits for packets; returns none when only a gap in the packets is to be looked at.
std::deque<Packet> PacketPictures::State::await() {
    std::unique_lock guard(lock);
    const auto any = [this] { return !packets.empty(); };
    if (reordering == nullptr || !reordering->waits())
        changed.wait(guard, any);
    else
        changed.wait_for(guard, gapCheck, any);
    return std::exchange(packets, {});
}

void PacketPictures::State::take(const Packet& packet) {
    shown = packet.shown;
    if (reordering == nullptr)
        inOrder(packet.bytes);
    else
        reordering->add(packet.bytes, packet.arrived);
}

void PacketPictures::State::run() {
    if (!open()) {
        if (sink.undecodable)
            sink.undecodable(stream.encodingName);
        return fail("the decoder can't be started");
    }
    while (!failed) {
        for (const Packet& packet : await())
            take(packet);
        if (reordering != nullptr)
            reordering->look(gettimeusec());
    }
}

} // namespace player
