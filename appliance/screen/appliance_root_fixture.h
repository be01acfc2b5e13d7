// For tests: an appliance root that is empty at the beginning of each test.
#pragma once

#include "tests/support/process_root.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace screen {

class ApplianceRoot : public testing::Test {
protected:
    ApplianceRoot() : root(ProcessRoot::get().path()) { ProcessRoot::get().empty(); }
    ~ApplianceRoot() override { ProcessRoot::get().empty(); }

    // Replaces the configuration.
    void configure(const std::string& text) const { write("etc/decoder/decoder.conf", text); }

    void write(const std::string& path, const std::string& text) const {
        std::filesystem::create_directories((root / path).parent_path());
        std::ofstream(root / path, std::ios::binary) << text;
    }

    std::string log() const {
        std::ifstream file(ProcessRoot::get().log());
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path root;
};

} // namespace screen
