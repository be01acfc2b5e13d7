// What an MPEG-2 stream is packed in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace player {

enum class Mpeg2Container { transport, program, elementary };

// As many bytes of a stream as containerOf() looks at; it does with fewer when the stream has no more.
inline constexpr std::size_t containerBytes = 3 * 188;

// Told by the stream's first bytes.
Mpeg2Container containerOf(std::string_view begin);

// What takes it apart and decodes it, as for gst-launch, the caps of what goes in, and the plugins that this
// takes.
struct Mpeg2Chain {
    const char* elements;
    const char* caps;
};
Mpeg2Chain chainOf(Mpeg2Container container);

// The plugins that the chains take, loaded. False with a log line when one is missing.
bool loadMpeg2Plugins();

} // namespace player
