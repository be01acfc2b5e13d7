#include "appliance/panel/panel_options.h"

#include "appliance/operating/refused.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/web/origin_check.h"
#include "appliance/serving/command_line.h"

#include <libcommon/params.h>
#include <libcommon/text.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <CLI/CLI.hpp>

namespace panel {
namespace {

constexpr int usualPort = 8088;
constexpr const char* footer =
    "The page is at http://127.0.0.1:8088. `decoderctl panel-open` prints a link that logs in. When the "
    "panel listens, it\n"
    "prints \"port=NUMBER\" on standard output. SIGINT and SIGTERM end it with exit status 0.";

// The parameter's number, or the usual one if it is not set or out of the bounds.
int number(const char* name, int usual, int least, int most) {
    const int value = ParamWrapper(0, false)[name].toInt();
    return value < least || value > most ? usual : value;
}

std::string text(const char* name) {
    return ParamWrapper(0, false)[name].toString();
}

std::vector<std::string> readHosts() {
    std::vector<std::string> hosts;
    std::string all = text("Panel.Hosts");
    std::replace(all.begin(), all.end(), ' ', ',');
    std::string_view rest = all;
    while (!rest.empty()) {
        const std::string_view name = libcommon::trimmed(rest.substr(0, rest.find(',')));
        rest.remove_prefix(std::min(rest.size(), rest.find(',')));
        rest.remove_prefix(std::min<std::size_t>(rest.size(), 1));
        if (name.empty())
            continue;
        if (readAuthority(name).host.empty())
            throw Refused("Panel.Hosts has a name that no host can have: " + std::string(name));
        hosts.emplace_back(readAuthority(name).host);
    }
    return hosts;
}

Tls readTls(const std::string& address) {
    const std::string word = text("Panel.TLS");
    if (word == "no")
        return Tls::No;
    if (word == "own")
        return Tls::Own;
    if (word == "files")
        return Tls::Files;
    if (!word.empty() && word != "auto")
        throw Refused("Panel.TLS is \"" + word + "\"; it takes auto, no, own or files");
    return isLoopback(address) ? Tls::No : Tls::Own;
}

void setCertificate(PanelSettings& settings) {
    switch (settings.tls) {
    case Tls::No:
        return;
    case Tls::Own:
        settings.server.certificate = ownCertificate();
        settings.server.key = ownKey();
        return;
    case Tls::Files:
        settings.server.certificate = text("Panel.CertificateFile");
        settings.server.key = text("Panel.KeyFile");
        if (settings.server.certificate.empty() || settings.server.key.empty())
            throw Refused("Panel.TLS is \"files\", but Panel.CertificateFile or Panel.KeyFile is empty");
        return;
    }
}

} // namespace

PanelCommandLine parsePanelCommandLine(int argc, const char* const* argv) {
    CLI::App app{"The decoder's page for browsers, and its interface for programs.", "decoder-panel"};
    PanelOptions options;
    app.add_option("--address", options.address,
                   "the address to listen on, instead of the parameter Panel.Address")
        ->type_name("ADDRESS");
    app.add_option("--port", options.port, "the port, instead of the parameter Panel.Port; 0 is any")
        ->type_name("PORT");
    app.add_flag("--link", options.link, "print a link that logs in once, as decoderctl panel-open does");
    app.footer(footer);
    if (const auto end = readCommandLine(app, HOUSE_VERSION, argc, argv))
        return {std::nullopt, *end};
    return {options, {}};
}

bool isLoopback(const std::string& address) {
    std::array<unsigned char, 4> bytes{};
    if (inet_pton(AF_INET, address.c_str(), bytes.data()) == 1)
        return bytes[0] == 127;
    return address == "::1";
}

PanelSettings readPanelSettings(const PanelOptions& options) {
    PanelSettings settings;
    const std::string configured = text("Panel.Address");
    settings.server.address = options.address.value_or(configured.empty() ? "127.0.0.1" : configured);
    settings.server.port = options.port.value_or(number("Panel.Port", usualPort, 1, 65535));
    settings.server.hosts = readHosts();
    settings.tls = readTls(settings.server.address);
    setCertificate(settings);
    settings.access.triesAMinute = static_cast<unsigned>(number("Panel.LogInRate", 10, 1, 10000));
    settings.access.sessions.idle = number("Panel.IdleTime", 3600, 1, 86400);
    settings.access.sessions.longest = number("Panel.SessionTime", 43200, 1, 30 * 86400);
    return settings;
}

} // namespace panel
