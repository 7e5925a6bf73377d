// A configuration document: parsed into a fresh settings object and validated against the
// simulated device (a dry run: the device is not changed between inputs).
#include "fuzz_env.h"
#include "tola_agent.h"
#include "tola_json_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tola_fuzz::Device();
    TOLAAgent agent;
    agent.SetValidationDryRun(true);
    TOLAJSONParser parser(&agent);
    if (parser.ProcessJSONData(tola_fuzz::Text(data, size)) == 0) {
        agent.ValidateObjectParameters();
    }
    tola_fuzz::TrimLog();
    return 0;
}
