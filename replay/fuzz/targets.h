// What the fuzzers run: any bytes in, 0 out, and an abort when a promise is broken.
#pragma once

#include <cstddef>
#include <cstdint>

// A recording: read, and replayed where it has a part that can be.
int fuzzRecording(const std::uint8_t* data, std::size_t size);
