// nginx as an encoder: what a detection asks for are static files.
#pragma once

#include "tests/peers/peer_program.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace scripted {
class Certificate;
}

namespace peers {

struct NginxOptions {
    int port = 0;                                     // 0: a free one
    std::map<std::string, std::string> parameters;    // what the viewer's CGI knows
    std::map<std::string, std::string> oldParameters; // what the old administrator's CGI knows
    std::map<std::string, std::string> adminParameters;
    std::map<std::string, std::string> files;           // path to contents
    std::string user;                                   // "" everybody may ask; the password is "s3cret"
    bool viewerIsRefused = false;                       // by the viewer's CGI, whoever asks
    const scripted::Certificate* certificate = nullptr; // HTTPS only
};

class Nginx {
public:
    explicit Nginx(const NginxOptions& options);

    int port() const { return port_; }

    struct Asked {
        int connection; // counted from 0, in the order of their first requests
        int status;
        std::string target;
    };
    // Everything that was asked and answered so far, once the last answer to `target` is among it.
    std::vector<Asked> asked(const std::string& target) const;

private:
    std::string configuration(const NginxOptions& options) const;
    void start();

    Folder folder_;
    int port_ = 0;
    std::optional<Program> program_;
};

} // namespace peers
