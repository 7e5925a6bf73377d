// sms: a text message as the device's messaging service forwards it to the agent, published as
// a string on "sms.msg.tola".
//   sms send [--key K] 'COMMAND'   "<TOLA><" + COMMAND encrypted under K + ">"; K defaults to the
//                                  factory key (BaseEncryptionKey) of the device's config.xml
//   sms raw TEXT                   TEXT as it stands (malformed messages, captured ones)
#include <cstdio>
#include <cstdlib>
#include <string>

#include "devicectl.h"
#include "msgbus_handler.h"
#include "payload_cipher.h"
#include "sys_core.h"
#include "tola_types.h"
#include "xmldata.h"

namespace {

const char* const kSmsUsage =
    "sms send [--key K] 'COMMAND' | sms raw TEXT   (an SMS on sms.msg.tola; K defaults to the factory key)";

// BaseEncryptionKey of the device's config.xml, or "" when it cannot be read.
std::string factoryKey() {
    std::string path = sys_fsPath(TOLA_CONFIG_FILE);
    if (xmldata_initialize(path.c_str(), path.c_str()) != 0) {
        return "";
    }
    char key[TOLA_TEXT_SIZE] = {0};
    int rc = xmldata_getstring("/Config/BaseEncryptionKey", key, TOLA_TEXT_MAX);
    xmldata_shutdown();
    return rc == 0 ? key : "";
}

int publishText(const std::string& text) {
    MsgbusHandler bus;
    if (bus.Initialize() != 0) {
        std::fprintf(stderr, "tola-devicectl: cannot connect to the bus (ARDO_BUS_ADDRESS)\n");
        return 1;
    }
    int rc = bus.PublishData("sms.msg.tola", text);
    bus.Uninitialize();
    if (rc != 0) {
        std::fprintf(stderr, "tola-devicectl: publishing on sms.msg.tola failed\n");
        return 1;
    }
    std::printf("%s\n", text.c_str());
    return 0;
}

int runSms(const devicectl::Args& args) {
    if (args.size() == 2 && args[0] == "raw") {
        return publishText(args[1]);
    }
    if (args.empty() || args[0] != "send") {
        return devicectl::usageError(kSmsUsage);
    }
    std::string key;
    std::string command;
    bool haveCommand = false;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--key" && i + 1 < args.size()) {
            key = args[++i];
        } else if (!haveCommand) {
            command = args[i];
            haveCommand = true;
        } else {
            return devicectl::usageError(kSmsUsage);
        }
    }
    if (!haveCommand) {
        return devicectl::usageError(kSmsUsage);
    }
    if (key.empty()) {
        key = factoryKey();
        if (key.empty()) {
            std::fprintf(stderr, "tola-devicectl: no BaseEncryptionKey in %s (give --key)\n",
                         sys_fsPath(TOLA_CONFIG_FILE).c_str());
            return 1;
        }
    }
    char* encrypted = nullptr;
    if (AesEncrypt(key.c_str(), command.c_str(), &encrypted) != 0 || encrypted == nullptr) {
        std::free(encrypted);
        std::fprintf(stderr, "tola-devicectl: encryption failed\n");
        return 1;
    }
    std::string sms = std::string("<TOLA><") + encrypted + ">";
    std::free(encrypted);
    return publishText(sms);
}

}  // namespace

DEVICECTL_VERB("sms", kSmsUsage, runSms);
