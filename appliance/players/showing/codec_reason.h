// The source's reason for a codec that this machine can't decode, as the label and decoderctl show it. The gateway writes
// the other reasons: it only hands the stream on and does not know the decoders.
#pragma once

#include <string>

namespace player {

// Writes the status "Reason" of the source. May wait seconds for the lock of the status store. Any thread.
void tellUndecodable(int source, const std::string& codec);

// Clears such a reason, which an earlier player left, on a thread of its own.
void clearUndecodable(int source);

} // namespace player
