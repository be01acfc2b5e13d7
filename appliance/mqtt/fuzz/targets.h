// The functions that the fuzzers call. Each feeds any bytes to a reader, and aborts when the result breaks the reader's
// promises. Always returns 0.
#pragma once

#include <cstddef>
#include <cstdint>

// The first five lines are a rule: topic, path, condition, source, text. The sixth is the topic of a message, the rest its
// payload.
int fuzzRule(const std::uint8_t* data, std::size_t size);

// Messages of decoders: a line with the last level of the topic, and a line with the payload.
int fuzzFleet(const std::uint8_t* data, std::size_t size);
