// decoderctl's commands for the panel: links, accounts and tokens.
#pragma once

#include "appliance/ctl/ctl_command_line.h"

#include <iosfwd>
#include <string>

// Prints a link that logs in once. Throws Refused if no panel runs.
void showPanelLink(const Request& request, std::ostream& out);

// Makes, changes or removes an account, and returns the sentence about it. The password is asked for, twice at a terminal.
// Throws Refused.
std::string setPanelPassword(const Request& request);

// Makes a token and prints it: nothing keeps it. Throws Refused.
void makePanelToken(const Request& request, std::ostream& out);

// Prints the tokens, one per line, or removes one of them.
void showPanelTokens(const Request& request, std::ostream& out);
