// A real video-encoder that a test started on loopback.
#pragma once

#include "tests/appliance/process.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace appliance {

class Encoder {
public:
    // Starts the encoder and waits until it listens. `mark` is the number in the first input's pictures. With a
    // `host`, such as "127.0.1.1", it uses this address and the usual ports.
    Encoder(std::string name, int mark, std::vector<std::string> arguments, std::string logFile,
            std::string host = "");

    // The source's "Address": the encoder's host, or else its HTTPS port if it has one, or else its HTTP port.
    std::string address() const;
    Process& process() { return *process_; }

    void kill();                                     // kill -9
    void again();                                    // starts it again with the same ports and arguments
    void setFaults(const std::string& faults) const; // of the running encoder: "stall=10 404-view"; "": none

    struct Request {
        std::string protocol; // "http", "https", "rtsp"
        std::string target;
        std::string user; // "": without credentials
        int status = 0;
    };
    std::vector<Request> requests() const; // in order

    // The presets that were requested, in order.
    std::vector<std::string> gotos() const;

private:
    void startWith(const std::vector<std::string>& ports);
    std::string ask(const std::string& method, const std::string& path, const std::string& body) const;
    int port(const std::string& name) const { return ports_.at(name); }

    std::string name_;
    int mark_;
    std::vector<std::string> arguments_;
    std::string logFile_;
    std::string host_;                 // "": 127.0.0.1, shared
    std::map<std::string, int> ports_; // "http", "rtsp", "https", "control"; 0: none
    std::unique_ptr<Process> process_;
};

// A server on 127.0.0.1 that is not an encoder. It handles each connection with `behaviour`, in a process of its
// own, and ends with the test.
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

// Reads a request up to its empty line. Returns false when the other side closed earlier.
bool readRequest(int fd);

// Writes the whole text. Returns false when the other side does not take it.
bool writeAll(int fd, const std::string& text);

} // namespace appliance
