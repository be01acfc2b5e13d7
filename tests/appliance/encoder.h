// A real video-encoder that a test started on loopback.
#pragma once

#include "tests/appliance/process.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace appliance {

class Encoder {
public:
    // Starts it and waits until it answers. `mark` is the source number in its pictures.
    Encoder(std::string name, int mark, std::vector<std::string> arguments, std::string logFile);

    std::string address() const { return "127.0.0.1:" + std::to_string(httpPort_); }
    int httpPort() const { return httpPort_; }
    Process& process() { return *process_; }

    void kill();  // kill -9
    void again(); // started again with the same ports and arguments; waits until it answers

    // Presets that cameras were turned to, in order.
    std::vector<std::string> gotos() const;

private:
    bool startOn(int httpPort, int rtspPort);

    std::string name_;
    int mark_;
    std::vector<std::string> arguments_;
    std::string logFile_;
    int httpPort_ = 0;
    int rtspPort_ = 0;
    std::unique_ptr<Process> process_;
};

// Something on 127.0.0.1 that is no encoder: accepts connections and treats each as `behaviour` says, in a
// process of its own. Ends with the test.
class Oddity {
public:
    explicit Oddity(const std::function<void(int fd)>& behaviour);
    ~Oddity();
    Oddity(const Oddity&) = delete;
    Oddity& operator=(const Oddity&) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

private:
    int port_ = 0;
    pid_t pid_ = -1;
};

// Reads a request up to its empty line; false when the other side closed before it.
bool readRequest(int fd);

// Writes all of it, as long as the other side takes it.
bool writeAll(int fd, const std::string& text);

} // namespace appliance
