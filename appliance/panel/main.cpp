// `decoder-panel`: the decoder's page for browsers. Its options are in panel_options.h.
#include "appliance/operating/refused.h"
#include "appliance/panel/access/accounts.h"
#include "appliance/panel/access/certificate.h"
#include "appliance/panel/access/one_time_link.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/running_panel.h"
#include "appliance/panel/api/api.h"
#include "appliance/panel/page/basic_page.h"
#include "appliance/panel/panel_options.h"
#include "appliance/panel/web/static_files.h"
#include "appliance/panel/web/worker.h"
#include "appliance/serving/service_manager.h"

#include <libcommon/log.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <glib-unix.h>
#include <unistd.h>

namespace {

gboolean endLoop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

// Made before anybody is told that the panel listens: a signal that comes right then ends it in order, too.
class LoopUntilSignal {
public:
    LoopUntilSignal()
        : loop_(g_main_loop_new(nullptr, FALSE)), sources_{g_unix_signal_add(SIGINT, endLoop, loop_),
                                                           g_unix_signal_add(SIGTERM, endLoop, loop_)} {}
    ~LoopUntilSignal() {
        for (const guint source : sources_)
            g_source_remove(source);
        g_main_loop_unref(loop_);
    }
    LoopUntilSignal(const LoopUntilSignal&) = delete;
    LoopUntilSignal& operator=(const LoopUntilSignal&) = delete;
    void run() const { g_main_loop_run(loop_); }

private:
    GMainLoop* const loop_;
    const std::array<guint, 2> sources_;
};

// Who can reach another address than this machine's own has to log in with a password.
void requireAccount(const panel::PanelSettings& settings) {
    if (!panel::isLoopback(settings.server.address) && panel::readAccounts().empty())
        throw Refused("the panel does not listen on " + settings.server.address +
                      " without an account; make one with decoderctl panel-password, or set Panel.Address to "
                      "127.0.0.1");
}

std::vector<std::string> certificateNames(const panel::ServerOptions& options) {
    std::vector<std::string> names = options.hosts;
    names.emplace_back("localhost");
    names.push_back(options.address);
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) == 0 && host[0] != '\0')
        names.emplace_back(host.data());
    return names;
}

void prepareTls(const panel::PanelSettings& settings) {
    if (settings.tls == panel::Tls::Own)
        panel::makeOwnCertificate(settings.server.certificate, settings.server.key,
                                  certificateNames(settings.server));
    if (settings.tls == panel::Tls::No && !panel::isLoopback(settings.server.address))
        logmsg(6, "The panel does not encrypt: Panel.TLS is \"no\"");
}

void printStart(const panel::Server& server, const panel::PanelSettings& settings, bool link) {
    if (server.isSecure())
        std::printf("fingerprint=%s\n", panel::certificateFingerprint(settings.server.certificate).c_str());
    if (link)
        std::printf("link=%s\n", panel::makeOneTimeLink().c_str());
    std::printf("port=%d\n", server.port());
    std::fflush(stdout);
}

void run(const panel::PanelOptions& options) {
    const panel::PanelSettings settings = panel::readPanelSettings(options);
    requireAccount(settings);
    prepareTls(settings);
    panel::Router router;
    panel::EventStreams streams;
    panel::Access access(settings.access,
                         [&streams](std::string_view session) { streams.endSession(session); });
    access.addRoutes(router);
    panel::addStaticFiles(router, panel::pageFiles());
    panel::RouteRules events;
    events.least = panel::Role::Viewer;
    events.eventStream = true;
    router.add("GET", "/api/v1/events", events, nullptr);
    const panel::Api api(router, streams);
    panel::addBasicPage(router);
    panel::Server server(settings.server, router, streams, [&access](const panel::Credentials& credentials) {
        return access.identify(credentials);
    });
    const panel::RunningPanel running;
    const LoopUntilSignal loop;
    server.start();
    access.setPlace(server.port(), server.isSecure());
    running.tellAddress(settings.server.address, server.port(), server.isSecure());
    printStart(server, settings, options.link);
    tellServiceManager("READY=1");
    loop.run();
    tellServiceManager("STOPPING=1");
}

} // namespace

int main(int argc, char** argv) {
    const panel::PanelCommandLine commandLine = panel::parsePanelCommandLine(argc, argv);
    if (!commandLine.options)
        return finish(commandLine.end);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        run(*commandLine.options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "decoder-panel: %s\n", error.what());
        return 1;
    }
    return 0;
}
