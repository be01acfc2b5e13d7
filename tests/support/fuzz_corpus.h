// Runs the fuzzers' corpora in every build: each file whole and cut at every length up to 1024 bytes.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace fuzzing {

// Takes any bytes, returns 0, and aborts when the code under it breaks a promise.
using Target = int (*)(const std::uint8_t* data, std::size_t size);

struct Corpus {
    std::string folder; // below FUZZ_CORPORA
    Target target;
};

struct Input {
    std::filesystem::path file;
    Target target;
};

inline std::vector<Input> inputsOf(const std::filesystem::path& corpora, const std::vector<Corpus>& all) {
    std::vector<Input> inputs;
    for (const Corpus& corpus : all)
        for (const auto& file : std::filesystem::directory_iterator(corpora / corpus.folder))
            inputs.push_back({file.path(), corpus.target});
    std::sort(inputs.begin(), inputs.end(),
              [](const Input& one, const Input& other) { return one.file < other.file; });
    return inputs;
}

inline void runAtEveryLength(const Input& input) {
    std::ifstream file(input.file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    ASSERT_FALSE(bytes.empty());
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    constexpr std::size_t everyLengthUpTo = 1024;
    for (std::size_t size = 0; size < std::min(bytes.size(), everyLengthUpTo); ++size)
        EXPECT_EQ(input.target(data, size), 0);
    EXPECT_EQ(input.target(data, bytes.size()), 0);
}

inline std::string textOf(const Input& input) {
    return input.file.parent_path().filename().string() + "_" + input.file.filename().string();
}

// For GoogleTest, which prints the bytes of a parameter that it knows nothing about; CTest shows them in the test's name.
inline void PrintTo(const Input& input, std::ostream* out) {
    *out << textOf(input);
}

inline std::string nameOf(const testing::TestParamInfo<Input>& info) {
    std::string name = textOf(info.param);
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

} // namespace fuzzing
