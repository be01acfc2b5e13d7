// The fuzzer's corpus, as tests.
#include "replay/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class FuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(FuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Replay, FuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA, {{"recording", fuzzRecording}})),
                         fuzzing::nameOf);

} // namespace
