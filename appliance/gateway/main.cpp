// `camera-gateway`. Its options are in service/gateway_options.h.
#include "appliance/gateway/service/gateway_options.h"
#include "appliance/gateway/service/probe.h"
#include "appliance/gateway/service/service.h"
#include "appliance/streams/http_stream.h"

#include <libcommon/log.h>
#include <libcommon/params.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

// Blocked before there are other threads, so that only the descriptor receives them.
int endSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

std::uint16_t portFor(const gateway::GatewayOptions& options) {
    if (options.port)
        return *options.port;
    const int configured = ParamWrapper(0, false)["Gateway.Port"].toInt();
    return configured > 0 && configured <= 65535 ? static_cast<std::uint16_t>(configured)
                                                 : gateway::usualPort;
}

} // namespace

int main(int argc, char** argv) {
    const gateway::GatewayCommandLine commandLine = gateway::parseGatewayCommandLine(argc, argv);
    if (!commandLine.options)
        return finish(commandLine.end);
    std::signal(SIGPIPE, SIG_IGN);
    const bool probes = commandLine.options->probe || commandLine.options->readUrl;
    if (probes)
        setenv("LIBCOMMON_LOG", "/dev/null", 1); // what goes wrong is in the answer
    const int signals = endSignals();
    streams::startHttp();
    if (signals < 0)
        return 1;
    if (probes)
        return gateway::probeCamera(commandLine.options->probe);
    gateway::EventLoop loop;
    gateway::Service service(loop);
    loop.watch(signals, EPOLLIN, [&loop](std::uint32_t /*events*/) { loop.end(); });
    if (const std::string error =
            service.start(portFor(*commandLine.options), commandLine.options->port.has_value());
        !error.empty()) {
        std::fprintf(stderr, "camera-gateway: %s\n", error.c_str());
        return 1;
    }
    std::printf("port=%d\n", service.port());
    std::fflush(stdout);
    loop.run();
    return 0;
}
