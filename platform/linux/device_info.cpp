// Linux device identity and radio state from ModemManager: the records of sys_device.h filled
// from the first modem's Modem, Modem3gpp, ModemCdma and Time interfaces and its SIM. What no
// standard service knows (the device's MAC address, the GPS while it is not read from the
// modem) comes from the settings store in the data folder.
#include <strings.h>

#include <cstring>
#include <ctime>
#include <string>

#include "device_state.h"
#include "linux_events.h"
#include "sys_core.h"
#include "sys_device.h"
#include "system_bus.h"

using ardo_linux::json;
using ardo_linux::modemProperty;

namespace {

// ModemManager's values (its D-Bus API enumerations).
constexpr int kModemStateRegistered = 8;
constexpr uint32_t k3gppHome = 1, k3gppDenied = 3, k3gppRoaming = 5, k3gppRoamingSmsOnly = 7,
                   k3gppEmergencyOnly = 8, k3gppRoamingCsfb = 10;
constexpr uint32_t kCdmaRoaming = 3;
constexpr uint32_t kAccessGsmFamily = (1u << 1) | (1u << 2) | (1u << 3) | (1u << 4);
constexpr uint32_t kAccessUmtsFamily = (1u << 5) | (1u << 6) | (1u << 7) | (1u << 8) | (1u << 9);
constexpr uint32_t kAccessCdma1x = 1u << 10;
constexpr uint32_t kAccessEvdo = (1u << 11) | (1u << 12) | (1u << 13);
constexpr uint32_t kAccessLte = (1u << 14) | (1u << 16) | (1u << 17);
constexpr uint32_t kAccess5g = 1u << 15;

template <size_t N>
void copyField(char (&field)[N], const std::string& text) {
    size_t n = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), n);
    field[n] = '\0';
}

struct Modem {
    std::string path;
    json ifaces;
    bool found = false;
};

Modem findModem() {
    Modem m;
    m.found = ardo_linux::findModem(m.path, m.ifaces);
    return m;
}

std::string prop(const Modem& m, const char* iface, const char* name) {
    return modemProperty<std::string>(m.ifaces, iface, name, "");
}

// The SIM's properties; empty when the modem has none.
json simProperties(const Modem& m) {
    std::string sim = prop(m, ardo_linux::kMMModem, "Sim");
    json props = json::object();
    if (!sim.empty() && sim != "/") {
        ardo_linux::getAllProperties(ardo_linux::kMMService, sim, ardo_linux::kMMSim, props);
    }
    return props;
}

bool roaming(const Modem& m) {
    uint32_t reg = modemProperty<uint32_t>(m.ifaces, ardo_linux::kMM3gpp, "RegistrationState", 0);
    if (reg == k3gppRoaming || reg == k3gppRoamingSmsOnly || reg == k3gppRoamingCsfb) {
        return true;
    }
    return modemProperty<uint32_t>(m.ifaces, ardo_linux::kMMCdma, "Cdma1xRegistrationState", 0) ==
               kCdmaRoaming ||
           modemProperty<uint32_t>(m.ifaces, ardo_linux::kMMCdma, "EvdoRegistrationState", 0) == kCdmaRoaming;
}

// The newest technology among those the modem reports in use.
uint32_t radioTechnology(uint32_t access) {
    if (access & kAccess5g)
        return SYS_RADIO_TECH_NR5G;
    if (access & kAccessLte)
        return SYS_RADIO_TECH_LTE;
    if (access & kAccessUmtsFamily)
        return SYS_RADIO_TECH_UMTS;
    if (access & kAccessEvdo)
        return SYS_RADIO_TECH_EVDO;
    if (access & kAccessCdma1x)
        return SYS_RADIO_TECH_CDMA;
    if (access & kAccessGsmFamily)
        return SYS_RADIO_TECH_GSM;
    return SYS_RADIO_TECH_NONE;
}

}  // namespace

bool ardo_linux::parseNetworkTime(const std::string& text, time_t* seconds) {
    struct tm broken {};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &broken);
    if (rest == nullptr) {
        return false;
    }
    if (*rest == '.') {
        do {
            ++rest;
        } while (*rest >= '0' && *rest <= '9');
    }
    long offset = 0;
    if (*rest == '+' || *rest == '-') {
        int sign = *rest == '-' ? -1 : 1;
        unsigned hours = 0, minutes = 0;
        int used = 0;
        if (std::sscanf(rest + 1, "%2u:%2u%n", &hours, &minutes, &used) != 2 &&
            std::sscanf(rest + 1, "%2u%2u%n", &hours, &minutes, &used) != 2) {
            return false;
        }
        if (hours > 23 || minutes > 59) {
            return false;
        }
        offset = sign * static_cast<long>(hours * 3600 + minutes * 60);
        rest += 1 + used;
    } else if (*rest == 'Z') {
        ++rest;
    }
    if (*rest != '\0') {
        return false;
    }
    *seconds = timegm(&broken) - offset;
    return true;
}

int sys_getHardwareInfo(sys_hardware_info_t* info) {
    if (info == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    std::string imei = prop(m, ardo_linux::kMM3gpp, "Imei");
    if (imei.empty() && m.ifaces.contains(ardo_linux::kMM3gpp)) {
        imei = prop(m, ardo_linux::kMMModem, "EquipmentIdentifier");
    }
    std::memset(info, 0, sizeof *info);
    copyField(info->model, prop(m, ardo_linux::kMMModem, "Model"));
    copyField(info->macAddress, ardo::deviceStateValue<std::string>("/identity/hardware/mac_address", ""));
    copyField(info->imei, imei);
    copyField(info->meid, prop(m, ardo_linux::kMMCdma, "Meid"));
    copyField(info->esn, prop(m, ardo_linux::kMMCdma, "Esn"));
    return 0;
}

int sys_getSubscriberInfo(sys_subscriber_info_t* info) {
    if (info == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    // The first of the modem's own numbers is the line's directory number; the MIN is its last
    // ten digits, as CDMA carriers derive it.
    json numbers = modemProperty<json>(m.ifaces, ardo_linux::kMMModem, "OwnNumbers", json::array());
    std::string mdn =
        numbers.is_array() && !numbers.empty() && numbers[0].is_string() ? numbers[0].get<std::string>() : "";
    std::string digits;
    for (char c : mdn) {
        if (c >= '0' && c <= '9') {
            digits.push_back(c);
        }
    }
    std::string min = digits.size() > 10 ? digits.substr(digits.size() - 10) : digits;
    json sim = simProperties(m);
    std::memset(info, 0, sizeof *info);
    copyField(info->mdn, mdn);
    copyField(info->min, min);
    copyField(info->imsi, sim.value("Imsi", std::string()));
    return 0;
}

int sys_getSystemVersion(sys_system_version_t* version) {
    if (version == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    std::memset(version, 0, sizeof *version);
    copyField(version->firmwareVersion, prop(m, ardo_linux::kMMModem, "Revision"));
    return 0;
}

int sys_getCellularServiceStats(sys_cellular_service_stats_t* stats) {
    if (stats == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    // SignalQuality is (percent, recent); 0..100 % spans the usual -113..-51 dBm scale.
    json quality = modemProperty<json>(m.ifaces, ardo_linux::kMMModem, "SignalQuality", json::array());
    uint32_t percent = quality.is_array() && !quality.empty() && quality[0].is_number_unsigned()
                           ? quality[0].get<uint32_t>()
                           : 0;
    if (percent > 100) {
        percent = 100;
    }
    std::memset(stats, 0, sizeof *stats);
    stats->rssi = -113 + static_cast<int32_t>(percent * 62 / 100);
    stats->roaming = roaming(m) ? 1 : 0;
    stats->radioTechnology =
        radioTechnology(modemProperty<uint32_t>(m.ifaces, ardo_linux::kMMModem, "AccessTechnologies", 0));
    return 0;
}

int sys_getCellularServiceStatus(int* status) {
    if (status == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    int state = modemProperty<int>(m.ifaces, ardo_linux::kMMModem, "State", 0);
    uint32_t reg = modemProperty<uint32_t>(m.ifaces, ardo_linux::kMM3gpp, "RegistrationState", 0);
    if (state >= kModemStateRegistered) {
        *status = SYS_SERVICE_STATUS_IN_SERVICE;
    } else if (reg == k3gppDenied || reg == k3gppEmergencyOnly) {
        *status = SYS_SERVICE_STATUS_LIMITED;
    } else {
        *status = SYS_SERVICE_STATUS_NO_SERVICE;
    }
    return 0;
}

// The carrier is told by the SIM's operator name ("Veltra", in any case); every other SIM, and a
// modem without one, is unknown.
int sys_getSIMCarrier(int* carrier) {
    if (carrier == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    std::string name = simProperties(m).value("OperatorName", std::string());
    *carrier = strcasecmp(name.c_str(), "Veltra") == 0 ? SYS_SIM_CARRIER_VELTRA : SYS_SIM_CARRIER_UNKNOWN;
    return 0;
}

int sys_validateHomeNetwork(int* network) {
    if (network == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    *network = roaming(m) ? SYS_NETWORK_ROAMING : SYS_NETWORK_HOME;
    return 0;
}

int sys_getGPSEnabled(int* enabled) {
    if (enabled == nullptr) {
        return 1;
    }
    *enabled = ardo::deviceStateValue<int>("/gps/enabled", 0);
    return 0;
}

int sys_getGPSFixData(sys_gps_fix_data_t* fix) {
    if (fix == nullptr) {
        return 1;
    }
    std::memset(fix, 0, sizeof *fix);
    fix->fixValid = ardo::deviceStateValue<uint32_t>("/gps/fix/valid", 0);
    fix->satellites = ardo::deviceStateValue<uint32_t>("/gps/fix/satellites", 0);
    fix->fixTime = static_cast<int64_t>(sys_time());
    fix->latitude = ardo::deviceStateValue<double>("/gps/fix/latitude", 0.0);
    fix->longitude = ardo::deviceStateValue<double>("/gps/fix/longitude", 0.0);
    fix->altitude = ardo::deviceStateValue<double>("/gps/fix/altitude", 0.0);
    fix->accuracy = ardo::deviceStateValue<double>("/gps/fix/accuracy", 5.0);
    return 0;
}

int sys_getNetworkTime(time_t* seconds) {
    if (seconds == nullptr) {
        return 1;
    }
    Modem m = findModem();
    if (!m.found) {
        return 1;
    }
    if (!m.ifaces.contains(ardo_linux::kMMTime)) {
        ardo_linux::logFault("the modem has no network time");
        return 1;
    }
    json reply;
    std::string error;
    if (!ardo_linux::callMethod(ardo_linux::kMMService, m.path, ardo_linux::kMMTime, "GetNetworkTime",
                                nullptr, &reply, &error) ||
        reply.empty() || !reply[0].is_string()) {
        ardo_linux::logFault("GetNetworkTime failed (%s)", error.c_str());
        return 1;
    }
    if (!ardo_linux::parseNetworkTime(reply[0].get<std::string>(), seconds)) {
        ardo_linux::logFault("the modem's network time is malformed");
        return 1;
    }
    return 0;
}
