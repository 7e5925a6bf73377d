// Getters and setters: results, bounds of what they write, and what a setter stores.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "conformance.h"
#include "deviceui.h"
#include "dua.h"
#include "sys_interface.h"
#include "watchdog.h"
#include "webui.h"

namespace {

struct Text {
    size_t offset, size;
};

struct Getter {
    const char* name;
    size_t size;
    std::function<int(void*)> call;
    std::vector<Text> texts;
    std::vector<int> results = {0};
};

#define TEXT(T, field)                       \
    Text {                                   \
        offsetof(T, field), sizeof(T::field) \
    }
#define RECORD(fn, T, ...)                                                \
    Getter {                                                              \
#fn, sizeof(T), [](void* p) { return fn(static_cast<T*>(p)); }, { \
            __VA_ARGS__                                                   \
        }                                                                 \
    }
#define VALUE(fn)                                                              \
    Getter {                                                                   \
#fn, sizeof(int), [](void* p) { return fn(static_cast<int*>(p)); }, {} \
    }

int activeProfile(sys_modem_profile_t* profile) {
    int index = 0;
    int rc = sys_getActiveModemProfileIndex(&index);
    return rc != 0 ? rc : sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, index, profile);
}

std::vector<Getter> getters() {
    using data_usage = dua_data_usage_info_t;
    using plan = dua_plan_display_info_t;
    Getter gps = VALUE(sys_getGPSEnabled);
    gps.results = {0, SYS_GPS_PRIVACY_NOT_ACCEPTED};
    return {
        RECORD(sys_getHardwareInfo, sys_hardware_info_t, TEXT(sys_hardware_info_t, model),
               TEXT(sys_hardware_info_t, macAddress), TEXT(sys_hardware_info_t, imei),
               TEXT(sys_hardware_info_t, meid), TEXT(sys_hardware_info_t, esn)),
        RECORD(sys_getSubscriberInfo, sys_subscriber_info_t, TEXT(sys_subscriber_info_t, mdn),
               TEXT(sys_subscriber_info_t, min), TEXT(sys_subscriber_info_t, imsi)),
        RECORD(sys_getSystemVersion, sys_system_version_t, TEXT(sys_system_version_t, firmwareVersion)),
        RECORD(sys_getCellularServiceStats, sys_cellular_service_stats_t),
        RECORD(sys_getGPSFixData, sys_gps_fix_data_t),
        RECORD(sys_getNetworkTime, time_t),
        RECORD(sys_getLANSettings, sys_lan_settings_t, TEXT(sys_lan_settings_t, ipAddress),
               TEXT(sys_lan_settings_t, subnetMask), TEXT(sys_lan_settings_t, dhcpStart),
               TEXT(sys_lan_settings_t, dhcpEnd)),
        RECORD(sys_getManualDNSSettings, sys_manual_dns_t, TEXT(sys_manual_dns_t, dns1),
               TEXT(sys_manual_dns_t, dns2)),
        RECORD(sys_getDMZSettings, sys_dmz_settings_t, TEXT(sys_dmz_settings_t, ipAddress)),
        RECORD(sys_getWiFiPrimaryProfile, sys_wifi_profile_t, TEXT(sys_wifi_profile_t, ssid),
               TEXT(sys_wifi_profile_t, key)),
        RECORD(sys_getWiFiGuestProfile, sys_wifi_profile_t, TEXT(sys_wifi_profile_t, ssid),
               TEXT(sys_wifi_profile_t, key)),
        RECORD(sys_getPowerSaveSettings, sys_power_save_settings_t),
        RECORD(sys_getSambaSettings, sys_samba_settings_t),
        RECORD(activeProfile, sys_modem_profile_t, TEXT(sys_modem_profile_t, apn),
               TEXT(sys_modem_profile_t, userName), TEXT(sys_modem_profile_t, password),
               TEXT(sys_modem_profile_t, name)),
        RECORD(deviceui_get_primary_wifi_info_display_settings, deviceui_wifi_info_display_t),
        RECORD(deviceui_get_guest_wifi_info_display_settings, deviceui_wifi_info_display_t),
        RECORD(webui_get_login_settings, webui_login_settings_t, TEXT(webui_login_settings_t, password),
               TEXT(webui_login_settings_t, question), TEXT(webui_login_settings_t, answer)),
        RECORD(webui_get_advanced_settings, webui_advanced_settings_t),
        RECORD(webui_get_log_settings, webui_log_settings_t),
        RECORD(webui_get_i18n_settings, webui_i18n_settings_t, TEXT(webui_i18n_settings_t, language)),
        RECORD(dua_get_data_usage_info, data_usage, TEXT(data_usage, usageTimestamp),
               Text{offsetof(data_usage, PlanDisplayInfo) + offsetof(plan, planType), DUA_TEXT_SIZE},
               Text{offsetof(data_usage, PlanDisplayInfo) + offsetof(plan, prePayIndicator), DUA_TEXT_SIZE}),
        Getter{"webui_get_app_configurations",
               32,
               [](void* p) {
                   return webui_get_app_configurations("set_passcode", "MinimumPasscodeLength",
                                                       static_cast<char*>(p), 32);
               },
               {Text{0, 32}}},
        Getter{"sys_getWatchdogInterval",
               sizeof(unsigned),
               [](void* p) { return sys_getWatchdogInterval(static_cast<unsigned*>(p)); },
               {}},
        gps,
        VALUE(sys_getCellularServiceStatus),
        VALUE(sys_getSIMCarrier),
        VALUE(sys_validateHomeNetwork),
        VALUE(sys_getCellularDataConnectionStatus),
        VALUE(sys_getIPv6Enabled),
        VALUE(sys_getManualDNSEnabled),
        VALUE(sys_getDMZEnabled),
        VALUE(sys_getIPv6TransparentModeEnabled),
        VALUE(sys_getVPNPassthroughEnabled),
        VALUE(sys_getMacFilterWhiteListEnabled),
        VALUE(sys_getGPSPrivacyAgreementAccepted),
        VALUE(sys_getNMEAOverWiFiEnabled),
        VALUE(sys_getGPSStartupState),
        VALUE(sys_getNMEAOverWiFiSettings),
        VALUE(sys_getWiFiEnabled),
        VALUE(sys_getWiFiMaxClients),
        VALUE(sys_getWiFiCarrierEnabled),
        VALUE(sys_getWiFiGuestCarrierEnabled),
        VALUE(sys_getHWFactoryResetEnabled),
        VALUE(sys_getUniversalChargingSettings),
        VALUE(sys_getLEDEnabled),
        VALUE(sys_getUIStealthModeEnabled),
        VALUE(sys_getUSBTetheringEnabled),
        VALUE(sys_getUINotificationSettings),
        VALUE(sys_getAudioAlertsEnabled),
        VALUE(sys_getPortFilteringEnabled),
        VALUE(sys_getPortForwardingEnabled),
        VALUE(sys_getSambaEnabled),
        VALUE(sys_getSambaPrimaryNetworkEnabled),
        VALUE(sys_getSambaGuestNetworkEnabled),
        VALUE(sys_getCellularDataEnabled),
        VALUE(sys_getCellularDataConnectionPreference),
        VALUE(sys_getEnabledRadioTechnologies),
        VALUE(sys_getActiveModemProfileIndex),
        VALUE(deviceui_get_wifi_display_setting_enabled),
        VALUE(deviceui_get_display_setting_enabled),
        VALUE(deviceui_get_screen_timeout_settings),
        VALUE(deviceui_get_notification_display_wakeup_setting_enabled),
        VALUE(deviceui_get_usb_connection_prompt_enabled),
        VALUE(deviceui_get_file_sharing_display_setting_enabled),
        VALUE(deviceui_get_admin_password_enabled),
    };
}

using GetterTest = DeviceTest;

}  // namespace

// Each getter succeeds on a factory device, writes inside its record only, and leaves every text
// NUL-terminated inside its field even when the record held no terminator before.
TEST_F(GetterTest, EveryGetterSucceedsWritesInsideItsRecordAndTerminatesItsTexts) {
    constexpr size_t kGuard = 64;
    for (const Getter& g : getters()) {
        SCOPED_TRACE(g.name);
        alignas(16) unsigned char buffer[1024 + kGuard];
        ASSERT_LE(g.size + kGuard, sizeof buffer);
        std::memset(buffer, 0xa5, sizeof buffer);
        int rc = g.call(buffer);
        EXPECT_NE(std::find(g.results.begin(), g.results.end(), rc), g.results.end()) << "result " << rc;
        for (size_t i = g.size; i < g.size + kGuard; ++i) {
            ASSERT_EQ(buffer[i], 0xa5) << "byte " << i - g.size << " past the record was written";
        }
        for (const Text& t : g.texts) {
            EXPECT_NE(std::memchr(buffer + t.offset, '\0', t.size), nullptr) << "text at " << t.offset;
        }
    }
}

TEST_F(GetterTest, IdentityMatchesTheDevice) {
    sys_hardware_info_t hw;
    ASSERT_EQ(sys_getHardwareInfo(&hw), 0);
    EXPECT_EQ(std::string(hw.imei), backend::imei());
    int carrier = -1;
    ASSERT_EQ(sys_getSIMCarrier(&carrier), 0);
    EXPECT_TRUE(carrier == SYS_SIM_CARRIER_UNKNOWN || carrier == SYS_SIM_CARRIER_VELTRA) << carrier;
    time_t now = 0;
    ASSERT_EQ(sys_getNetworkTime(&now), 0);
    EXPECT_GT(now, 0);
}

TEST_F(GetterTest, KnownDevicesAreCopiedUpToTheCapacityAndForgottenByAnySpellingOfTheirAddress) {
    sys_known_device_t all[SYS_KNOWN_DEVICES_MAX];
    int count = -1;
    ASSERT_EQ(sys_getAllDevicesList(all, SYS_KNOWN_DEVICES_MAX, &count), 0);
    ASSERT_GE(count, 0);
    if (count == 0) {
        GTEST_SKIP() << "the device knows no devices";
    }
    sys_known_device_t one[2];
    std::memset(one, 0xa5, sizeof one);
    int copied = -1;
    ASSERT_EQ(sys_getAllDevicesList(one, 1, &copied), 0);
    EXPECT_EQ(copied, 1);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&one[1])[0], 0xa5);
    EXPECT_NE(std::memchr(one[0].hostName, '\0', sizeof one[0].hostName), nullptr);

    std::string mac = all[0].macAddress;
    for (char& c : mac) {
        c = c == ':' ? '-' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    EXPECT_EQ(sys_deleteKnownDevice(mac.c_str()), 0) << mac;
    EXPECT_NE(sys_deleteKnownDevice(all[0].macAddress), 0);
    int left = -1;
    ASSERT_EQ(sys_getAllDevicesList(all, SYS_KNOWN_DEVICES_MAX, &left), 0);
    EXPECT_EQ(left, count - 1);
}

TEST_F(GetterTest, DhcpEndAddressStaysInsideTheNetwork) {
    struct Case {
        const char *start, *mask;
        int count;
        const char* end;  // nullptr: refused
    } cases[] = {
        {"192.168.1.100", "255.255.255.0", 50, "192.168.1.149"},
        {"192.168.1.100", "255.255.255.0", 1, "192.168.1.100"},
        {"192.168.1.100", "255.255.255.0", 156, "192.168.1.255"},
        {"192.168.1.100", "255.255.255.0", 157, nullptr},
        {"10.0.0.1", "255.255.0.0", 300, "10.0.1.44"},
        {"192.168.1.100", "255.255.255.0", 0, nullptr},
        {"192.168.1.300", "255.255.255.0", 5, nullptr},
    };
    for (const Case& c : cases) {
        char end[SYS_IP_TEXT_SIZE] = "unchanged";
        int rc = GetDhcpEndAddress(c.start, c.mask, c.count, end, sizeof end);
        EXPECT_EQ(rc == 0, c.end != nullptr) << c.start << " +" << c.count;
        if (c.end != nullptr) {
            EXPECT_STREQ(end, c.end);
        }
    }
}

namespace {

// One value setting: the setter's success results, and a new value to store.
struct Setting {
    const char* name;
    int (*get)(int*);
    int (*set)(int);
    int value;
    int success = 0;
};

}  // namespace

// What a setter stores, its getter gives back; a setter's success is its family's.
TEST_F(GetterTest, SettersStoreWhatTheGettersGiveBack) {
    const Setting settings[] = {
        {"IPv6", sys_getIPv6Enabled, sys_setIPv6Enabled, -1},
        {"ManualDNS", sys_getManualDNSEnabled, sys_setManualDNSEnabled, -1},
        {"DMZ", sys_getDMZEnabled, sys_setDMZEnabled, -1},
        {"IPv6Transparent", sys_getIPv6TransparentModeEnabled, sys_setIPv6TransparentModeEnabled, -1},
        {"VPNPassthrough", sys_getVPNPassthroughEnabled, sys_setVPNPassthroughEnabled, -1},
        {"MacWhiteList", sys_getMacFilterWhiteListEnabled, sys_setMacFilterWhiteListEnabled, -1},
        {"GPSPrivacy", sys_getGPSPrivacyAgreementAccepted, sys_setGPSPrivacyAgreementAccepted, -1},
        {"NMEA", sys_getNMEAOverWiFiEnabled, sys_setNMEAOverWiFiEnabled, -1},
        {"GPSStartup", sys_getGPSStartupState, sys_setGPSStartupState, -1},
        {"NMEAPort", sys_getNMEAOverWiFiSettings, sys_setNMEAOverWiFiSettings, 10110},
        {"WiFi", sys_getWiFiEnabled, sys_setWiFiEnabled, -1},
        {"WiFiMaxClients", sys_getWiFiMaxClients, sys_setWiFiMaxClients, 7},
        {"HWFactoryReset", sys_getHWFactoryResetEnabled, sys_setHWFactoryResetEnabled, -1},
        {"UniversalCharging", sys_getUniversalChargingSettings, sys_setUniversalChargingSettings, 25},
        {"LED", sys_getLEDEnabled, sys_setLEDEnabled, -1},
        {"Stealth", sys_getUIStealthModeEnabled, sys_setUIStealthModeEnabled, -1},
        {"USB", sys_getUSBTetheringEnabled, sys_setUSBTetheringEnabled, SYS_USB_MODE_USB_ONLY},
        {"Sounds", sys_getUINotificationSettings, sys_setUINotificationSettings,
         SYS_SOUND_STARTUP | SYS_SOUND_ROAMING},
        {"AudioAlerts", sys_getAudioAlertsEnabled, sys_setAudioAlertsEnabled, -1},
        {"PortFiltering", sys_getPortFilteringEnabled, sys_setPortFilteringEnabled, -1},
        {"PortForwarding", sys_getPortForwardingEnabled, sys_setPortForwardingEnabled, -1},
        {"Samba", sys_getSambaEnabled, sys_setSambaEnabled, -1},
        {"SambaPrimary", sys_getSambaPrimaryNetworkEnabled, sys_setSambaPrimaryNetworkEnabled, -1},
        {"SambaGuest", sys_getSambaGuestNetworkEnabled, sys_setSambaGuestNetworkEnabled, -1},
        {"CellularData", sys_getCellularDataEnabled, sys_setCellularDataEnabled, -1},
        {"ConnectionPreference", sys_getCellularDataConnectionPreference,
         sys_setCellularDataConnectionPreference, SYS_DATA_CONNECT_MANUAL},
        {"RadioTechnologies", sys_getEnabledRadioTechnologies, sys_setEnabledRadioTechnologies, SYS_RAT_LTE},
        {"UiWiFi", deviceui_get_wifi_display_setting_enabled, deviceui_set_wifi_display_setting_enabled, -1,
         DEVICEUI_SUCCESS},
        {"UiDisplay", deviceui_get_display_setting_enabled, deviceui_set_display_setting_enabled, -1,
         DEVICEUI_SUCCESS},
        {"UiTimeout", deviceui_get_screen_timeout_settings, deviceui_set_screen_timeout_settings, 45000,
         DEVICEUI_SUCCESS},
        {"UiWakeup", deviceui_get_notification_display_wakeup_setting_enabled,
         deviceui_set_notification_display_wakeup_setting_enabled, -1, DEVICEUI_SUCCESS},
        {"UiUsbPrompt", deviceui_get_usb_connection_prompt_enabled,
         deviceui_set_usb_connection_prompt_enabled, -1, DEVICEUI_SUCCESS},
        {"UiSharing", deviceui_get_file_sharing_display_setting_enabled,
         deviceui_set_file_sharing_display_setting_enabled, -1, DEVICEUI_SUCCESS},
        {"UiAdminPassword", deviceui_get_admin_password_enabled, deviceui_set_admin_password_enabled, -1,
         DEVICEUI_SUCCESS},
    };
    for (const Setting& s : settings) {
        SCOPED_TRACE(s.name);
        int before = -1;
        ASSERT_EQ(s.get(&before), 0);
        int wanted = s.value == -1 ? !before : s.value;  // -1: a flag, turned over
        int rc = s.set(wanted);
        EXPECT_TRUE(rc == s.success || (s.success == 0 && rc == 1)) << "result " << rc;
        int after = -1;
        ASSERT_EQ(s.get(&after), 0);
        EXPECT_EQ(after, wanted);
    }
}

namespace {

// Gets a record, changes it, stores it and reads it back whole.
template <typename T>
void roundTrip(const char* name, int (*get)(T*), int (*set)(const T*), int success,
               const std::function<void(T&)>& change) {
    SCOPED_TRACE(name);
    T record;
    std::memset(&record, 0, sizeof record);
    ASSERT_EQ(get(&record), 0);
    change(record);
    int rc = set(&record);
    EXPECT_TRUE(rc == success || (success == 0 && rc == 1)) << "result " << rc;
    T back;
    std::memset(&back, 0xa5, sizeof back);
    ASSERT_EQ(get(&back), 0);
    EXPECT_EQ(std::memcmp(&back, &record, sizeof record), 0);
}

template <size_t N>
void put(char (&field)[N], const char* text) {
    std::snprintf(field, N, "%s", text);
}

int setActiveProfile(const sys_modem_profile_t* profile) {
    int index = 0;
    return sys_getActiveModemProfileIndex(&index) != 0
               ? 2
               : sys_setModemProfile(SYS_MODEM_PROFILE_3GPP, index, profile);
}

}  // namespace

TEST_F(GetterTest, RecordSettersStoreWhatTheGettersGiveBack) {
    roundTrip<sys_lan_settings_t>("LAN", sys_getLANSettings, sys_setLANSettings, 0,
                                  [](sys_lan_settings_t& r) {
                                      put(r.ipAddress, "192.168.8.1");
                                      put(r.dhcpStart, "192.168.8.20");
                                      put(r.dhcpEnd, "192.168.8.60");
                                      r.dhcpLeaseTime = 1440;
                                      r.dhcpAddressCount = 41;
                                  });
    roundTrip<sys_manual_dns_t>("DNS", sys_getManualDNSSettings, sys_setManualDNSSettings, 0,
                                [](sys_manual_dns_t& r) { put(r.dns2, "2001:db8::53"); });
    roundTrip<sys_dmz_settings_t>("DMZ", sys_getDMZSettings, sys_setDMZSettings, 0,
                                  [](sys_dmz_settings_t& r) { put(r.ipAddress, "192.168.1.77"); });
    roundTrip<sys_wifi_profile_t>("WiFi", sys_getWiFiPrimaryProfile, sys_setWiFiPrimaryProfile, 0,
                                  [](sys_wifi_profile_t& r) {
                                      put(r.ssid, std::string(32, 'S').c_str());  // the longest name
                                      put(r.key, "a key of 19 letters");
                                      r.channel24 = 11;
                                  });
    roundTrip<sys_wifi_profile_t>("Guest", sys_getWiFiGuestProfile, sys_setWiFiGuestProfile, 0,
                                  [](sys_wifi_profile_t& r) { put(r.ssid, "guests"); });
    roundTrip<sys_power_save_settings_t>("Power", sys_getPowerSaveSettings, sys_setPowerSaveSettings, 0,
                                         [](sys_power_save_settings_t& r) { r.sleepTime = 600; });
    roundTrip<sys_samba_settings_t>(
        "Samba", sys_getSambaSettings, sys_setSambaSettings, 0, [](sys_samba_settings_t& r) {
            r.accessType = r.accessType == SYS_SAMBA_READ_ONLY ? SYS_SAMBA_READ_WRITE : SYS_SAMBA_READ_ONLY;
        });
    roundTrip<sys_modem_profile_t>("Profile", activeProfile, setActiveProfile, 0, [](sys_modem_profile_t& r) {
        put(r.apn, std::string(100, 'a').c_str());
        r.authType = SYS_MODEM_AUTH_CHAP;
    });
    roundTrip<deviceui_wifi_info_display_t>(
        "Display", deviceui_get_primary_wifi_info_display_settings,
        deviceui_set_primary_wifi_info_display_settings, DEVICEUI_SUCCESS,
        [](deviceui_wifi_info_display_t& r) { r.passwordOnDisplay ^= 1; });
    roundTrip<webui_login_settings_t>("Login", webui_get_login_settings, webui_set_login_settings,
                                      WEBUI_SUCCESS,
                                      [](webui_login_settings_t& r) { put(r.password, "n3w-Passw0rd"); });
    roundTrip<webui_log_settings_t>("Log", webui_get_log_settings, webui_set_log_settings, WEBUI_SUCCESS,
                                    [](webui_log_settings_t& r) { r.durationDays = 3; });
    roundTrip<webui_i18n_settings_t>("I18n", webui_get_i18n_settings, webui_set_i18n_settings, WEBUI_SUCCESS,
                                     [](webui_i18n_settings_t& r) { put(r.language, "es_MX"); });
}

// A getter given no record fails rather than writing through a null pointer.
TEST_F(GetterTest, GettersRefuseANullRecord) {
    for (const Getter& g : getters()) {
        EXPECT_NE(g.call(nullptr), 0) << g.name;
    }
}
