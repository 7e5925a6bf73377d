// config.xml, the agent's own configuration file, read as at start.
#include "fuzz_env.h"
#include "tola_app.h"
#include "xmldata.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const tola_test::TempRoot& root = tola_fuzz::Device();
    root.writeFile("/opt/ardo/etc/tola/config.xml", tola_fuzz::Text(data, size));
    {
        TOLAApp app;
        app.ReadSettings();
    }
    xmldata_shutdown();
    tola_fuzz::TrimLog();
    return 0;
}
