// A program of other people (or our own as their peer) that a test talks to over 127.0.0.1.
#pragma once

#include "tests/appliance/process.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace peers {

// Why a test that needs these programs can't run: "" they are all installed.
std::string missing(const std::vector<std::string>& programs);

// A port that was free a moment ago.
int freePort();

// Whether some process in this network listens on the TCP port; asked of the kernel, so that a server for a
// single client keeps its one connection.
bool listens(int port);

class Folder {
public:
    Folder();
    ~Folder();
    Folder(Folder&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    Folder& operator=(Folder&&) = delete;
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    void write(const std::string& name, const std::string& text) const; // with the folders above it

private:
    std::string path_;
};

// A running program, found by its name; ended by its pid with the object.
class Program {
public:
    Program(const std::string& name, std::vector<std::string> arguments);
    std::string output() const { return appliance::readFile(folder_.file("output")); }
    appliance::Process& process() { return *process_; }

private:
    Folder folder_;
    std::unique_ptr<appliance::Process> process_;
};

// Runs a program, found by its name, to its end.
appliance::Finished run(const std::string& name, std::vector<std::string> arguments);

// Our video-encoder, listening.
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
