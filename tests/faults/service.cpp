#include "tests/faults/site.h"

#include <csignal>
#include <cstdlib>

namespace faults {

using appliance::readFile;
using Clock = std::chrono::steady_clock;

Service::Service(std::string name, std::function<std::vector<std::string>()> command,
                 std::map<std::string, std::string> environment, std::string output, std::string ready)
    : name_(std::move(name)), command_(std::move(command)), environment_(std::move(environment)),
      output_(std::move(output)), ready_(std::move(ready)) {}

void Service::start() {
    port();
    appliance::writeFile(output_, "");
    std::vector<std::string> command = command_();
    for (std::string& word : command)
        if (word == "PORT")
            word = std::to_string(port_); // 0 at the first start: any free one
    process_.reset();
    process_ = std::make_unique<appliance::Process>(command, environment_, output_);
    endSeen_.reset();
    ++starts_;
}

void Service::keepRunning() {
    constexpr std::chrono::seconds pauseOfUnit{1};
    if (running())
        return;
    if (!endSeen_)
        endSeen_ = Clock::now();
    else if (Clock::now() - *endSeen_ >= pauseOfUnit)
        start();
}

bool Service::isReady() {
    return running() && (ready_.empty() || readFile(output_).find(ready_) != std::string::npos);
}

int Service::port() {
    const std::string text = readFile(output_);
    const std::size_t at = text.find("port=");
    if (at != std::string::npos && text.find('\n', at) != std::string::npos)
        port_ = std::atoi(text.c_str() + at + 5);
    return port_;
}

void Service::signal(int number) const {
    if (process_)
        process_->signal(number);
}

} // namespace faults
