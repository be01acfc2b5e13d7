// A TCP connection to a camera, plain or TLS, on the event loop.
#pragma once

#include "appliance/gateway/cameras/camera_url.h"
#include "appliance/gateway/cameras/reason.h"
#include "appliance/gateway/cameras/transfers.h"

#include <array>
#include <chrono>
#include <curl/curl.h>
#include <functional>
#include <string>
#include <string_view>

namespace gateway {

// Why libcurl could not connect, or lost the connection.
Failure failureOf(CURL* handle, CURLcode result, const CameraUrl& url, const char* error);

struct ConnectionEvents {
    std::function<void()> connected;
    std::function<void(std::string_view bytes)> received; // valid during the call
    std::function<void()> pause;                          // all that has arrived was passed on
    std::function<void(const Failure& failure)> ended;    // once; nothing more comes
};

// For the loop's thread.
class CameraConnection {
public:
    // Loop and transfers must outlive it.
    CameraConnection(EventLoop& loop, Transfers& transfers, CameraUrl url, ConnectionEvents events);
    ~CameraConnection();
    CameraConnection(const CameraConnection&) = delete;
    CameraConnection& operator=(const CameraConnection&) = delete;

    void open(std::chrono::milliseconds limit);

    // Sends soon, without waiting. Bytes that the camera does not take are kept, 64 KiB at most; then the
    // connection ends.
    void send(std::string_view bytes);

    // No event is reported from now on.
    void close();

    std::string peer() const;  // numeric address of the camera
    std::string local() const; // our own numeric address towards it
    bool isOpen() const { return socket_ != CURL_SOCKET_BAD; }

private:
    void onDone(CURLcode result);
    void onReady(std::uint32_t events);
    void readAll();
    void writeWaiting();
    void end(const Failure& failure);

    EventLoop& loop_;
    Transfers& transfers_;
    const CameraUrl url_;
    const ConnectionEvents events_;
    CURL* curl_;
    std::array<char, CURL_ERROR_SIZE> error_{};
    curl_socket_t socket_ = CURL_SOCKET_BAD;
    bool closed_ = false;
    std::string waiting_; // to be sent
};

} // namespace gateway
