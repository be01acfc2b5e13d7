#include "appliance/encoder/device/device.h"

#include "appliance/encoder/device/device_facts.h"
#include "appliance/encoder/pictures/drawn_sources.h"
#include "appliance/encoder/pictures/gst_source.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <utility>

namespace {

// Far from the inputs' numbers, so that the quad view cannot be mistaken for an input.
constexpr int quadMarkOffset = 128;

constexpr std::size_t maxWarmInputs = 8;
// Distance of the guide's ports from RTSP's multicast port.
constexpr int guideVideoOffset = 10;
constexpr int guideAudioOffset = 20;

bool isTest(const std::string& input) {
    return input == "test";
}

} // namespace

Device::Device(Options deviceOptions)
    : options(std::move(deviceOptions)), faults(options.faults),
      authenticator(options.user, options.password, options.digest), parameters(factsOf(options)) {
    channels_.push_back(std::make_unique<Channel>());
    std::vector<PictureSource*> inputs;
    for (std::size_t i = 0; i < options.inputs.size(); ++i) {
        channels_.push_back(makeInput(i));
        inputs.push_back(channels_.back()->source.get());
    }
    Channel& quad = *channels_.front();
    quad.width = options.width;
    quad.height = options.height;
    quad.source = std::make_unique<QuadSource>(std::move(inputs), options.width, options.height, options.fps,
                                               options.mark + quadMarkOffset);
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        addCodecs(*channels_[i]);
        addMulticasts(*channels_[i], i);
    }
}

Device::~Device() {
    channels_.front().reset(); // first, because the quad view reads the inputs
}

void Device::addCodecs(Channel& channel) const {
    CodecSettings settings{options.codec, options.keyInterval, options.keyForNewcomer, options.bitrate};
    if (options.offersRtsp()) {
        channel.rtsp =
            std::make_unique<CodecStream>(*channel.source, settings, channel.width, channel.height);
        // The stream's description needs a picture. With few inputs the codec makes one now, so that the first client
        // does not wait; with many inputs that would cost too much at start.
        if (options.inputs.size() <= maxWarmInputs)
            channel.rtsp->warmUp();
    }
    if (options.offers(Kind::Mpeg2) || options.offers(Kind::Sdp)) {
        settings.codec = Codec::Mpeg2;
        channel.mpeg2 =
            std::make_unique<CodecStream>(*channel.source, settings, channel.width, channel.height);
    }
}

void Device::addMulticasts(Channel& channel, std::size_t number) const {
    channel.rtspPlace = placeOf(number, 0);
    if (!options.offers(Kind::Sdp) || number == 0)
        return;
    channel.guidePlace = placeOf(number, guideVideoOffset);
    channel.guideVideo =
        std::make_unique<GuideVideo>(*channel.mpeg2, faults, options.address, *channel.guidePlace);
    if (!options.audio)
        return;
    channel.guideAudioPlace = placeOf(number, guideAudioOffset);
    channel.guideAudio = startGuideAudio(options.address, *channel.guideAudioPlace);
}

// The first input has the group from the options, each further input the next group, the quad view the last one.
MulticastPlace Device::placeOf(std::size_t number, int portOffset) const {
    in_addr group{};
    inet_pton(AF_INET, options.multicastGroup.c_str(), &group);
    const std::size_t step = number == 0 ? options.inputs.size() : number - 1;
    group.s_addr = htonl(ntohl(group.s_addr) + static_cast<std::uint32_t>(step));
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &group, text.data(), text.size());
    return {text.data(), static_cast<std::uint16_t>(options.multicastPort + portOffset)};
}

std::unique_ptr<Channel> Device::makeInput(std::size_t index) const {
    auto channel = std::make_unique<Channel>();
    channel->width = options.width;
    channel->height = options.height;
    const std::string& input = options.inputs[index];
    const int mark = (options.mark + static_cast<int>(index)) % 256;
    if (isTest(input)) {
        std::string name = options.name;
        if (options.inputs.size() > 1)
            name += " " + std::to_string(index + 1);
        channel->source =
            std::make_unique<TestSource>(name, options.width, options.height, options.fps, mark);
    } else {
        channel->source = std::make_unique<GstSource>(
            GstInput{input, options.width, options.height, options.fps,
                     options.markEverything ? std::optional<int>(mark) : std::nullopt});
    }
    return channel;
}

std::string Device::mistakeIn(const Options& options) {
    for (const std::string& input : options.inputs) {
        if (isTest(input))
            continue;
        if (std::string mistake = GstSource::mistakeIn(input); !mistake.empty())
            return "--input: " + mistake;
    }
    if (options.offersRtsp() && !VideoEncoder::has(options.codec))
        return "--codec: this machine cannot encode it";
    if ((options.offers(Kind::Mpeg2) || options.offers(Kind::Sdp)) && !VideoEncoder::has(Codec::Mpeg2))
        return "--kinds: this machine cannot encode MPEG-2";
    return options.offers(Kind::Sdp) ? guideMistake(options.audio) : "";
}

Channel* Device::channel(int number) {
    if (number < 0 || static_cast<std::size_t>(number) >= channels_.size())
        return nullptr;
    return channels_[static_cast<std::size_t>(number)].get();
}

void Device::stop() {
    stopping_ = true;
    for (const auto& channel : channels_) {
        channel->source->stopReaders();
        for (CodecStream* stream : {channel->rtsp.get(), channel->mpeg2.get()}) {
            if (stream != nullptr)
                stream->stopReaders();
        }
    }
}

void Device::announce(std::string_view line) {
    const std::lock_guard lock(announceLock_);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}
