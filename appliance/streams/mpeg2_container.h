// The container of an MPEG-2 stream.
#pragma once

#include <cstddef>
#include <string_view>

namespace streams {

enum class Mpeg2Container { transport, program, elementary };

// The number of bytes that containerOf() needs to recognise the container; with fewer it may mistake a transport stream
// for an elementary one.
inline constexpr std::size_t containerBytes = 3 * 188;

// The container of a stream with these first bytes.
Mpeg2Container containerOf(std::string_view begin);

} // namespace streams
