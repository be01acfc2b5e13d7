// `decoder-panel`: the decoder's page in a browser.
#include "appliance/panel/web/server.h"
#include "appliance/panel/web/static_files.h"
#include "appliance/panel/web/worker.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <glib-unix.h>

namespace {

gboolean endLoop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

} // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    panel::Router router;
    panel::EventStreams streams;
    panel::addStaticFiles(router, panel::pageFiles());
    router.add("GET", "/api/v1/session", panel::Role::None,
               [](const panel::Request& request, const panel::Answer& answer) {
                   answer(panel::jsonResponse(R"({"user":"","role":")" +
                                              std::string(panel::roleName(request.role)) +
                                              R"(","expires":null})"));
               });
    panel::RouteRules events;
    events.least = panel::Role::Viewer;
    events.eventStream = true;
    router.add("GET", "/api/v1/events", events, nullptr);
    panel::ServerOptions options;
    options.port = 0;
    panel::Server server(options, router, streams, [](const panel::Credentials&) {
        panel::Visitor visitor;
        visitor.role = panel::Role::Admin;
        return visitor;
    });
    try {
        server.start();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "decoder-panel: %s\n", error.what());
        return 1;
    }
    std::printf("port=%d\n", server.port());
    std::fflush(stdout);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGINT, endLoop, loop);
    g_unix_signal_add(SIGTERM, endLoop, loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return 0;
}
