// Takes rights away from the process that it does not need any more: what it decodes comes from outside.
#pragma once

#include <string>
#include <vector>

namespace input {

struct NeededRights {
    std::vector<std::string> readable; // files and folders
    std::vector<std::string> device;   // files that are read and written
    bool network = false;
};

// The process can't start programs, open other files or, without `network`, sockets; nor get any rights back. A kernel
// without Landlock keeps the files open to it. Called once, before other threads exist.
void confine(const NeededRights& rights);

} // namespace input
