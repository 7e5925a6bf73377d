// acl_config.xml as found at start: the reader and its repair over an arbitrary file. The first
// byte chooses what lies on the disk: bit 0 puts the rest in the main file (else it is empty),
// bit 1 puts it in the backup as well (else there is no backup).
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "fuzz_env.h"
#include "tola_agent.h"

namespace {

std::unique_ptr<TOLAAgent> gAgent;

TOLAAgent& Agent() {
    if (!gAgent) {
        tola_fuzz::Device();
        gAgent = std::make_unique<TOLAAgent>();
        gAgent->Initialize();
        std::atexit([] {
            gAgent->Uninitialize();
            gAgent.reset();
        });
    }
    return *gAgent;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    TOLAAgent& agent = Agent();
    const tola_test::TempRoot& root = tola_fuzz::Device();
    std::string body = tola_fuzz::Text(data + 1, size - 1);
    const std::string file = "/opt/ardo/data/tola/acl_config.xml";
    root.writeFile(file, (data[0] & 1) != 0 ? body : std::string());
    if ((data[0] & 2) != 0) {
        root.writeFile(file + ".bkp", body);
    } else {
        root.remove(file + ".bkp");
    }
    agent.InitializeACL();
    tola_fuzz::TrimLog();
    return 0;
}
