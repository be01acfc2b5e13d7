// Adding, removing, renaming and ordering sources.
//
// Each command returns the sentence to print. It throws Refused when it was refused or failed.
#pragma once

#include <string>
#include <vector>

struct CameraAccess {
    std::string url; // may have a user name and a password
    std::string user;
    std::string password;
};

// Asks the gateway's program to connect to the camera, and adds the source when it plays. `unchecked`: adds it in any case.
std::string addSource(const std::string& name, const CameraAccess& access, bool unchecked);

std::string removeSource(int index, const std::string& name);
std::string renameSource(int index, const std::string& name, const std::string& newName);
// `indices`: the sources that come first, in this order; all others follow in their present order.
std::string orderSources(const std::vector<int>& indices);

// Reads a password: from the terminal without showing it, or a line of standard input.
std::string readPassword(bool fromInput);
