#include "appliance/encoder/http/audio_stream.h"

#include "appliance/encoder/faults/frame_gate.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

constexpr int samplesPerSecond = 8000;
constexpr int toneHertz = 500;
constexpr int loudness = 6000;
constexpr std::chrono::milliseconds packetTime(40);
constexpr std::size_t packetSamples = samplesPerSecond * 40 / 1000;
constexpr std::chrono::seconds writeTime(5);

} // namespace

std::uint8_t muLaw(int sample) {
    constexpr int bias = 132;
    const int sign = sample < 0 ? 0x80 : 0;
    const int magnitude = std::min(std::abs(sample), 32635) + bias;
    int exponent = 7;
    while (exponent > 0 && (magnitude & (0x80 << exponent)) == 0)
        --exponent;
    const int mantissa = magnitude >> (exponent + 3) & 0x0F;
    return static_cast<std::uint8_t>(~(sign | exponent << 4 | mantissa));
}

std::string toneSamples(std::uint64_t first, std::size_t count) {
    std::string samples(count, '\0');
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t at = first + i;
        const bool silent = at % samplesPerSecond >= samplesPerSecond / 2;
        const double angle =
            2 * M_PI * toneHertz * static_cast<double>(at % samplesPerSecond) / samplesPerSecond;
        samples[i] =
            static_cast<char>(muLaw(silent ? 0 : static_cast<int>(std::lround(loudness * std::sin(angle)))));
    }
    return samples;
}

void streamAudio(HttpSession& session) {
    session.beginStream(200);
    Connection& connection = session.connection();
    FrameGate gate;
    if (!connection.write({"HTTP/1.1 200 OK\r\nServer: video-encoder\r\nContent-Type: audio/basic\r\n"
                           "Cache-Control: no-cache\r\nConnection: close\r\n\r\n"},
                          in(writeTime)) ||
        session.request().method == "HEAD")
        return;
    const Deadline start = in({});
    for (std::uint64_t packet = 0; !session.device().stopping() && !connection.peerHasLeft(); ++packet) {
        connection.sleepUntil(start + packet * packetTime);
        const FrameGate::Step step = gate.next(session.device().faults.current());
        if (step == FrameGate::Step::Cut) {
            connection.abortOnClose();
            return;
        }
        if (step == FrameGate::Step::Hold)
            continue;
        if (!connection.write({toneSamples(packet * packetSamples, packetSamples)}, in(writeTime)))
            return;
        gate.sent();
    }
}
