// A camera for benchmarks: sends one recorded H.264 stream over RTSP, on the RTSP connection only, to all who play it, each
// picture to all at the same time. It does nothing else, so that what is measured is the receiver.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace bench {

class LoopingCamera {
public:
    // `stream`: H.264 with start codes, 25 pictures a second, beginning with a key picture. Listens on 127.0.0.1.
    explicit LoopingCamera(std::string_view stream);
    ~LoopingCamera();
    LoopingCamera(const LoopingCamera&) = delete;
    LoopingCamera& operator=(const LoopingCamera&) = delete;

    std::uint16_t port() const { return port_; }
    // When the last PLAY request came, in microseconds on gettimeusec()'s clock; 0: none has come.
    std::int64_t playedAt() const { return playedAt_; }
    std::string url() const { return "rtsp://127.0.0.1:" + std::to_string(port_) + "/live"; }

private:
    void accept();
    void serve(int fd);
    void send();
    std::string packetsOf(std::size_t picture, std::uint32_t time);

    std::vector<std::vector<std::string>> pictures_; // NAL units without start codes
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<bool> ending_ = false;
    std::atomic<std::int64_t> playedAt_ = 0;
    std::uint16_t sequence_ = 1;
    std::mutex lock_;
    std::vector<int> playing_; // guarded by lock_
    std::vector<int> open_;    // guarded by lock_
    std::vector<std::thread> threads_;
};

} // namespace bench
