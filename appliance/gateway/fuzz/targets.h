// The functions that the fuzzers call. Each feeds any bytes to a reader, and aborts when the result breaks the reader's
// promises. Always returns 0.
#pragma once

#include <cstddef>
#include <cstdint>

int fuzzUrl(const std::uint8_t* data, std::size_t size);

// A stream of packets: the first byte is the encoding, then each packet has its length in front, two bytes.
int fuzzPackets(const std::uint8_t* data, std::size_t size);
