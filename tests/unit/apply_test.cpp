// Applying an accepted document: the publication before any setter, the fixed order of the
// setters, leniency towards failing setters, modem profiles, and what a refused document leaves
// alone. Everything is read from the simulated device's journal (calls.jsonl).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "device_state.h"
#include "msgbus_handler.h"
#include "private_bus.h"
#include "test_env.h"
#include "tola_agent.h"
#include "vorn_dbg.h"

using ardo::json;

namespace {

// Every group the apply steps know, with values that every validator accepts on the factory
// device (LAN unchanged, addresses inside it, sharing off on the device).
const char* const kWideDocument = R"([{
  "WiFiNetworkSettings": {"WiFiSSID": "Fleet-Primary", "WiFiKey": "supersecret1", "WiFiNameOnDisplay": false},
  "WiFiAdvancedSettings": {"WiFiMaxClients": 10},
  "ManualDNSSettings": {"ManualDNSEnabled": true, "ManualDNSAddress1": "8.8.8.8", "ManualDNSAddress2": "1.1.1.1"},
  "GPSSettings": {"GPSEnabled": true, "GPSNMEAOverWiFiEnabled": true, "GPSNMEAOverWiFiPortNumber": 11000,
                  "GPSTurnOff": "Always on"},
  "FirewallSettings": {"VPNPassthroughEnabled": false, "IPv6TransparentModeEnabled": true},
  "MACFilterSettings": {"MACFilterEnabled": false},
  "LANSettings": {"RouterIPv4Address": "192.168.1.1", "RouterSubnetMask": "255.255.255.0", "DHCPEnabled": true,
                  "DHCPAddressRangeStart": "192.168.1.100", "DHCPLeaseTime": 720, "IPv6Enabled": false},
  "LogsSettings": {"LogsEnabled": false, "LogsDeletion": "After 3 days"},
  "BlockedDevices": [{"DeviceMacAddress": "AA:BB:CC:DD:EE:01"}],
  "AdminPasswordSettings": {"AdminPassword": "NewAdmin99", "AdminPasswordOnDisplay": true,
                            "AdminPasswordSecurityQuestion": "What is your mother's maiden name?",
                            "AdminPasswordSecurityAnswer": "Smith", "AdminPasswordOnGPS": true},
  "DevicePreferences": {"LEDEnabled": false, "StealthModeEnabled": true, "WakeupDisplayOnNotificationEnabled": false,
                        "AllowHardwareReset": false, "AllowPreferencesChangeOnDisplay": true,
                        "LocalIPAddress": "192.168.1.1", "UCAutoOffThreshold": "50%",
                        "DisplayTimeout": "After 5 minutes", "SleepTime": "After 30 minutes",
                        "ShutdownTime": "After 7 hours",
                        "USBModePreferences": {"USBModePrompt": false, "USBMode": "Internet access via USB only"},
                        "AudioPreferences": {"AudioEnabled": true, "AudioRoaming": false},
                        "DisplaySettings": {"DisplayLanguage": "Spanish"}},
  "NetworkSettings": {"CellularDataEnabled": true, "ConnectionPreference": "Auto-connect if not roaming",
                      "LTEAPN": "lte.fleet", "NonVeltraAPN": "other.fleet"},
  "PortFilteringSettings": {"PortFilteringEnabled": true, "PortFilteringHTTP": true},
  "PortForwardingSettings": {"PortForwardingEnabled": false, "PortForwardingDNS": true,
                             "PortForwardingDNSIpAddress": "192.168.1.9"},
  "VornSharingSettings": {"VornSharingEnabled": true, "VornSharingWifiNetworkAccess": true,
                          "VornSharingName": "fleetshare", "VornSharingAccessType": "Read-only"}
}, {"AccessControlSettings": {"WiFiSSID": {"Lock": true, "Hide": false}}}])";

class ApplyTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vorn_dbg_stop();
        vorn_dbg_start();
        agent = std::make_unique<TOLAAgent>();
        ASSERT_EQ(agent->Initialize(), 0);
        root.remove("/var/lib/ardo/calls.jsonl");
    }
    void TearDown() override {
        agent.reset();
        vorn_dbg_stop();
    }

    int Apply(const std::string& document) {
        std::string message;
        int rc = agent->ProcessResponse(document, message);
        lastMessage = message;
        return rc;
    }

    std::vector<json> Journal() const {
        std::vector<json> lines;
        std::istringstream in(root.readFile("/var/lib/ardo/calls.jsonl"));
        for (std::string line; std::getline(in, line);) {
            lines.push_back(json::parse(line));
        }
        return lines;
    }
    std::vector<std::string> Calls() const {
        std::vector<std::string> names;
        for (const json& line : Journal()) {
            names.push_back(line["call"].get<std::string>());
        }
        return names;
    }
    size_t CountOf(const std::string& call) const {
        size_t n = 0;
        for (const std::string& name : Calls()) {
            n += name == call ? 1 : 0;
        }
        return n;
    }
    std::string Log() const { return root.readFile("/var/log/tola.log"); }
    json Setting(const std::string& pointer) const {
        return ardo::deviceStateRead().at(json::json_pointer(pointer));
    }

    tola_test::TempRoot root;
    tola_test::PrivateBus bus;
    std::unique_ptr<TOLAAgent> agent;
    std::string lastMessage;
};

TEST_F(ApplyTest, PublicationFirstThenTheSettersInTheirFixedOrder) {
    ASSERT_EQ(Apply(kWideDocument), 0);
    EXPECT_EQ(lastMessage, "");
    const std::vector<std::string> expected = {
        "MsgbusHandler::PublishData",
        // Wi-Fi
        "sys_setWiFiEnabled", "sys_setWiFiPrimaryProfileForRadio", "sys_setWiFiPrimaryProfileForRadio",
        "sys_setWiFiGuestProfileForRadio", "sys_setWiFiGuestProfileForRadio", "sys_setWiFiMaxClients",
        "deviceui_set_wifi_display_setting_enabled", "deviceui_set_primary_wifi_info_display_settings",
        "deviceui_set_guest_wifi_info_display_settings",
        // DNS, maximum clients, GPS, firewall, MAC filter, LAN, logs, MAC list
        "sys_setManualDNSSettings", "sys_setManualDNSEnabled", "sys_setWiFiMaxClients",
        "sys_setGPSPrivacyAgreementAccepted", "sys_setGPSEnabled", "sys_setGPSPrivacyAgreementAccepted",
        "sys_setNMEAOverWiFiEnabled", "sys_setGPSStartupState", "sys_setNMEAOverWiFiSettings",
        "sys_setIPv6TransparentModeEnabled", "sys_setVPNPassthroughEnabled",
        "sys_setMacFilterWhiteListEnabled", "sys_setLANSettings", "sys_setIPv6Enabled",
        "webui_set_log_settings", "sys_setMacFilterList",
        // admin password, device preferences
        "webui_set_login_settings", "webui_set_advanced_settings", "deviceui_set_admin_password_enabled",
        "sys_setHWFactoryResetEnabled", "deviceui_set_screen_timeout_settings", "sys_setDeepSleepEnabled",
        "sys_setAutoShutdownEnabled", "sys_setPowerSaveSettings", "sys_setAutoShutdownEnabled",
        "sys_setPowerSaveSettings", "sys_setLEDEnabled", "sys_setUIStealthModeEnabled",
        "deviceui_set_notification_display_wakeup_setting_enabled", "sys_setLANSettings",
        "deviceui_set_display_setting_enabled", "sys_setUniversalChargingSettings",
        "sys_setUSBTetheringEnabled", "sys_enableWifiWhileTethered",
        "deviceui_set_usb_connection_prompt_enabled", "sys_setUINotificationSettings",
        "sys_setAudioAlertsEnabled", "webui_set_i18n_settings",
        // routing, mobile network, modem profiles, reservations, sharing
        "sys_setPortFilteringEnabled", "sys_setPortFilteringApplicationList", "sys_setPortForwardingEnabled",
        "sys_setPortForwardingApplicationList", "sys_setCellularDataEnabled",
        "sys_setCellularDataConnectionPreference", "sys_setModemProfile", "sys_setModemProfile",
        "sys_setModemProfile", "sys_setModemProfile", "sys_setModemProfile", "sys_setSambaEnabled",
        "sys_setSambaSettings", "sys_setSambaPrimaryNetworkEnabled", "sys_setSambaHostname"};
    EXPECT_EQ(Calls(), expected);
    json first = Journal().front();
    EXPECT_EQ(first["args"], (json{{"channel", "ardo.tola.acl"}, {"value", 1}}));
    EXPECT_EQ(first["result"], 0);
    // What the device now holds.
    EXPECT_EQ(Setting("/settings/wifiPrimaryProfile/ssid"), "Fleet-Primary");
    EXPECT_EQ(Setting("/settings/cellularDataConnectionPreference"), SYS_DATA_CONNECT_AUTO_NOT_ROAMING);
    EXPECT_EQ(Setting("/settings/powerSave"),
              (json{{"sleepTime", 1800}, {"shutdownTime", 7 * 3600}, {"autoShutdownEnabled", 1}}));
    EXPECT_EQ(Setting("/gps/enabled"), 1);
    EXPECT_EQ(Setting("/settings/gpsPrivacyAgreementAccepted"), 1);
    EXPECT_NE(root.readFile("/opt/ardo/data/tola/acl_config.xml").find("WiFiSSID"), std::string::npos);
}

// Another process of the device, listening on "ardo.tola.acl".
class AclListener : public MsgbusCallbackInterface {
  public:
    void OnChannelNotify(const std::string& channel, const int& value) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mValues.push_back(channel + "=" + std::to_string(value));
        mChanged.notify_all();
    }
    void OnChannelNotify(const std::string&, const std::string&) override {}
    void OnChannelNotify(const std::string&, void*, int) override {}
    // What arrived within the time (at least one notification when expected).
    std::vector<std::string> Values(bool expectOne) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, std::chrono::milliseconds(expectOne ? 5000 : 300),
                          [this] { return !mValues.empty(); });
        return mValues;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<std::string> mValues;
};

TEST_F(ApplyTest, OtherProcessesHearOfAnAcceptedDocumentOnly) {
    AclListener listener;
    MsgbusHandler subscriber(&listener);
    ASSERT_EQ(subscriber.Initialize(), 0);
    ASSERT_EQ(subscriber.RegisterForChannelSubscription(TOLA_CHANNEL_ACL, true), 0);
    EXPECT_NE(Apply(R"([{"LANSettings": {"DHCPLeaseTime": "long"}}])"), 0);
    EXPECT_EQ(listener.Values(false), std::vector<std::string>());
    EXPECT_EQ(Apply(R"([{"DevicePreferences": {"LEDEnabled": false}}])"), 0);
    EXPECT_EQ(listener.Values(true), std::vector<std::string>{"ardo.tola.acl=1"});
    subscriber.Uninitialize();
}

TEST_F(ApplyTest, AFailingSetterIsLoggedAndSkipped) {
    struct Case {
        const char* call;
        json fault;
        const char* logged;  // the failure line, after "[TOLA]:[ERROR] - "
    } cases[] = {
        {"sys_setLANSettings", 3, "sys_setLANSettings failed with code = 3"},
        {"sys_setLEDEnabled", 1, nullptr},  // 1: unchanged, a success
        {"webui_set_login_settings", 7, "Error in webui_set_login_settings, returned : [7]"},
        {"webui_set_log_settings", 0, "webui_set_log_settings failed with code = 0"},
        {"deviceui_set_screen_timeout_settings", 0,
         "deviceui_set_screen_timeout_settings failed and returned: [0]"},
        {"sys_setDeepSleepEnabled", 4, "setDeepSleepEnabled failed and returned : [4]"},
        {"sys_setAudioAlertsEnabled", 2, " sys_setAudioAlertsEnabled failed and returned: [2]"},
        {"sys_setWiFiPrimaryProfileForRadio", json::array({5}),
         " set wifi profile for 2.4GHz failed and returned:5"},
        {"deviceui_set_guest_wifi_info_display_settings", 9,
         " set guest wifi information on display failed and returned:9"},
        {"sys_setCellularDataConnectionPreference", 6,
         "sys_setCellularDataConnectionPreference failed with code = 6"},
        {"sys_setSambaHostname", 3, "SetVornsharingSettings : set File sharing failed. failed with code = 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call);
        root.remove("/var/lib/ardo/calls.jsonl");
        root.remove("/var/log/tola.log");
        vorn_dbg_stop();
        vorn_dbg_start();
        ardo::deviceStateSet(std::string("/faults/") + c.call, c.fault);
        agent = std::make_unique<TOLAAgent>();
        agent->Initialize();
        EXPECT_EQ(Apply(kWideDocument), 0);
        EXPECT_EQ(lastMessage, "");
        if (c.logged != nullptr) {
            EXPECT_NE(Log().find(std::string("[TOLA]:[ERROR] - ") + c.logged), std::string::npos);
        } else {
            EXPECT_EQ(Log().find("[TOLA]:[ERROR]"), std::string::npos);
        }
        // The steps after the failing one still ran, to the last.
        EXPECT_EQ(CountOf("sys_setPortForwardingApplicationList"), 1u);
        EXPECT_EQ(CountOf("sys_setSambaHostname"), 1u);
        EXPECT_EQ(CountOf("sys_setModemProfile"), 5u);
        ardo::deviceStateUpdate([](json& state) { state["faults"] = json::object(); });
    }
}

TEST_F(ApplyTest, ModemProfilesTakeTheApnAndKeepTheRest) {
    const std::string both =
        R"({"LTEAPN": "lte.fleet", "HSPAAPN": "hspa.fleet", "NonVeltraAPN": "other.fleet"})";
    struct Case {
        const char* name;
        std::string network;                 // the NetworkSettings group
        json state;                          // merged into the device state first
        std::vector<std::string> attempted;  // sys_setModemProfile calls, in order
        std::vector<std::string> stored;     // profiles that now hold the document's APN
        std::vector<std::string> logged;
    } cases[] = {
        {"every profile",
         both,
         json::object(),
         {"0:3", "1:103", "0:13", "0:21", "0:23"},
         {"0:3", "1:103", "0:13", "0:21", "0:23"},
         {}},
        {"only the second APN part",
         R"({"NonVeltraAPN": "other.fleet"})",
         json::object(),
         {"0:21", "0:23"},
         {"0:21", "0:23"},
         {}},
        {"a missing profile is left alone",
         both,
         {{"modem", {{"profiles", {{"0:13", nullptr}}}}}},
         {"0:3", "1:103", "0:21", "0:23"},
         {"0:3", "1:103", "0:21", "0:23"},
         {}},
        {"an unreadable profile is left alone",
         both,
         {{"faults", {{"sys_getModemProfile", {5}}}}},
         {"1:103", "0:13", "0:21", "0:23"},
         {"1:103", "0:13", "0:21", "0:23"},
         {}},
        {"a failed last write is reported and the custom profile skipped",
         R"({"NonVeltraAPN": "other.fleet"})",
         {{"modem", {{"profiles", {{"0:21", nullptr}}}}}, {"faults", {{"sys_setModemProfile", {6}}}}},
         {"0:23"},
         {},
         {"[TOLA]:[ERROR] - setModemProfile  for veltra profile and  index 23 failed  failed with code = 6",
          "[TOLA]:[ERROR] - SKIP CustomModemProfile in QUILL  failed with code = 6"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        root.remove("/var/lib/ardo/device.json");
        root.remove("/var/lib/ardo/calls.jsonl");
        ardo::deviceStateUpdate([&](json& state) { state.merge_patch(c.state); });
        agent = std::make_unique<TOLAAgent>();
        ASSERT_EQ(Apply("[{\"NetworkSettings\": " + c.network + "}]"), 0);
        std::vector<std::string> attempted;
        for (const json& line : Journal()) {
            if (line["call"] == "sys_setModemProfile") {
                attempted.push_back(std::to_string(line["args"]["type"].get<int>()) + ":" +
                                    std::to_string(line["args"]["index"].get<int>()));
            }
        }
        EXPECT_EQ(attempted, c.attempted);
        for (const std::string& text : c.logged) {
            EXPECT_NE(Log().find(text), std::string::npos) << text;
        }
        if (c.logged.empty()) {
            EXPECT_EQ(Log().find("SKIP CustomModemProfile"), std::string::npos);
        }
        json profiles = ardo::deviceStateRead()["modem"]["profiles"];
        for (const std::string& key : c.stored) {
            bool first = key == "0:3" || key == "1:103" || key == "0:13";
            EXPECT_EQ(profiles[key]["apn"], first ? "lte.fleet" : "other.fleet") << key;
            EXPECT_NE(profiles[key]["name"], "") << key;  // the rest of the profile is kept
        }
        // The profile that carries the Internet data call is not among them.
        EXPECT_EQ(profiles["0:1"]["apn"], "vzwinternet");
    }
}

TEST_F(ApplyTest, DocumentTextsMapToPlatformValues) {
    struct Case {
        const char* text;
        int value;
    } cases[] = {
        {"Auto-connect", SYS_DATA_CONNECT_AUTO},
        {"Auto-connect if not roaming", SYS_DATA_CONNECT_AUTO_NOT_ROAMING},
        {"Manual Connection", SYS_DATA_CONNECT_MANUAL},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(Apply(std::string(R"([{"NetworkSettings": {"ConnectionPreference": ")") + c.text + "\"}}]"),
                  0);
        EXPECT_EQ(Setting("/settings/cellularDataConnectionPreference"), c.value);
    }
}

TEST_F(ApplyTest, WiFiProfilesFollowTheCarrierAndTheRadioSwitch) {
    struct Case {
        const char* name;
        json settings;
        size_t primaryWrites, guestWrites, enabledWrites;
        const char* logged;
    } cases[] = {
        {"carrier and radio on", json::object(), 2, 2, 1, "successfully set the new wifi parameters"},
        {"guest carrier off", {{"wifiGuestCarrierEnabled", 0}}, 2, 0, 1, " wifi guest carrier disabled"},
        {"radio off: only the switch",
         {{"wifiEnabled", 0}},
         0,
         0,
         1,
         " as wifi is disabled, wifi and guest profiles are not going to be changed"},
        {"carrier off: nothing",
         {{"wifiCarrierEnabled", 0}},
         0,
         0,
         0,
         " wifi carrier is disabled, so unable to set it."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        root.remove("/var/lib/ardo/device.json");
        root.remove("/var/lib/ardo/calls.jsonl");
        ardo::deviceStateUpdate([&](json& state) { state["settings"].merge_patch(c.settings); });
        agent = std::make_unique<TOLAAgent>();
        ASSERT_EQ(
            Apply(
                R"([{"WiFiGuestNetworkSettings": {"WiFiGuestSSID": "Fleet-Guest", "WiFiGuestKey": "guestpass1"}}])"),
            0);
        EXPECT_EQ(CountOf("sys_setWiFiPrimaryProfileForRadio"), c.primaryWrites);
        EXPECT_EQ(CountOf("sys_setWiFiGuestProfileForRadio"), c.guestWrites);
        EXPECT_EQ(CountOf("sys_setWiFiEnabled"), c.enabledWrites);
        EXPECT_NE(Log().find(c.logged), std::string::npos);
    }
}

TEST_F(ApplyTest, WithoutAccessControlEntriesTheAclFileIsUntouched) {
    const std::string acl = "/opt/ardo/data/tola/acl_config.xml";
    std::string before = root.readFile(acl);
    ASSERT_FALSE(before.empty());
    struct stat was {};
    ASSERT_EQ(stat(root.path(acl).c_str(), &was), 0);
    ASSERT_EQ(Apply(R"([{"LANSettings": {"DHCPLeaseTime": 600}}])"), 0);
    struct stat now {};
    ASSERT_EQ(stat(root.path(acl).c_str(), &now), 0);
    EXPECT_EQ(root.readFile(acl), before);
    EXPECT_EQ(now.st_ino, was.st_ino);  // not even replaced by an equal copy
    EXPECT_EQ(now.st_mtim.tv_nsec, was.st_mtim.tv_nsec);
    EXPECT_EQ(CountOf("sys_setLANSettings"), 1u);
}

// A refused document reaches neither the bus nor a setter. The first case is refused by the
// parser; the second by the LAN validator (it passes only with the validators in place).
TEST_F(ApplyTest, ARefusedDocumentChangesNothing) {
    struct Case {
        const char* document;
        int code;
        const char* message;
    } cases[] = {
        {R"([{"LANSettings": {"DHCPLeaseTime": "long"}}, {"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])",
         109, "Invalid LAN Settings object DHCP lease time parameter data type"},
        {R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}, "GPSSettings": {"GPSEnabled": false},
              "WiFiNetworkSettings": {"WiFiSSID": "Refused-SSID"}},
            {"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])",
         158, "Invalid Private IP address or network address or broadcast address . "},
    };
    std::string acl = root.readFile("/opt/ardo/data/tola/acl_config.xml");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        root.remove("/var/lib/ardo/calls.jsonl");
        EXPECT_EQ(Apply(c.document), c.code);
        EXPECT_EQ(lastMessage, c.message);
        EXPECT_EQ(Calls(), std::vector<std::string>());
        EXPECT_EQ(root.readFile("/opt/ardo/data/tola/acl_config.xml"), acl);
    }
    // The next document starts from the device, not from what the refused one left behind.
    EXPECT_EQ(
        Apply(
            R"([{"LANSettings": {"DHCPLeaseTime": 600}, "WiFiNetworkSettings": {"WiFiKey": "another-key"}}])"),
        0);
    EXPECT_EQ(Setting("/settings/lan/ipAddress"), "192.168.1.1");
    EXPECT_EQ(Setting("/settings/wifiPrimaryProfile/ssid"), "Ardo-Hotspot-1234");
}

}  // namespace
