#include "appliance/panel/fuzz/targets.h"

#include "appliance/panel/access/cookies.h"
#include "appliance/panel/web/gate.h"
#include "appliance/panel/web/origin_check.h"
#include "appliance/panel/web/router.h"
#include "appliance/panel/web/url_text.h"

#include <libcommon/text.h>

#include <cstdlib>

namespace {

void require(bool kept) {
    if (!kept)
        std::abort();
}

std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// What passes the gate is a header without lone line ends and zeros, and a body of the announced length.
void checkPassed(const std::string& passed) {
    const std::size_t end = passed.find("\r\n\r\n");
    require(end != std::string::npos);
    for (std::size_t at = 0; at < end; ++at)
        require(passed[at] != '\0' && (passed[at] != '\n' || passed[at - 1] == '\r'));
}

} // namespace

int fuzzPanelRequest(const std::uint8_t* data, std::size_t size) {
    panel::Gate gate({2048, 1024});
    for (std::size_t at = 0; at < size; at += 7) { // in pieces, as a network brings it
        gate.receive(textOf(data + at, std::min<std::size_t>(7, size - at)));
        if (gate.phase() != panel::Gate::Phase::Request)
            continue;
        checkPassed(gate.pass(4096));
        require(!gate.hasBytes());
        gate.answered();
    }
    return 0;
}

int fuzzPanelTexts(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = textOf(data, size);
    if (const auto fields = panel::decodedFields(text)) {
        for (const auto& [name, value] : *fields)
            require(libcommon::printable(value) == value && libcommon::printable(name) == name);
    }
    panel::Router router;
    router.add("GET", "/a/{part}", panel::Role::Viewer, nullptr);
    for (const auto& [name, value] : router.find("GET", text).parts)
        require(!value.empty() && libcommon::printable(value) == value);
    const panel::Authority authority = panel::readAuthority(text);
    require(!authority.host.empty() || authority.port.empty());
    require(!panel::isKnownHost(text, "127.0.0.1", {}) || authority.host == "localhost" ||
            authority.host == "127.0.0.1");
    require(!panel::isSameOrigin({"localhost", text, "", false, false}) || text.empty() ||
            text.starts_with("http"));
    if (const auto value = panel::readCookie(text, "panel"))
        require(value->find(';') == std::string::npos);
    return 0;
}
