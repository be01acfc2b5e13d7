#include "tests/mqtt/broker.h"

#include "tests/support/certificate.h"

#include <csignal>
#include <stdexcept>

namespace mqtt_test {

Broker::Broker(const BrokerOptions& options) : options_(options), port_(peers::freePort()) {
    // Started by root it would become another user, who may not read the folder.
    std::string text = "user root\nlistener " + std::to_string(port_) + " 127.0.0.1\n";
    if (options_.tls) {
        const scripted::Certificate certificate(options_.names, -2 * 86400, options_.validUntil);
        folder_.write("certificate.pem", certificate.pem());
        folder_.write("key.pem", certificate.keyPem());
        text += "certfile " + folder_.file("certificate.pem") + "\nkeyfile " + folder_.file("key.pem") + '\n';
    }
    if (!options_.clients.empty()) {
        folder_.write("clients.pem", options_.clients);
        text += "require_certificate true\ncafile " + folder_.file("clients.pem") + '\n';
    }
    if (options_.user.empty()) {
        text += "allow_anonymous true\n";
    } else {
        folder_.write("users", options_.user + ':' + options_.password + '\n');
        if (peers::run("mosquitto_passwd", {"-U", folder_.file("users")}).status != 0) {
            throw std::runtime_error("mosquitto_passwd fails");
        }
        text += "allow_anonymous false\npassword_file " + folder_.file("users") + '\n';
    }
    folder_.write("broker.conf", text);
    start();
}

std::string Broker::url() const {
    return (options_.tls ? "mqtts://127.0.0.1:" : "mqtt://127.0.0.1:") + std::to_string(port_);
}

void Broker::stop() {
    if (program_) {
        program_->process().signal(SIGKILL);
        program_->process().waitForEnd();
        program_.reset();
    }
}

void Broker::start() {
    program_.emplace("mosquitto", std::vector<std::string>{"-c", folder_.file("broker.conf")});
    appliance::eventually([this] { return !program_->process().running() || peers::listens(port_); });
    if (!program_->process().running()) {
        throw std::runtime_error("the broker does not start:\n" + program_->output());
    }
}

} // namespace mqtt_test
