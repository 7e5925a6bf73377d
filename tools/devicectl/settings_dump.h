// The settings object as JSON: the present flags and, for each present group, what its members
// hold. Used by `tola-devicectl parse` and by the configuration-document corpus tests.
#pragma once

#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "settings_records.h"
#include "tola_agent.h"

namespace settings_dump {

using nlohmann::json;

template <typename T>
json valueOf(T* member) {
    return member != nullptr ? ardo::recordToJson(*member) : json();
}

inline json textOf(const char* text, size_t size) {
    return text != nullptr ? json(std::string(text, strnlen(text, size))) : json();
}

template <typename T>
json listOf(T* items, int first, const int* count, int capacity) {
    json out = json::array();
    if (items == nullptr || count == nullptr) {
        return out;
    }
    for (int i = 0; i < *count && i < capacity; ++i) {
        out.push_back(ardo::recordToJson(items[first + i]));
    }
    return out;
}

// What the members of one group hold.
inline json groupValues(TOLAAgent& a, TolaField group) {
    switch (group) {
        case TolaField::BlockedDevices:
            return listOf(a.GetMacAddrList(), TOLA_BLOCKED_MAC_FIRST, a.GetMacCount(),
                          TOLA_MAX_LISTED_DEVICES);
        case TolaField::WhiteListedDevices:
            return listOf(a.GetMacAddrList(), TOLA_WHITE_LIST_MAC_FIRST, a.GetWhiteListMacCount(),
                          TOLA_MAX_LISTED_DEVICES);
        case TolaField::WiFiNetworkSettings:
            return {{"profile", valueOf(a.GetWiFiPrimaryProfile())},
                    {"display", valueOf(a.GetWiFiPrimaryDisplayInfo())}};
        case TolaField::WiFiGuestNetworkSettings:
            return {{"profile", valueOf(a.GetWiFiGuestProfile())},
                    {"display", valueOf(a.GetWiFiGuestDisplayInfo())}};
        case TolaField::WiFiAdvancedSettings:
            return {{"wifiEnabled", valueOf(a.GetWiFiEnabled())},
                    {"allowChangesOnTouchScreen", valueOf(a.GetWiFiDisplaySettingEnabled())},
                    {"maxClients", valueOf(a.GetWiFiMaxClients())},
                    {"primaryProfile", valueOf(a.GetWiFiPrimaryProfile())}};
        case TolaField::AdminPasswordSettings:
            return {{"login", valueOf(a.GetLoginSettings())}, {"advanced", valueOf(a.GetAdvancedSettings())}};
        case TolaField::DevicePreferences:
            return {{"led", valueOf(a.GetLEDEnabled())},
                    {"stealthMode", valueOf(a.GetUIStealthModeEnabled())},
                    {"wakeupDisplayOnNotification", valueOf(a.GetNotificationDisplayWakeupEnabled())},
                    {"hwFactoryReset", valueOf(a.GetHWFactoryResetEnabled())},
                    {"displaySetting", valueOf(a.GetDisplaySettingEnabled())},
                    {"localAddress", valueOf(a.GetLocalAddress())},
                    {"universalCharging", valueOf(a.GetUniversalChargingSettings())},
                    {"screenTimeout", valueOf(a.GetScreenTimeout())},
                    {"powerSave", valueOf(a.GetPowerSaveSettings())}};
        case TolaField::USBModePreferences:
            return {{"usbMode", valueOf(a.GetUSBTetheringEnabled())},
                    {"prompt", valueOf(a.GetUSBConnectionPromptEnabled())}};
        case TolaField::AudioPreferences:
            return {{"audioEnabled", valueOf(a.GetAudioAlertsEnabled())},
                    {"sounds", valueOf(a.GetUINotificationSettings())}};
        case TolaField::DisplaySettings:
            return valueOf(a.GetI18nSettings());
        case TolaField::ManualDNSSettings:
            return {{"enabled", valueOf(a.GetManualDNSEnabled())},
                    {"dns", valueOf(a.GetManualDNSSettings())}};
        case TolaField::FirewallSettings:
            return {{"vpnPassthrough", valueOf(a.GetVPNPassthroughEnabled())},
                    {"ipv6TransparentMode", valueOf(a.GetIPv6TransparentModeEnabled())},
                    {"dmzEnabled", valueOf(a.GetDMZEnabled())},
                    {"dmz", valueOf(a.GetDMZSettings())}};
        case TolaField::MACFilterSettings:
            return {{"whiteListEnabled", valueOf(a.GetMacFilterWhiteListEnabled())}};
        case TolaField::LANSettings:
            return {{"lan", valueOf(a.GetLANSettings())}, {"ipv6Enabled", valueOf(a.GetIPv6Enabled())}};
        case TolaField::GPSSettings:
            return {{"enabled", valueOf(a.GetGPSEnabled())},
                    {"nmeaOverWiFi", valueOf(a.GetNMEAOverWiFiEnabled())},
                    {"nmeaPort", valueOf(a.GetNMEAOverWiFiPort())},
                    {"startupState", valueOf(a.GetGPSStartupState())}};
        case TolaField::LogsSettings:
            return valueOf(a.GetLogSettings());
        case TolaField::NetworkSettings:
            return {{"cellularDataEnabled", valueOf(a.GetCellularDataEnabled())},
                    {"connectionPreference", textOf(a.GetNetworkText(TOLA_NET_CONNECTION_PREFERENCE), 128)},
                    {"lteApn", textOf(a.GetNetworkText(TOLA_NET_LTE_APN), 128)},
                    {"hspaApn", textOf(a.GetNetworkText(TOLA_NET_HSPA_APN), 128)},
                    {"nonVeltraApn", textOf(a.GetNetworkText(TOLA_NET_NON_VELTRA_APN), 128)}};
        case TolaField::PortFilteringSettings:
            return {{"enabled", valueOf(a.GetPortFilteringEnabled())},
                    {"applications", listOf(a.GetPortFilteringApplications(), 0,
                                            a.GetPortFilteringAppsCount(), SYS_ROUTER_APP_MAX)}};
        case TolaField::PortForwardingSettings:
            return {{"enabled", valueOf(a.GetPortForwardingEnabled())},
                    {"applications", listOf(a.GetPortForwardingApplications(), 0,
                                            a.GetPortForwardingAppsCount(), SYS_ROUTER_APP_MAX)}};
        case TolaField::ReservedIpSettings:
            return listOf(a.GetReservedAddrList(), 0, a.GetReservedAddrListCount(), SYS_DHCP_RESERVATION_MAX);
        case TolaField::VornSharingSettings: {
            json folders = json::array();
            sys_samba_folder_t* names = a.GetSambaFolderNames();
            for (int i = 0; names != nullptr && i < SYS_SAMBA_FOLDER_SLOTS && names[i].name[0] != '\0'; ++i) {
                folders.push_back(textOf(names[i].name, sizeof(names[i].name)));
            }
            return {{"enabled", valueOf(a.GetSambaEnabled())},
                    {"onDisplay", valueOf(a.GetFileSharingDisplayEnabled())},
                    {"primaryNetwork", valueOf(a.GetSambaPrimaryNetworkEnabled())},
                    {"guestNetwork", valueOf(a.GetSambaGuestNetworkEnabled())},
                    {"name", textOf(a.GetSambaHostName(), 128)},
                    {"samba", valueOf(a.GetSambaSettings())},
                    {"folders", folders}};
        }
        default:
            return json();
    }
}

// {"present": [flag names], "groups": {group: values}}
inline json dump(TOLAAgent& agent) {
    json present = json::array();
    json groups = json::object();
    for (size_t i = 0; i < TOLA_FIELD_COUNT; ++i) {
        TolaField field = static_cast<TolaField>(i);
        if (!agent.IsPresent(field)) {
            continue;
        }
        const tola_field_info_t& info = tola_field_info(field);
        present.push_back(info.name);
        if (info.isGroup && field != TolaField::AccessControlSettings) {
            groups[info.name] = groupValues(agent, field);
        }
    }
    return {{"present", present}, {"groups", groups}};
}

// The entries of the shared-memory access-control list.
inline json aclEntries(TOLAAgent& agent) {
    json out = json::array();
    tola_acl_shm_t* acl = agent.AclBlock();
    if (acl == nullptr) {
        return out;
    }
    for (int i = 0; i < acl->count && i < TOLA_ACL_MAX_ENTRIES; ++i) {
        const tola_ace_t& e = acl->entries[i];
        out.push_back({{"name", std::string(e.name, strnlen(e.name, sizeof(e.name)))},
                       {"display", (e.flags & TOLA_ACE_DISPLAY_ENABLED) != 0},
                       {"write", (e.flags & TOLA_ACE_WRITE_ENABLED) != 0}});
    }
    return out;
}

}  // namespace settings_dump
