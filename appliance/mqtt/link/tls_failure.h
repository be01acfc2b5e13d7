// Why a connection with TLS failed, in plain words.
#pragma once

#include <string>

namespace mqtt {

// What the MQTT library and OpenSSL say about TLS, collected during one connection. One thread.
class TlsFailure {
public:
    // A line of the library's log.
    void note(const std::string& line);

    // Plain words for what was noted; "" when nothing was. `certificateFile`: the own one; "": none.
    std::string text(const std::string& certificateFile) const;

private:
    std::string line_; // the one that says most
};

// What to add to the reason when a broker ends the connection between the start of TLS and its first answer: with TLS 1.3
// it looks at the certificate then, and its words are often lost. `certificateFile` as above.
std::string certificateHint(const std::string& certificateFile);

} // namespace mqtt
