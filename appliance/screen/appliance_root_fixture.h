// For tests: an appliance root of the test's own, which is removed at its end. CTest runs each test in its own process,
// so the library reads this root.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace screen {

class ApplianceRoot : public testing::Test {
protected:
    ApplianceRoot() {
        char folder[] = "/tmp/screen-XXXXXX";
        root = mkdtemp(folder);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        setenv("LIBCOMMON_LOG", (root / "log").c_str(), 1);
    }
    ~ApplianceRoot() override { std::filesystem::remove_all(root); }

    // Replaces the configuration.
    void configure(const std::string& text) const { write("etc/decoder/decoder.conf", text); }

    void write(const std::string& path, const std::string& text) const {
        std::filesystem::create_directories((root / path).parent_path());
        std::ofstream(root / path, std::ios::binary) << text;
    }

    std::string log() const {
        std::ifstream file(root / "log");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path root;
};

} // namespace screen
