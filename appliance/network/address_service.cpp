#include "appliance/network/address_service.h"

#include "appliance/network/network_reader.h"
#include "appliance/network/network_state.h"

#include <libcommon/log.h>
#include <libcommon/params.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <poll.h>
#include <string>
#include <time.h>

namespace network {
namespace {

// Process-wide state of this file.
// Set by the handler of SIGINT and SIGTERM; read by the loop.
volatile std::sig_atomic_t stopAsked = 0;

constexpr const char* parameter = "Network.eth0.IPAddress";

// One change of the network comes as several notices. The parameter file is written durably, so we wait until they are
// all there.
constexpr int settleMs = 200;
constexpr int firstPauseMs = 10'000;
constexpr int longestPauseMs = 600'000;

// Blocks the signals that end the program everywhere except in waits, so that none is lost between a check and a wait.
// Returns the mask for the waits.
sigset_t installHandlers() {
    sigset_t ending;
    sigemptyset(&ending);
    struct sigaction action {};
    action.sa_handler = [](int) { stopAsked = 1; };
    for (const int signal : {SIGINT, SIGTERM}) {
        sigaddset(&ending, signal);
        sigaction(signal, &action, nullptr);
    }
    sigset_t before;
    sigprocmask(SIG_BLOCK, &ending, &before);
    sigdelset(&before, SIGINT);
    sigdelset(&before, SIGTERM);
    return before;
}

// Waits for `fd` (-1: for nothing), for the time (none: for any time) or for a signal that ends the program.
void waitFor(int fd, std::optional<int> milliseconds, const sigset_t& inWait) {
    pollfd readable{fd, POLLIN, 0};
    const int ms = milliseconds.value_or(0);
    const timespec time{ms / 1000, ms % 1000 * 1'000'000L};
    ppoll(&readable, 1, milliseconds ? &time : nullptr, &inWait);
}

// False when the value could not be written; the library has logged why.
bool publish(const DefaultAddress& address) {
    const ParamWrapper configuration(0, true);
    if (configuration[parameter] == address.text.c_str())
        return true;
    if (address.text.empty())
        logmsg(6, "This machine has no address for other networks now");
    else
        logmsg(6, "This machine's address is %s (%s)", address.text.c_str(), address.link.c_str());
    configuration[parameter] = address.text.c_str();
    return configuration[parameter] == address.text.c_str();
}

enum class Outcome { Written, NotWritten, Unreadable };

Outcome update(NetworkReader& reader) {
    NetworkState state;
    if (reader.read(state))
        return publish(defaultAddress(state)) ? Outcome::Written : Outcome::NotWritten;
    logmsg(3, "Can't read the addresses of this machine (errno=%d %s)", errno, std::strerror(errno));
    return Outcome::Unreadable;
}

void takeNotices(NetworkReader& reader, const sigset_t& inWait) {
    const bool lostBefore = reader.dropNotices();
    waitFor(-1, settleMs, inWait);
    if (reader.dropNotices() || lostBefore)
        logmsg(6, "The network changed faster than it could be followed; all is read anew");
}

void follow(NetworkReader& reader, const sigset_t& inWait) {
    int pause = firstPauseMs;
    while (stopAsked == 0) {
        const bool good = update(reader) == Outcome::Written;
        waitFor(reader.noticeFd(), good ? std::nullopt : std::optional(pause), inWait);
        pause = good ? firstPauseMs : std::min(2 * pause, longestPauseMs);
        if (stopAsked == 0)
            takeNotices(reader, inWait);
    }
}

} // namespace

int runAddressService(bool once) {
    const sigset_t inWait = installHandlers();
    NetworkReader reader;
    if (!reader.open()) {
        logmsg(3, "Can't ask the kernel about the network (errno=%d %s)", errno, std::strerror(errno));
        return 1;
    }
    if (once)
        return update(reader) == Outcome::Written ? 0 : 1;
    follow(reader, inWait);
    return 0;
}

} // namespace network
