// TOLASettingsObject: the settings object that the configuration document fills group by
// group (one member per device setting, created on first use and seeded from the device), its
// present flags and error message, and the address, port and text checks. TOLAAgent derives
// from it, so the agent itself is the settings object.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "deviceui.h"
#include "sys_settings.h"
#include "webui.h"

// ---- Present flags ---------------------------------------------------------------------------
// One flag per group (G) and per field (F: group, JSON key). A handler sets a field's flag when
// it stores the field, which also sets the group's flag; validation and apply read them.
#define TOLA_PRESENT_FIELDS(G, F)                                   \
    G(BlockedDevices)                                               \
    G(WhiteListedDevices)                                           \
    G(WiFiNetworkSettings)                                          \
    F(WiFiNetworkSettings, WiFiSSID)                                \
    F(WiFiNetworkSettings, WiFiSSIDBroadcastEnabled)                \
    F(WiFiNetworkSettings, WiFiSecurityMode)                        \
    F(WiFiNetworkSettings, WiFiKey)                                 \
    F(WiFiNetworkSettings, WiFiNameOnDisplay)                       \
    F(WiFiNetworkSettings, WiFiPasswordOnDisplay)                   \
    F(WiFiNetworkSettings, WiFiWPSEnabled)                          \
    F(WiFiNetworkSettings, WiFiPrivacySeparationEnabled)            \
    G(WiFiGuestNetworkSettings)                                     \
    F(WiFiGuestNetworkSettings, WiFiGuestSSID)                      \
    F(WiFiGuestNetworkSettings, WiFiGuestSecurityMode)              \
    F(WiFiGuestNetworkSettings, WiFiGuestKey)                       \
    F(WiFiGuestNetworkSettings, WiFiGuestNameOnDisplay)             \
    F(WiFiGuestNetworkSettings, WiFiGuestPasswordOnDisplay)         \
    F(WiFiGuestNetworkSettings, WiFiGuestWPSEnabled)                \
    F(WiFiGuestNetworkSettings, WiFiGuestPrivacySeparationEnabled)  \
    G(WiFiAdvancedSettings)                                         \
    F(WiFiAdvancedSettings, WiFiEnabled)                            \
    F(WiFiAdvancedSettings, WiFiAllowChangesOnTouchScreen)          \
    F(WiFiAdvancedSettings, WiFi24GHzBand)                          \
    F(WiFiAdvancedSettings, WiFi5GHzBand)                           \
    F(WiFiAdvancedSettings, WiFiMaxClients)                         \
    F(WiFiAdvancedSettings, WiFi24GHz80211Mode)                     \
    F(WiFiAdvancedSettings, WiFi24GHzChannel)                       \
    F(WiFiAdvancedSettings, WiFi5GHz80211Mode)                      \
    F(WiFiAdvancedSettings, WiFi5GHzChannel)                        \
    F(WiFiAdvancedSettings, WiFi5GHzBandwidth)                      \
    G(AdminPasswordSettings)                                        \
    F(AdminPasswordSettings, AdminPassword)                         \
    F(AdminPasswordSettings, AdminPasswordOnDisplay)                \
    F(AdminPasswordSettings, AdminPasswordSecurityQuestion)         \
    F(AdminPasswordSettings, AdminPasswordSecurityAnswer)           \
    F(AdminPasswordSettings, AdminPasswordTurnONPasswordProtection) \
    F(AdminPasswordSettings, AdminPasswordOnGPS)                    \
    F(AdminPasswordSettings, AdminPasswordOnNetworkSettings)        \
    G(DevicePreferences)                                            \
    F(DevicePreferences, LEDEnabled)                                \
    F(DevicePreferences, StealthModeEnabled)                        \
    F(DevicePreferences, WakeupDisplayOnNotificationEnabled)        \
    F(DevicePreferences, AllowHardwareReset)                        \
    F(DevicePreferences, AllowPreferencesChangeOnDisplay)           \
    F(DevicePreferences, LocalIPAddress)                            \
    F(DevicePreferences, UCAutoOffThreshold)                        \
    F(DevicePreferences, DisplayTimeout)                            \
    F(DevicePreferences, SleepTime)                                 \
    F(DevicePreferences, ShutdownTime)                              \
    G(USBModePreferences)                                           \
    F(USBModePreferences, USBModePrompt)                            \
    F(USBModePreferences, USBMode)                                  \
    G(AudioPreferences)                                             \
    F(AudioPreferences, AudioEnabled)                               \
    F(AudioPreferences, NotificationSounds)                         \
    G(DisplaySettings)                                              \
    F(DisplaySettings, DisplayLanguage)                             \
    F(DisplaySettings, DisplayDateFormat)                           \
    F(DisplaySettings, DisplayTimeFormat)                           \
    F(DisplaySettings, DisplayDistanceFormat)                       \
    F(DisplaySettings, DisplayNumericSeparator)                     \
    G(ManualDNSSettings)                                            \
    F(ManualDNSSettings, ManualDNSEnabled)                          \
    F(ManualDNSSettings, ManualDNSAddress1)                         \
    F(ManualDNSSettings, ManualDNSAddress2)                         \
    G(FirewallSettings)                                             \
    F(FirewallSettings, VPNPassthroughEnabled)                      \
    F(FirewallSettings, IPv6TransparentModeEnabled)                 \
    F(FirewallSettings, DMZEnabled)                                 \
    F(FirewallSettings, DMZIpAddress)                               \
    G(MACFilterSettings)                                            \
    F(MACFilterSettings, MACFilterEnabled)                          \
    G(LANSettings)                                                  \
    F(LANSettings, RouterIPv4Address)                               \
    F(LANSettings, RouterSubnetMask)                                \
    F(LANSettings, DHCPEnabled)                                     \
    F(LANSettings, DHCPAddressRangeStart)                           \
    F(LANSettings, DHCPLeaseTime)                                   \
    F(LANSettings, IPv6Enabled)                                     \
    G(GPSSettings)                                                  \
    F(GPSSettings, GPSEnabled)                                      \
    F(GPSSettings, GPSNMEAOverWiFiEnabled)                          \
    F(GPSSettings, GPSNMEAOverWiFiPortNumber)                       \
    F(GPSSettings, GPSTurnOff)                                      \
    G(LogsSettings)                                                 \
    F(LogsSettings, LogsEnabled)                                    \
    F(LogsSettings, LogsDeletion)                                   \
    G(NetworkSettings)                                              \
    F(NetworkSettings, CellularDataEnabled)                         \
    F(NetworkSettings, ConnectionPreference)                        \
    F(NetworkSettings, LTEAPN)                                      \
    F(NetworkSettings, HSPAAPN)                                     \
    F(NetworkSettings, NonVeltraAPN)                                \
    G(PortFilteringSettings)                                        \
    F(PortFilteringSettings, PortFilteringEnabled)                  \
    F(PortFilteringSettings, PortFilteringApplications)             \
    G(PortForwardingSettings)                                       \
    F(PortForwardingSettings, PortForwardingEnabled)                \
    F(PortForwardingSettings, PortForwardingApplications)           \
    G(ReservedIpSettings)                                           \
    G(VornSharingSettings)                                          \
    F(VornSharingSettings, VornSharingEnabled)                      \
    F(VornSharingSettings, VornSharingOnDisplay)                    \
    F(VornSharingSettings, VornSharingWifiNetworkAccess)            \
    F(VornSharingSettings, VornSharingGuestWifiNetworkAccess)       \
    F(VornSharingSettings, VornSharingName)                         \
    F(VornSharingSettings, VornSharingContentToShare)               \
    F(VornSharingSettings, VornSharingAccessType)                   \
    F(VornSharingSettings, VornSharingTopLevelFolder)               \
    G(AccessControlSettings)

enum class TolaField : int {
#define TOLA_FIELD_GROUP_ENUM(group) group,
#define TOLA_FIELD_ENUM(group, key) group##_##key,
    TOLA_PRESENT_FIELDS(TOLA_FIELD_GROUP_ENUM, TOLA_FIELD_ENUM)
#undef TOLA_FIELD_GROUP_ENUM
#undef TOLA_FIELD_ENUM
        Count
};
constexpr size_t TOLA_FIELD_COUNT = static_cast<size_t>(TolaField::Count);

struct tola_field_info_t {
    const char* name;  // "Group" or "Group.Key"
    TolaField group;   // the group itself for a group flag
    bool isGroup;
};
// Name and group of a present flag.
const tola_field_info_t& tola_field_info(TolaField field);

// ---- Device-backed members ----------------------------------------------------------------
// X(Member, value type, getter named in the logs, seeding function). Accessor: Get<Member>().
#define TOLA_DEVICE_SETTINGS(X)                                                                             \
    X(ManualDNSSettings, sys_manual_dns_t, "sys_getManualDNSSettings", sys_getManualDNSSettings)            \
    X(ManualDNSEnabled, int, "sys_getManualDNSEnabled", sys_getManualDNSEnabled)                            \
    X(IPv6TransparentModeEnabled, int, "sys_getIPv6TransparentModeEnabled",                                 \
      sys_getIPv6TransparentModeEnabled)                                                                    \
    X(VPNPassthroughEnabled, int, "sys_getVPNPassthroughEnabled", sys_getVPNPassthroughEnabled)             \
    X(DMZEnabled, int, "sys_getDMZEnabled", sys_getDMZEnabled)                                              \
    X(DMZSettings, sys_dmz_settings_t, "sys_getDMZSettings", sys_getDMZSettings)                            \
    X(MacFilterWhiteListEnabled, int, "sys_getMacFilterWhiteListEnabled", sys_getMacFilterWhiteListEnabled) \
    X(IPv6Enabled, int, "sys_getIPv6Enabled", sys_getIPv6Enabled)                                           \
    X(LANSettings, sys_lan_settings_t, "sys_getLANSettings", sys_getLANSettings)                            \
    X(GPSEnabled, int, "sys_getGPSEnabled", tola_seed_gps_enabled)                                          \
    X(NMEAOverWiFiEnabled, int, "sys_getNMEAOverWiFiEnabled", sys_getNMEAOverWiFiEnabled)                   \
    X(GPSStartupState, int, "sys_getGPSStartupState", sys_getGPSStartupState)                               \
    X(NMEAOverWiFiPort, int, "sys_getNMEAOverWiFiSettings", sys_getNMEAOverWiFiSettings)                    \
    X(LogSettings, webui_log_settings_t, "webui_get_log_settings", webui_get_log_settings)                  \
    X(LoginSettings, webui_login_settings_t, "webui_get_login_settings", webui_get_login_settings)          \
    X(AdvancedSettings, webui_advanced_settings_t, "webui_get_advanced_settings",                           \
      webui_get_advanced_settings)                                                                          \
    X(WiFiEnabled, int, "sys_getWiFiEnabled", sys_getWiFiEnabled)                                           \
    X(WiFiMaxClients, int, "sys_getWiFiMaxClients", sys_getWiFiMaxClients)                                  \
    X(WiFiPrimaryProfile, sys_wifi_profile_t, "sys_getWiFiPrimaryProfile", sys_getWiFiPrimaryProfile)       \
    X(WiFiPrimaryDisplayInfo, deviceui_wifi_info_display_t,                                                 \
      "deviceui_get_primary_wifi_info_display_settings", deviceui_get_primary_wifi_info_display_settings)   \
    X(WiFiGuestProfile, sys_wifi_profile_t, "sys_getWiFiGuestProfile", sys_getWiFiGuestProfile)             \
    X(WiFiGuestDisplayInfo, deviceui_wifi_info_display_t, "deviceui_get_guest_wifi_info_display_settings",  \
      deviceui_get_guest_wifi_info_display_settings)                                                        \
    X(WiFiDisplaySettingEnabled, int, "deviceui_get_wifi_display_setting_enabled",                          \
      deviceui_get_wifi_display_setting_enabled)                                                            \
    X(HWFactoryResetEnabled, int, "sys_getHWFactoryResetEnabled", sys_getHWFactoryResetEnabled)             \
    X(DisplaySettingEnabled, int, "deviceui_get_display_setting_enabled",                                   \
      deviceui_get_display_setting_enabled)                                                                 \
    X(UniversalChargingSettings, int, "sys_getUniversalChargingSettings", sys_getUniversalChargingSettings) \
    X(ScreenTimeout, int, "deviceui_get_screen_timeout_settings", deviceui_get_screen_timeout_settings)     \
    X(PowerSaveSettings, sys_power_save_settings_t, "sys_getPowerSaveSettings", sys_getPowerSaveSettings)   \
    X(LEDEnabled, int, "sys_getLEDEnabled", sys_getLEDEnabled)                                              \
    X(UIStealthModeEnabled, int, "sys_getUIStealthModeEnabled", sys_getUIStealthModeEnabled)                \
    X(NotificationDisplayWakeupEnabled, int, "deviceui_get_notification_display_wakeup_setting_enabled",    \
      deviceui_get_notification_display_wakeup_setting_enabled)                                             \
    X(LocalAddress, sys_lan_settings_t, "sys_getLANSettings", sys_getLANSettings)                           \
    X(USBTetheringEnabled, int, "sys_getUSBTetheringEnabled", sys_getUSBTetheringEnabled)                   \
    X(USBConnectionPromptEnabled, int, "deviceui_get_usb_connection_prompt_enabled",                        \
      deviceui_get_usb_connection_prompt_enabled)                                                           \
    X(UINotificationSettings, int, "sys_getUINotificationSettings", sys_getUINotificationSettings)          \
    X(AudioAlertsEnabled, int, "sys_getAudioAlertsEnabled", sys_getAudioAlertsEnabled)                      \
    X(I18nSettings, webui_i18n_settings_t, "webui_get_i18n_settings", webui_get_i18n_settings)              \
    X(PortFilteringEnabled, int, "sys_getPortFilteringEnabled", sys_getPortFilteringEnabled)                \
    X(PortForwardingEnabled, int, "sys_getPortForwardingEnabled", sys_getPortForwardingEnabled)             \
    X(SambaEnabled, int, "sys_getSambaEnabled", sys_getSambaEnabled)                                        \
    X(FileSharingDisplayEnabled, int, "deviceui_get_file_sharing_display_setting_enabled",                  \
      deviceui_get_file_sharing_display_setting_enabled)                                                    \
    X(SambaSettings, sys_samba_settings_t, "sys_getSambaSettings", sys_getSambaSettings)                    \
    X(SambaPrimaryNetworkEnabled, int, "sys_getSambaPrimaryNetworkEnabled",                                 \
      sys_getSambaPrimaryNetworkEnabled)                                                                    \
    X(SambaGuestNetworkEnabled, int, "sys_getSambaGuestNetworkEnabled", sys_getSambaGuestNetworkEnabled)    \
    X(CellularDataEnabled, int, "sys_getCellularDataEnabled", sys_getCellularDataEnabled)

// ---- Device-state cache ---------------------------------------------------------------------
// X(accessor, value type, platform call named in the logs, getter). What validation and apply
// read of the device as it is now, as opposed to the members above, which hold what the document
// asks for.
#define TOLA_DEVICE_STATE_CACHE(X)                                                                          \
    X(getManualDNSSettings, sys_manual_dns_t, "getManualDNSSettings", sys_getManualDNSSettings)             \
    X(getManualDNSEnabled, int, "getManualDNSEnabled", sys_getManualDNSEnabled)                             \
    X(getAllowHWReset, int, "getAllowHWReset", sys_getHWFactoryResetEnabled)                                \
    X(getNMEAOverWiFiEnabled, int, "getNMEAOverWiFiEnabled", sys_getNMEAOverWiFiEnabled)                    \
    X(getNMEAOverWiFiSettings, int, "getNMEAOverWiFiSettings", sys_getNMEAOverWiFiSettings)                 \
    X(getGPSStartupState, int, "getGPSStartupState", sys_getGPSStartupState)                                \
    X(getIPv6TransparentModeEnabled, int, "getIPv6TransparentModeEnabled",                                  \
      sys_getIPv6TransparentModeEnabled)                                                                    \
    X(getVPNPassthroughEnabled, int, "getVPNPassthroughEnabled", sys_getVPNPassthroughEnabled)              \
    X(getIPv6Enabled, int, "getIPv6Enabled", sys_getIPv6Enabled)                                            \
    X(getDMZEnabled, int, "getDMZEnabled", sys_getDMZEnabled)                                               \
    X(getDMZSettings, sys_dmz_settings_t, "getDMZSettings", sys_getDMZSettings)                             \
    X(getMacFilterWhiteListEnabled, int, "getMacFilterWhiteListEnabled", sys_getMacFilterWhiteListEnabled)  \
    X(getLANSettings, sys_lan_settings_t, "getLANSettings", sys_getLANSettings)                             \
    X(getLogSettings, webui_log_settings_t, "webui_get_log", webui_get_log_settings)                        \
    X(getWiFiCarrierEnabled, int, "getWiFiCarrierEnabled", sys_getWiFiCarrierEnabled)                       \
    X(getGuestWiFiCarrierEnabled, int, "getGuestWiFiCarrierEnabled", sys_getWiFiGuestCarrierEnabled)        \
    X(getWiFiEnabled, int, "getWiFiEnabled", sys_getWiFiEnabled)                                            \
    X(getWiFi24GHzProfileEnabled, int, "get WiFi 2.4GHz Profile Enabled", tola_read_wifi24_profile)         \
    X(getWiFi5GHzProfileEnabled, int, "get WiFi 5GHz Profile Enabled", tola_read_wifi5_profile)             \
    X(getWiFiMaxClients, int, "sys_getWiFiMaxClients", sys_getWiFiMaxClients)                               \
    X(getWiFiProfile, sys_wifi_profile_t, "getWiFiProfile", sys_getWiFiPrimaryProfile)                      \
    X(getWiFiGuestProfile, sys_wifi_profile_t, "getWiFiGuestProfile", sys_getWiFiGuestProfile)              \
    X(getUniversalChargingSettings, int, "getUniversalChargingSettings", sys_getUniversalChargingSettings)  \
    X(getScreenTimeoutSettings, int, "deviceui_get_screen_timeout_settings",                                \
      deviceui_get_screen_timeout_settings)                                                                 \
    X(getPowerSaveSettings, sys_power_save_settings_t, "getPowerSaveSettings", sys_getPowerSaveSettings)    \
    X(getLEDEnabled, int, "getLEDEnabled", sys_getLEDEnabled)                                               \
    X(getUIStealthModeEnabled, int, "getUIStealthModeEnabled", sys_getUIStealthModeEnabled)                 \
    X(getUSBTetheringEnabled, int, "getUSBTetheringEnabled", sys_getUSBTetheringEnabled)                    \
    X(getUINotificationSettings, int, "sys_getUINotificationSettings", sys_getUINotificationSettings)       \
    X(getI18nSettings, webui_i18n_settings_t, "webui_get_i18n_settings", webui_get_i18n_settings)           \
    X(getPortFilteringEnabled, int, "getPortFilteringEnabled", sys_getPortFilteringEnabled)                 \
    X(getPortForwardingEnabled, int, "getPortForwardingEnabled", sys_getPortForwardingEnabled)              \
    X(getSambaEnabled, int, "sys_getSambaEnabled", sys_getSambaEnabled)                                     \
    X(getSambaSettings, sys_samba_settings_t, "sys_getSambaSettings", sys_getSambaSettings)                 \
    X(getSambaPrimaryNetworkEnabled, int, "sys_getSambaPrimaryNetworkEnabled",                              \
      sys_getSambaPrimaryNetworkEnabled)                                                                    \
    X(getSambaGuestNetworkEnabled, int, "sys_getSambaGuestNetworkEnabled", sys_getSambaGuestNetworkEnabled) \
    X(getCellularDataEnabled, int, "getCellularDataEnabled", sys_getCellularDataEnabled)

// The profile enabled on each band, as the cache reads it: which network the band carries
// (SYS_WIFI_BAND_PRIMARY or SYS_WIFI_BAND_GUEST, the band fields of the primary profile).
int tola_read_wifi24_profile(int* network);
int tola_read_wifi5_profile(int* network);

// Seeds the GPS-enabled member: the GPS state is readable only with the privacy agreement
// accepted, so the agreement is accepted for the read and then put back as it was.
int tola_seed_gps_enabled(int* enabled);

// Sizes of the plain members.
constexpr size_t TOLA_MAC_LIST_BYTES = 10000;
constexpr int TOLA_MAC_LIST_ENTRIES = TOLA_MAC_LIST_BYTES / sizeof(sys_mac_entry_t);  // 200
// Blocked devices use the first half of the MAC list, white-listed devices the second.
constexpr int TOLA_BLOCKED_MAC_FIRST = 0;
constexpr int TOLA_WHITE_LIST_MAC_FIRST = TOLA_MAC_LIST_ENTRIES / 2;
constexpr int TOLA_MAX_LISTED_DEVICES = 99;
constexpr size_t TOLA_ROUTER_APPS_BYTES = 6800;
constexpr size_t TOLA_RESERVED_ADDR_BYTES = 1080;
constexpr size_t TOLA_SAMBA_FOLDER_BYTES = 26000;
constexpr int TOLA_SAMBA_FOLDER_CAPACITY = 10;
constexpr size_t TOLA_ERROR_MESSAGE_SIZE = 1024;
static_assert(TOLA_ROUTER_APPS_BYTES == SYS_ROUTER_APP_MAX * sizeof(sys_router_app_t), "room for 100 apps");
static_assert(TOLA_RESERVED_ADDR_BYTES == SYS_DHCP_RESERVATION_MAX * sizeof(sys_dhcp_reservation_t),
              "reserved list size");
static_assert(TOLA_SAMBA_FOLDER_BYTES == SYS_SAMBA_FOLDER_SLOTS * sizeof(sys_samba_folder_t),
              "folder list size");

// The network group's texts.
enum TolaNetworkText {
    TOLA_NET_CONNECTION_PREFERENCE = 0,
    TOLA_NET_LTE_APN = 1,  // the first APN part
    TOLA_NET_HSPA_APN = 2,
    TOLA_NET_NON_VELTRA_APN = 3,  // the second APN part
    TOLA_NET_PREFERRED_TECHNOLOGY = 4,
    TOLA_NET_TEXT_COUNT = 5,
};
constexpr size_t TOLA_SETTINGS_TEXT_SIZE = 128;

class TOLASettingsObject {
  public:
    TOLASettingsObject();
    virtual ~TOLASettingsObject();
    TOLASettingsObject(const TOLASettingsObject&) = delete;
    TOLASettingsObject& operator=(const TOLASettingsObject&) = delete;

    // ---- Device-backed members: created on first use, seeded from the device; null when the
    // device could not give the value (a later call asks again). ----
#define TOLA_DECLARE_ACCESSOR(name, type, getterName, seed) type* Get##name();
    TOLA_DEVICE_SETTINGS(TOLA_DECLARE_ACCESSOR)
#undef TOLA_DECLARE_ACCESSOR

    // ---- Plain members: created zeroed on first use. Virtual so that a test can take one
    // away. ----
    virtual sys_mac_entry_t* GetMacAddrList();  // TOLA_MAC_LIST_ENTRIES entries
    virtual int* GetMacCount();
    virtual int* GetWhiteListMacCount();
    virtual sys_router_app_t* GetPortFilteringApplications();  // SYS_ROUTER_APP_MAX records
    virtual int* GetPortFilteringAppsCount();
    virtual sys_router_app_t* GetPortForwardingApplications();
    virtual int* GetPortForwardingAppsCount();
    virtual sys_dhcp_reservation_t* GetReservedAddrList();  // SYS_DHCP_RESERVATION_MAX entries
    virtual int* GetReservedAddrListCount();
    virtual sys_samba_folder_t* GetSambaFolderNames();  // SYS_SAMBA_FOLDER_SLOTS entries
    virtual int* GetSambaFolderNamesCount();            // how many folders the device supports
    // One of the network group's texts (TOLA_SETTINGS_TEXT_SIZE bytes), null for a bad index.
    virtual char* GetNetworkText(int which);
    // The sharing group's text: the name under which the device shares its files.
    virtual char* GetSambaHostName();

    // Clears the lists and counts of the plain members (the device-backed members stay) and
    // empties the device-state cache. 0, or 200 when a list could not be reached.
    int ResetObjectData();
    // Forgets what a refused document put into the settings object: the device-backed members
    // are seeded again from the device on their next use, and the network texts, the sharing
    // host name and the folder names are emptied. The lists and counts are ResetObjectData's.
    void DropDocumentValues();

    // ---- Present flags ----
    bool IsPresent(TolaField field) const {
        return mPresent.test(static_cast<size_t>(field));
    }
    // Marks a field (and its group) present.
    void SetPresent(TolaField field);
    void ClearPresentFlags() {
        mPresent.reset();
    }

    // ---- Error message: printf-style, at most 1023 characters, replacing the previous one ----
    void SetErrorMessage(const char* format, ...) __attribute__((format(printf, 2, 3)));
    const char* GetErrorMessage() const {
        return mErrorMessage;
    }
    void ClearErrorMessage() {
        mErrorMessage[0] = '\0';
    }

    // ---- Device-state cache: the device's current values that validation and apply compare
    // against, read once through the platform and kept until the next ResetObjectData. Null when
    // the device could not give the value. ----
#define TOLA_DECLARE_CACHE_GETTER(name, type, logName, getter) type* name();
    TOLA_DEVICE_STATE_CACHE(TOLA_DECLARE_CACHE_GETTER)
#undef TOLA_DECLARE_CACHE_GETTER

    // ---- Address, port and text checks (tola_checks.cpp). Return conventions differ on purpose:
    // the IsValid* checks return 0 for an acceptable value, the others 1/true. ----
    int IsValidIP(char* ip);
    int IsValidIPWithPrivateAddressRange(char* ip);
    int IsvalidIpWithBroadcastRange(const char* ip);
    uint32_t IPToInt32(char* ip);
    int IsNetworkOrBroadcastIp(const char* ip);
    int CheckSubnetMatch(const char* ipA, const char* mask, const char* ipB);
    bool validateIpWithDhcpRange(const char* ip, const char* start, const char* end);
    int IsValidIpWithDhcp(const char* a, const char* b);
    int IsValidDhcpRange(const char* start, int minClients);
    bool CheckPortRanges(int start1, int end1, int start2, int end2);
    int CheckIsFullURL(std::string site);
    int CheckForValidSiteName(std::string site);
    bool isValidDateFormat(const char* date);
    bool CheckForSameSubnet(ip4_address_t address);
    bool IsValidMacAddress(const char* mac);
    bool HasNonPrintableChars(const char* text);

  private:
#define TOLA_DECLARE_MEMBER(name, type, getterName, seed) std::unique_ptr<type> m##name;
    TOLA_DEVICE_SETTINGS(TOLA_DECLARE_MEMBER)
#undef TOLA_DECLARE_MEMBER

    std::unique_ptr<sys_mac_entry_t[]> mMacAddrList;
    std::unique_ptr<int> mMacCount;
    std::unique_ptr<int> mWhiteListMacCount;
    std::unique_ptr<sys_router_app_t[]> mPortFilteringApps;
    std::unique_ptr<int> mPortFilteringAppsCount;
    std::unique_ptr<sys_router_app_t[]> mPortForwardingApps;
    std::unique_ptr<int> mPortForwardingAppsCount;
    std::unique_ptr<sys_dhcp_reservation_t[]> mReservedAddrList;
    std::unique_ptr<int> mReservedAddrListCount;
    std::unique_ptr<sys_samba_folder_t[]> mSambaFolderNames;
    std::unique_ptr<int> mSambaFolderNamesCount;
    std::unique_ptr<char[]> mNetworkTexts;  // TOLA_NET_TEXT_COUNT buffers
    std::unique_ptr<char[]> mSambaHostName;

    // The device-state cache: one owned record per getter.
#define TOLA_DECLARE_CACHE_MEMBER(name, type, logName, getter) std::unique_ptr<type> mCache_##name;
    TOLA_DEVICE_STATE_CACHE(TOLA_DECLARE_CACHE_MEMBER)
#undef TOLA_DECLARE_CACHE_MEMBER

    std::bitset<TOLA_FIELD_COUNT> mPresent;
    char mErrorMessage[TOLA_ERROR_MESSAGE_SIZE];
};
