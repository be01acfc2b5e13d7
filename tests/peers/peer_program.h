// Independent programs, and ours, that a test starts and connects to over 127.0.0.1.
#pragma once

#include "tests/appliance/process.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace peers {

// The reason to skip a test that needs these programs; "" if all are installed.
std::string missing(const std::vector<std::string>& programs);

// A port that is free at the time of the call.
int freePort();

// Whether a process in this network listens on the TCP port. It asks the kernel instead of connecting, because some
// servers accept only one connection.
bool listens(int port);

class Folder {
public:
    Folder();
    ~Folder();
    Folder(Folder&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    Folder& operator=(Folder&&) = delete;
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    void write(const std::string& name, const std::string& text) const; // makes the folders above it too

private:
    std::string path_;
};

// A running program, found in the PATH. The destructor ends it by its pid.
class Program {
public:
    Program(const std::string& name, std::vector<std::string> arguments);
    std::string output() const { return appliance::readFile(folder_.file("output")); }
    appliance::Process& process() { return *process_; }

private:
    Folder folder_;
    std::unique_ptr<appliance::Process> process_;
};

// Runs a program, found in the PATH, to its end.
appliance::Finished run(const std::string& name, std::vector<std::string> arguments);

// Our video-encoder; listens when the constructor returns.
class VideoEncoder {
public:
    explicit VideoEncoder(std::vector<std::string> arguments);
    int http() const { return http_; }
    int rtsp() const { return rtsp_; }

private:
    Folder folder_;
    std::unique_ptr<appliance::Process> process_;
    int http_ = 0;
    int rtsp_ = 0;
};

} // namespace peers
