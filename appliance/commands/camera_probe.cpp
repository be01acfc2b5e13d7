#include "appliance/commands/camera_probe.h"

#include "appliance/operating/refused.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned longestSeconds = 30;

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() {
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw Refused(std::string("no pipe: ") + std::strerror(errno));
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void closeEnd(int which) {
        if (ends[which] >= 0)
            close(ends[which]);
        ends[which] = -1;
    }
};

// The gateway's program is beside this one, or in the same prefix: some programs are in a folder of their own.
std::string gatewayProgram() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length < 0)
        throw Refused(std::string("/proc/self/exe can't be read: ") + std::strerror(errno));
    const std::string own(path, static_cast<std::size_t>(length));
    const std::string folder = own.substr(0, own.rfind('/') + 1);
    const std::string beside = folder + "camera-gateway";
    return access(beside.c_str(), X_OK) == 0 ? beside : folder + GATEWAY_FROM_HERE + "/camera-gateway";
}

// In the child: nothing that allocates.
[[noreturn]] void runProgram(const char* program, const char* option, const Pipe& input, const Pipe& output) {
    alarm(longestSeconds);
    if (dup2(input.ends[0], STDIN_FILENO) >= 0 && dup2(output.ends[1], STDOUT_FILENO) >= 0)
        execl(program, program, option, static_cast<char*>(nullptr));
    _exit(127);
}

std::string readAll(int fd) {
    std::string text;
    char bytes[4096];
    for (;;) {
        const ssize_t count = read(fd, bytes, sizeof bytes);
        if (count > 0)
            text.append(bytes, static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            return text;
    }
}

} // namespace

std::map<std::string, std::string> probeCamera(const std::string& url, const std::string& user,
                                               const std::string& password, bool connect) {
    const std::string program = gatewayProgram();
    if (access(program.c_str(), X_OK) != 0)
        throw Refused("camera-gateway is not installed (" + program + ")");
    Pipe input;
    Pipe output;
    const pid_t child = fork();
    if (child == 0)
        runProgram(program.c_str(), connect ? "--probe" : "--read-url", input, output);
    if (child < 0)
        throw Refused(std::string("camera-gateway can't be started: ") + std::strerror(errno));
    output.closeEnd(1);
    const std::string question = url + '\n' + user + '\n' + password + '\n';
    std::signal(SIGPIPE, SIG_IGN);
    const bool asked =
        write(input.ends[1], question.data(), question.size()) == static_cast<ssize_t>(question.size());
    input.closeEnd(1);
    const std::string answer = readAll(output.ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    std::map<std::string, std::string> values;
    std::istringstream lines(answer);
    for (std::string line; std::getline(lines, line);) {
        if (const std::size_t equals = line.find('='); equals != std::string::npos)
            values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    if (values.contains("Failure"))
        throw Refused(values["Failure"]);
    if (!asked || !WIFEXITED(status) || WEXITSTATUS(status) != 0 || !values.contains("URL"))
        throw Refused("camera-gateway gave no answer about the camera");
    return values;
}
