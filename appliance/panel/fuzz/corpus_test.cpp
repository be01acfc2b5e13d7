// The fuzzers' corpora, as tests.
#include "appliance/panel/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class PanelFuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(PanelFuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Inputs, PanelFuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA,
                                                             {{"panel_request", fuzzPanelRequest},
                                                              {"panel_texts", fuzzPanelTexts}})),
                         fuzzing::nameOf);

} // namespace
