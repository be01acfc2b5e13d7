// `camera-input`: reads what the gateway can't read itself, and decodes what players can't decode. The gateway starts one
// for each such camera; standard input is the socket to it (protocol/messages.h).
#include "appliance/input/confinement.h"
#include "appliance/input/container.h"
#include "appliance/input/device_playback.h"
#include "appliance/input/gateway_socket.h"
#include "appliance/input/packets.h"
#include "appliance/serving/command_line.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

namespace {

constexpr const char* purpose = "Reads files, cameras at this machine, SRT streams and web servers for "
                                "camera-gateway, and encodes what players can't decode.\n"
                                "camera-gateway starts it; its standard input is a socket to the gateway.";

input::NeededRights rightsFor(const input::Request& request) {
    switch (request.kind) {
    case input::Kind::file:
        return {.readable = {request.place}, .device = {}, .network = false};
    case input::Kind::device:
        return {.readable = {}, .device = {request.place}, .network = false};
    case input::Kind::srt: // names are looked up with files and libraries of the system
        return {.readable = {"/etc", "/usr", "/lib", "/run/systemd/resolve"}, .device = {}, .network = true};
    case input::Kind::web: // names, and the certificates to trust
        return {.readable = {"/etc/resolv.conf", "/etc/hosts", "/etc/nsswitch.conf", "/etc/host.conf",
                             "/etc/gai.conf", "/etc/services", "/etc/ld.so.cache", "/etc/ssl", "/etc/gnutls",
                             "/usr/lib", "/usr/share/ca-certificates", "/usr/local/share/ca-certificates",
                             "/lib", "/run/systemd/resolve", request.authorities},
                .device = {},
                .network = true};
    case input::Kind::packets:
        break;
    }
    return {};
}

// libsrt prints what it meets. What a person has to know is in the reason.
void silence() {
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDERR_FILENO);
    close(nothing);
}

[[noreturn]] void serve(input::GatewaySocket& socket) {
    const auto [channel, text] = socket.receive();
    const auto request = input::readRequest(text);
    if (channel != input::ToInput::request || !request)
        throw input::InputFailure{"the gateway's request can't be read"};
    if (request->kind == input::Kind::srt || request->kind == input::Kind::web)
        silence();
    input::confine(rightsFor(*request));
    switch (request->kind) {
    case input::Kind::file:
        input::playFile(socket, *request);
    case input::Kind::device: {
        input::VideoDevice device(input::DeviceCalls::ofSystem(), request->place);
        input::playDevice(socket, device);
    }
    case input::Kind::srt:
        input::receiveSrt(socket, *request);
    case input::Kind::web:
        input::playWeb(socket, *request);
    case input::Kind::packets:
        break;
    }
    input::encodePackets(socket, *request);
}

int run() {
    input::GatewaySocket socket(STDIN_FILENO);
    try {
        try {
            serve(socket);
        } catch (const input::InputFailure& failure) {
            socket.send(failure.otherForm ? input::FromInput::otherForm : input::FromInput::failure,
                        failure.reason);
        } catch (const std::exception& error) {
            socket.send(input::FromInput::failure, std::string("camera-input failed: ") + error.what());
        }
    } catch (const input::GatewayGone&) {
        return 0;
    }
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (const auto end = readNoOptions(purpose, HOUSE_VERSION, argc, argv))
        return finish(*end);
    struct stat in {};
    if (fstat(STDIN_FILENO, &in) != 0 || !S_ISSOCK(in.st_mode)) {
        std::fputs("camera-input: standard input is not a socket: camera-gateway starts this program\n",
                   stderr);
        return 2;
    }
    // It ends with the gateway, whatever ends that. One that ended before this call has closed the socket.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // writing to a file fails, and no more
    av_log_set_level(AV_LOG_QUIET);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    return run();
}
