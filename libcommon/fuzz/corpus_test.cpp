// The fuzzers' corpora, as tests.
#include "libcommon/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class FuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(FuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Libcommon, FuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA,
                                                             {{"response_header", fuzzResponseHeader},
                                                              {"address", fuzzAddress}})),
                         fuzzing::nameOf);

} // namespace
