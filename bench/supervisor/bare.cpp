#include "bench/supervisor/bare.h"

#include "bench/process_cost.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

long privateKilobytes(int pid) {
    return static_cast<long>(privateMegabytesOf({pid}) * 1024);
}

BareLauncher::BareLauncher(long kilobytes, const std::string& program,
                           const std::map<std::string, std::string>& variables) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const std::string launcher = benchProgram("bare_launcher");
    const std::string size = std::to_string(kilobytes);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        for (const auto& [name, value] : variables)
            setenv(name.c_str(), value.c_str(), 1);
        execl(launcher.c_str(), launcher.c_str(), "orders", size.c_str(), program.c_str(), nullptr);
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
    char line[64];
    long long first = 0;
    long long second = 0;
    if (std::fgets(line, sizeof line, answers_) == nullptr ||
        std::sscanf(line, "%lld %lld", &first, &second) != 2)
        throw std::runtime_error("bare_launcher has ended");
    return {first, second};
}

} // namespace bench
