// The functions that the fuzzers and the corpus test call. Each takes any bytes, always returns 0, and aborts when the
// code under it breaks a promise.
#pragma once

#include <cstddef>
#include <cstdint>

int fuzzResponseHeader(const std::uint8_t* data, std::size_t size);
int fuzzAddress(const std::uint8_t* data, std::size_t size);
