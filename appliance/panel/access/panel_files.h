// Where the panel's own files are, below the appliance root.
#pragma once

#include <string>

namespace panel {

std::string accountsFile();   // /etc/decoder/panel.accounts
std::string tokensFile();     // /etc/decoder/panel.tokens
std::string runFolder();      // /run/decoder/panel, for the decoder's user only
std::string linksFolder();    // one-time links, in the run folder
std::string addressFile();    // the URL of the panel that runs
std::string ownCertificate(); // /etc/decoder/panel-certificate.pem
std::string ownKey();         // /etc/decoder/panel-key.pem

} // namespace panel
