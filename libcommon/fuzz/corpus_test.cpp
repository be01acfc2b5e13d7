// The fuzzers' corpora run in every build, each file whole and cut at every byte.
#include "libcommon/fuzz/targets.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace {

using Input = std::pair<std::string, std::filesystem::path>; // folder of the corpus, file

std::vector<Input> allInputs() {
    std::vector<Input> inputs;
    for (const char* corpus : {"response_header", "address"})
        for (const auto& file :
             std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPORA) / corpus))
            inputs.emplace_back(corpus, file.path());
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

class FuzzCorpus : public testing::TestWithParam<Input> {};

TEST_P(FuzzCorpus, KeepsItsPromisesAtEveryLength) {
    std::ifstream file(GetParam().second, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    ASSERT_FALSE(bytes.empty());
    const auto target = GetParam().first == "address" ? fuzzAddress : fuzzResponseHeader;
    constexpr std::size_t everyLengthUpTo = 512; // a longer file is then tested whole
    for (std::size_t length = 0; length <= std::min(bytes.size(), everyLengthUpTo); ++length)
        target(reinterpret_cast<const std::uint8_t*>(bytes.data()), length);
    target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::string nameOf(const testing::TestParamInfo<Input>& info) {
    std::string name = info.param.first + "_" + info.param.second.filename().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Libcommon, FuzzCorpus, testing::ValuesIn(allInputs()), nameOf);

} // namespace
