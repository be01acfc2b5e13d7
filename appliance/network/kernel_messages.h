// The kernel's messages about links, addresses and routes (rtnetlink).
#pragma once

#include "appliance/network/network_state.h"

#include <cstddef>
#include <cstdint>

namespace network {

enum class Answer {
    More,    // the list goes on with the next datagram
    Done,    // the list is complete
    Changed, // the list is complete, but something changed meanwhile: ask again
    Failed,  // the kernel refused, or its answer is broken; errno says why
};

// Adds what one datagram of the answer to request `sequence` contains to `state`. Messages of other requests, unknown
// messages and those that are cut off add nothing. `data` is aligned like nlmsghdr.
Answer readAnswer(const void* data, std::size_t size, std::uint32_t sequence, NetworkState& state);

} // namespace network
