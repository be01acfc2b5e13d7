// The functions that the fuzzers call. Each feeds any bytes to a reader, and aborts when the result breaks the reader's
// promises. Always returns 0.
#pragma once

#include <cstddef>
#include <cstdint>

// What a client sends: the gate, and what passes it.
int fuzzPanelRequest(const std::uint8_t* data, std::size_t size);

// Texts of headers, addresses and forms.
int fuzzPanelTexts(const std::uint8_t* data, std::size_t size);
