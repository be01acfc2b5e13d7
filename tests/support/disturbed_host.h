// An address in front of an encoder: HTTP and RTSP are relayed, and the RTP packets of RTSP sessions over UDP come through a
// disturbed network. Some are lost, some change places with the next one, always the same ones. It can get worse and better
// while it runs.
//
// Only in a network namespace of the test's own, because it listens on the usual ports. Its threads block every signal and
// are joined by the destructor.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace scripted {

struct Disturbance {
    int lostEach = 60;    // this one of so many packets is lost; at least 1, where all are lost
    int swappedEach = 25; // this one of so many changes places with the next one; at least 2
    int delayMs = 0;      // everything from the encoder comes so much later
};

class DisturbedHost {
public:
    static constexpr int lostEach = Disturbance().lostEach;
    static constexpr int swappedEach = Disturbance().swappedEach;

    // Listens on `address` and relays to the encoder at `encoder`, both in 127.0.0.0/8. Throws if it can't listen.
    DisturbedHost(const std::string& address, const std::string& encoder);
    ~DisturbedHost();
    DisturbedHost(const DisturbedHost&) = delete;
    DisturbedHost& operator=(const DisturbedHost&) = delete;

    // From now on; also of connections that exist. Any thread.
    void disturb(const Disturbance& disturbance);
    // Cuts every connection that exists now.
    void cut();

    // The sequence numbers of the RTP packets that came out of it, a list for each session, as they came out.
    std::vector<std::vector<std::uint16_t>> sessions() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace scripted
