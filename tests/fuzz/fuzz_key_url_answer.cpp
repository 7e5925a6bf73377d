// The portal's decrypted answer to the key-and-URL request.
#include "fuzz_env.h"
#include "tola_app.h"
#include "tola_json_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tola_fuzz::Device();
    static TOLAApp app;
    std::string key, url;
    TOLAJSONParser parser(&app);
    parser.ProcessSMS104CheckinResponse(tola_fuzz::Text(data, size), key, url);
    tola_fuzz::TrimLog();
    return 0;
}
