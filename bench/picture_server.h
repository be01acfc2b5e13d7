// A camera that sends given pictures and remembers when.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace bench {

// Serves one client at a time over HTTP on 127.0.0.1: a multipart stream of JPEG pictures, one every 40 ms.
class PictureServer {
public:
    // The pictures are sent in turn; picture number n is pictures[n % size].
    explicit PictureServer(std::vector<std::string> pictures);
    ~PictureServer();
    PictureServer(const PictureServer&) = delete;
    PictureServer& operator=(const PictureServer&) = delete;

    unsigned short port() const { return port_; }

    // When pictures[index] was last sent, just before its first byte left: on one machine that is when it arrives. On
    // gettimeusec()'s clock; 0: never.
    std::int64_t sentAt(std::size_t index) const;

private:
    void serve();
    void sendTo(int client);

    std::vector<std::string> parts_;
    mutable std::mutex lock_;
    std::vector<std::int64_t> sent_;
    int listener_ = -1;
    unsigned short port_ = 0;
    std::atomic<bool> end_ = false;
    std::thread thread_;
};

} // namespace bench
