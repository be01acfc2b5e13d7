// The fuzzers' corpora, as tests.
#include "appliance/discovery/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class FuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(FuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Discovery, FuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA,
                                                             {{"soap_answer", fuzzSoapAnswer},
                                                              {"probe_matches", fuzzProbeMatches}})),
                         fuzzing::nameOf);

} // namespace
