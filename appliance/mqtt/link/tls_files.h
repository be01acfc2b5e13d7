// The files for a connection with TLS: looked at before it is tried, so that a mistake in them has words of its own.
#pragma once

#include <string>

namespace mqtt {

// Files in PEM; "": none.
struct TlsFiles {
    std::string authorities;
    std::string certificate;
    std::string key;
};

// Why they can't be used; "" when they can. The key must belong to the certificate, must have no passphrase, and must be
// closed to users outside of its owner and group. Does not look at the time: the clock of the broker decides. Any thread.
std::string tlsFilesMistake(const TlsFiles& files);

// What the clock of this machine says about a certificate file: "it has expired on 2026-11-22", "it is valid from
// 2026-11-22 on", or "" when it is valid now or can't be read. The dates are in UTC. Any thread.
std::string validityMistake(const std::string& certificateFile);

} // namespace mqtt
