// For tests: an appliance root with the folders of a new decoder, the same for all tests of a process.
#pragma once

#include "tests/support/process_root.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

class OperatingTest : public testing::Test {
protected:
    OperatingTest() : root(ProcessRoot::get().path()) {
        ProcessRoot::get().empty();
        std::filesystem::create_directories(root / "etc/decoder");
        std::filesystem::create_directories(root / "run/decoder");
    }
    ~OperatingTest() override { ProcessRoot::get().empty(); }

    void configure(const std::string& text) const {
        std::ofstream(root / "etc/decoder/decoder.conf") << text;
    }

    std::filesystem::path root;
};
