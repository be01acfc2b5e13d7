// Programs of other projects that tests run.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <unistd.h>

// The path of the program, "" when it is not installed. Servers are often not in an ordinary user's PATH.
inline std::string findProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string file = folder + "/" + name;
        if (!folder.empty() && access(file.c_str(), X_OK) == 0)
            return file;
    }
    return "";
}
