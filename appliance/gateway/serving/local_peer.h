// Which user of this machine is at the other end of a TCP connection over IPv4.
#pragma once

#include <optional>
#include <sys/types.h>

namespace gateway {

// Nothing when the other end is on another machine, has gone, or when the kernel can't tell (it was built without
// INET_DIAG). Does not block. Any thread.
std::optional<uid_t> userAtOtherEnd(int fd);

// Only this user's programs and root's may connect from this machine. Other machines are left to the address that the
// port is bound to. A refused user is logged, at most once a minute. For one thread.
bool mayUse(int fd);

} // namespace gateway
