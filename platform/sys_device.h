// System family: device identity, subscriber, version, service state, GPS, network time.
// The records are exchanged with the device's system-interface library byte for byte: the sizes
// and the places of the fields the agent reads are fixed by that library and asserted below.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

// Hardware information: texts, each NUL-terminated inside its field.
struct sys_hardware_info_t {
    char reserved0[65];  // serial number and hardware revision
    char model[98];
    char macAddress[19];
    char imei[66];
    char meid[33];
    char esn[138];
};
static_assert(offsetof(sys_hardware_info_t, model) == 65, "hardware info layout");
static_assert(offsetof(sys_hardware_info_t, macAddress) == 163, "hardware info layout");
static_assert(offsetof(sys_hardware_info_t, imei) == 182, "hardware info layout");
static_assert(offsetof(sys_hardware_info_t, meid) == 248, "hardware info layout");
static_assert(offsetof(sys_hardware_info_t, esn) == 281, "hardware info layout");
static_assert(sizeof(sys_hardware_info_t) == 419, "hardware info layout");

// Subscriber information.
struct sys_subscriber_info_t {
    char mdn[33];
    char min[33];
    char imsi[66];
};
static_assert(offsetof(sys_subscriber_info_t, min) == 33, "subscriber info layout");
static_assert(offsetof(sys_subscriber_info_t, imsi) == 66, "subscriber info layout");
static_assert(sizeof(sys_subscriber_info_t) == 132, "subscriber info layout");

// System version.
struct sys_system_version_t {
    char reserved0[461];  // boot loader, kernel, modem and PRI versions
    char firmwareVersion[67];
};
static_assert(offsetof(sys_system_version_t, firmwareVersion) == 461, "system version layout");
static_assert(sizeof(sys_system_version_t) == 528, "system version layout");

// Radio technology of the serving cell (sys_cellular_service_stats_t::radioTechnology).
enum sys_radio_technology_t : uint32_t {
    SYS_RADIO_TECH_NONE = 0,
    SYS_RADIO_TECH_CDMA = 1,
    SYS_RADIO_TECH_EVDO = 2,
    SYS_RADIO_TECH_GSM = 3,
    SYS_RADIO_TECH_UMTS = 4,
    SYS_RADIO_TECH_LTE = 5,
    SYS_RADIO_TECH_NR5G = 6,
};

// Cellular service statistics.
struct sys_cellular_service_stats_t {
    int32_t rssi;              // dBm
    uint32_t roaming;          // non-zero while roaming
    uint32_t radioTechnology;  // sys_radio_technology_t
    uint8_t reserved[212];
};
static_assert(offsetof(sys_cellular_service_stats_t, roaming) == 4, "service stats layout");
static_assert(sizeof(sys_cellular_service_stats_t) == 224, "service stats layout");

// GPS fix.
struct sys_gps_fix_data_t {
    uint32_t fixValid;
    uint32_t satellites;
    int64_t fixTime;  // seconds since the epoch
    double latitude;
    double longitude;
    double altitude;  // metres
    double accuracy;  // metres
};
static_assert(offsetof(sys_gps_fix_data_t, latitude) == 16, "GPS fix layout");
static_assert(offsetof(sys_gps_fix_data_t, longitude) == 24, "GPS fix layout");

// Cellular service status (sys_getCellularServiceStatus).
constexpr int SYS_SERVICE_STATUS_NO_SERVICE = 0;
constexpr int SYS_SERVICE_STATUS_LIMITED = 1;
constexpr int SYS_SERVICE_STATUS_IN_SERVICE = 2;

// SIM carriers (sys_getSIMCarrier).
constexpr int SYS_SIM_CARRIER_UNKNOWN = 0;
constexpr int SYS_SIM_CARRIER_VELTRA = 1;

// Home network check (sys_validateHomeNetwork).
constexpr int SYS_NETWORK_HOME = 0;
constexpr int SYS_NETWORK_ROAMING = 1;

// sys_getGPSEnabled also answers this when the GPS privacy agreement has not been accepted yet;
// the enabled flag is valid then too.
constexpr int SYS_GPS_PRIVACY_NOT_ACCEPTED = 1001;

// All return 0 on success; the record is filled only then.
int sys_getHardwareInfo(sys_hardware_info_t* info);
int sys_getSubscriberInfo(sys_subscriber_info_t* info);
int sys_getSystemVersion(sys_system_version_t* version);
int sys_getCellularServiceStats(sys_cellular_service_stats_t* stats);
int sys_getCellularServiceStatus(int* status);
int sys_getSIMCarrier(int* carrier);
// *network: SYS_NETWORK_HOME or SYS_NETWORK_ROAMING.
int sys_validateHomeNetwork(int* network);
// *enabled: 1 when the GPS is on.
int sys_getGPSEnabled(int* enabled);
int sys_getGPSFixData(sys_gps_fix_data_t* fix);

// Network time (from the modem), seconds since the epoch. 0 on success.
int sys_getNetworkTime(time_t* seconds);
