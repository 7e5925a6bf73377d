// Linux data calls through ModemManager's Simple interface: Connect brings up a bearer with the
// APN, Disconnect takes it down. An apps-APN call hands back the bearer's network interface and
// writes the bearer's name servers to the data call's resolver file, so that check-ins resolve
// through the call's own name servers as on the device. Open calls are known to this process
// only: ModemManager owns the bearers, and a restarted agent starts with none of its own.
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "device_state.h"
#include "host_env.h"
#include "sys_core.h"
#include "sys_datacall.h"
#include "sys_settings.h"
#include "system_bus.h"
#include "vorn_dbg.h"

using ardo_linux::json;

namespace {

constexpr const char* kResolverFile = "/opt/ardo/tmp/router2/resolv_data_usage.conf";
constexpr int kModemStateConnecting = 10;
constexpr int kModemStateConnected = 11;
// ModemManager's IP families.
constexpr uint32_t kIpV4 = 1, kIpV6 = 2, kIpV4V6 = 4;

struct Bearer {
    std::string path;
    std::string interfaceName;
};

std::mutex gMutex;
std::map<std::string, Bearer> gAppsCalls;  // by call id
std::string gInternetBearer;

bool modemPath(std::string& path) {
    json ifaces;
    if (!ardo_linux::findModem(path, ifaces)) {
        return false;
    }
    if (!ifaces.contains(ardo_linux::kMMSimple)) {
        ardo_linux::logFault("the modem cannot make data calls");
        return false;
    }
    return true;
}

// Brings up a bearer: Simple.Connect with the APN and IP family. The bearer's path on success.
bool connectBearer(const std::string& modem, const std::string& apn, uint32_t ipType, std::string& bearer) {
    json reply;
    std::string error;
    bool ok = ardo_linux::callMethod(
        ardo_linux::kMMService, modem, ardo_linux::kMMSimple, "Connect",
        [&](sd_bus_message* m) {
            return sd_bus_message_append(m, "a{sv}", 2, "apn", "s", apn.c_str(), "ip-type", "u", ipType);
        },
        &reply, &error, ardo_linux::kConnectTimeoutUsec);
    if (!ok || reply.empty() || !reply[0].is_string()) {
        ardo_linux::logFault("the data call on APN \"%s\" did not come up (%s)", apn.c_str(), error.c_str());
        return false;
    }
    bearer = reply[0].get<std::string>();
    return true;
}

bool disconnectBearer(const std::string& modem, const std::string& bearer) {
    std::string error;
    bool ok = ardo_linux::callMethod(
        ardo_linux::kMMService, modem, ardo_linux::kMMSimple, "Disconnect",
        [&](sd_bus_message* m) { return sd_bus_message_append(m, "o", bearer.c_str()); }, nullptr, &error,
        ardo_linux::kConnectTimeoutUsec);
    if (!ok) {
        ardo_linux::logFault("the data call %s did not go down (%s)", bearer.c_str(), error.c_str());
    }
    return ok;
}

// Writes the bearer's name servers (IPv4 first) as the data call's resolver file.
void writeResolverFile(const json& bearer) {
    std::string text;
    for (const char* config : {"Ip4Config", "Ip6Config"}) {
        auto it = bearer.find(config);
        if (it == bearer.end() || !it->is_object()) {
            continue;
        }
        for (const char* key : {"dns1", "dns2", "dns3"}) {
            auto dns = it->find(key);
            if (dns != it->end() && dns->is_string() && !dns->get<std::string>().empty()) {
                text += "nameserver " + dns->get<std::string>() + "\n";
            }
        }
    }
    std::string path = sys_fsPath(kResolverFile);
    ardo::hostMakeDirs(path.substr(0, path.rfind('/')));
    if (!ardo::hostWriteFileAtomic(path, text)) {
        ardo_linux::logFault("cannot write %s", path.c_str());
    }
}

// The APN of the Internet call: the active 3GPP profile's.
std::string internetApn() {
    int index = 1;
    sys_modem_profile_t profile{};
    if (sys_getActiveModemProfileIndex(&index) == 0 &&
        sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, index, &profile) == 0) {
        return std::string(profile.apn, strnlen(profile.apn, sizeof profile.apn));
    }
    return "";
}

}  // namespace

int sys_getCellularDataConnectionStatus(int* status) {
    if (status == nullptr) {
        return 1;
    }
    std::string path;
    json ifaces;
    if (!ardo_linux::findModem(path, ifaces)) {
        return 1;
    }
    int state = ardo_linux::modemProperty<int>(ifaces, ardo_linux::kMMModem, "State", 0);
    *status = state == kModemStateConnected    ? SYS_DATA_CALL_CONNECTED
              : state == kModemStateConnecting ? SYS_DATA_CALL_CONNECTING
                                               : SYS_DATA_CALL_DISCONNECTED;
    return 0;
}

int sys_cellularDataConnect(int profileIndex) {
    std::string modem, bearer;
    if (!modemPath(modem)) {
        return 1;
    }
    if (!connectBearer(modem, internetApn(), kIpV4V6, bearer)) {
        return 1;
    }
    std::lock_guard<std::mutex> guard(gMutex);
    gInternetBearer = bearer;
    vorn_dbg_log(6, "[LINUX]:[INFO] - Internet data call up on %s (profile %d)", bearer.c_str(),
                 profileIndex);
    return 0;
}

int sys_cellularDataDisconnect(int /*profileIndex*/) {
    std::string modem;
    if (!modemPath(modem)) {
        return 1;
    }
    std::string bearer;
    {
        std::lock_guard<std::mutex> guard(gMutex);
        bearer = gInternetBearer.empty() ? "/" : gInternetBearer;  // "/": every bearer of the modem
    }
    if (!disconnectBearer(modem, bearer)) {
        return 1;
    }
    std::lock_guard<std::mutex> guard(gMutex);
    gInternetBearer.clear();
    return 0;
}

int sys_cellularDataUsageAPNCallConnect(char* interfaceName, uint32_t* size, const char* callId,
                                        int ipFamily) {
    if (size == nullptr || callId == nullptr || *callId == '\0') {
        return 1;
    }
    std::string id = callId;
    Bearer call;
    bool open;
    {
        std::lock_guard<std::mutex> guard(gMutex);
        auto it = gAppsCalls.find(id);
        open = it != gAppsCalls.end();
        if (open) {
            call = it->second;
        }
    }
    // The first ask (usually with no buffer, for the size) brings the call up; the call stays up
    // for the second ask that fetches the name.
    if (!open) {
        std::string modem;
        if (!modemPath(modem)) {
            return 1;
        }
        std::string apn = ardo::deviceStateValue<std::string>("/data_call/apps_apn/apn", "");
        uint32_t ipType = ipFamily == 4 ? kIpV4 : ipFamily == 6 ? kIpV6 : kIpV4V6;
        if (!connectBearer(modem, apn, ipType, call.path)) {
            return 1;
        }
        json bearer;
        if (!ardo_linux::getAllProperties(ardo_linux::kMMService, call.path, ardo_linux::kMMBearer, bearer) ||
            !bearer.value("Connected", false) || bearer.value("Interface", std::string()).empty()) {
            ardo_linux::logFault("the bearer %s has no connected interface", call.path.c_str());
            disconnectBearer(modem, call.path);
            return 1;
        }
        call.interfaceName = bearer.value("Interface", std::string());
        writeResolverFile(bearer);
        std::lock_guard<std::mutex> guard(gMutex);
        gAppsCalls[id] = call;
        vorn_dbg_log(6, "[LINUX]:[INFO] - apps APN call %s up on %s (%s)", id.c_str(),
                     call.interfaceName.c_str(), call.path.c_str());
    }
    uint32_t needed = static_cast<uint32_t>(call.interfaceName.size() + 1);
    if (interfaceName == nullptr || *size < needed) {
        *size = needed;
        return SYS_RESULT_BUFFER_TOO_SMALL;
    }
    std::memcpy(interfaceName, call.interfaceName.c_str(), needed);
    *size = needed;
    return 0;
}

int sys_cellularDataUsageAPNCallDisconnect(const char* callId) {
    if (callId == nullptr) {
        return 1;
    }
    Bearer call;
    {
        std::lock_guard<std::mutex> guard(gMutex);
        auto it = gAppsCalls.find(callId);
        if (it == gAppsCalls.end()) {
            return 1;
        }
        call = it->second;
    }
    std::string modem;
    if (!modemPath(modem) || !disconnectBearer(modem, call.path)) {
        return 1;
    }
    std::lock_guard<std::mutex> guard(gMutex);
    gAppsCalls.erase(callId);
    return 0;
}
