// The fuzzers' corpora, as tests.
#include "appliance/input/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class InputFuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(InputFuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Inputs, InputFuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA, {{"request", fuzzRequest},
                                                                            {"media", fuzzMedia},
                                                                            {"web_answer", fuzzWebAnswer}})),
                         fuzzing::nameOf);

} // namespace
