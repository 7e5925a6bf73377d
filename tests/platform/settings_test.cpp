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

// A value setting: a new value to store (-1: a flag, turned over) and the setter's success; a
// read-only one has no setter.
struct Value {
    const char* name;
    int (*get)(int*);
    int (*set)(int);
    int value, success;
};
#define SYS(X, value) (Value{#X, sys_get##X, sys_set##X, value, 0})
#define FLAG(X) SYS(X, -1)
#define UI(X) (Value{#X, deviceui_get_##X, deviceui_set_##X, -1, DEVICEUI_SUCCESS})
#define READ_ONLY(fn) (Value{#fn, fn, nullptr, 0, 0})

// A table as a call, so that its short rows share lines.
template <typename T, typename... V>
std::vector<T> rows(V... v) {
    return {v...};
}

const std::vector<Value> kValues = rows<Value>(
    FLAG(IPv6Enabled), FLAG(ManualDNSEnabled), FLAG(DMZEnabled), FLAG(IPv6TransparentModeEnabled),
    FLAG(VPNPassthroughEnabled), FLAG(MacFilterWhiteListEnabled), FLAG(GPSPrivacyAgreementAccepted),
    FLAG(NMEAOverWiFiEnabled), FLAG(GPSStartupState), FLAG(WiFiEnabled), FLAG(HWFactoryResetEnabled),
    FLAG(LEDEnabled), FLAG(UIStealthModeEnabled), FLAG(AudioAlertsEnabled), FLAG(PortFilteringEnabled),
    FLAG(PortForwardingEnabled), FLAG(SambaEnabled), FLAG(SambaPrimaryNetworkEnabled),
    FLAG(SambaGuestNetworkEnabled), FLAG(CellularDataEnabled), SYS(NMEAOverWiFiSettings, 10110),
    SYS(WiFiMaxClients, 7), SYS(UniversalChargingSettings, 25),
    SYS(USBTetheringEnabled, SYS_USB_MODE_USB_ONLY),
    SYS(UINotificationSettings, SYS_SOUND_STARTUP | SYS_SOUND_ROAMING),
    SYS(CellularDataConnectionPreference, SYS_DATA_CONNECT_MANUAL),
    SYS(EnabledRadioTechnologies, SYS_RAT_LTE), UI(wifi_display_setting_enabled), UI(display_setting_enabled),
    UI(notification_display_wakeup_setting_enabled), UI(usb_connection_prompt_enabled),
    UI(file_sharing_display_setting_enabled), UI(admin_password_enabled),
    Value{"screen_timeout", deviceui_get_screen_timeout_settings, deviceui_set_screen_timeout_settings, 45000,
          DEVICEUI_SUCCESS},
    READ_ONLY(sys_getCellularServiceStatus), READ_ONLY(sys_getSIMCarrier), READ_ONLY(sys_validateHomeNetwork),
    READ_ONLY(sys_getCellularDataConnectionStatus), READ_ONLY(sys_getWiFiCarrierEnabled),
    READ_ONLY(sys_getWiFiGuestCarrierEnabled), READ_ONLY(sys_getActiveModemProfileIndex));

#define TEXT(T, field) (Text{offsetof(T, field), sizeof(T::field)})
#define RECORD(fn, ...) (record(#fn, fn, {__VA_ARGS__}))

template <typename T>
Getter record(const char* name, int (*get)(T*), std::vector<Text> texts) {
    return Getter{name, sizeof(T), [get](void* p) { return get(static_cast<T*>(p)); }, texts};
}

int activeProfile(sys_modem_profile_t* profile) {
    int index = 0;
    int rc = sys_getActiveModemProfileIndex(&index);
    return rc != 0 ? rc : sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, index, profile);
}

// Every getter: the records with their texts, then the values.
std::vector<Getter> getters() {
    using Hw = sys_hardware_info_t;
    using Sub = sys_subscriber_info_t;
    using Lan = sys_lan_settings_t;
    using Dns = sys_manual_dns_t;
    using WiFi = sys_wifi_profile_t;
    using Profile = sys_modem_profile_t;
    using Login = webui_login_settings_t;
    using Usage = dua_data_usage_info_t;
    const size_t plan = offsetof(Usage, PlanDisplayInfo);
    std::vector<Getter> all = rows<Getter>(
        RECORD(sys_getHardwareInfo, TEXT(Hw, model), TEXT(Hw, macAddress), TEXT(Hw, imei), TEXT(Hw, meid),
               TEXT(Hw, esn)),
        RECORD(sys_getSubscriberInfo, TEXT(Sub, mdn), TEXT(Sub, min), TEXT(Sub, imsi)),
        RECORD(sys_getSystemVersion, TEXT(sys_system_version_t, firmwareVersion)),
        RECORD(sys_getCellularServiceStats),
        RECORD(sys_getGPSFixData),
        RECORD(sys_getNetworkTime),
        RECORD(sys_getLANSettings, TEXT(Lan, ipAddress), TEXT(Lan, subnetMask), TEXT(Lan, dhcpStart),
               TEXT(Lan, dhcpEnd)),
        RECORD(sys_getManualDNSSettings, TEXT(Dns, dns1), TEXT(Dns, dns2)),
        RECORD(sys_getDMZSettings, TEXT(sys_dmz_settings_t, ipAddress)),
        RECORD(sys_getWiFiPrimaryProfile, TEXT(WiFi, ssid), TEXT(WiFi, key)),
        RECORD(sys_getWiFiGuestProfile, TEXT(WiFi, ssid), TEXT(WiFi, key)),
        RECORD(sys_getPowerSaveSettings),
        RECORD(sys_getSambaSettings),
        RECORD(activeProfile, TEXT(Profile, apn), TEXT(Profile, userName), TEXT(Profile, password),
               TEXT(Profile, name)),
        RECORD(deviceui_get_primary_wifi_info_display_settings),
        RECORD(deviceui_get_guest_wifi_info_display_settings),
        RECORD(webui_get_login_settings, TEXT(Login, password), TEXT(Login, question), TEXT(Login, answer)),
        RECORD(webui_get_advanced_settings),
        RECORD(webui_get_log_settings),
        RECORD(webui_get_i18n_settings, TEXT(webui_i18n_settings_t, language)),
        RECORD(dua_get_data_usage_info, TEXT(Usage, usageTimestamp),
               Text{plan + offsetof(dua_plan_display_info_t, planType), DUA_TEXT_SIZE},
               Text{plan + offsetof(dua_plan_display_info_t, prePayIndicator), DUA_TEXT_SIZE}),
        Getter{"webui_get_app_configurations",
               32,
               [](void* p) {
                   return webui_get_app_configurations("set_passcode", "MinimumPasscodeLength",
                                                       static_cast<char*>(p), 32);
               },
               {Text{0, 32}}},
        RECORD(sys_getWatchdogInterval));
    all.push_back(RECORD(sys_getGPSEnabled));
    all.back().results = {0, SYS_GPS_PRIVACY_NOT_ACCEPTED};
    for (const Value& v : kValues) {
        all.push_back(record(v.name, v.get, {}));
    }
    return all;
}

// Gets a record, changes it, stores it and reads it back whole.
template <typename T, typename Change>
void roundTrip(const char* name, int success, int (*get)(T*), int (*set)(const T*), Change change) {
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

using GetterTest = DeviceTest;

}  // namespace

// Each getter succeeds on a factory device, writes inside its record only, and leaves every text
// NUL-terminated inside its field even when the record held no terminator before; given no record,
// it fails rather than writing through a null pointer.
TEST_F(GetterTest, EveryGetterSucceedsWritesInsideItsRecordAndTerminatesItsTexts) {
    constexpr size_t kGuard = 64;
    for (const Getter& g : getters()) {
        SCOPED_TRACE(g.name);
        EXPECT_NE(g.call(nullptr), 0);
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
    for (const std::vector<std::string>& c : tola_test::readCases("platform_dhcp_end.tsv", 4)) {
        char end[SYS_IP_TEXT_SIZE] = "unchanged";
        int rc = GetDhcpEndAddress(c[0].c_str(), c[1].c_str(), std::stoi(c[2]), end, sizeof end);
        EXPECT_EQ(rc == 0 ? std::string(end) : "refused", c[3]) << c[0] << " +" << c[2];
    }
}

// What a setter stores, value or record, its getter gives back; a setter's success is its family's.
TEST_F(GetterTest, SettersStoreWhatTheGettersGiveBack) {
    for (const Value& v : kValues) {
        if (v.set == nullptr) {
            continue;
        }
        SCOPED_TRACE(v.name);
        int before = -1;
        ASSERT_EQ(v.get(&before), 0);
        int wanted = v.value == -1 ? !before : v.value;
        int rc = v.set(wanted);
        EXPECT_TRUE(rc == v.success || (v.success == 0 && rc == 1)) << "result " << rc;
        int after = -1;
        ASSERT_EQ(v.get(&after), 0);
        EXPECT_EQ(after, wanted);
    }
    roundTrip("LAN", 0, sys_getLANSettings, sys_setLANSettings, [](sys_lan_settings_t& r) {
        put(r.ipAddress, "192.168.8.1");
        put(r.dhcpStart, "192.168.8.20");
        put(r.dhcpEnd, "192.168.8.60");
        r.dhcpLeaseTime = 1440;
        r.dhcpAddressCount = 41;
    });
    roundTrip("DNS", 0, sys_getManualDNSSettings, sys_setManualDNSSettings,
              [](sys_manual_dns_t& r) { put(r.dns2, "2001:db8::53"); });
    roundTrip("DMZ", 0, sys_getDMZSettings, sys_setDMZSettings,
              [](sys_dmz_settings_t& r) { put(r.ipAddress, "192.168.1.77"); });
    roundTrip("WiFi", 0, sys_getWiFiPrimaryProfile, sys_setWiFiPrimaryProfile, [](sys_wifi_profile_t& r) {
        put(r.ssid, std::string(32, 'S').c_str());  // the longest name
        put(r.key, "a key of 19 letters");
        r.channel24 = 11;
    });
    roundTrip("Guest", 0, sys_getWiFiGuestProfile, sys_setWiFiGuestProfile,
              [](sys_wifi_profile_t& r) { put(r.ssid, "guests"); });
    roundTrip("Power", 0, sys_getPowerSaveSettings, sys_setPowerSaveSettings,
              [](sys_power_save_settings_t& r) { r.sleepTime = 600; });
    roundTrip("Samba", 0, sys_getSambaSettings, sys_setSambaSettings, [](sys_samba_settings_t& r) {
        r.accessType = r.accessType == SYS_SAMBA_READ_ONLY ? SYS_SAMBA_READ_WRITE : SYS_SAMBA_READ_ONLY;
    });
    roundTrip("Profile", 0, activeProfile, setActiveProfile, [](sys_modem_profile_t& r) {
        put(r.apn, std::string(100, 'a').c_str());
        r.authType = SYS_MODEM_AUTH_CHAP;
    });
    roundTrip("Display", DEVICEUI_SUCCESS, deviceui_get_primary_wifi_info_display_settings,
              deviceui_set_primary_wifi_info_display_settings,
              [](deviceui_wifi_info_display_t& r) { r.passwordOnDisplay ^= 1; });
    roundTrip("Login", WEBUI_SUCCESS, webui_get_login_settings, webui_set_login_settings,
              [](webui_login_settings_t& r) { put(r.password, "n3w-Passw0rd"); });
    roundTrip("Log", WEBUI_SUCCESS, webui_get_log_settings, webui_set_log_settings,
              [](webui_log_settings_t& r) { r.durationDays = 3; });
    roundTrip("I18n", WEBUI_SUCCESS, webui_get_i18n_settings, webui_set_i18n_settings,
              [](webui_i18n_settings_t& r) { put(r.language, "es_MX"); });
}
