// What the fuzzers call, and the corpus test: each takes any bytes, always returns 0, and aborts when a
// promise of the code under it is broken.
#pragma once

#include <cstddef>
#include <cstdint>

int fuzzResponseHeader(const std::uint8_t* data, std::size_t size);
int fuzzAddress(const std::uint8_t* data, std::size_t size);
