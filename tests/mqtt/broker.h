// Debian's MQTT broker, for a test: on a free port of 127.0.0.1, with everything it writes in a temporary folder.
#pragma once

#include "tests/peers/peer_program.h"

#include <memory>
#include <optional>
#include <string>

namespace mqtt_test {

struct BrokerOptions {
    bool tls = false;     // with a certificate that certificateFile() has; clients need it as their CA
    std::string user;     // "": everyone may connect
    std::string password; // of this user
    std::string names = "IP:127.0.0.1"; // that the certificate is for
    // With tls: only clients with one of these certificates (PEM) may connect; "": all.
    std::string clients = {};
    long validUntil = 86400; // seconds from now, of the broker's certificate
};

class Broker {
public:
    // Listens when the constructor returns. Throws when it does not start.
    explicit Broker(const BrokerOptions& options = {});

    // "mqtt://127.0.0.1:PORT" or "mqtts://...".
    std::string url() const;
    int port() const { return port_; }
    std::string certificateFile() const { return folder_.file("certificate.pem"); }

    void stop(); // by SIGKILL; it forgets everything
    void start();

    appliance::Process& process() { return program_->process(); }

private:
    BrokerOptions options_;
    peers::Folder folder_;
    int port_;
    std::optional<peers::Program> program_;
};

} // namespace mqtt_test
