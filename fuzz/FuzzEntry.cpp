// libFuzzer's entry point for the harness named by PV_FUZZ_HARNESS.

#include "Harnesses.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return pv::fuzz::PV_FUZZ_HARNESS(data, size);
}
