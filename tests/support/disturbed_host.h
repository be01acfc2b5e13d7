// An address in front of an encoder: HTTP and RTSP are relayed, and the RTP packets of RTSP sessions over UDP come through a
// disturbed network. Some are lost, some change places with the next one, always the same ones.
//
// Only in a network namespace of the test's own, because it listens on the usual ports. Its threads block every signal and
// are joined by the destructor.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace scripted {

class DisturbedHost {
public:
    static constexpr int lostEach = 60;    // this one of so many packets is lost
    static constexpr int swappedEach = 25; // this one of so many changes places with the next one

    // Listens on `address` and relays to the encoder at `encoder`, both in 127.0.0.0/8. Throws if it can't listen.
    DisturbedHost(const std::string& address, const std::string& encoder);
    ~DisturbedHost();
    DisturbedHost(const DisturbedHost&) = delete;
    DisturbedHost& operator=(const DisturbedHost&) = delete;

    // The sequence numbers of the RTP packets that came out of it, a list for each session, as they came out.
    std::vector<std::vector<std::uint16_t>> sessions() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace scripted
