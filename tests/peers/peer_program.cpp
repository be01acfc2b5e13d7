#include "tests/peers/peer_program.h"

#include "tests/support/programs.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace peers {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> commandOf(const std::string& name, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), findProgram(name));
    return arguments;
}

int numberAfter(const std::string& text, const std::string& words) {
    const std::size_t at = text.find(words);
    return at == std::string::npos ? 0 : std::atoi(text.c_str() + at + words.size());
}

} // namespace

std::string missing(const std::vector<std::string>& programs) {
    for (const std::string& name : programs)
        if (findProgram(name).empty())
            return name + " is not installed";
    return "";
}

int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(fd, generic, length) != 0 || getsockname(fd, generic, &length) != 0)
        throw std::runtime_error("no free port");
    close(fd);
    return ntohs(address.sin_port);
}

bool listens(int port) {
    constexpr unsigned listening = 10;
    std::ifstream table("/proc/net/tcp");
    for (std::string line; std::getline(table, line);) {
        unsigned local = 0;
        unsigned state = 0;
        if (std::sscanf(line.c_str(), " %*d: %*[0-9A-F]:%x %*[0-9A-F]:%*x %x", &local, &state) == 2 &&
            local == static_cast<unsigned>(port) && state == listening)
            return true;
    }
    return false;
}

Folder::Folder() : path_((fs::temp_directory_path() / "peer-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr)
        throw std::runtime_error("no temporary folder");
}

Folder::~Folder() {
    if (!path_.empty())
        fs::remove_all(path_);
}

void Folder::write(const std::string& name, const std::string& text) const {
    fs::create_directories(fs::path(file(name)).parent_path());
    appliance::writeFile(file(name), text);
}

Program::Program(const std::string& name, std::vector<std::string> arguments)
    : process_(std::make_unique<appliance::Process>(commandOf(name, std::move(arguments)),
                                                    std::map<std::string, std::string>{},
                                                    folder_.file("output"))) {}

appliance::Finished run(const std::string& name, std::vector<std::string> arguments) {
    return appliance::runToEnd(commandOf(name, std::move(arguments)), {});
}

VideoEncoder::VideoEncoder(std::vector<std::string> arguments) {
    const std::string log = folder_.file("log");
    arguments.insert(arguments.begin(), {VIDEO_ENCODER, "--http", "0", "--rtsp", "0"});
    process_ = std::make_unique<appliance::Process>(arguments, std::map<std::string, std::string>{}, log);
    const auto ready = [&log] { return appliance::readFile(log).find("https=") != std::string::npos; };
    appliance::eventually([&] { return ready() || !process_->running(); });
    if (!ready())
        throw std::runtime_error("video-encoder does not start:\n" + appliance::readFile(log));
    http_ = numberAfter(appliance::readFile(log), "http=");
    rtsp_ = numberAfter(appliance::readFile(log), "rtsp=");
}

} // namespace peers
