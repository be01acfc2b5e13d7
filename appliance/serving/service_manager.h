// Telling systemd that the program is ready (sd_notify(3), units with Type=notify).
//
// kept: not by libsystemd. It would bring six more libraries (three compressors and cryptography among them) and 0.8 MB
// into a program that talks to the network, to send one datagram.
#pragma once

#include <string>

// Sends a state such as "READY=1" to the socket that the environment variable NOTIFY_SOCKET names. Nothing happens
// without the variable. False, with a log line, when it can't be sent.
bool tellServiceManager(const std::string& state);
