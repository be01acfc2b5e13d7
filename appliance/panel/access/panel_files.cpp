#include "appliance/panel/access/panel_files.h"

#include <libcommon/paths.h>

namespace panel {

std::string accountsFile() {
    return libcommon::appliancePath("/etc/decoder/panel.accounts");
}
std::string tokensFile() {
    return libcommon::appliancePath("/etc/decoder/panel.tokens");
}
std::string runFolder() {
    return libcommon::appliancePath("/run/decoder/panel");
}
std::string linksFolder() {
    return runFolder() + "/links";
}
std::string addressFile() {
    return runFolder() + "/address";
}
std::string ownCertificate() {
    return libcommon::appliancePath("/etc/decoder/panel-certificate.pem");
}
std::string ownKey() {
    return libcommon::appliancePath("/etc/decoder/panel-key.pem");
}

} // namespace panel
