// status: the agent's standing on the simulated device at a glance, read from its record
// (acl_config.xml), its configuration (config.xml) and the device state. Reads only.
#include <cstdio>
#include <ctime>
#include <string>

#include "device_state.h"
#include "devicectl.h"
#include "sys_core.h"
#include "tola_types.h"
#include "xmldata.h"

namespace {

const char* const kStatusUsage =
    "status   (check-in flag, URL, key in use, version, last and next check-in, last result, ACL, reboots)";

struct Record {
    bool read = false;
    std::string flag, url, key, version, lastCommand, lastCheckIn, overrideFlag;
    uint32_t interval = 0;
    int aclCount = 0;
};

std::string text(const char* xpath) {
    char value[TOLA_TEXT_SIZE] = {0};
    return xmldata_getstring(xpath, value, TOLA_TEXT_MAX) == 0 ? value : "";
}

Record readRecord() {
    Record r;
    std::string path = sys_fsPath(TOLA_DATA_DIR "/" TOLA_ACL_FILE_NAME);
    if (xmldata_initialize(path.c_str(), path.c_str()) != 0) {
        return r;
    }
    r.read = true;
    r.flag = text("/ACLConfig/TOLA/CheckInFlag");
    r.url = text("/ACLConfig/TOLA/CheckInURL");
    r.key = text("/ACLConfig/TOLA/PayloadEncryptionKey");
    r.version = text("/ACLConfig/TOLA/Version");
    r.lastCommand = text("/ACLConfig/TOLA/LastCommand");
    r.lastCheckIn = text("/ACLConfig/TOLA/LastCheckInDate");
    r.overrideFlag = text("/ACLConfig/TOLA/CheckInIntervalOverrideFlag");
    xmldata_getuint32("/ACLConfig/TOLA/CheckInInterval", &r.interval);
    xmldata_getcount("/ACLConfig/ACL/ACE", &r.aclCount);
    xmldata_shutdown();
    return r;
}

// A key shown without giving it away: its first three and last two characters and its length.
std::string masked(const std::string& key) {
    if (key.size() <= 6) {
        return std::string(key.size(), '*') + " (" + std::to_string(key.size()) + " characters)";
    }
    return key.substr(0, 3) + "..." + key.substr(key.size() - 2) + " (" + std::to_string(key.size()) +
           " characters)";
}

// "YYYY-MM-DDTHH:MM:SS" (UTC, as the agent writes it) plus hours, in the same form.
std::string addHours(const std::string& date, uint32_t hours) {
    struct tm broken {};
    const char* end = strptime(date.c_str(), "%Y-%m-%dT%H:%M:%S", &broken);
    if (end == nullptr) {
        return "";
    }
    time_t when = timegm(&broken) + static_cast<time_t>(hours) * 3600;
    struct tm utc {};
    gmtime_r(&when, &utc);
    char out[32];
    strftime(out, sizeof out, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return out;
}

int runStatus(const devicectl::Args& args) {
    if (!args.empty()) {
        return devicectl::refuseArgument("status", args[0], kStatusUsage);
    }
    std::string configPath = sys_fsPath(TOLA_CONFIG_FILE);
    std::string factoryKey;
    uint32_t configInterval = 0;
    if (xmldata_initialize(configPath.c_str(), configPath.c_str()) == 0) {
        factoryKey = text("/Config/BaseEncryptionKey");
        xmldata_getuint32("/Config/CheckInInterval", &configInterval);
        xmldata_shutdown();
    }
    Record r = readRecord();
    ardo::json state = ardo::deviceStateRead();
    long long reboots = 0;
    if (state.contains("power") && state["power"].value("reboots", ardo::json(0)).is_number_integer()) {
        reboots = state["power"].value("reboots", 0LL);
    }

    std::printf("device root     %s\n", devicectl::rootDescription().c_str());
    if (!r.read) {
        std::printf("agent record    none (%s): the agent has not run on this device yet\n",
                    sys_fsPath(TOLA_DATA_DIR "/" TOLA_ACL_FILE_NAME).c_str());
    }
    std::printf("check-in flag   %s%s\n", r.flag.empty() ? "false" : r.flag.c_str(),
                r.flag == "true" ? "" : " (no check-ins until an SMS 102 or the factory image sets it)");
    std::printf("check-in URL    %s\n", r.url.empty() ? "(none)" : r.url.c_str());
    if (!r.key.empty()) {
        std::printf("key in use      %s (set by the portal or an SMS)\n", masked(r.key).c_str());
    } else {
        std::printf("key in use      %s (the factory key, BaseEncryptionKey of config.xml)\n",
                    factoryKey.empty() ? "(none)" : masked(factoryKey).c_str());
    }
    std::printf("version         %s\n", r.version.empty() ? "(none)" : r.version.c_str());
    bool overridden = r.overrideFlag == "true";
    uint32_t hours = overridden ? r.interval : configInterval;
    std::printf("last check-in   %s\n",
                r.lastCheckIn.empty() ? "never" : (r.lastCheckIn + " (device time, UTC)").c_str());
    std::string next = r.lastCheckIn.empty() ? "" : addHours(r.lastCheckIn, hours);
    std::printf("next check-in   %s (every %u h, %s)\n",
                next.empty() ? "at the agent's next start" : next.c_str(), hours,
                overridden ? "the portal's interval" : "config.xml's interval");
    std::printf("last result     %s\n", r.lastCommand.empty() ? "(none)" : r.lastCommand.c_str());
    std::printf("ACL entries     %d (in %s)\n", r.aclCount, TOLA_ACL_FILE_NAME);
    std::printf("reboots         %lld\n", reboots);
    return 0;
}

}  // namespace

DEVICECTL_VERB("status", kStatusUsage, runStatus);
