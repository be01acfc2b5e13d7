// The entry point of libFuzzer; the build names the target.
#include "appliance/mqtt/fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return FUZZ_TARGET(data, size);
}
