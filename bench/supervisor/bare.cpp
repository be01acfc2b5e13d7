#include "bench/supervisor/bare.h"

#include "bench/process_cost.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

long privateKilobytes(int pid) {
    return static_cast<long>(privateMegabytesOf({pid}) * 1024);
}

namespace {

// Kilobytes of its heap, its stacks, and everything else that has no file.
long memoryOf(int pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/smaps");
    long sum = 0;
    bool hasFile = false;
    for (std::string line; std::getline(maps, line);) {
        if (line.find('-') <
            line.find(' ')) // "55594456c000-555944580000 r-xp ... /usr/bin/sed" begins a mapping
            hasFile = line.find('/') != std::string::npos;
        else if (!hasFile && line.starts_with("Anonymous:"))
            sum += std::stol(line.substr(line.find(':') + 1));
    }
    return sum;
}

std::set<std::string> librariesOf(int pid) {
    std::set<std::string> libraries;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);)
        if (const std::size_t path = line.find('/');
            path != std::string::npos && line.find(".so", path) != std::string::npos)
            libraries.insert(line.substr(path));
    return libraries;
}

} // namespace

BareLauncher::BareLauncher(int like, Memory memory, const std::string& program,
                           const std::map<std::string, std::string>& variables) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    std::vector<std::string> command{benchProgram("bare_launcher"), "orders",
                                     std::to_string(memory == Memory::same ? memoryOf(like) : 0), program};
    for (const std::string& library : librariesOf(like))
        command.push_back(library);
    std::vector<char*> arguments;
    for (std::string& word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        for (const auto& [name, value] : variables)
            setenv(name.c_str(), value.c_str(), 1);
        execv(arguments[0], arguments.data());
        _exit(13);
    }
    close(input[0]);
    close(output[1]);
    orders_ = fdopen(input[1], "w");
    answers_ = fdopen(output[0], "r");
}

BareLauncher::~BareLauncher() {
    std::fclose(orders_);
    std::fclose(answers_);
    waitpid(pid_, nullptr, 0);
}

BareLauncher::Times BareLauncher::order(const char* text) {
    std::fputs(text, orders_);
    std::fflush(orders_);
    char line[80];
    long long first = 0;
    long long second = 0;
    long long third = 0;
    if (std::fgets(line, sizeof line, answers_) == nullptr ||
        std::sscanf(line, "%lld %lld %lld", &first, &second, &third) != 3)
        throw std::runtime_error("bare_launcher has ended");
    return {first, second, third};
}

} // namespace bench
