// Host device identity and radio state: the records of sys_device.h filled from the device
// state ("identity", "service", "sim", "gps", "network_time").
#include <cstring>
#include <string>

#include "device_state.h"
#include "sys_core.h"
#include "sys_device.h"

namespace {

using ardo::deviceStateValue;

// Copies text into a fixed field, cut to fit, always terminated.
template <size_t N>
void copyField(char (&field)[N], const std::string& text) {
    size_t n = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), n);
    field[n] = '\0';
}

std::string text(const std::string& pointer) {
    return deviceStateValue<std::string>(pointer, "");
}

}  // namespace

int sys_getHardwareInfo(sys_hardware_info_t* info) {
    int rc;
    if (ardo::deviceTakeFault("sys_getHardwareInfo", &rc)) {
        return rc;
    }
    if (info == nullptr) {
        return 1;
    }
    std::memset(info, 0, sizeof *info);
    copyField(info->model, text("/identity/hardware/model"));
    copyField(info->macAddress, text("/identity/hardware/mac_address"));
    copyField(info->imei, text("/identity/hardware/imei"));
    copyField(info->meid, text("/identity/hardware/meid"));
    copyField(info->esn, text("/identity/hardware/esn"));
    return 0;
}

int sys_getSubscriberInfo(sys_subscriber_info_t* info) {
    int rc;
    if (ardo::deviceTakeFault("sys_getSubscriberInfo", &rc)) {
        return rc;
    }
    if (info == nullptr) {
        return 1;
    }
    std::memset(info, 0, sizeof *info);
    copyField(info->mdn, text("/identity/subscriber/mdn"));
    copyField(info->min, text("/identity/subscriber/min"));
    copyField(info->imsi, text("/identity/subscriber/imsi"));
    return 0;
}

int sys_getSystemVersion(sys_system_version_t* version) {
    int rc;
    if (ardo::deviceTakeFault("sys_getSystemVersion", &rc)) {
        return rc;
    }
    if (version == nullptr) {
        return 1;
    }
    std::memset(version, 0, sizeof *version);
    copyField(version->firmwareVersion, text("/identity/firmware_version"));
    return 0;
}

int sys_getCellularServiceStats(sys_cellular_service_stats_t* stats) {
    int rc;
    if (ardo::deviceTakeFault("sys_getCellularServiceStats", &rc)) {
        return rc;
    }
    if (stats == nullptr) {
        return 1;
    }
    std::memset(stats, 0, sizeof *stats);
    stats->rssi = deviceStateValue<int32_t>("/service/rssi", -120);
    stats->roaming = deviceStateValue<uint32_t>("/service/roaming", 0);
    stats->radioTechnology = deviceStateValue<uint32_t>("/service/radio_technology", SYS_RADIO_TECH_NONE);
    return 0;
}

int sys_getCellularServiceStatus(int* status) {
    int rc;
    if (ardo::deviceTakeFault("sys_getCellularServiceStatus", &rc)) {
        return rc;
    }
    if (status == nullptr) {
        return 1;
    }
    *status = deviceStateValue<int>("/service/status", SYS_SERVICE_STATUS_NO_SERVICE);
    return 0;
}

int sys_getSIMCarrier(int* carrier) {
    int rc;
    if (ardo::deviceTakeFault("sys_getSIMCarrier", &rc)) {
        return rc;
    }
    if (carrier == nullptr) {
        return 1;
    }
    *carrier = deviceStateValue<int>("/sim/carrier", SYS_SIM_CARRIER_UNKNOWN);
    return 0;
}

int sys_validateHomeNetwork(int* network) {
    int rc;
    if (ardo::deviceTakeFault("sys_validateHomeNetwork", &rc)) {
        return rc;
    }
    if (network == nullptr) {
        return 1;
    }
    *network = deviceStateValue<int>("/service/network", SYS_NETWORK_HOME);
    return 0;
}

int sys_getGPSEnabled(int* enabled) {
    int rc;
    if (ardo::deviceTakeFault("sys_getGPSEnabled", &rc)) {
        return rc;
    }
    if (enabled == nullptr) {
        return 1;
    }
    *enabled = deviceStateValue<int>("/gps/enabled", 0);
    return 0;
}

int sys_getGPSFixData(sys_gps_fix_data_t* fix) {
    int rc;
    if (ardo::deviceTakeFault("sys_getGPSFixData", &rc)) {
        return rc;
    }
    if (fix == nullptr) {
        return 1;
    }
    std::memset(fix, 0, sizeof *fix);
    fix->fixValid = deviceStateValue<uint32_t>("/gps/fix/valid", 0);
    fix->satellites = deviceStateValue<uint32_t>("/gps/fix/satellites", 0);
    fix->fixTime = static_cast<int64_t>(sys_time());
    fix->latitude = deviceStateValue<double>("/gps/fix/latitude", 0.0);
    fix->longitude = deviceStateValue<double>("/gps/fix/longitude", 0.0);
    fix->altitude = deviceStateValue<double>("/gps/fix/altitude", 0.0);
    fix->accuracy = deviceStateValue<double>("/gps/fix/accuracy", 5.0);
    return 0;
}

int sys_getNetworkTime(time_t* seconds) {
    int rc;
    if (ardo::deviceTakeFault("sys_getNetworkTime", &rc)) {
        return rc;
    }
    if (seconds == nullptr || !deviceStateValue<bool>("/network_time/available", true)) {
        return 1;
    }
    // The modem's network time is the device clock once the network has set it.
    *seconds = sys_time();
    return 0;
}
