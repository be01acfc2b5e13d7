// For tests: the panel's API on a port of this machine, without page and accounts. A token is the name of a role.
#include "appliance/panel/api/api.h"
#include "appliance/panel/web/server.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <glib-unix.h>
#include <map>

namespace {

gboolean endLoop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

panel::Visitor visitorOf(const panel::Credentials& credentials) {
    using panel::Role;
    static const std::map<std::string, Role> roles{
        {"viewer", Role::Viewer}, {"operator", Role::Operator}, {"admin", Role::Admin}};
    panel::Visitor visitor;
    visitor.token = !credentials.token.empty();
    visitor.account = credentials.token;
    if (const auto found = roles.find(credentials.token); found != roles.end())
        visitor.role = found->second;
    else if (credentials.token == "alarm")
        visitor.purpose = panel::Purpose::Alarm;
    else if (credentials.token == "metrics")
        visitor.purpose = panel::Purpose::Metrics;
    else
        visitor.account.clear();
    return visitor;
}

int serve() {
    panel::Router router;
    panel::EventStreams streams;
    const panel::Api api(router, streams);
    panel::RouteRules events;
    events.least = panel::Role::Viewer;
    events.eventStream = true;
    router.add("GET", "/api/v1/events", events, nullptr);
    panel::ServerOptions options;
    options.port = 0;
    panel::Server server(options, router, streams, visitorOf);
    server.start();
    std::printf("port=%d\n", server.port());
    std::fflush(stdout);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGINT, endLoop, loop);
    g_unix_signal_add(SIGTERM, endLoop, loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return 0;
}

} // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return serve();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panel_api_host: %s\n", error.what());
        return 1;
    }
}
