// Pictures and streams for tests of the players.
#pragma once

#include "tests/support/scripted_server.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace player {

// A JPEG picture with noise and a frame mark of that source and counter. `noise` selects the noise; -1: each
// picture has its own.
std::string jpegPicture(int source, int counter, int width = 720, int height = 576, int noise = -1);

// A JPEG picture of four differently coloured quarters: red, green; blue, white.
std::string quarteredJpeg(int width, int height);

// A part of a multipart stream with the boundary "next".
std::string part(const std::string& body);

inline const std::string multipartHeader =
    "HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=next\r\n\r\n--next\r\n";

inline constexpr std::chrono::milliseconds pictureTime{40};

// A script that answers a request with the multipart header and then sends pictures of that source, one every
// 40 ms. Their counters begin with `first`.
scripted::Script pictureStream(int source, int count, int first = 0, int width = 720, int height = 576);

// A step that sends the bytes after that time.
scripted::Step later(std::string bytes, std::chrono::milliseconds time = pictureTime);

} // namespace player
