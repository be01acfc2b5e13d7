// The functions that the fuzzers call. Each feeds any bytes to a reader, and aborts when the result breaks the reader's
// promises. Always returns 0.
#pragma once

#include <cstddef>
#include <cstdint>

// Messages of the gateway, as they come out of the socket.
int fuzzRequest(const std::uint8_t* data, std::size_t size);

// A camera's packets: the first byte is the codec, then each packet has its length in front, two bytes.
int fuzzMedia(const std::uint8_t* data, std::size_t size);

// A URL, a line end, a Content-Type, a line end, and the first bytes of a body.
int fuzzWebAnswer(const std::uint8_t* data, std::size_t size);
