// The fuzzers' corpora, as tests.
#include "detect/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class FuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(FuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Inputs, FuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA,
                                                             {{"sdp", fuzzSdp},
                                                              {"transport", fuzzTransport},
                                                              {"parameter_reply", fuzzParameterReply}})),
                         fuzzing::nameOf);

} // namespace
