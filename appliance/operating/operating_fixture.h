// A temporary appliance root for the tests of this folder. Each test runs in its own process.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class OperatingTest : public testing::Test {
protected:
    OperatingTest() {
        char folder[] = "/tmp/operating-XXXXXX";
        root = mkdtemp(folder);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        std::filesystem::create_directories(root / "etc/decoder");
        std::filesystem::create_directories(root / "run/decoder");
    }
    ~OperatingTest() override { std::filesystem::remove_all(root); }

    void configure(const std::string& text) const {
        std::ofstream(root / "etc/decoder/decoder.conf") << text;
    }

    std::filesystem::path root;
};
