// Runs the fuzzers' corpora in every build: each file whole and cut at every byte.
#include "appliance/discovery/fuzz/targets.h"

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
    for (const char* corpus : {"soap_answer", "probe_matches"}) {
        for (const auto& file :
             std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPORA) / corpus)) {
            inputs.emplace_back(corpus, file.path());
        }
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

class FuzzCorpus : public testing::TestWithParam<Input> {};

TEST_P(FuzzCorpus, KeepsItsPromisesAtEveryLength) {
    std::ifstream file(GetParam().second, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const auto target = GetParam().first == "soap_answer" ? fuzzSoapAnswer : fuzzProbeMatches;
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        EXPECT_EQ(target(reinterpret_cast<const std::uint8_t*>(bytes.data()), size), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Inputs, FuzzCorpus, testing::ValuesIn(allInputs()), [](const auto& instance) {
    std::string name = instance.param.first + "_" + instance.param.second.stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
});

} // namespace
