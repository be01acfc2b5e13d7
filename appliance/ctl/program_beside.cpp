#include "appliance/ctl/program_beside.h"

#include <filesystem>
#include <system_error>

std::string programBeside(const std::string& name) {
    std::error_code unknown;
    return (std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path() / name).string();
}
