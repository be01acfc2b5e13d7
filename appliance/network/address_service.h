// Keeps the parameter "Network.eth0.IPAddress" equal to this machine's address.
#pragma once

namespace network {

// Writes the address of the default route's interface ("" without one) to the parameter, now and after each change of
// the network, until SIGINT or SIGTERM arrives; with `once` only now. A parameter that has the value already is not
// written. A failed write is repeated after 10 seconds, and then less and less often, at least every 10 minutes. Returns
// the program's exit status: 0; 1 with a log line when the kernel tells nothing about the network, or, with `once`,
// when the parameter can't be written. Called once, on the main thread.
int runAddressService(bool once);

} // namespace network
