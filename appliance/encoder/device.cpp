#include "appliance/encoder/device.h"

#include "appliance/encoder/gst_source.h"
#include "appliance/encoder/sources.h"

#include <cstdio>
#include <utility>

namespace {

// Far from any input's number, so that a test sees which of the two it has.
constexpr int quadMarkOffset = 128;

bool isTest(const std::string& input) {
    return input == "test";
}

} // namespace

Device::Device(Options deviceOptions)
    : options(std::move(deviceOptions)), faults(options.faults),
      authenticator(options.user, options.password, options.digest), parameters(options) {
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
}

Device::~Device() {
    // The quad view reads the others.
    channels_.front()->source.reset();
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
    return {};
}

Channel* Device::channel(int number) {
    if (number < 0 || static_cast<std::size_t>(number) >= channels_.size())
        return nullptr;
    return channels_[static_cast<std::size_t>(number)].get();
}

void Device::stop() {
    stopping_ = true;
    for (const auto& channel : channels_)
        channel->source->stopReaders();
}

void Device::announce(std::string_view line) {
    const std::lock_guard lock(announceLock_);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}
