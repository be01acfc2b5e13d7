#include "detect/parameter_reply.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace detect {

bool extractValue(std::span<char> reply, int received, std::string_view group) {
    const std::size_t bytes = std::min(reply.size(), static_cast<std::size_t>(received));
    reply[bytes - 1] = '\0';
    const std::size_t length = std::strlen(reply.data()); // a zero byte from the encoder ends the text, too
    if (!std::string_view(reply.data(), length).starts_with(group))
        return false;
    // A reply that ends with the name has no "=" to skip. The bytes behind its end belong to an older reply.
    const std::size_t value = std::min(group.size() + 1, length);
    std::memmove(reply.data(), reply.data() + value, length - value + 1);
    return true;
}

} // namespace detect
