// Linked into every fuzz target: the simulated device root exists before the first input, so that
// nothing a target calls (the debug log above all) reaches the machine's own files.
#include "fuzz_env.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    tola_fuzz::Device();
    return 0;
}
