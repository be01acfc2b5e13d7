// The mark of a running panel: a locked file with its address, for decoderctl panel-open.
#pragma once

#include <cstdint>
#include <string>

namespace panel {

class RunningPanel {
public:
    // Makes the panel's run folder. Throws Refused if another panel of this decoder runs, and std::system_error.
    RunningPanel();
    ~RunningPanel();
    RunningPanel(const RunningPanel&) = delete;
    RunningPanel& operator=(const RunningPanel&) = delete;

    // `address` is what the panel listens on.
    void tellAddress(const std::string& address, std::uint16_t port, bool secure) const;

    // The address for a browser of this machine: "http://127.0.0.1:8088".
    static std::string urlOf(const std::string& address, std::uint16_t port, bool secure);

private:
    int lock_ = -1;
};

} // namespace panel
