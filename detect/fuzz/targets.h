// The functions that the fuzzers call. Each feeds any bytes to one reader of an encoder's texts, and aborts when the
// result breaks the reader's promises. Always returns 0.
#pragma once

#include <cstddef>
#include <cstdint>

int fuzzSdp(const std::uint8_t* data, std::size_t size);
int fuzzTransport(const std::uint8_t* data, std::size_t size);

// The first byte is the length of the parameter's name; the name and the reply follow.
int fuzzParameterReply(const std::uint8_t* data, std::size_t size);
