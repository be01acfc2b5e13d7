// libFuzzer's entry to the target that the build names.
#include "replay/fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return FUZZ_TARGET(data, size);
}
