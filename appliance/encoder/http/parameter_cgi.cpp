#include "appliance/encoder/http/parameter_cgi.h"

#include "appliance/serving/parameter_table.h"

#include <algorithm>

namespace {

constexpr std::string_view ptzPath = "/vexo-cgi/com/ptz.cgi";
constexpr std::string_view presetField = "gotoserverpresetname=";

// The name is the rest of the target, because clients send it unescaped, with blanks and ampersands.
void gotoPreset(HttpSession& session) {
    const std::string_view query = session.request().query();
    const std::size_t at = query.find(presetField);
    if (at == std::string_view::npos) {
        session.reply({400, "text/plain", "the only command is gotoserverpresetname\n", {}});
        return;
    }
    std::string preset(query.substr(at + presetField.size()));
    std::replace_if(
        preset.begin(), preset.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    session.device().announce("ptz gotoserverpresetname=" + preset);
    session.reply({200, "text/plain", "OK\n", {}});
}

} // namespace

bool serveCgi(HttpSession& session, const FaultSet& faults) {
    const std::string_view path = session.request().path();
    if (path == viewParameterPath && faults.has(Fault::ViewHash))
        session.reply({200, "text/plain", "# error: ask the administrator's CGI\n", {}});
    else if (const auto reply = session.device().parameters.replyTo(session.request()))
        session.reply({reply->status, "text/plain", reply->text, {}});
    else if (path == ptzPath)
        gotoPreset(session);
    else
        return false;
    return true;
}
