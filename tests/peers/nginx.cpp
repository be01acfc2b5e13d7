#include "tests/peers/nginx.h"

#include "tests/support/certificate.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace peers {

namespace {

// Each parameter is a file in `folder` with its name.
void writeParameters(const Folder& root, const std::string& folder,
                     const std::map<std::string, std::string>& parameters) {
    for (const auto& [name, value] : parameters)
        root.write(folder + "/" + name, std::string(name).append("=").append(value).append("\n"));
}

std::string location(const std::string& path, const std::string& body) {
    return std::string("location = ").append(path).append(" { ").append(body).append(" }\n");
}

} // namespace

Nginx::Nginx(const NginxOptions& options) : port_(options.port == 0 ? freePort() : options.port) {
    writeParameters(folder_, "view", options.parameters);
    writeParameters(folder_, "getparam", options.oldParameters);
    writeParameters(folder_, "admin", options.adminParameters);
    for (const auto& [path, contents] : options.files)
        folder_.write("files" + path, contents);
    folder_.write("users", options.user + ":{PLAIN}s3cret\n");
    folder_.write("no-users", "");
    if (options.certificate != nullptr) {
        folder_.write("certificate.pem", options.certificate->pem());
        folder_.write("key.pem", options.certificate->keyPem());
    }
    folder_.write("nginx.conf", configuration(options));
    start();
}

std::string Nginx::configuration(const NginxOptions& options) const {
    const std::string view = "/vexo-cgi/view/param.cgi";
    const std::string refusal = "auth_basic encoder; auth_basic_user_file " + folder_.file("no-users") + "; ";
    std::string text = "daemon off;\nmaster_process off;\npid " + folder_.file("pid") + ";\nerror_log " +
                       folder_.file("error.log") + ";\nevents {}\nhttp {\n" +
                       "log_format asked '$connection $status $request_uri';\naccess_log " +
                       folder_.file("access.log") + " asked;\ndefault_type text/plain;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += std::string(kind) + "_temp_path " + folder_.file(kind) + ";\n";
    text += "server {\nlisten 127.0.0.1:" + std::to_string(port_);
    if (options.certificate != nullptr)
        text += " ssl;\nssl_certificate " + folder_.file("certificate.pem") + ";\nssl_certificate_key " +
                folder_.file("key.pem");
    text += ";\nroot " + folder_.file("files") + ";\n";
    if (!options.user.empty())
        text += "auth_basic encoder;\nauth_basic_user_file " + folder_.file("users") + ";\n";
    text += location(view,
                     (options.viewerIsRefused ? refusal : "") + "alias " + folder_.file("view/$arg_group;")) +
            location("/vexo-cgi/admin/param.cgi", "alias " + folder_.file("admin/$arg_group;")) +
            location("/vexo-cgi/admin/getparam.cgi", "alias " + folder_.file("getparam/$args;"));
    return text + "}\n}\n";
}

void Nginx::start() {
    program_.emplace("nginx",
                     std::vector<std::string>{"-p", folder_.file(""), "-c", folder_.file("nginx.conf"), "-e",
                                              folder_.file("error.log")});
    appliance::eventually([this] { return !program_->process().running() || listens(port_); });
    if (!program_->process().running())
        throw std::runtime_error("nginx does not start:\n" + program_->output() +
                                 appliance::readFile(folder_.file("error.log")));
}

std::vector<Nginx::Asked> Nginx::asked(const std::string& target) const {
    // nginx writes a line after the answer was sent.
    appliance::eventually(
        [&] { return appliance::readFile(folder_.file("access.log")).find(target) != std::string::npos; });
    std::ifstream log(folder_.file("access.log"));
    std::vector<std::string> connections;
    std::vector<Asked> all;
    for (std::string line; std::getline(log, line);) {
        std::istringstream words(line);
        std::string connection;
        Asked one{};
        words >> connection >> one.status >> one.target;
        auto known = std::find(connections.begin(), connections.end(), connection);
        if (known == connections.end())
            known = connections.insert(connections.end(), connection);
        one.connection = static_cast<int>(known - connections.begin());
        all.push_back(one);
    }
    return all;
}

} // namespace peers
