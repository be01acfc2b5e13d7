#include "tests/appliance/process.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace appliance {

namespace {

int openOutput(const std::string& file) {
    return open(file.empty() ? "/dev/null" : file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

// In the child: never returns.
[[noreturn]] void become(char** arguments, char** environment, int output, int errors, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(127);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    execve(arguments[0], arguments, environment);
    _exit(127);
}

std::vector<std::string> changedEnvironment(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (changes.count(text.substr(0, text.find('='))) == 0) {
            all.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        all.emplace_back(name).append("=").append(value);
    }
    return all;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        all.push_back(text.data());
    }
    all.push_back(nullptr);
    return all;
}

pid_t spawn(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment,
            int output, int errors) {
    std::vector<std::string> variables = changedEnvironment(environment);
    std::vector<char*> argumentPointers = pointers(arguments);
    std::vector<char*> variablePointers = pointers(variables);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        become(argumentPointers.data(), variablePointers.data(), output, errors, parent);
    }
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    return pid;
}

// A temporary file without a name: it is gone when it is closed.
int scratchFile() {
    char name[] = "/tmp/appliance-output-XXXXXX";
    const int fd = mkostemp(name, O_CLOEXEC);
    unlink(name);
    return fd;
}

std::string contents(int fd) {
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got = 0; (got = read(fd, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    return text;
}

} // namespace

void pause(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

Process::Process(const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment, const std::string& outputFile) {
    const int output = openOutput(outputFile);
    pid_ = spawn(arguments, environment, output, output);
    close(output);
}

Process::~Process() {
    if (running()) {
        kill(pid_, SIGCONT);
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool Process::running() {
    if (status_) {
        return false;
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = status;
        return false;
    }
    return true;
}

void Process::signal(int number) const {
    if (!status_) {
        kill(pid_, number);
    }
}

std::optional<int> Process::waitForEnd(Seconds limit) {
    eventually([this] { return !running(); }, limit);
    return status_;
}

Finished runToEnd(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment, Seconds limit) {
    const int output = scratchFile();
    const int errors = scratchFile();
    const pid_t pid = spawn(arguments, environment, output, errors);
    int status = 0;
    const bool ended = eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, limit);
    if (!ended) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    Finished finished;
    finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    finished.output = contents(output);
    finished.errors = contents(errors) + (ended ? "" : "\n(did not end in time)");
    return finished;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace appliance
