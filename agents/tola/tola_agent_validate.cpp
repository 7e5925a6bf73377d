// Validation of the settings object against fixed rules and the device's current state: the
// whole-object pass, and the validators of the device lists, the admin password, the Wi-Fi
// groups, manual DNS, the mobile network and the device preferences (the router groups are in
// tola_agent_validate_network.cpp).
//
// What the document asks for is read from the settings members (seeded from the device, so a key
// the document leaves out keeps the device's value); what the device holds now is read from the
// device-state cache.
#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tola_agent.h"
#include "tola_log.h"
#include "tola_validate.h"

std::string tola_mac_key(const char* mac) {
    std::string key;
    for (const char* p = mac; p != nullptr && *p != '\0'; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (isxdigit(c)) {
            key.push_back(static_cast<char>(tolower(c)));
        }
    }
    return key;
}

long long tola_app_configuration(const char* section, const char* key, long long fallback) {
    char value[64] = {};
    if (webui_get_app_configurations(section, key, value, sizeof(value)) != 0) {
        return fallback;
    }
    value[sizeof(value) - 1] = '\0';
    char* end = nullptr;
    errno = 0;
    long long number = strtoll(value, &end, 10);
    while (end != nullptr && isspace(static_cast<unsigned char>(*end))) {
        ++end;
    }
    if (errno != 0 || end == value || end == nullptr || *end != '\0' || number <= 0) {
        return fallback;
    }
    return number;
}

namespace {

// One step of the whole-object pass: the validator runs when any of its parts is present.
struct ValidationStep {
    TolaField parts[5];
    int partCount;
    int (TOLAAgent::*validate)();
};

const ValidationStep kValidationOrder[] = {
    {{TolaField::BlockedDevices, TolaField::WhiteListedDevices, TolaField::MACFilterSettings},
     3,
     &TOLAAgent::ValidateWhiteListAndBlockedDevicesObj},
    {{TolaField::AdminPasswordSettings}, 1, &TOLAAgent::ValidateAdminPasswordSettingsObj},
    {{TolaField::LANSettings}, 1, &TOLAAgent::ValidateLANSettingsObj},
    {{TolaField::WiFiNetworkSettings_WiFiSSID, TolaField::WiFiNetworkSettings_WiFiKey},
     2,
     &TOLAAgent::ValidateWiFiParametersObj},
    {{TolaField::WiFiGuestNetworkSettings_WiFiGuestSSID, TolaField::WiFiGuestNetworkSettings_WiFiGuestKey},
     2,
     &TOLAAgent::ValidateGuestWifiParametersObj},
    {{TolaField::WiFiAdvancedSettings_WiFi24GHzBand, TolaField::WiFiAdvancedSettings_WiFi5GHzBand,
      TolaField::WiFiAdvancedSettings_WiFiMaxClients, TolaField::WiFiAdvancedSettings_WiFi24GHz80211Mode,
      TolaField::WiFiAdvancedSettings_WiFi5GHz80211Mode},
     5,
     &TOLAAgent::ValidateAdvancedWifiParametersObj},
    {{TolaField::ManualDNSSettings}, 1, &TOLAAgent::ValidateManualDNSSettingsObj},
    {{TolaField::FirewallSettings_DMZEnabled, TolaField::FirewallSettings_DMZIpAddress},
     2,
     &TOLAAgent::ValidateFirewallSettingsObj},
    {{TolaField::NetworkSettings_CellularDataEnabled, TolaField::NetworkSettings_ConnectionPreference,
      TolaField::NetworkSettings_LTEAPN, TolaField::NetworkSettings_HSPAAPN,
      TolaField::NetworkSettings_NonVeltraAPN},
     5,
     &TOLAAgent::ValidateMobileNetworkSettingsObj},
    {{TolaField::PortForwardingSettings_PortForwardingEnabled,
      TolaField::PortForwardingSettings_PortForwardingApplications},
     2,
     &TOLAAgent::ValidatePortForwardSettingsObj},
    {{TolaField::PortFilteringSettings}, 1, &TOLAAgent::ValidatePortFilterSettingsObj},
    {{TolaField::ReservedIpSettings}, 1, &TOLAAgent::ValidateReservedIPAddressSettingsObj},
    {{TolaField::VornSharingSettings}, 1, &TOLAAgent::ValidateVornSharingSettingsObj},
    {{TolaField::DevicePreferences}, 1, &TOLAAgent::ValidateDevicePrefencesSettingsObj},
};

const char* const kConnectionPreferences[] = {"Auto-connect", "Auto-connect if not roaming",
                                              "Manual Connection"};
const char* const kPreferredTechnologies[] = {"Global", "LTE/CDMA", "LTE/GSM/UMTS/HSPA"};

template <size_t N>
bool isOneOf(const char* text, const char* const (&choices)[N]) {
    return std::any_of(std::begin(choices), std::end(choices),
                       [text](const char* choice) { return strcmp(text, choice) == 0; });
}

// A Wi-Fi key the device can use: 8 to 63 printable characters, whatever the security mode (an
// open network keeps its key for when security is turned on again).
bool acceptableKey(TOLAAgent& agent, sys_wifi_profile_t& profile) {
    const char* key = tola_field_text(profile.key);
    size_t length = strlen(key);
    return !agent.HasNonPrintableChars(key) && length >= 8 && length <= 63;
}

// Both Wi-Fi validators first read the device's Wi-Fi state; a failed read refuses with 151
// (also for the guest network), with no user text of its own. true when every read succeeded.
bool readWiFiState(TOLAAgent& agent) {
    if (agent.getWiFiCarrierEnabled() != nullptr && agent.getWiFiEnabled() != nullptr &&
        agent.getWiFiProfile() != nullptr) {
        return true;
    }
    TLOG_SYS(TOLA_LOG_ERROR,
             "[%s]:[%s] - either get wifi carrier enabled or get wifi enabled or get wifi profile failed");
    return false;
}

// The MAC filter admits only listed devices, which WPS would get round: both may not be on.
// 0, or 150 with the user text set.
int checkWpsAndMacFilter(TOLAAgent& agent) {
    int* filter = agent.GetMacFilterWhiteListEnabled();
    sys_wifi_profile_t* primary = agent.GetWiFiPrimaryProfile();
    if (filter != nullptr && *filter != 0 && primary != nullptr && primary->wpsEnabled != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid configuration : WPS(primary) and mac filter enabled.");
        agent.SetErrorMessage("mac filter and WPS(primary) enabled, both cannot be used at the same time .");
        return 150;
    }
    return 0;
}

// Devices the document blocks are forgotten by the device (removed from its known devices), so
// that they no longer show as the hotspot's devices. 0, or 150 with the user text when one
// cannot be removed; a list that cannot be read is logged and leaves the known devices alone.
int forgetBlockedDevices(TOLAAgent& agent, const char* function, const sys_mac_entry_t* blocked,
                         int blockedCount) {
    if (blockedCount <= 0) {
        return 0;
    }
    std::vector<sys_known_device_t> known(SYS_KNOWN_DEVICES_MAX);
    int knownCount = 0;
    int rc = sys_getAllDevicesList(known.data(), SYS_KNOWN_DEVICES_MAX, &knownCount);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s - sys_getAllDevicesList failed while getting mac filter list returning "
                 "[%d],try sysintcli getAllDevicesList on command line.",
                 function, rc);
        return 0;
    }
    knownCount = std::clamp(knownCount, 0, SYS_KNOWN_DEVICES_MAX);
    for (int k = 0; k < knownCount; ++k) {
        const char* mac = tola_field_text(known[k].macAddress);
        std::string key = tola_mac_key(mac);
        bool isBlocked = std::any_of(blocked, blocked + blockedCount, [&key](const sys_mac_entry_t& entry) {
            return !key.empty() && tola_mac_key(entry.macAddress) == key;
        });
        if (!isBlocked) {
            continue;
        }
        rc = sys_deleteKnownDevice(mac);
        if (rc != 0) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - %s - sys_deleteKnownDevice failed to delete device returning [%d],try "
                     "sysintcli deleteKnownDevice on command line",
                     function, rc);
            agent.SetErrorMessage("clearing existing mac list database .... failed to delete mac entry : %s",
                                  mac);
            return 150;
        }
    }
    return 0;
}

// The new local address's DHCP pool: the device's pool moved into the address's subnet
// (192.168.x), keeping its size (at least the minimum), kept clear of the address: above it where
// a pool of the minimum size fits below TOLA_VALIDATION_LIMITS.localPoolLastOctet, else just
// below it. An address from 1 to 254 always leaves room on one side, so the derivation never
// refuses an address.
void deriveLocalDhcpRange(sys_lan_settings_t& local) {
    const tola_validation_limits_t& limits = TOLA_VALIDATION_LIMITS;
    int a[4] = {0, 0, 0, 0};
    int s[4] = {0, 0, 0, 0};
    int e[4] = {0, 0, 0, 0};
    sscanf(tola_field_text(local.ipAddress), "%d.%d.%d.%d", &a[0], &a[1], &a[2], &a[3]);
    sscanf(tola_field_text(local.dhcpStart), "%d.%d.%d.%d", &s[0], &s[1], &s[2], &s[3]);
    sscanf(tola_field_text(local.dhcpEnd), "%d.%d.%d.%d", &e[0], &e[1], &e[2], &e[3]);
    int span = std::max(e[3] - s[3], limits.minDhcpClients - 1);
    int first = std::max(s[3], a[3] + 1);
    int last = std::min(limits.localPoolLastOctet, first + span);
    if (last - first + 1 < limits.minDhcpClients) {
        last = a[3] - 1;
        first = std::max(1, last - span);
    }
    char start[32];
    char end[32];
    snprintf(start, sizeof(start), "%d.%d.%d.%d", 192, 168, a[2], first);
    snprintf(end, sizeof(end), "%d.%d.%d.%d", 192, 168, a[2], last);
    snprintf(local.dhcpStart, sizeof(local.dhcpStart), "%.16s", start);
    snprintf(local.dhcpEnd, sizeof(local.dhcpEnd), "%.16s", end);
    local.dhcpAddressCount = static_cast<uint32_t>(last - first + 1);
}

// An IPv4 or IPv6 address in binary form; family 0 when the text is neither.
struct AnyAddress {
    int family = 0;
    unsigned char bytes[16] = {};
};
AnyAddress parseAnyAddress(const char* text) {
    AnyAddress address;
    if (inet_pton(AF_INET, text, address.bytes) == 1) {
        address.family = AF_INET;
    } else if (inet_pton(AF_INET6, text, address.bytes) == 1) {
        address.family = AF_INET6;
    }
    return address;
}

}  // namespace

int TOLAAgent::ValidateObjectParameters() {
    TOLA_TRACE();
    for (const ValidationStep& step : kValidationOrder) {
        bool present = std::any_of(step.parts, step.parts + step.partCount,
                                   [this](TolaField part) { return IsPresent(part); });
        if (!present) {
            continue;
        }
        int rc = (this->*step.validate)();
        if (rc != 0) {
            // Nothing of a refused document may be applied. A reset that fails reports itself.
            int reset = ResetObjectData();
            return trace.Returning(reset != 0 ? reset : rc);
        }
    }
    // The device forgets the devices the document blocks once the whole document is accepted,
    // so that a refused document (or one only checked) changes nothing on the device.
    int* blockedCount = GetMacCount();
    sys_mac_entry_t* entries = GetMacAddrList();
    if (!mValidationDryRun && IsPresent(TolaField::BlockedDevices) && blockedCount != nullptr &&
        entries != nullptr) {
        int rc = forgetBlockedDevices(*this, __FUNCTION__, entries + TOLA_BLOCKED_MAC_FIRST,
                                      std::clamp(*blockedCount, 0, TOLA_MAX_LISTED_DEVICES));
        if (rc != 0) {
            int reset = ResetObjectData();
            return trace.Returning(reset != 0 ? reset : rc);
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateWhiteListAndBlockedDevicesObj() {
    TOLA_TRACE();
    int* blockedCount = GetMacCount();
    int* whiteCount = GetWhiteListMacCount();
    sys_mac_entry_t* entries = GetMacAddrList();
    if (blockedCount == nullptr || whiteCount == nullptr || entries == nullptr) {
        return trace.Returning(150);
    }
    int blocked = std::clamp(*blockedCount, 0, TOLA_MAX_LISTED_DEVICES);
    int white = std::clamp(*whiteCount, 0, TOLA_MAX_LISTED_DEVICES);
    // Both lists in one walk: the blocked devices, then the white-listed ones.
    std::vector<sys_mac_entry_t*> listed;
    for (int i = 0; i < blocked; ++i) {
        listed.push_back(&entries[TOLA_BLOCKED_MAC_FIRST + i]);
    }
    for (int i = 0; i < white; ++i) {
        listed.push_back(&entries[TOLA_WHITE_LIST_MAC_FIRST + i]);
    }
    for (sys_mac_entry_t* entry : listed) {
        const char* mac = tola_field_text(entry->macAddress);
        if (!IsValidMacAddress(mac)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d Invalid Blocked Devices MAC address:(%s)",
                     __FUNCTION__, __LINE__, mac);
            return trace.Returning(
                TOLA_REFUSE(150, "Invalid Blocked or white list device mac address %s", mac));
        }
    }
    for (size_t i = 0; i < listed.size(); ++i) {
        std::string key = tola_mac_key(listed[i]->macAddress);
        for (size_t j = 0; j < i; ++j) {
            if (tola_mac_key(listed[j]->macAddress) == key) {
                const char* mac = listed[i]->macAddress;
                TLOG_SYS(TOLA_LOG_ERROR,
                         "[%s]:[%s] - (%s)Duplicate Blocked or White listed Devices MAC address are found",
                         mac);
                return trace.Returning(TOLA_REFUSE(
                    150, "(%s)Duplicate Blocked or White listed Devices MAC address are found", mac));
            }
        }
    }
    if (checkWpsAndMacFilter(*this) != 0) {
        return trace.Returning(150);
    }
    // Turning the filter on, or replacing its list, needs at least one allowed device.
    int* filter = GetMacFilterWhiteListEnabled();
    bool filterOn = filter != nullptr && *filter != 0;
    if (filterOn && white == 0 &&
        (IsPresent(TolaField::WhiteListedDevices) ||
         IsPresent(TolaField::MACFilterSettings_MACFilterEnabled))) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] -  MAC Filter cannot be turned on while no devices are allowed to connect.");
        return trace.Returning(
            TOLA_REFUSE(150, "Invalid White list devices object, mac adress list is empty."));
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateAdminPasswordSettingsObj() {
    TOLA_TRACE();
    // The group's refusals have no user text of their own.
    auto refuse = [&]() {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - AdminPassword Object validation failed");
        return trace.Returning(154);
    };
    webui_login_settings_t* login = GetLoginSettings();
    if (login == nullptr) {
        return refuse();
    }
    const char* password = tola_field_text(login->password);
    long long length = static_cast<long long>(strlen(password));
    long long minimum =
        tola_app_configuration("set_passcode", "MinimumPasscodeLength", TOLA_DEFAULT_MIN_PASSCODE_LENGTH);
    if (length == 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d AdminPassword is empty", __FUNCTION__, __LINE__);
        return refuse();
    }
    if (length < minimum) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d AdminPassword lenght is less than 6 Chars: %s",
                 __FUNCTION__, __LINE__, password);
        return refuse();
    }
    if (length > 32) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d AdminPassword lenght is greater than 32 chars: %s",
                 __FUNCTION__, __LINE__, password);
        return refuse();
    }
    const char* answer = tola_field_text(login->answer);
    if (answer[0] == '\0') {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d securityAnswer is empty", __FUNCTION__, __LINE__);
        return refuse();
    }
    if (HasNonPrintableChars(answer)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d securityAnswer containsNonPrintable chars: %s",
                 __FUNCTION__, __LINE__, answer);
        return refuse();
    }
    if (login->questionType == WEBUI_QUESTION_DATE_OF_BIRTH && !isValidDateFormat(answer)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s:%d securityAnswer invalidDateFormat : %s", __FUNCTION__,
                 __LINE__, answer);
        return refuse();
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateWiFiParametersObj() {
    TOLA_TRACE();
    if (!readWiFiState(*this)) {
        return trace.Returning(151);
    }
    sys_wifi_profile_t* primary = GetWiFiPrimaryProfile();
    if (primary == nullptr) {
        return trace.Returning(151);
    }
    if (!acceptableKey(*this, *primary)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid WiFiKey");
        return trace.Returning(TOLA_REFUSE(151,
                                           "Invalid WiFi Primary Key value. Either contains non printable "
                                           "characters or length is not matching."));
    }
    if (checkWpsAndMacFilter(*this) != 0) {
        return trace.Returning(150);
    }
    if (getGuestWiFiCarrierEnabled() == nullptr || getWiFiGuestProfile() == nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - either get wifi guest carrier enabled or get wifi guest profile failed");
        return trace.Returning(151);
    }
    // The guest name it will have: the document's when it names one, else the device's.
    sys_wifi_profile_t* guest = IsPresent(TolaField::WiFiGuestNetworkSettings_WiFiGuestSSID)
                                    ? GetWiFiGuestProfile()
                                    : getWiFiGuestProfile();
    const char* ssid = tola_field_text(primary->ssid);
    const char* guestSsid = guest != nullptr ? tola_field_text(guest->ssid) : "";
    if (strcmp(ssid, guestSsid) == 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid Wifi SSID(%s) and Guest SSID(%s) should not be same",
                 ssid, guestSsid);
        return trace.Returning(TOLA_REFUSE(151, "WiFi Primary and Guest SSID's should not be same."));
    }
    if (HasNonPrintableChars(ssid)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid WiFiSSID:(%s)", ssid);
        return trace.Returning(
            TOLA_REFUSE(151, "Invalid WiFi Primary SSID. Contains non printable characters."));
    }
    if (primary->wpsEnabled != 0 && primary->broadcastEnabled == 0) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - Invalid Primary WiFi WPS enaled even though Broadcast SSID is disabled.");
        return trace.Returning(TOLA_REFUSE(
            151, "Invalid Primary WiFi WPS enabled. WPS can be enabled when broadcast is enabled."));
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateGuestWifiParametersObj() {
    TOLA_TRACE();
    if (!readWiFiState(*this)) {
        return trace.Returning(151);
    }
    sys_wifi_profile_t* guest = GetWiFiGuestProfile();
    if (guest == nullptr) {
        return trace.Returning(152);
    }
    if (!acceptableKey(*this, *guest)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid WiFi Guest Key");
        return trace.Returning(TOLA_REFUSE(152,
                                           "Invalid WiFi Guest Key value. Either contains non printable "
                                           "characters or length is not matching."));
    }
    // The primary name it will have: the document's when it names one, else the device's.
    sys_wifi_profile_t* primary =
        IsPresent(TolaField::WiFiNetworkSettings_WiFiSSID) ? GetWiFiPrimaryProfile() : getWiFiProfile();
    const char* ssid = tola_field_text(guest->ssid);
    const char* primarySsid = primary != nullptr ? tola_field_text(primary->ssid) : "";
    if (strcmp(ssid, primarySsid) == 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid Wifi SSID(%s) and Guest SSID(%s) should not be same",
                 primarySsid, ssid);
        return trace.Returning(TOLA_REFUSE(152, "WiFi Primary and Guest SSID's should not be same."));
    }
    if (HasNonPrintableChars(ssid)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid Guest WiFiSSID:(%s)", ssid);
        return trace.Returning(
            TOLA_REFUSE(152, "Invalid WiFi Guest SSID. Contains non printable characters."));
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateAdvancedWifiParametersObj() {
    TOLA_TRACE();
    int* band24 = getWiFi24GHzProfileEnabled();
    int* band5 = getWiFi5GHzProfileEnabled();
    if (band24 == nullptr || band5 == nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] -  get 5GHz 802.11 Mode or 2.4GHz Band enabled 0r 5 GHz band enabled wifi "
                 "profile failed");
        return trace.Returning(153);
    }
    // A band given to the guest network is off for the primary network; the primary network
    // needs one band. Each band as the document sets it, else as the device has it.
    sys_wifi_profile_t* asked = GetWiFiPrimaryProfile();
    int network24 = asked != nullptr && IsPresent(TolaField::WiFiAdvancedSettings_WiFi24GHzBand)
                        ? static_cast<int>(asked->band24Network)
                        : *band24;
    int network5 = asked != nullptr && IsPresent(TolaField::WiFiAdvancedSettings_WiFi5GHzBand)
                       ? static_cast<int>(asked->band5Network)
                       : *band5;
    if (network24 == static_cast<int>(SYS_WIFI_BAND_GUEST) &&
        network5 == static_cast<int>(SYS_WIFI_BAND_GUEST)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Both 2.4GHz and 5GHz can not be turn off");
        return trace.Returning(TOLA_REFUSE(153, "Both 2.4GHz and 5GHz can not be turn off"));
    }
    if (IsPresent(TolaField::WiFiAdvancedSettings_WiFiMaxClients)) {
        int* maxClients = GetWiFiMaxClients();
        int value = maxClients != nullptr ? *maxClients : 0;
        if (value < 1 || value > 15) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid WiFiMaxClients:%d", value);
            return trace.Returning(
                TOLA_REFUSE(153, "Invalid WiFi Advanced Settings object max Clients parameter value"));
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateManualDNSSettingsObj() {
    TOLA_TRACE();
    int* enabled = GetManualDNSEnabled();
    sys_manual_dns_t* dns = GetManualDNSSettings();
    if (enabled == nullptr || dns == nullptr) {
        return trace.Returning(156);
    }
    if (*enabled == 0) {
        return trace.Returning(0);
    }
    const char* dns1 = tola_field_text(dns->dns1);
    AnyAddress first = parseAnyAddress(dns1);
    if (first.family == 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Invalid Manual DNS1 IP address:(%s)", dns1);
        return trace.Returning(TOLA_REFUSE(156, "Invalid Manual DNS Seetings object DNS1 IP address value"));
    }
    const char* dns2 = tola_field_text(dns->dns2);
    if (dns2[0] != '\0') {
        AnyAddress second = parseAnyAddress(dns2);
        if (second.family == 0) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Invalid Manual DNS2 IP address:(%s)", dns2);
            return trace.Returning(
                TOLA_REFUSE(156, "Invalid Manual DNS Seetings object DNS2 IP address value"));
        }
        if (second.family == first.family && memcmp(second.bytes, first.bytes, sizeof(first.bytes)) == 0) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] -  Primary and secondary manual DNS IP addresses are same:(%s)", dns2);
            return trace.Returning(
                TOLA_REFUSE(156, "Duplicate Manual DNS Seetings object DNS2 IP address value"));
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateMobileNetworkSettingsObj() {
    TOLA_TRACE();
    char* preference = GetNetworkText(TOLA_NET_CONNECTION_PREFERENCE);
    char* technology = GetNetworkText(TOLA_NET_PREFERRED_TECHNOLOGY);
    char* lteApn = GetNetworkText(TOLA_NET_LTE_APN);
    char* nonVeltraApn = GetNetworkText(TOLA_NET_NON_VELTRA_APN);
    char* hspaApn = GetNetworkText(TOLA_NET_HSPA_APN);
    if (preference == nullptr || technology == nullptr || lteApn == nullptr || nonVeltraApn == nullptr ||
        hspaApn == nullptr) {
        return trace.Returning(161);
    }
    for (char* text : {preference, technology, lteApn, nonVeltraApn, hspaApn}) {
        text[TOLA_SETTINGS_TEXT_SIZE - 1] = '\0';
    }
    if (IsPresent(TolaField::NetworkSettings_ConnectionPreference) &&
        !isOneOf(preference, kConnectionPreferences)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid network settings connection prefence (%s)", preference);
        return trace.Returning(161);
    }
    if (technology[0] != '\0' && !isOneOf(technology, kPreferredTechnologies)) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - Invalid mobile network settings prefered mobile networktechnology(%s)",
                 technology);
        return trace.Returning(161);
    }
    if (strlen(lteApn) > 62) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid mobile networksettings lteapn");
        return trace.Returning(161);
    }
    if (strlen(nonVeltraApn) > 62) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid MobileNetworkSettings->NonVeltraAPN");
        return trace.Returning(161);
    }
    if (strlen(hspaApn) > 62) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid MobileNetworkSettings->HSPAAPN");
        return trace.Returning(161);
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateDevicePrefencesSettingsObj() {
    TOLA_TRACE();
    if (!IsPresent(TolaField::DevicePreferences_LocalIPAddress)) {
        return trace.Returning(0);
    }
    sys_lan_settings_t* local = GetLocalAddress();
    if (local == nullptr) {
        return trace.Returning(155);
    }
    char* address = tola_field_text(local->ipAddress);
    int first = 0;
    int second = 0;
    bool accepted = IsValidIP(address) == 0 && IsNetworkOrBroadcastIp(address) == 0 &&
                    sscanf(address, "%d.%d", &first, &second) == 2 && first == 192 && second == 168;
    if (accepted) {
        deriveLocalDhcpRange(*local);
    } else {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: Invalid Device Preference-> Local IP Address(%s)",
                 __FUNCTION__, address);
        return trace.Returning(TOLA_REFUSE(155, "Invalid Device preference local IP address."));
    }
    return trace.Returning(0);
}
