// The device's settings on the host: one table of settings (call names, record, place in the
// device state) from which every getter and setter is generated. Values live in the device state
// under "settings"; their factory defaults are share/device/factory/20-settings.json. Every call
// first consults the scripted faults under its own name; setters are journalled.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "device_state.h"
#include "deviceui.h"
#include "settings_records.h"
#include "sys_settings.h"
#include "webui.h"

namespace {

using ardo::json;

// A failed write of the device state: the family's failure result.
constexpr int kSysFailure = 2;
constexpr int kUiFailure = 1;

json settingAt(const json& doc, const char* key) {
    auto settings = doc.find("settings");
    if (settings == doc.end() || !settings->is_object()) {
        return json();
    }
    auto it = settings->find(key);
    return it == settings->end() ? json() : *it;
}

template <typename T>
int hostGet(const char* call, const char* key, T* out) {
    int rc;
    if (ardo::deviceTakeFault(call, &rc)) {
        return rc;
    }
    if (out == nullptr) {
        return kSysFailure;
    }
    T value{};
    ardo::recordFromJson(settingAt(ardo::deviceFactoryState(), key), value);
    ardo::recordFromJson(settingAt(*ardo::deviceStateSnapshot(), key), value);
    *out = value;
    return 0;
}

int hostStore(const char* call, const char* key, const json& value, int success, int failure) {
    int rc;
    if (!ardo::deviceTakeFault(call, &rc)) {
        bool ok = ardo::deviceStateUpdate([&](json& state) { state["settings"][key] = value; });
        rc = ok ? success : failure;
    }
    ardo::deviceJournal(call, value, rc);
    return rc;
}

template <typename T>
int hostSet(const char* call, const char* key, const T* value, int success, int failure) {
    if (value == nullptr) {
        ardo::deviceJournal(call, json(), failure);
        return failure;
    }
    return hostStore(call, key, ardo::recordToJson(*value), success, failure);
}

template <typename T>
int hostSetList(const char* call, const char* key, const T* items, int count) {
    if (items == nullptr || count < 0) {
        ardo::deviceJournal(call, json(), kSysFailure);
        return kSysFailure;
    }
    json list = json::array();
    for (int i = 0; i < count; ++i) {
        list.push_back(ardo::recordToJson(items[i]));
    }
    return hostStore(call, key, list, 0, kSysFailure);
}

}  // namespace

// ---- The table ------------------------------------------------------------------------------
// Value settings: X(getter, setter, key under "settings", success result of the setter, failure).
#define ARDO_VALUE_SETTINGS(X)                                                                               \
    X(sys_getManualDNSEnabled, sys_setManualDNSEnabled, "manualDnsEnabled", 0, kSysFailure)                  \
    X(sys_getIPv6TransparentModeEnabled, sys_setIPv6TransparentModeEnabled, "ipv6TransparentModeEnabled", 0, \
      kSysFailure)                                                                                           \
    X(sys_getVPNPassthroughEnabled, sys_setVPNPassthroughEnabled, "vpnPassthroughEnabled", 0, kSysFailure)   \
    X(sys_getDMZEnabled, sys_setDMZEnabled, "dmzEnabled", 0, kSysFailure)                                    \
    X(sys_getMacFilterWhiteListEnabled, sys_setMacFilterWhiteListEnabled, "macFilterWhiteListEnabled", 0,    \
      kSysFailure)                                                                                           \
    X(sys_getIPv6Enabled, sys_setIPv6Enabled, "ipv6Enabled", 0, kSysFailure)                                 \
    X(sys_getGPSPrivacyAgreementAccepted, sys_setGPSPrivacyAgreementAccepted, "gpsPrivacyAgreementAccepted", \
      0, kSysFailure)                                                                                        \
    X(sys_getNMEAOverWiFiEnabled, sys_setNMEAOverWiFiEnabled, "nmeaOverWiFiEnabled", 0, kSysFailure)         \
    X(sys_getGPSStartupState, sys_setGPSStartupState, "gpsStartupState", 0, kSysFailure)                     \
    X(sys_getNMEAOverWiFiSettings, sys_setNMEAOverWiFiSettings, "nmeaOverWiFiPort", 0, kSysFailure)          \
    X(sys_getWiFiEnabled, sys_setWiFiEnabled, "wifiEnabled", 0, kSysFailure)                                 \
    X(sys_getWiFiMaxClients, sys_setWiFiMaxClients, "wifiMaxClients", 0, kSysFailure)                        \
    X(sys_getHWFactoryResetEnabled, sys_setHWFactoryResetEnabled, "hwFactoryResetEnabled", 0, kSysFailure)   \
    X(sys_getUniversalChargingSettings, sys_setUniversalChargingSettings, "universalChargingThreshold", 0,   \
      kSysFailure)                                                                                           \
    X(sys_getLEDEnabled, sys_setLEDEnabled, "ledEnabled", 0, kSysFailure)                                    \
    X(sys_getUIStealthModeEnabled, sys_setUIStealthModeEnabled, "uiStealthModeEnabled", 0, kSysFailure)      \
    X(sys_getUSBTetheringEnabled, sys_setUSBTetheringEnabled, "usbMode", 0, kSysFailure)                     \
    X(sys_getUINotificationSettings, sys_setUINotificationSettings, "uiNotificationSounds", 0, kSysFailure)  \
    X(sys_getAudioAlertsEnabled, sys_setAudioAlertsEnabled, "audioAlertsEnabled", 0, kSysFailure)            \
    X(sys_getPortFilteringEnabled, sys_setPortFilteringEnabled, "portFilteringEnabled", 0, kSysFailure)      \
    X(sys_getPortForwardingEnabled, sys_setPortForwardingEnabled, "portForwardingEnabled", 0, kSysFailure)   \
    X(sys_getSambaEnabled, sys_setSambaEnabled, "sambaEnabled", 0, kSysFailure)                              \
    X(sys_getSambaPrimaryNetworkEnabled, sys_setSambaPrimaryNetworkEnabled, "sambaPrimaryNetworkEnabled", 0, \
      kSysFailure)                                                                                           \
    X(sys_getSambaGuestNetworkEnabled, sys_setSambaGuestNetworkEnabled, "sambaGuestNetworkEnabled", 0,       \
      kSysFailure)                                                                                           \
    X(sys_getCellularDataEnabled, sys_setCellularDataEnabled, "cellularDataEnabled", 0, kSysFailure)         \
    X(sys_getCellularDataConnectionPreference, sys_setCellularDataConnectionPreference,                      \
      "cellularDataConnectionPreference", 0, kSysFailure)                                                    \
    X(sys_getEnabledRadioTechnologies, sys_setEnabledRadioTechnologies, "enabledRadioTechnologies", 0,       \
      kSysFailure)                                                                                           \
    X(deviceui_get_wifi_display_setting_enabled, deviceui_set_wifi_display_setting_enabled,                  \
      "wifiDisplaySettingEnabled", DEVICEUI_SUCCESS, kUiFailure)                                             \
    X(deviceui_get_display_setting_enabled, deviceui_set_display_setting_enabled, "displaySettingEnabled",   \
      DEVICEUI_SUCCESS, kUiFailure)                                                                          \
    X(deviceui_get_screen_timeout_settings, deviceui_set_screen_timeout_settings, "screenTimeout",           \
      DEVICEUI_SUCCESS, kUiFailure)                                                                          \
    X(deviceui_get_notification_display_wakeup_setting_enabled,                                              \
      deviceui_set_notification_display_wakeup_setting_enabled, "notificationDisplayWakeupEnabled",          \
      DEVICEUI_SUCCESS, kUiFailure)                                                                          \
    X(deviceui_get_usb_connection_prompt_enabled, deviceui_set_usb_connection_prompt_enabled,                \
      "usbConnectionPromptEnabled", DEVICEUI_SUCCESS, kUiFailure)                                            \
    X(deviceui_get_file_sharing_display_setting_enabled, deviceui_set_file_sharing_display_setting_enabled,  \
      "fileSharingDisplayEnabled", DEVICEUI_SUCCESS, kUiFailure)                                             \
    X(deviceui_get_admin_password_enabled, deviceui_set_admin_password_enabled, "adminPasswordOnDisplay",    \
      DEVICEUI_SUCCESS, kUiFailure)

// Record settings: X(getter, setter, record type, key, success result of the setter, failure).
#define ARDO_RECORD_SETTINGS(X)                                                                              \
    X(sys_getLANSettings, sys_setLANSettings, sys_lan_settings_t, "lan", 0, kSysFailure)                     \
    X(sys_getManualDNSSettings, sys_setManualDNSSettings, sys_manual_dns_t, "manualDns", 0, kSysFailure)     \
    X(sys_getDMZSettings, sys_setDMZSettings, sys_dmz_settings_t, "dmz", 0, kSysFailure)                     \
    X(sys_getWiFiPrimaryProfile, sys_setWiFiPrimaryProfile, sys_wifi_profile_t, "wifiPrimaryProfile", 0,     \
      kSysFailure)                                                                                           \
    X(sys_getWiFiGuestProfile, sys_setWiFiGuestProfile, sys_wifi_profile_t, "wifiGuestProfile", 0,           \
      kSysFailure)                                                                                           \
    X(sys_getPowerSaveSettings, sys_setPowerSaveSettings, sys_power_save_settings_t, "powerSave", 0,         \
      kSysFailure)                                                                                           \
    X(sys_getSambaSettings, sys_setSambaSettings, sys_samba_settings_t, "samba", 0, kSysFailure)             \
    X(deviceui_get_primary_wifi_info_display_settings, deviceui_set_primary_wifi_info_display_settings,      \
      deviceui_wifi_info_display_t, "primaryWifiInfoDisplay", DEVICEUI_SUCCESS, kUiFailure)                  \
    X(deviceui_get_guest_wifi_info_display_settings, deviceui_set_guest_wifi_info_display_settings,          \
      deviceui_wifi_info_display_t, "guestWifiInfoDisplay", DEVICEUI_SUCCESS, kUiFailure)                    \
    X(webui_get_login_settings, webui_set_login_settings, webui_login_settings_t, "webLogin", WEBUI_SUCCESS, \
      kUiFailure)                                                                                            \
    X(webui_get_advanced_settings, webui_set_advanced_settings, webui_advanced_settings_t, "webAdvanced",    \
      WEBUI_SUCCESS, kUiFailure)                                                                             \
    X(webui_get_log_settings, webui_set_log_settings, webui_log_settings_t, "webLogs", WEBUI_SUCCESS,        \
      kUiFailure)                                                                                            \
    X(webui_get_i18n_settings, webui_set_i18n_settings, webui_i18n_settings_t, "webI18n", WEBUI_SUCCESS,     \
      kUiFailure)

// Values that are only read: X(getter, key).
#define ARDO_READ_ONLY_SETTINGS(X)                     \
    X(sys_getWiFiCarrierEnabled, "wifiCarrierEnabled") \
    X(sys_getWiFiGuestCarrierEnabled, "wifiGuestCarrierEnabled")

// Values that are only written (switches with no read-back): X(setter, key).
#define ARDO_WRITE_ONLY_SETTINGS(X)                      \
    X(sys_setDeepSleepEnabled, "deepSleepEnabled")       \
    X(sys_setAutoShutdownEnabled, "autoShutdownEnabled") \
    X(sys_enableWifiWhileTethered, "wifiWhileTethered")

// Lists that are only written: X(setter, item type, key).
#define ARDO_LIST_SETTINGS(X)                                                               \
    X(sys_setPortFilteringApplicationList, sys_router_app_t, "portFilteringApplications")   \
    X(sys_setPortForwardingApplicationList, sys_router_app_t, "portForwardingApplications") \
    X(sys_setDHCPReservedAddrList, sys_dhcp_reservation_t, "dhcpReservedAddresses")         \
    X(sys_setSambaFolderSettings, sys_samba_folder_t, "sambaFolders")

#define ARDO_DEFINE_VALUE(getter, setter, key, success, failure)       \
    int getter(int* value) {                                           \
        return hostGet<int>(#getter, key, value);                      \
    }                                                                  \
    int setter(int value) {                                            \
        return hostStore(#setter, key, json(value), success, failure); \
    }
ARDO_VALUE_SETTINGS(ARDO_DEFINE_VALUE)

#define ARDO_DEFINE_RECORD(getter, setter, type, key, success, failure) \
    int getter(type* value) {                                           \
        return hostGet<type>(#getter, key, value);                      \
    }                                                                   \
    int setter(const type* value) {                                     \
        return hostSet<type>(#setter, key, value, success, failure);    \
    }
ARDO_RECORD_SETTINGS(ARDO_DEFINE_RECORD)

#define ARDO_DEFINE_READ_ONLY(getter, key)        \
    int getter(int* value) {                      \
        return hostGet<int>(#getter, key, value); \
    }
ARDO_READ_ONLY_SETTINGS(ARDO_DEFINE_READ_ONLY)

#define ARDO_DEFINE_WRITE_ONLY(setter, key)                          \
    int setter(int value) {                                          \
        return hostStore(#setter, key, json(value), 0, kSysFailure); \
    }
ARDO_WRITE_ONLY_SETTINGS(ARDO_DEFINE_WRITE_ONLY)

#define ARDO_DEFINE_LIST(setter, type, key)                   \
    int setter(const type* items, int count) {                \
        return hostSetList<type>(#setter, key, items, count); \
    }
ARDO_LIST_SETTINGS(ARDO_DEFINE_LIST)

// ---- Calls with their own shape --------------------------------------------------------------

int sys_setGPSEnabled(int enabled) {
    // The same place sys_getGPSEnabled reads (the device's position section).
    int rc;
    if (!ardo::deviceTakeFault("sys_setGPSEnabled", &rc)) {
        rc = ardo::deviceStateSet("/gps/enabled", enabled != 0 ? 1 : 0) ? 0 : kSysFailure;
    }
    ardo::deviceJournal("sys_setGPSEnabled", json(enabled), rc);
    return rc;
}

// A per-radio profile write keeps the network's one record (it holds both radios' fields) and
// journals the radio with it.
namespace {
int setProfileForRadio(const char* call, const char* key, int radio, const sys_wifi_profile_t* profile) {
    json args = {{"radio", radio}};
    int rc;
    if (ardo::deviceTakeFault(call, &rc)) {
        ardo::deviceJournal(call, args, rc);
        return rc;
    }
    if (profile == nullptr || (radio != SYS_WIFI_RADIO_24GHZ && radio != SYS_WIFI_RADIO_5GHZ)) {
        ardo::deviceJournal(call, args, kSysFailure);
        return kSysFailure;
    }
    args["profile"] = ardo::recordToJson(*profile);
    bool ok = ardo::deviceStateUpdate([&](json& state) { state["settings"][key] = args["profile"]; });
    rc = ok ? 0 : kSysFailure;
    ardo::deviceJournal(call, args, rc);
    return rc;
}
}  // namespace

int sys_setWiFiPrimaryProfileForRadio(int radio, const sys_wifi_profile_t* profile) {
    return setProfileForRadio("sys_setWiFiPrimaryProfileForRadio", "wifiPrimaryProfile", radio, profile);
}

int sys_setWiFiGuestProfileForRadio(int radio, const sys_wifi_profile_t* profile) {
    return setProfileForRadio("sys_setWiFiGuestProfileForRadio", "wifiGuestProfile", radio, profile);
}

int sys_setMacFilterList(int whiteList, const sys_mac_entry_t* entries, int count) {
    return hostSetList<sys_mac_entry_t>(
        "sys_setMacFilterList", whiteList ? "macFilterWhiteList" : "macFilterBlockedList", entries, count);
}

int sys_setSambaHostname(const char* name) {
    if (name == nullptr) {
        ardo::deviceJournal("sys_setSambaHostname", json(), kSysFailure);
        return kSysFailure;
    }
    return hostStore("sys_setSambaHostname", "sambaHostname", json(std::string(name)), 0, kSysFailure);
}

int GetDhcpEndAddress(const char* start, const char* mask, int count, char* end, size_t endSize) {
    int rc;
    if (ardo::deviceTakeFault("GetDhcpEndAddress", &rc)) {
        return rc;
    }
    struct in_addr startAddr {};
    struct in_addr maskAddr {};
    if (start == nullptr || mask == nullptr || end == nullptr || endSize == 0 || count < 1 ||
        inet_pton(AF_INET, start, &startAddr) != 1 || inet_pton(AF_INET, mask, &maskAddr) != 1) {
        return 1;
    }
    uint32_t first = ntohl(startAddr.s_addr);
    uint32_t netmask = ntohl(maskAddr.s_addr);
    uint64_t last = static_cast<uint64_t>(first) + static_cast<uint64_t>(count) - 1;
    // The range may not leave the start's network.
    if (last > 0xffffffffull || (static_cast<uint32_t>(last) & netmask) != (first & netmask)) {
        return 1;
    }
    struct in_addr lastAddr {};
    lastAddr.s_addr = htonl(static_cast<uint32_t>(last));
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, &lastAddr, text, sizeof(text)) == nullptr) {
        return 1;
    }
    snprintf(end, endSize, "%s", text);
    return 0;
}

int webui_get_app_configurations(const char* section, const char* key, char* value, size_t valueSize) {
    int rc;
    if (ardo::deviceTakeFault("webui_get_app_configurations", &rc)) {
        return rc;
    }
    if (section == nullptr || key == nullptr || value == nullptr || valueSize == 0) {
        return kUiFailure;
    }
    json config = settingAt(*ardo::deviceStateSnapshot(), "webAppConfigurations");
    if (!config.is_object() || !config.contains(section) || !config[section].is_object() ||
        !config[section].contains(key)) {
        return kUiFailure;
    }
    const json& item = config[section][key];
    std::string text = item.is_string() ? item.get<std::string>() : item.dump();
    snprintf(value, valueSize, "%s", text.c_str());
    return 0;
}
