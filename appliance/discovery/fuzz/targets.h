// The functions that the fuzzers call. Each feeds any bytes to the readers of what devices send, and aborts when a result
// breaks the readers' promises. Always returns 0.
#pragma once

#include <cstddef>
#include <cstdint>

// A reply of a SOAP service: given to every reader of replies.
int fuzzSoapAnswer(const std::uint8_t* data, std::size_t size);

// An answer to a search.
int fuzzProbeMatches(const std::uint8_t* data, std::size_t size);
