// nginx as an encoder: its replies are static files.
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
    int port = 0;                                       // 0: any free port
    std::map<std::string, std::string> parameters;      // of the viewer's CGI
    std::map<std::string, std::string> oldParameters;   // of the administrator's getparam.cgi
    std::map<std::string, std::string> adminParameters; // of the administrator's param.cgi
    std::map<std::string, std::string> files;           // path to contents
    std::string user;                                   // "": no credentials; the password is "s3cret"
    bool viewerIsRefused = false;                       // the viewer's CGI answers 401 to every request
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
    // All requests so far. Waits until a request for `target` is among them.
    std::vector<Asked> asked(const std::string& target) const;

private:
    std::string configuration(const NginxOptions& options) const;
    void start();

    Folder folder_;
    int port_ = 0;
    std::optional<Program> program_;
};

} // namespace peers
