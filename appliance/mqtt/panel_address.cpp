#include "appliance/mqtt/panel_address.h"

#include <libcommon/params.h>
#include <libcommon/text.h>

#include <algorithm>
#include <string_view>
#include <unistd.h>

namespace mqtt {
namespace {

constexpr int usualPort = 8088;

std::string machineName() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

// The first of a list with commas or blanks, without its port.
std::string firstHost(std::string_view list) {
    const std::string_view first = list.substr(0, std::min(list.find_first_of(", \t"), list.size()));
    const bool bracketed = first.starts_with('[');
    const std::size_t colon = first.find(':', bracketed ? first.find(']') : 0);
    return std::string(first.substr(0, std::min(colon, first.size())));
}

std::string hostOf(const ParamWrapper& parameters, const std::string& address) {
    const std::string hosts = parameters["Panel.Hosts"].toString();
    if (const std::string first = firstHost(libcommon::trimmed(hosts)); !first.empty()) {
        return first;
    }
    if (address == "0.0.0.0" || address == "::") {
        return machineName();
    }
    return address.find(':') == std::string::npos ? address : '[' + address + ']';
}

} // namespace

std::string panelAddress() {
    const ParamWrapper parameters(0, false);
    const std::string address = parameters["Panel.Address"].toString();
    if (address.empty() || address.starts_with("127.") || address == "::1") {
        return "";
    }
    const int port = parameters["Panel.Port"].toInt();
    const bool plain = parameters["Panel.TLS"] == "no";
    return std::string(plain ? "http://" : "https://") + hostOf(parameters, address) + ':' +
           std::to_string(port > 0 ? port : usualPort);
}

} // namespace mqtt
