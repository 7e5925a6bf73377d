// sms: a text message as the device's messaging service forwards it to the agent, published as
// a string on "sms.msg.tola".
//   sms send [--key K] 'COMMAND'   "<TOLA><" + COMMAND encrypted under K + ">"; K defaults to the
//                                  factory key (BaseEncryptionKey) of the device's config.xml
//   sms raw TEXT                   TEXT as it stands (malformed messages, captured ones)
#include <systemd/sd-bus.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bus_open.h"
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

// Whether any connection on the bus has a match rule for the channel, i.e. would receive the
// message: 1 yes, 0 no, -1 cannot tell. Asks the bus daemon for every connection's match rules
// (org.freedesktop.DBus.Debug.Stats, present in dbus-daemon; a system bus may refuse it).
int subscribed(const std::string& channel) {
    sd_bus* bus = nullptr;
    int r = ardo::openBusFromEnvironment(&bus, "ARDO_BUS_ADDRESS", sd_bus_open_user);
    sd_bus_message* reply = nullptr;
    if (r >= 0) {
        r = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules", nullptr, &reply, "");
    }
    const std::string wanted = "arg0='" + channel + "'";
    int found = r >= 0 ? 0 : -1;
    if (r >= 0 && sd_bus_message_enter_container(reply, 'a', "{sas}") > 0) {
        while (found == 0 && sd_bus_message_enter_container(reply, 'e', "sas") > 0) {
            const char* connection = nullptr;
            sd_bus_message_read(reply, "s", &connection);
            if (sd_bus_message_enter_container(reply, 'a', "s") > 0) {
                const char* rule = nullptr;
                while (sd_bus_message_read(reply, "s", &rule) > 0) {
                    if (rule != nullptr && std::string(rule).find(wanted) != std::string::npos) {
                        found = 1;
                    }
                }
                sd_bus_message_exit_container(reply);
            }
            sd_bus_message_exit_container(reply);
        }
    }
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return found;
}

int publishText(const std::string& text) {
    int listening = subscribed("sms.msg.tola");
    if (listening == 0) {
        std::fprintf(
            stderr,
            "tola-devicectl sms: no agent is subscribed to sms.msg.tola on this bus: nobody receives the "
            "message (is the agent running, with the same ARDO_BUS_ADDRESS?)\n");
    } else if (listening < 0) {
        std::fprintf(stderr,
                     "tola-devicectl sms: cannot tell whether an agent is subscribed (the bus does not "
                     "list match rules)\n");
    }
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
    if (args.empty()) {
        return devicectl::usageError(kSmsUsage);
    }
    if (args[0] != "send") {
        return devicectl::refuseArgument("sms", args[0], kSmsUsage);
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
            return devicectl::refuseArgument("sms", args[i], kSmsUsage);
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
