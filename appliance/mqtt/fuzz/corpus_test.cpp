// The fuzzers' corpora, as tests.
#include "appliance/mqtt/fuzz/targets.h"
#include "tests/support/fuzz_corpus.h"

namespace {

class MqttFuzzCorpus : public testing::TestWithParam<fuzzing::Input> {};

TEST_P(MqttFuzzCorpus, KeepsItsPromisesAtEveryLength) {
    fuzzing::runAtEveryLength(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Inputs, MqttFuzzCorpus,
                         testing::ValuesIn(fuzzing::inputsOf(FUZZ_CORPORA,
                                                             {{"rule", fuzzRule}, {"fleet", fuzzFleet}})),
                         fuzzing::nameOf);

} // namespace
