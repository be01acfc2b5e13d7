// Devices that answer searches of this process's network namespace: many cameras, or a flood of garbage. Call it after
// the test has entered its namespace.
#pragma once

#include <cstddef>
#include <string>
#include <thread>

class FakeCameras {
public:
    // `count` cameras with the addresses from 10.80.0.1 on; their services are at port 80.
    explicit FakeCameras(std::size_t count);

    // No cameras: so many datagrams for each probe, random bytes and broken answers in turn.
    struct Flood {
        std::size_t datagrams;
    };
    explicit FakeCameras(Flood flood);

    ~FakeCameras(); // ends the thread
    FakeCameras(const FakeCameras&) = delete;
    FakeCameras& operator=(const FakeCameras&) = delete;

private:
    void listen();
    void answer(const std::string& probe, const struct sockaddr_in& client) const;
    void sendCameras(const std::string& messageId, const struct sockaddr_in& client) const;
    void sendGarbage(const std::string& messageId, const struct sockaddr_in& client) const;

    std::size_t cameras_ = 0;
    std::size_t garbage_ = 0;
    int fd_ = -1;
    std::jthread thread_;
};
