// System family: the device's settings records, getters and setters, modem profiles.
//
// Conventions: every getter returns 0 on success and fills its record (or value) only then; a
// non-zero result is a failure. Setters return 0 on success; 1 is also success (the value was
// unchanged); 2 or more is a failure. Flags are 4-byte ints, 1 for on and 0 for off.
// Texts inside records are NUL-terminated within their field.
#pragma once

#include <cstddef>
#include <cstdint>

// An IPv4 address, 32 bits in network byte order.
typedef uint32_t ip4_address_t;
static_assert(sizeof(ip4_address_t) == 4, "ip4_address_t is 32 bits");

// Dotted IPv4 texts in records: 16 characters usable, so a text cut to fit is never mistaken
// for a valid address (a valid one has at most 15).
constexpr size_t SYS_IP_TEXT_SIZE = 17;

// ---- LAN --------------------------------------------------------------------------------------
struct sys_lan_settings_t {
    char ipAddress[SYS_IP_TEXT_SIZE];  // the router's own address
    char subnetMask[SYS_IP_TEXT_SIZE];
    char dhcpStart[SYS_IP_TEXT_SIZE];  // first address the DHCP server hands out
    char dhcpEnd[SYS_IP_TEXT_SIZE];    // last one
    uint32_t dhcpEnabled;
    uint32_t dhcpLeaseTime;  // minutes
    uint32_t dhcpAddressCount;
};
static_assert(offsetof(sys_lan_settings_t, dhcpEnabled) == 68, "LAN record layout");
static_assert(sizeof(sys_lan_settings_t) == 80, "LAN record layout");

int sys_getLANSettings(sys_lan_settings_t* settings);
int sys_setLANSettings(const sys_lan_settings_t* settings);
int sys_getIPv6Enabled(int* enabled);
int sys_setIPv6Enabled(int enabled);

// The last DHCP address of a range of `count` addresses from `start` within `mask`, as a dotted
// text into end (17 bytes). 0 on success.
int GetDhcpEndAddress(const char* start, const char* mask, int count, char* end, size_t endSize);

// ---- DNS, firewall, MAC filter -------------------------------------------------------------
struct sys_manual_dns_t {
    char dns1[47];  // IPv4 or IPv6 text, 46 characters usable
    char dns2[47];
};
static_assert(sizeof(sys_manual_dns_t) == 94, "manual DNS record layout");

int sys_getManualDNSSettings(sys_manual_dns_t* dns);
int sys_setManualDNSSettings(const sys_manual_dns_t* dns);
int sys_getManualDNSEnabled(int* enabled);
int sys_setManualDNSEnabled(int enabled);

struct sys_dmz_settings_t {
    char ipAddress[SYS_IP_TEXT_SIZE];
};
static_assert(sizeof(sys_dmz_settings_t) == 17, "DMZ record layout");

int sys_getDMZSettings(sys_dmz_settings_t* dmz);
int sys_setDMZSettings(const sys_dmz_settings_t* dmz);
int sys_getDMZEnabled(int* enabled);
int sys_setDMZEnabled(int enabled);
int sys_getIPv6TransparentModeEnabled(int* enabled);
int sys_setIPv6TransparentModeEnabled(int enabled);
int sys_getVPNPassthroughEnabled(int* enabled);
int sys_setVPNPassthroughEnabled(int enabled);
int sys_getMacFilterWhiteListEnabled(int* enabled);
int sys_setMacFilterWhiteListEnabled(int enabled);

// One MAC address of the blocked or white-listed devices.
struct sys_mac_entry_t {
    char macAddress[50];  // 49 characters usable: an over-long text stays recognisably invalid
};
static_assert(sizeof(sys_mac_entry_t) == 50, "MAC entry layout");

// The device's MAC filter: `count` entries; whiteList 1 for the allowed list, 0 for the blocked.
int sys_setMacFilterList(int whiteList, const sys_mac_entry_t* entries, int count);

// ---- GPS ----------------------------------------------------------------------------------
// sys_getGPSEnabled is declared with the device's identity and position (sys_device.h).
int sys_setGPSEnabled(int enabled);
int sys_getGPSPrivacyAgreementAccepted(int* accepted);
int sys_setGPSPrivacyAgreementAccepted(int accepted);
int sys_getNMEAOverWiFiEnabled(int* enabled);
int sys_setNMEAOverWiFiEnabled(int enabled);
// Start-up state: 1 the GPS stays on ("Always on"), 0 it turns off on power down.
int sys_getGPSStartupState(int* state);
int sys_setGPSStartupState(int state);
// The TCP port on which NMEA sentences are served over Wi-Fi.
int sys_getNMEAOverWiFiSettings(int* port);
int sys_setNMEAOverWiFiSettings(int port);

// ---- Wi-Fi --------------------------------------------------------------------------------
// Security modes.
constexpr uint32_t SYS_WIFI_SECURITY_NONE = 0;
constexpr uint32_t SYS_WIFI_SECURITY_WPA2_PSK_AES = 1;
constexpr uint32_t SYS_WIFI_SECURITY_WPA_WPA2_MIXED = 2;
// 802.11 modes.
constexpr uint32_t SYS_WIFI_MODE_80211BGN = 5;
constexpr uint32_t SYS_WIFI_MODE_80211ACN = 9;
constexpr uint32_t SYS_WIFI_MODE_80211AC = 10;
// Which network a band carries.
constexpr uint32_t SYS_WIFI_BAND_PRIMARY = 0;
constexpr uint32_t SYS_WIFI_BAND_GUEST = 1;

// A Wi-Fi network profile (primary or guest). The band fields are read from the primary profile.
struct sys_wifi_profile_t {
    char ssid[33];  // 1 to 32 characters
    char key[65];   // 0 to 63 characters
    uint8_t reserved0[2];
    uint32_t securityMode;  // SYS_WIFI_SECURITY_*
    uint32_t broadcastEnabled;
    uint32_t wpsEnabled;
    uint32_t privacySeparationEnabled;
    uint32_t mode24;     // SYS_WIFI_MODE_*
    uint32_t channel24;  // 0 automatic, else 1 to 11
    uint32_t mode5;
    uint32_t channel5;       // 0 automatic, else 36 ... 161
    uint32_t bandwidth5;     // MHz: 20, 40 or 80
    uint32_t band24Network;  // SYS_WIFI_BAND_*
    uint32_t band5Network;
    uint32_t band24Enabled;
    uint32_t band5Enabled;
    uint8_t reserved1[80];
};
static_assert(offsetof(sys_wifi_profile_t, securityMode) == 100, "Wi-Fi profile layout");
static_assert(sizeof(sys_wifi_profile_t) == 232, "Wi-Fi profile layout");

int sys_getWiFiPrimaryProfile(sys_wifi_profile_t* profile);
int sys_setWiFiPrimaryProfile(const sys_wifi_profile_t* profile);
int sys_getWiFiGuestProfile(sys_wifi_profile_t* profile);
int sys_setWiFiGuestProfile(const sys_wifi_profile_t* profile);
int sys_getWiFiEnabled(int* enabled);
int sys_setWiFiEnabled(int enabled);
int sys_getWiFiMaxClients(int* count);
int sys_setWiFiMaxClients(int count);
// Writes a profile for one radio (SYS_WIFI_RADIO_*): the network's name, key and security, and
// that radio's mode, channel and switches.
constexpr int SYS_WIFI_RADIO_24GHZ = 0;
constexpr int SYS_WIFI_RADIO_5GHZ = 1;
int sys_setWiFiPrimaryProfileForRadio(int radio, const sys_wifi_profile_t* profile);
int sys_setWiFiGuestProfileForRadio(int radio, const sys_wifi_profile_t* profile);
int sys_getWiFiCarrierEnabled(int* enabled);
int sys_getWiFiGuestCarrierEnabled(int* enabled);

// ---- Device preferences -------------------------------------------------------------------
struct sys_power_save_settings_t {
    uint32_t sleepTime;     // seconds of idle before deep sleep, 0 never
    uint32_t shutdownTime;  // seconds of idle before shutting down, 0 never
    uint32_t autoShutdownEnabled;
};
static_assert(sizeof(sys_power_save_settings_t) == 12, "power-save record layout");

int sys_getPowerSaveSettings(sys_power_save_settings_t* settings);
int sys_setPowerSaveSettings(const sys_power_save_settings_t* settings);
int sys_setDeepSleepEnabled(int enabled);
int sys_setAutoShutdownEnabled(int enabled);
int sys_getHWFactoryResetEnabled(int* enabled);
int sys_setHWFactoryResetEnabled(int enabled);
// Universal charging: the battery percentage (5, 25 or 50) below which charging others stops.
int sys_getUniversalChargingSettings(int* threshold);
int sys_setUniversalChargingSettings(int threshold);
int sys_getLEDEnabled(int* enabled);
int sys_setLEDEnabled(int enabled);
int sys_getUIStealthModeEnabled(int* enabled);
int sys_setUIStealthModeEnabled(int enabled);

// USB mode (sys_getUSBTetheringEnabled): 0 charging only, 1 Internet over USB only,
// 2 Internet over USB and Wi-Fi.
constexpr int SYS_USB_MODE_CHARGING = 0;
constexpr int SYS_USB_MODE_USB_ONLY = 1;
constexpr int SYS_USB_MODE_USB_AND_WIFI = 2;
int sys_getUSBTetheringEnabled(int* mode);
int sys_setUSBTetheringEnabled(int mode);
int sys_enableWifiWhileTethered(int enabled);

// Notification sounds (sys_getUINotificationSettings): one bit per sound, set when it plays.
enum sys_ui_sound_t : uint32_t {
    SYS_SOUND_STARTUP = 1u << 0,
    SYS_SOUND_SHUTDOWN = 1u << 1,
    SYS_SOUND_BATTERY10 = 1u << 2,
    SYS_SOUND_BATTERY_CRITICAL = 1u << 3,
    SYS_SOUND_BATTERY_CHARGING = 1u << 4,
    SYS_SOUND_LOW_CHARGER = 1u << 5,
    SYS_SOUND_BATTERY_FULL = 1u << 6,
    SYS_SOUND_UC_OK = 1u << 7,
    SYS_SOUND_UC_LOW_BATTERY = 1u << 8,
    SYS_SOUND_UC_TERMINATED = 1u << 9,
    SYS_SOUND_USB_MODE_PROMPT = 1u << 10,
    SYS_SOUND_USB_MASS_STORAGE = 1u << 11,
    SYS_SOUND_SIM_ERROR = 1u << 12,
    SYS_SOUND_SIM_NONE = 1u << 13,
    SYS_SOUND_SIM_NON_VLT = 1u << 14,
    SYS_SOUND_PCO2 = 1u << 15,
    SYS_SOUND_PCO3 = 1u << 16,
    SYS_SOUND_PCO5 = 1u << 17,
    SYS_SOUND_SMS_RECEIVED = 1u << 18,
    SYS_SOUND_DEVICE_JOIN_WIFI = 1u << 19,
    SYS_SOUND_SOFTWARE_UPDATE = 1u << 20,
    SYS_SOUND_ROAMING = 1u << 21,
    SYS_SOUND_WIFI_DISABLED = 1u << 22,
};
int sys_getUINotificationSettings(int* sounds);
int sys_setUINotificationSettings(int sounds);
int sys_getAudioAlertsEnabled(int* enabled);
int sys_setAudioAlertsEnabled(int enabled);

// ---- Port filtering and forwarding --------------------------------------------------------
constexpr uint32_t SYS_APP_PROTOCOL_TCP = 1;
constexpr uint32_t SYS_APP_PROTOCOL_UDP = 2;
constexpr uint32_t SYS_APP_PROTOCOL_TCP_UDP = 3;
constexpr uint32_t SYS_APP_PORT_RANGE = 0;      // forward the range as it is
constexpr uint32_t SYS_APP_PORT_TRANSLATE = 1;  // external start port -> internal end port

// One router application (filtered or forwarded service).
struct sys_router_app_t {
    char name[28];                     // up to 27 characters
    char ipAddress[SYS_IP_TEXT_SIZE];  // forwarding target
    uint8_t reserved0[3];
    uint32_t enabled;
    uint32_t startPort;
    uint32_t endPort;
    uint32_t protocol;  // SYS_APP_PROTOCOL_*
    uint32_t portType;  // SYS_APP_PORT_*
};
static_assert(offsetof(sys_router_app_t, enabled) == 48, "router application layout");
static_assert(sizeof(sys_router_app_t) == 68, "router application layout");
constexpr int SYS_ROUTER_APP_MAX = 100;

int sys_getPortFilteringEnabled(int* enabled);
int sys_setPortFilteringEnabled(int enabled);
int sys_setPortFilteringApplicationList(const sys_router_app_t* apps, int count);
int sys_getPortForwardingEnabled(int* enabled);
int sys_setPortForwardingEnabled(int enabled);
int sys_setPortForwardingApplicationList(const sys_router_app_t* apps, int count);

// ---- DHCP reservations ---------------------------------------------------------------------
struct sys_dhcp_reservation_t {
    char macAddress[19];
    char ipAddress[SYS_IP_TEXT_SIZE];
};
static_assert(sizeof(sys_dhcp_reservation_t) == 36, "DHCP reservation layout");
constexpr int SYS_DHCP_RESERVATION_MAX = 30;  // 1080 bytes

int sys_setDHCPReservedAddrList(const sys_dhcp_reservation_t* list, int count);

// ---- File sharing -------------------------------------------------------------------------
constexpr uint32_t SYS_SAMBA_SHARE_ALL = 0;
constexpr uint32_t SYS_SAMBA_SHARE_FOLDERS = 1;
constexpr uint32_t SYS_SAMBA_READ_ONLY = 0;
constexpr uint32_t SYS_SAMBA_READ_WRITE = 1;

struct sys_samba_settings_t {
    uint32_t contentToShare;  // SYS_SAMBA_SHARE_*
    uint32_t accessType;      // SYS_SAMBA_READ_*
};
static_assert(sizeof(sys_samba_settings_t) == 8, "sharing record layout");

// One shared top-level folder.
struct sys_samba_folder_t {
    char name[260];  // up to 255 characters
};
static_assert(sizeof(sys_samba_folder_t) == 260, "sharing folder layout");
constexpr int SYS_SAMBA_FOLDER_SLOTS = 100;  // 26000 bytes
// The longest top-level folder name the device's file server shares (the record keeps more).
constexpr int SYS_SAMBA_FOLDER_NAME_MAX = 64;

int sys_getSambaSettings(sys_samba_settings_t* settings);
int sys_setSambaSettings(const sys_samba_settings_t* settings);
int sys_getSambaEnabled(int* enabled);
int sys_setSambaEnabled(int enabled);
int sys_getSambaPrimaryNetworkEnabled(int* enabled);
int sys_setSambaPrimaryNetworkEnabled(int enabled);
int sys_getSambaGuestNetworkEnabled(int* enabled);
int sys_setSambaGuestNetworkEnabled(int enabled);
int sys_setSambaFolderSettings(const sys_samba_folder_t* folders, int count);
int sys_setSambaHostname(const char* name);

// ---- Mobile network -----------------------------------------------------------------------
int sys_getCellularDataEnabled(int* enabled);
int sys_setCellularDataEnabled(int enabled);

// When the device brings up its data call.
constexpr int SYS_DATA_CONNECT_AUTO = 0;              // always
constexpr int SYS_DATA_CONNECT_AUTO_NOT_ROAMING = 1;  // except while roaming
constexpr int SYS_DATA_CONNECT_MANUAL = 2;            // only when the user asks
int sys_getCellularDataConnectionPreference(int* preference);
int sys_setCellularDataConnectionPreference(int preference);

// The radio technologies the modem may use: one bit per family.
constexpr int SYS_RAT_LTE = 1 << 0;
constexpr int SYS_RAT_CDMA = 1 << 1;       // 1x and EV-DO
constexpr int SYS_RAT_GSM = 1 << 2;        // GSM and EDGE
constexpr int SYS_RAT_UMTS_HSPA = 1 << 3;  // UMTS and HSPA
constexpr int SYS_RAT_GLOBAL = SYS_RAT_LTE | SYS_RAT_CDMA | SYS_RAT_GSM | SYS_RAT_UMTS_HSPA;
int sys_getEnabledRadioTechnologies(int* technologies);
int sys_setEnabledRadioTechnologies(int technologies);

// ---- Modem profiles -----------------------------------------------------------------------
// A profile is addressed by its type (SYS_MODEM_PROFILE_*) and its index within that type.
constexpr int SYS_MODEM_PROFILE_3GPP = 0;
constexpr int SYS_MODEM_PROFILE_3GPP2 = 1;

// Authentication of a profile.
constexpr uint32_t SYS_MODEM_AUTH_NONE = 0;
constexpr uint32_t SYS_MODEM_AUTH_PAP = 1;
constexpr uint32_t SYS_MODEM_AUTH_CHAP = 2;
// Address type of a profile.
constexpr uint32_t SYS_MODEM_PDP_IPV4 = 0;
constexpr uint32_t SYS_MODEM_PDP_IPV6 = 1;
constexpr uint32_t SYS_MODEM_PDP_IPV4V6 = 2;

// One modem (data-call) profile.
struct sys_modem_profile_t {
    char apn[101];  // up to 100 characters
    char userName[65];
    char password[65];
    uint8_t reserved0[1];
    uint32_t authType;  // SYS_MODEM_AUTH_*
    uint32_t pdpType;   // SYS_MODEM_PDP_*
    char name[32];      // the profile's display name
    uint8_t reserved1[8];
};
static_assert(offsetof(sys_modem_profile_t, authType) == 232, "modem profile layout");
static_assert(sizeof(sys_modem_profile_t) == 280, "modem profile layout");

// The index (of type SYS_MODEM_PROFILE_3GPP) of the profile the Internet data call uses.
int sys_getActiveModemProfileIndex(int* index);
// Reads or replaces a whole profile. 0 on success; reading a profile the modem does not have fails.
int sys_getModemProfile(int type, int index, sys_modem_profile_t* profile);
int sys_setModemProfile(int type, int index, const sys_modem_profile_t* profile);

// ---- Known devices ------------------------------------------------------------------------
// The devices that have joined the hotspot's networks and that the device remembers (their names
// and last addresses, shown in the connected-devices lists).
struct sys_known_device_t {
    char macAddress[18];  // "aa:bb:cc:dd:ee:ff"
    char hostName[64];    // up to 63 characters, may be empty
    char ipAddress[SYS_IP_TEXT_SIZE];
    uint8_t reserved0[1];
    uint32_t connected;  // 1 while the device is connected
    uint32_t network;    // SYS_WIFI_BAND_PRIMARY or SYS_WIFI_BAND_GUEST
};
static_assert(offsetof(sys_known_device_t, ipAddress) == 82, "known-device layout");
static_assert(offsetof(sys_known_device_t, connected) == 100, "known-device layout");
static_assert(sizeof(sys_known_device_t) == 108, "known-device layout");
constexpr int SYS_KNOWN_DEVICES_MAX = 64;

// Copies up to `capacity` known devices into devices and their number into *count. 0 on success.
int sys_getAllDevicesList(sys_known_device_t* devices, int capacity, int* count);
// Forgets the known device with this MAC address (compared without regard to case or to the
// separators). 0 on success; a device that is not known fails.
int sys_deleteKnownDevice(const char* macAddress);
