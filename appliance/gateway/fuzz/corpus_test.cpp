// Runs the fuzzers' corpora in every build: each file whole and cut at every byte.
#include "appliance/gateway/fuzz/targets.h"

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

using Target = int (*)(const std::uint8_t*, std::size_t);
using Input = std::pair<std::string, std::filesystem::path>; // folder of the corpus, file

Target targetOf(const std::string& corpus) {
    return corpus == "url" ? fuzzUrl : fuzzPackets;
}

std::vector<Input> allInputs() {
    std::vector<Input> inputs;
    for (const char* corpus : {"url", "packets"})
        for (const auto& file :
             std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPORA) / corpus))
            inputs.emplace_back(corpus, file.path());
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

class GatewayFuzzCorpus : public testing::TestWithParam<Input> {};

TEST_P(GatewayFuzzCorpus, KeepsItsPromisesAtEveryLength) {
    std::ifstream file(GetParam().second, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const Target target = targetOf(GetParam().first);
    for (std::size_t size = 0; size <= bytes.size(); ++size)
        EXPECT_EQ(target(reinterpret_cast<const std::uint8_t*>(bytes.data()), size), 0);
}

INSTANTIATE_TEST_SUITE_P(Inputs, GatewayFuzzCorpus, testing::ValuesIn(allInputs()), [](const auto& instance) {
    std::string name = instance.param.first + "_" + instance.param.second.stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
});

} // namespace
