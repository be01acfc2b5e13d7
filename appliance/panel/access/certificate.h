// The certificate that the panel makes itself. Any thread; takes a moment.
#pragma once

#include <string>
#include <vector>

namespace panel {

// Makes a certificate for these names and numeric addresses, and its key. Keeps the files if they have both already: for
// all these names, valid for at least another month, and belonging together. Throws std::runtime_error and
// std::system_error.
void makeOwnCertificate(const std::string& certificateFile, const std::string& keyFile,
                        const std::vector<std::string>& names);

// Its SHA-256 fingerprint, as browsers show it: "AB:CD:...". Throws std::runtime_error.
std::string certificateFingerprint(const std::string& certificateFile);

} // namespace panel
