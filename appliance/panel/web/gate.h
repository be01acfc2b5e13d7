// The gate: the bytes of a connection on their way to libsoup.
//
// It holds a header back until all of it is there and checkHead() finds it good, and lets exactly the announced body
// through. So libsoup never sees a header that is unusual, and never waits in the middle of one.
#pragma once

#include "appliance/panel/web/head_check.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace panel {

class Gate {
public:
    enum class Phase {
        Idle,    // between two requests
        Head,    // in a header
        Body,    // in a body
        Request, // the request is complete; the next one begins when the answer was written
        Refused, // nothing more comes through
    };

    struct Limits {
        std::size_t headBytes;
        std::size_t bodyBytes;
    };
    explicit Gate(const Limits& limits) : limits_(limits) {}

    // Takes bytes from the client.
    void receive(std::string_view bytes);
    // Bytes for libsoup, at most `most`; "" when there are none now.
    std::string pass(std::size_t most);
    bool hasBytes() const;

    // The answer was written; the next request may come.
    void answered();
    void refuse(int status, std::string_view reason);

    Phase phase() const { return phase_; }
    // Why it refused.
    const HeadCheck& refusal() const { return check_; }
    // False: the gate holds enough, let the client wait.
    bool wantsBytes() const;

private:
    void readHead();

    Limits limits_;
    Phase phase_ = Phase::Idle;
    HeadCheck check_;
    std::string received_;    // not yet passed on
    std::size_t scanned_ = 0; // of `received_`, while in a header
    std::size_t open_ = 0;    // bytes that may pass: what remains of the header and the body
};

} // namespace panel
