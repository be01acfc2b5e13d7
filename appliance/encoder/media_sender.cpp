#include "appliance/encoder/media_sender.h"

#include "appliance/encoder/frame_gate.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds watchTime(100);
constexpr std::chrono::seconds reportInterval(1);
// A receiver opens its ports after it has heard that the stream plays, and needs a report before it can rely
// on the stream's clock: in the first second one goes with every picture.
constexpr std::chrono::seconds manyReports(1);

} // namespace

MediaSender::MediaSender(CodecStream& stream, std::unique_ptr<MediaOutput> output, const FaultSwitch& faults,
                         Connection* connection)
    : stream_(stream), output_(std::move(output)), faults_(faults), connection_(connection),
      rtp_(payloadTypeOf(stream.settings().codec)), firstSequence_(rtp_.nextSequence()) {}

MediaSender::~MediaSender() {
    stopping_ = true;
    if (thread_.joinable())
        thread_.join();
}

void MediaSender::start() {
    thread_ = std::thread(&MediaSender::run, this);
}

void MediaSender::run() {
    CodecReader reader(stream_);
    FrameGate gate;
    AccessUnitPtr lastKey;
    start_ = nextReport_ = steady_clock::now();
    bool good = true;
    while (good && !stopping_) {
        const AccessUnitPtr unit = reader.next(watchTime);
        if (!unit)
            continue;
        const FaultSet faults = faults_.current();
        switch (gate.next(faults)) {
        case FrameGate::Step::Cut:
            good = false;
            if (connection_ != nullptr)
                connection_->cut();
            break;
        case FrameGate::Step::Hold:
            break;
        case FrameGate::Step::Repeat:
            good = sendOne(lastKey ? *lastKey : *unit, unit->time);
            break;
        case FrameGate::Step::Send:
            good = faults.has(Fault::NoRtp) || sendOne(*unit, unit->time);
            good = good && reportIfDue(faults);
            if (unit->key)
                lastKey = unit;
            gate.sent();
            break;
        }
    }
    if (good)
        output_->sendReport(rtp_.report(true));
    else if (connection_ != nullptr)
        connection_->shutdown();
}

bool MediaSender::sendOne(const AccessUnit& unit, std::int64_t time) {
    const std::vector<std::string> payloads = payloadsOf(stream_.settings().codec, unit.bytes);
    std::vector<std::string> packets;
    packets.reserve(payloads.size());
    for (const std::string& payload : payloads)
        packets.push_back(rtp_.packet(payload, &payload == &payloads.back(), time));
    return output_->sendPackets(packets);
}

bool MediaSender::reportIfDue(const FaultSet& faults) {
    const auto now = steady_clock::now();
    if (faults.has(Fault::NoRtcp) || (now < nextReport_ && now > start_ + manyReports))
        return true;
    nextReport_ = now + reportInterval;
    return output_->sendReport(rtp_.report(false));
}
