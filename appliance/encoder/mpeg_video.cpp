#include "appliance/encoder/mpeg_video.h"

#include "appliance/encoder/frame_gate.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds watchTime(100);
constexpr std::chrono::seconds reportInterval(1);

} // namespace

MpegVideoSender::MpegVideoSender(CodecStream& stream, const FaultSwitch& faults,
                                 std::unique_ptr<UdpOutput> output)
    : stream_(stream), faults_(faults), output_(std::move(output)), thread_(&MpegVideoSender::run, this) {}

MpegVideoSender::~MpegVideoSender() {
    stopping_ = true;
    thread_.join();
}

void MpegVideoSender::run() {
    CodecReader reader(stream_);
    FrameGate gate;
    AccessUnitPtr lastKey;
    nextReport_ = steady_clock::now();
    while (!stopping_) {
        const AccessUnitPtr unit = reader.next(watchTime);
        if (!unit)
            continue;
        switch (gate.next(faults_.current())) {
        case FrameGate::Step::Cut:
        case FrameGate::Step::Hold:
            break;
        case FrameGate::Step::Repeat:
            send(lastKey ? *lastKey : *unit, unit->time);
            break;
        case FrameGate::Step::Send:
            send(*unit, unit->time);
            reportIfDue();
            if (unit->key)
                lastKey = unit;
            gate.sent();
            break;
        }
    }
    output_->sendReport(rtp_.report(true));
}

void MpegVideoSender::send(const AccessUnit& unit, std::int64_t time) {
    const std::vector<std::string> payloads = mpegVideoPayloads(unit.bytes);
    std::vector<std::string> packets;
    packets.reserve(payloads.size());
    for (const std::string& payload : payloads)
        packets.push_back(rtp_.packet(payload, &payload == &payloads.back(), time));
    output_->sendPackets(packets);
}

void MpegVideoSender::reportIfDue() {
    const auto now = steady_clock::now();
    if (now < nextReport_)
        return;
    nextReport_ = now + reportInterval;
    output_->sendReport(rtp_.report(false));
}
