// Packets of an MPEG-2 transport stream, as far as keeping a stream depends on them.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace gateway {

constexpr std::size_t transportBytes = 188;

// Calls `take` for each whole packet; `bytes` begins with one.
void transportPacketsIn(std::string_view bytes, const std::function<void(std::string_view packet)>& take);

int packetIdOf(std::string_view packet);
// A video picture with a sequence header begins in it.
bool beginsKeyPicture(std::string_view packet);
// A video picture begins in it.
bool beginsPicture(std::string_view packet);
// It has the table of programs (PAT) or the table of a program's streams (PMT).
bool hasTable(std::string_view packet);

} // namespace gateway
