// Adding, removing, renaming and ordering sources.
//
// Each command returns the sentence to print. It throws Refused when it was refused or failed.
#pragma once

#include <string>
#include <vector>

struct CameraAccess {
    std::string url;         // may have a user name and a password
    std::string subUrl;      // of a smaller stream of the same camera; "": none
    bool subMayFail = false; // a sub stream that does not play is left out
    std::string user;
    std::string password;
};

struct AddOptions {
    bool unchecked = false; // adds the source without connecting to the camera
    bool apply = true;
};

// Asks the gateway's program to connect to the camera, and adds the source when it plays. With `apply`, here and below, a
// decoder that plays connects again, so that it uses the change at once.
std::string addSource(const std::string& name, const CameraAccess& access, const AddOptions& options);

std::string removeSource(int index, const std::string& name, bool apply);
std::string renameSource(int index, const std::string& name, const std::string& newName, bool apply);
// `indices`: the sources that come first, in this order; all others follow in their present order.
std::string orderSources(const std::vector<int>& indices, bool apply);
