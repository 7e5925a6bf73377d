// An SMS on the command channel, parsed and dispatched on the simulated device. The first byte
// chooses the form: odd, the rest is the wire text as received; even, the rest is a command's
// plain text, sealed with the factory key and framed as the portal would, so that the fuzzer
// reaches the commands themselves and not only the frame and the cipher.
#include <cstdlib>
#include <memory>

#include "fuzz_env.h"
#include "sealed_text.h"
#include "tola_app.h"

namespace {

std::unique_ptr<TOLAApp> gApp;

TOLAApp& App() {
    if (!gApp) {
        tola_fuzz::Device();
        gApp = std::make_unique<TOLAApp>();
        gApp->ReadSettings();
        gApp->Agent().Initialize();
        gApp->Agent().GetRuntimeConfig(gApp->RuntimeConfig());
        std::atexit([] {
            gApp->Agent().Uninitialize();
            gApp.reset();
        });
    }
    return *gApp;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    TOLAApp& app = App();
    std::string body = tola_fuzz::Text(data + 1, size - 1);
    std::string wire;
    if ((data[0] & 1) != 0) {
        wire = body;
    } else {
        std::string sealed = tola_test::Encrypt(tola_record_text(app.Config().baseEncryptionKey), body);
        if (sealed.empty()) {
            return 0;
        }
        wire = "<TOLA><" + sealed + ">";
    }

    std::string argument;
    TOLACommand command =
        app.ParseTOLACommand(tola_record_text(app.Config().baseEncryptionKey), wire, argument);
    // The key-and-URL command goes to the network; its answer has a target of its own.
    if (command != TOLA_COMMAND_GET_SECURE_KEY_CHECKIN_URL) {
        app.HandleSmsCommand(wire);
        tola_fuzz::RequireReadableRecord();
    }
    tola_fuzz::TrimLog();
    return 0;
}
