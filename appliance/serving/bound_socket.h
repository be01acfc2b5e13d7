// Opening a port.
#pragma once

#include <cstdint>
#include <string>

// A socket bound to a port of an IPv4 address. It does not listen yet: connections to it are refused. Port 0 takes any
// free port and is set to it. -1 with an error text on failure. The caller owns the descriptor; it does not block.
int boundSocket(const std::string& address, std::uint16_t& port, std::string& error);

// "what: the text of errno".
std::string systemError(const std::string& what);
