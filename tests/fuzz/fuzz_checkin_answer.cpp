// The portal's answer to a check-in, as the check-in client reads it.
#include <memory>

#include "fuzz_env.h"
#include "tola_app.h"
#include "tola_json_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tola_fuzz::Device();
    static TOLAApp app;
    std::string text = tola_fuzz::Text(data, size);
    TOLAJSONParser parser(&app);
    parser.ProcessCheckinResponse(text);
    tola_fuzz::TrimLog();
    return 0;
}
