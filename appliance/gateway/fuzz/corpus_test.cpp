// The fuzzers' corpora, as tests.
#include "appliance/gateway/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class GatewayFuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(GatewayFuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Inputs, GatewayFuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA,
                                                             {{"url", fuzzUrl}, {"packets", fuzzPackets}})),
                         fuzzing::nameOf);

} // namespace
