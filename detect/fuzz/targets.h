// What the fuzzers call: each feeds any bytes to one reader of what encoders send, and aborts when the result
// is not what the reader promises. Always 0.
#pragma once

#include <cstddef>
#include <cstdint>

int fuzzSdp(const std::uint8_t* data, std::size_t size);
int fuzzTransport(const std::uint8_t* data, std::size_t size);

// The first byte is the length of the parameter's name; the name and the reply follow.
int fuzzParameterReply(const std::uint8_t* data, std::size_t size);
