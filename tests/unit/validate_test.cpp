// Validation of a parsed configuration document against the simulated device: each case is a
// document run through the real parser, a change of the device state (scripted faults included)
// and the code, user text and, where it tells, the log line that validation gives.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "device_state.h"
#include "test_env.h"
#include "tola_agent.h"
#include "tola_json_parser.h"
#include "vorn_dbg.h"

namespace {

using nlohmann::json;

struct Case {
    std::string doc;
    std::string state;  // {"<JSON pointer>": value, ...} set on the device before parsing
    int code;
    std::string error;
    std::string log;  // a text the debug log must hold, when not empty
};

// A document of one element holding one group.
std::string group(const char* name, const std::string& body) {
    return std::string("[{\"") + name + "\": " + body + "}]";
}
std::string text(size_t length, char c = 'a') {
    return std::string(length, c);
}

// Parses and validates a document on a fresh device; the code of the first step that refuses.
class ValidateTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vorn_dbg_stop();
        vorn_dbg_start();
    }
    void TearDown() override { vorn_dbg_stop(); }

    int run(TOLAAgent& agent, const std::string& doc, const std::string& state = "") {
        json changes = state.empty() ? json::object() : json::parse(state);
        for (const auto& [pointer, value] : changes.items()) {
            ardo::deviceStateSet(pointer, value);
        }
        agent.ClearErrorMessage();
        TOLAJSONParser parser(&agent);
        int code = parser.ProcessJSONData(doc);
        return code != 0 ? code : agent.ValidateObjectParameters();
    }
    std::string log() const { return root.readFile("/var/log/tola.log"); }

    tola_test::TempRoot root{true};
};

const char* const kBadLan = R"({"RouterIPv4Address": "8.8.8.8"})";
const char* const kKeyText =
    "Invalid WiFi Primary Key value. Either contains non printable characters or length is not matching.";
const char* const kBadRouterText = "Invalid Private IP address or network address or broadcast address . ";
const char* const kLeaseText = "Invalid DHCP leasetime configured for lan settings .";
const char* const kWpsFilterText =
    "mac filter and WPS(primary) enabled, both cannot be used at the same time .";
const char* const kSameSsidText = "WiFi Primary and Guest SSID's should not be same.";
const char* const kGuestKeyText =
    "Invalid WiFi Guest Key value. Either contains non printable characters or length is not matching.";
const char* const kBandsText = "Both 2.4GHz and 5GHz can not be turn off";
const char* const kMaxClientsText = "Invalid WiFi Advanced Settings object max Clients parameter value";
const char* const kLocalText = "Invalid Device preference local IP address.";
const char* const kDmzFirstText =
    "Invalid Firewall Settings object DMZ enabled parameter value. DMZ and Port Forwarding can not be "
    "enabled both at same time.";
const char* const kForwardFirstText =
    "Invalid Firewall Settings object DMZ enabled parameter value. Port Forwarding and DMZ can not be "
    "enabled both at same time.";
const char* const kDmzAddressText =
    "Invalid Firewall Settings object DMZ IP address parameter value is not either broadcast ip or not in a "
    "subnet";
const char* const kNoConfig = R"({"/faults/webui_get_app_configurations": 1})";

std::string forward(const std::string& apps) {
    return group("PortForwardingSettings",
                 R"({"PortForwardingEnabled": true, "PortForwardingCustomApplications": )" + apps + "}");
}
std::string http(const char* ip) {
    return group(
        "PortForwardingSettings",
        std::string(R"({"PortForwardingHTTP": true, "PortForwardingHTTPIpAddress": ")") + ip + "\"}");
}
std::string customForward(const char* name, const char* ip, int start, int end, const char* type = "Range") {
    return json({{"AppName", name},
                 {"AppIpAddress", ip},
                 {"AppStartPortNumber", start},
                 {"AppEndPortNumber", end},
                 {"AppPortType", type}})
        .dump();
}
std::string filter(int start, int end, const char* name = "game", const char* second = "") {
    return group("PortFilteringSettings",
                 std::string(R"({"PortFilteringCustomApplications": [{"AppName": ")") + name +
                     R"(", "AppStartPortNumber": )" + std::to_string(start) + R"(, "AppEndPortNumber": )" +
                     std::to_string(end) + "}" + second + "]}");
}
std::string sharing(const std::string& extra) {
    return group("VornSharingSettings", R"({"VornSharingEnabled": true)" + extra + "}");
}
const char* const kSharingOn = R"({"/settings/sambaEnabled": 1})";

TEST_F(ValidateTest, DocumentsGiveTheirCodeAndText) {
    const Case cases[] = {
        // ---- Blocked and white-listed devices, MAC filter
        {group("BlockedDevices", R"([{"DeviceMacAddress": "00:11:22:33:44"}])"), "", 150,
         "Invalid Blocked or white list device mac address 00:11:22:33:44",
         "Invalid Blocked Devices MAC address"},
        {R"([{"BlockedDevices": [{"DeviceMacAddress": "00:11:22:33:44:55"}],
              "WhiteListedDevices": [{"DeviceMacAddress": "00-11-22-33-44-55"}]}])",
         "", 150, "(00-11-22-33-44-55)Duplicate Blocked or White listed Devices MAC address are found", ""},
        {R"([{"MACFilterSettings": {"MACFilterEnabled": true},
              "WhiteListedDevices": [{"DeviceMacAddress": "001122334455"}]}])",
         R"({"/settings/wifiPrimaryProfile/wpsEnabled": 1})", 150, kWpsFilterText, ""},
        {group("MACFilterSettings", R"({"MACFilterEnabled": true})"), "", 150,
         "Invalid White list devices object, mac adress list is empty.", ""},
        {group("BlockedDevices", R"([{"DeviceMacAddress": "3C:22:FB:10:20:30"}])"),
         R"({"/faults/sys_deleteKnownDevice": 5})", 150,
         "clearing existing mac list database .... failed to delete mac entry : 3c:22:fb:10:20:30",
         "sys_deleteKnownDevice failed to delete device returning [5]"},
        {group("BlockedDevices", R"([{"DeviceMacAddress": "3C:22:FB:10:20:30"}])"),
         R"({"/faults/sys_getAllDevicesList": 4})", 0, "",
         "sys_getAllDevicesList failed while getting mac filter list returning [4]"},
        // ---- Admin password: the minimum from the web interface, else 6
        {group("AdminPasswordSettings", R"({"AdminPassword": ")" + text(33) + "\"}"), "", 154, "",
         "AdminPassword lenght is greater than 32 chars"},
        {group("AdminPasswordSettings", R"({"AdminPassword": ")" + text(32) + "\"}"), "", 0, "", ""},
        {group("AdminPasswordSettings", R"({"AdminPassword": "abcde"})"), kNoConfig, 154, "",
         "AdminPassword lenght is less than 6 Chars: abcde"},
        {group("AdminPasswordSettings", R"({"AdminPassword": "abcdef"})"), kNoConfig, 0, "", ""},
        {group("AdminPasswordSettings", R"({"AdminPassword": "abcdefg"})"),
         R"({"/settings/webAppConfigurations/set_passcode/MinimumPasscodeLength": "8"})", 154, "", ""},
        {group("AdminPasswordSettings", R"({"AdminPasswordSecurityAnswer": ""})"), "", 154, "", ""},
        {group("AdminPasswordSettings", R"({"AdminPasswordSecurityAnswer": "a\u0001b"})"), "", 154, "", ""},
        {group("AdminPasswordSettings",
               R"J({"AdminPasswordSecurityQuestion": "What is your date of birth? (mm/dd/yyyy)",
                                            "AdminPasswordSecurityAnswer": "13/01/2000"})J"),
         "", 154, "", "securityAnswer invalidDateFormat : 13/01/2000"},
        // ---- LAN
        {group("LANSettings", kBadLan), "", 158, kBadRouterText,
         "Invalid LANSettings->RouterIPv4Address(8.8.8.8)"},
        {group("LANSettings", R"({"RouterSubnetMask": "255.255.255.128"})"), "", 158, "",
         "Invalid LANSettings->RouterSubnetMask(255.255.255.128)"},
        {group("LANSettings", R"({"RouterIPv4Address": "192.168.1.150"})"), "", 158, "",
         "Invalid lan settings dhcp address range start(192.168.1.100)"},
        {group("LANSettings", R"({"DHCPAddressRangeStart": "192.168.1.240"})"), "", 158, "", ""},
        {group("LANSettings", R"({"DHCPAddressRangeStart": ""})"), "", 158, "",
         "lan settings dhcp address range start is empty"},
        {group("LANSettings", R"({"DHCPEnabled": false, "DHCPAddressRangeStart": ""})"), "", 0, "", ""},
        {group("LANSettings", R"({"DHCPAddressRangeStart": "192.168.1.239"})"), "", 0, "", ""},
        {group("LANSettings", R"({"DHCPAddressRangeStart": "192.168.1.120"})"),
         R"({"/faults/GetDhcpEndAddress": 1})", 158, "",
         "Failed to get dhcp end range for lan settings dhcp address range start(192.168.1.120)"},
        {group("LANSettings", R"({"DHCPLeaseTime": 0})"), "", 158, kLeaseText,
         "Invalid lansettings->dhcpleasetime:(0)"},
        {group("LANSettings", R"({"DHCPLeaseTime": 71582788})"), kNoConfig, 0, "", ""},
        {group("LANSettings", R"({"DHCPLeaseTime": 71582789})"), kNoConfig, 158, kLeaseText, ""},
        {group("LANSettings", R"({"RouterIPv4Address": "10.1.1.1", "RouterSubnetMask": "255.0.0.0",
                                  "DHCPAddressRangeStart": "10.1.1.20"})"),
         "", 0, "", ""},
        // ---- Primary Wi-Fi (keys of 64 characters never get past the handler)
        {group("WiFiNetworkSettings", R"({"WiFiKey": ")" + text(7) + "\"}"), "", 151, kKeyText,
         "Invalid WiFiKey"},
        {group("WiFiNetworkSettings", R"({"WiFiKey": ")" + text(8) + "\"}"), "", 0, "", ""},
        {group("WiFiNetworkSettings", R"({"WiFiKey": ")" + text(63) + "\"}"), "", 0, "", ""},
        {group("WiFiNetworkSettings", R"({"WiFiKey": ")" + text(64) + "\"}"), "", 151,
         "Invalid WIFI Primary Object key parameter value", ""},
        {group("WiFiNetworkSettings", R"({"WiFiKey": "abc\u0001defgh"})"), "", 151, kKeyText, ""},
        {group("WiFiNetworkSettings", R"({"WiFiSecurityMode": "None", "WiFiKey": ""})"), "", 151, kKeyText,
         ""},
        {group("WiFiNetworkSettings", R"({"WiFiSSID": "Ardo-Guest-1234"})"), "", 151, kSameSsidText,
         "Invalid Wifi SSID(Ardo-Guest-1234) and Guest SSID(Ardo-Guest-1234) should not be same"},
        {R"([{"WiFiNetworkSettings": {"WiFiSSID": "Ardo-Guest-1234"},
              "WiFiGuestNetworkSettings": {"WiFiGuestSSID": "Ardo-Hotspot-1234"}}])",
         "", 0, "", ""},
        {group("WiFiNetworkSettings", R"({"WiFiSSID": "bad\u0007ssid"})"), "", 151,
         "Invalid WiFi Primary SSID. Contains non printable characters.", ""},
        {group("WiFiNetworkSettings",
               R"({"WiFiSSID": "Home", "WiFiWPSEnabled": true, "WiFiSSIDBroadcastEnabled": false})"),
         "", 151, "Invalid Primary WiFi WPS enabled. WPS can be enabled when broadcast is enabled.", ""},
        {group("WiFiNetworkSettings", R"({"WiFiSSID": "Home", "WiFiWPSEnabled": true})"),
         R"({"/settings/macFilterWhiteListEnabled": 1})", 150, kWpsFilterText, ""},
        {group("WiFiNetworkSettings", R"({"WiFiSSID": "Home"})"),
         R"({"/faults/sys_getWiFiCarrierEnabled": 3})", 151, "",
         "[TOLA]:[ERROR] - either get wifi carrier enabled or get wifi enabled or get wifi profile failed"},
        {group("WiFiNetworkSettings", R"({"WiFiSSID": "Home"})"), R"({"/faults/sys_getWiFiGuestProfile": 3})",
         151, "", "getWiFiGuestProfile failed with code = 3"},
        // ---- Guest Wi-Fi
        {group("WiFiGuestNetworkSettings", R"({"WiFiGuestKey": "short"})"), "", 152, kGuestKeyText, ""},
        {group("WiFiGuestNetworkSettings", R"({"WiFiGuestSSID": "Ardo-Hotspot-1234"})"), "", 152,
         kSameSsidText, ""},
        {group("WiFiGuestNetworkSettings", R"({"WiFiGuestSSID": "guest\u001f"})"), "", 152,
         "Invalid WiFi Guest SSID. Contains non printable characters.", "Invalid Guest WiFiSSID:(guest"},
        {group("WiFiGuestNetworkSettings", R"({"WiFiGuestSSID": "Visitors"})"),
         R"({"/faults/sys_getWiFiEnabled": 2})", 151, "", ""},
        // ---- Advanced Wi-Fi: the primary network keeps at least one band
        {group("WiFiAdvancedSettings",
               R"({"WiFi24GHzBand": "Guest network", "WiFi5GHzBand": "Guest network"})"),
         "", 153, kBandsText, "[TOLA]:[ERROR] - Both 2.4GHz and 5GHz can not be turn off"},
        {group("WiFiAdvancedSettings", R"({"WiFi24GHzBand": "Guest network"})"),
         R"({"/settings/wifiPrimaryProfile/band5Network": 1})", 153, kBandsText, ""},
        {group("WiFiAdvancedSettings", R"({"WiFiMaxClients": 0})"), "", 153, kMaxClientsText,
         "Invalid WiFiMaxClients:0"},
        {group("WiFiAdvancedSettings", R"({"WiFiMaxClients": 15})"), "", 0, "", ""},
        {group("WiFiAdvancedSettings", R"({"WiFiMaxClients": 5})"),
         R"({"/faults/sys_getWiFiPrimaryProfile": 3})", 153, "",
         "get WiFi 2.4GHz Profile Enabled failed with code = 3"},
        // ---- Manual DNS, only while enabled
        {group("ManualDNSSettings", R"({"ManualDNSEnabled": true, "ManualDNSAddress1": "8.8.8"})"), "", 156,
         "Invalid Manual DNS Seetings object DNS1 IP address value",
         "Invalid Manual DNS1 IP address:(8.8.8)"},
        {group("ManualDNSSettings", R"({"ManualDNSEnabled": true, "ManualDNSAddress1": "8.8.8.8",
                                        "ManualDNSAddress2": "dns"})"),
         "", 156, "Invalid Manual DNS Seetings object DNS2 IP address value", ""},
        {group("ManualDNSSettings", R"({"ManualDNSEnabled": true, "ManualDNSAddress1": "2001:db8::1",
                                        "ManualDNSAddress2": "2001:DB8:0::1"})"),
         "", 156, "Duplicate Manual DNS Seetings object DNS2 IP address value", ""},
        {group("ManualDNSSettings", R"({"ManualDNSEnabled": false, "ManualDNSAddress1": "junk"})"), "", 0, "",
         ""},
        // ---- Firewall
        {group("FirewallSettings", R"({"DMZEnabled": true, "DMZIpAddress": "192.168.1.255"})"), "", 157,
         kDmzAddressText, "Invalid DMZ IP address:(192.168.1.255)"},
        {group("FirewallSettings", R"({"DMZEnabled": true, "DMZIpAddress": "192.168.1.50"})"),
         R"({"/settings/portForwardingEnabled": 1})", 157, kDmzFirstText, ""},
        {group("FirewallSettings", R"({"DMZEnabled": true, "DMZIpAddress": "192.168.1.50"})"), "", 0, "", ""},
        {group("FirewallSettings", R"({"DMZEnabled": true})"), R"({"/faults/sys_getLANSettings": 3})", 157,
         "Invalid Firewall Settings object DMZ IP address parameter value", "DMZ Enable validation failed"},
        // ---- Mobile network
        {group("NetworkSettings", R"({"ConnectionPreference": "Sometimes"})"), "", 161, "",
         "Invalid network settings connection prefence (Sometimes)"},
        {group("NetworkSettings",
               R"({"ConnectionPreference": "Auto-connect if not roaming", "LTEAPN": ")" + text(62) + "\"}"),
         "", 0, "", ""},
        {group("NetworkSettings", R"({"LTEAPN": ")" + text(63) + "\"}"), "", 161, "",
         "Invalid mobile networksettings lteapn"},
        {group("NetworkSettings", R"({"NonVeltraAPN": ")" + text(63) + "\"}"), "", 161, "",
         "Invalid MobileNetworkSettings->NonVeltraAPN"},
        {group("NetworkSettings", R"({"HSPAAPN": ")" + text(63) + "\"}"), "", 161, "",
         "Invalid MobileNetworkSettings->HSPAAPN"},
        // ---- Port forwarding (device DHCP pool 192.168.1.100-200)
        {forward("[]"), R"({"/settings/dmzEnabled": 1})", 163, kForwardFirstText,
         "PortForward Object validation failed"},
        {group("PortForwardingSettings", R"({"PortForwardingHTTP": true})"), "", 163,
         "Invalid Port Forwarding object. Application IP address is empty", ""},
        {http("192.168.1.300"), "", 163,
         "Invalid Port Forwarding object. Application IP address 192.168.1.300 is not a valid", ""},
        {http("192.168.1.0"), "", 163,
         "Invalid Port Forwarding object. Application IP address 192.168.1.0 is not a broadcast IP", ""},
        {http("192.168.5.5"), "", 163,
         "Invalid Port Forwarding object. Application IP address 192.168.5.5 is not in sub network", ""},
        {http("192.168.1.5"), "", 0, "", ""},
        {forward("[" + customForward("", "192.168.1.120", 81, 81) + "]"), "", 163,
         "Invalid Port Forwarding object. Custom application name is empty", ""},
        {forward("[" + customForward("cam", "192.168.1.5", 81, 81) + "]"), "", 163,
         "Invalid Port Forwarding object. Application IP address 192.168.1.5 is not in a DHCP range", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 0, 81) + "]"), "", 163, "", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 81, 65535) + "]"), "", 163, "", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 90, 81) + "]"), "", 163, "", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 8080, 80, "Translate") + "]"), "", 163, "", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 1, 65534, "Translate") + "]"), "", 0, "", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 65534, 65534) + "]"), "", 0, "", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 80, 80, "Translate") + "]"), "", 163,
         "Invalid Port Forwarding object. Custom application Externel port 80 is same as Internal port 80",
         ""},
        {forward("[" + customForward("cam", "192.168.1.120", 81, 90) + "," +
                 customForward("cam", "192.168.1.121", 91, 95) + "]"),
         "", 163, "Invalid Port Forwarding object. Custom application name cam is duplicated", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 81, 90) + "," +
                 customForward("nas", "192.168.1.121", 90, 95) + "]"),
         "", 163, "Invalid Port Forwarding object. Custom application index 0 port conflict is detected", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 70, 8080, "Translate") + "," +
                 customForward("nas", "192.168.1.121", 8080, 9090) + "]"),
         "", 163, "Invalid Port Forwarding object. Custom application index 0 port conflict is detected", ""},
        {forward("[" + customForward("cam", "192.168.1.120", 70, 8079, "Translate") + "," +
                 customForward("nas", "192.168.1.121", 8080, 9090) + "]"),
         "", 0, "", ""},
        {forward("[]"), R"({"/faults/sys_getLANSettings": 3})", 163, "",
         "[TOLA]:[ERROR] -  getLANSettings failed"},
        // ---- Port filtering
        {filter(0, 10), "", 162,
         "Invalid Port Filtering object. Custom application start port 0 is out of range",
         "port range check failed start_port 0"},
        {filter(10, 65535), "", 162,
         "Invalid Port Filtering object. Custom application end port 65535 is out of range",
         "port range[0 to 65534] check failed end_port 65535"},
        {filter(20, 10), "", 162,
         "Invalid Port Filtering object. Custom application start port 20 is greater than end port 10",
         "compare both ports failed start_port 20 end_port 10"},
        {filter(20, 30, ""), "", 162, "Invalid Port Filtering object. Custom application is empty",
         "PortFilter Object validation failed"},
        {filter(20, 30, "game", R"(, {"AppName": "game", "AppStartPortNumber": 40, "AppEndPortNumber": 50})"),
         "", 162, "Invalid Port Filtering object. Custom application name game is duplicated",
         "int TOLAAgent::ValidatePortFilterSettingsObj() - END rc 162"},
        {filter(1, 65534), "", 0, "", ""},
        // ---- File sharing (folder names up to 64 characters)
        {group("VornSharingSettings", R"({"VornSharingEnabled": false, "VornSharingWifiNetworkAccess": false,
                                          "VornSharingGuestWifiNetworkAccess": false})"),
         "", 0, "", "File sharing is disabled, So no configuration to apply."},
        // Whether sharing is on is the device's, whatever the document turns on.
        {sharing(R"(, "VornSharingWifiNetworkAccess": false, "VornSharingGuestWifiNetworkAccess": false)"),
         "", 0, "", "File sharing is disabled, So no configuration to apply."},
        {sharing(R"(, "VornSharingWifiNetworkAccess": false, "VornSharingGuestWifiNetworkAccess": false)"),
         kSharingOn, 164,
         "Invalid file sharing settings Primary and Guest WiFi access enable. Both should not be disabled.",
         ""},
        {sharing(R"(, "VornSharingContentToShare": "Specified top-level folders")"), kSharingOn, 164,
         "Invalid File Sharing settings Object content to share parameter value : Folder list can not be "
         "blank",
         ""},
        {sharing(R"(, "VornSharingTopLevelFolder": [{"FolderName": ")" + text(65, 'f') + "\"}]"), kSharingOn,
         164, "Invalid file sharing settings folder name " + text(65, 'f') + " length is more",
         "Folder name length:[65] max folder length:64"},
        {sharing(R"(, "VornSharingContentToShare": "Specified top-level folders",
                    "VornSharingTopLevelFolder": [{"FolderName": ")" +
                 text(64, 'f') + "\"}]"),
         kSharingOn, 0, "", ""},
        {group("VornSharingSettings", R"({"VornSharingAccessType": "Read-only"})"),
         R"({"/faults/sys_getSambaEnabled": 3})", 164, "", "Failed to get File sharing status."},
        // ---- Device preferences: local address 192.168.x.y
        {group("DevicePreferences", R"({"LocalIPAddress": "10.0.0.1"})"), "", 155, kLocalText,
         "Invalid Device Preference-> Local IP Address(10.0.0.1)"},
        {group("DevicePreferences", R"({"LocalIPAddress": "192.168.5.255"})"), "", 155, kLocalText, ""},
        {group("DevicePreferences", R"({"LocalIPAddress": "192.168.5.254"})"), "", 0, "", ""},
        {group("DevicePreferences", R"({"LocalIPAddress": "192.168.5.1"})"), "", 0, "", ""},
        // ---- The fixed order: the first present group that fails is reported
        {R"([{"WiFiNetworkSettings": {"WiFiKey": "short"}, "LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])",
         "", 158, kBadRouterText, ""},
        {R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}},
             {"BlockedDevices": [{"DeviceMacAddress": "zz"}]}])",
         "", 150, "Invalid Blocked or white list device mac address zz", ""},
        {R"([{"WiFiAdvancedSettings": {"WiFiMaxClients": 99}, "WiFiGuestNetworkSettings": {"WiFiGuestKey": "short"}}])",
         "", 152, kGuestKeyText, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.doc.substr(0, 160) + " with " + c.state);
        tola_test::TempRoot caseRoot(true);
        vorn_dbg_stop();
        vorn_dbg_start();
        TOLAAgent agent;
        EXPECT_EQ(run(agent, c.doc, c.state), c.code);
        EXPECT_EQ(agent.GetErrorMessage(), c.error);
        if (!c.log.empty()) {
            EXPECT_NE(caseRoot.readFile("/var/log/tola.log").find(c.log), std::string::npos) << c.log;
        }
    }
}

TEST_F(ValidateTest, ARefusedDocumentLeavesTheListsCleared) {
    TOLAAgent agent;
    std::string doc = R"([{"BlockedDevices": [{"DeviceMacAddress": "00:11:22:33:44:55"}],
                           "PortFilteringSettings": {"PortFilteringHTTP": true},
                           "LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])";
    EXPECT_EQ(run(agent, doc), 158);
    EXPECT_EQ(*agent.GetMacCount(), 0);
    EXPECT_EQ(*agent.GetPortFilteringAppsCount(), 0);
    EXPECT_EQ(agent.GetMacAddrList()[0].macAddress[0], '\0');
}

// A settings object whose folder capacity cannot be had: resetting it fails with 200.
class NoFolderCountAgent : public TOLAAgent {
  public:
    int* GetSambaFolderNamesCount() override { return nullptr; }
};

TEST_F(ValidateTest, AFailingResetMasksTheValidationCode) {
    NoFolderCountAgent agent;
    EXPECT_EQ(run(agent, group("LANSettings", kBadLan)), 200);
    EXPECT_STREQ(agent.GetErrorMessage(), "Reset Data - Received NULL pointer for samba folder count");
    NoFolderCountAgent passing;
    EXPECT_EQ(run(passing, group("LANSettings", R"({"DHCPLeaseTime": 60})")), 0);
}

TEST_F(ValidateTest, BlockedDevicesAreForgottenOnceTheDocumentIsAccepted) {
    std::string blocked = R"({"BlockedDevices": [{"DeviceMacAddress": "3C-22-FB-10-20-30"},
                                                 {"DeviceMacAddress": "02:00:00:00:00:01"}]})";
    TOLAAgent refused;
    EXPECT_EQ(run(refused, "[" + blocked + R"(, {"LANSettings": {"DHCPLeaseTime": 0}}])"), 158);
    EXPECT_EQ(root.readFile("/var/lib/ardo/calls.jsonl"), "");

    TOLAAgent dryRun;
    dryRun.SetValidationDryRun(true);
    EXPECT_EQ(run(dryRun, "[" + blocked + "]"), 0);
    EXPECT_EQ(root.readFile("/var/lib/ardo/calls.jsonl"), "");

    TOLAAgent agent;
    ASSERT_EQ(run(agent, "[" + blocked + "]"), 0);
    sys_known_device_t known[SYS_KNOWN_DEVICES_MAX];
    int count = -1;
    ASSERT_EQ(sys_getAllDevicesList(known, SYS_KNOWN_DEVICES_MAX, &count), 0);
    ASSERT_EQ(count, 3);
    for (int i = 0; i < count; ++i) {
        EXPECT_STRNE(known[i].macAddress, "3c:22:fb:10:20:30");
    }
    json line = json::parse(root.readFile("/var/lib/ardo/calls.jsonl"));
    EXPECT_EQ(line["call"], "sys_deleteKnownDevice");
    EXPECT_EQ(line["args"]["macAddress"], "3c:22:fb:10:20:30");
    EXPECT_EQ(line["result"], 0);
    // A device the hotspot does not know cannot be forgotten.
    EXPECT_EQ(sys_deleteKnownDevice("02:00:00:00:00:01"), 3);
    EXPECT_EQ(sys_getAllDevicesList(known, 1, &count), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(ValidateTest, AcceptedAddressesCarryTheirDhcpPool) {
    TOLAAgent agent;
    ASSERT_EQ(run(agent, group("LANSettings", R"({"DHCPAddressRangeStart": "192.168.1.200"})")), 0);
    EXPECT_STREQ(agent.GetLANSettings()->dhcpEnd, "192.168.1.254");
    EXPECT_EQ(agent.GetLANSettings()->dhcpAddressCount, 55u);

    // The device's pool (100-200) keeps its size, above the new address, or below it when no pool
    // of 16 fits above.
    const struct {
        const char* address;
        const char* start;
        const char* end;
    } moves[] = {{"192.168.7.150", "192.168.7.151", "192.168.7.251"},
                 {"192.168.7.238", "192.168.7.239", "192.168.7.254"},
                 {"192.168.7.239", "192.168.7.138", "192.168.7.238"}};
    for (const auto& m : moves) {
        SCOPED_TRACE(m.address);
        TOLAAgent moved;
        ASSERT_EQ(run(moved,
                      group("DevicePreferences", std::string(R"({"LocalIPAddress": ")") + m.address + "\"}")),
                  0);
        EXPECT_STREQ(moved.GetLocalAddress()->dhcpStart, m.start);
        EXPECT_STREQ(moved.GetLocalAddress()->dhcpEnd, m.end);
    }
}

TEST_F(ValidateTest, ReservedAddresses) {
    // Not read from documents: the list is filled through its handler. Entries are MAC, address.
    struct {
        std::vector<std::pair<const char*, const char*>> list;
        int code;
        const char* error;
    } cases[] = {
        {{{"00:11:22:33:44:55", "192.168.1.20"}, {"00:11:22:33:44:56", "192.168.1.21"}}, 0, ""},
        {{{"00:11:22:33:44", "192.168.1.20"}},
         165,
         "Invalid Reserved IP address settings object MAC address value"},
        {{{"00:11:22:33:44:55", "192.168.1"}},
         165,
         "Invalid Reserved IP address settings object IP address value"},
        {{{"00:11:22:33:44:55", "192.168.1.20"}, {"00-11-22-33-44-55", "192.168.1.21"}},
         165,
         "Invalid Reserved IP address settings MAC address 00-11-22-33-44-55 is duplicate"},
        {{{"00:11:22:33:44:55", "192.168.1.20"}, {"00:11:22:33:44:56", "192.168.1.20"}},
         165,
         "Invalid Reserved IP address settings IP address 192.168.1.20 is duplicate"},
    };
    for (const auto& c : cases) {
        json list = json::array();
        for (const auto& [mac, ip] : c.list) {
            list.push_back({{"ReservedIpMAC", mac}, {"ReservedIpAddress", ip}});
        }
        SCOPED_TRACE(list.dump());
        TOLAAgent agent;
        yajl_val element = tola_tree_parse(json({{"ReservedIpSettings", {{"ReservedIpList", list}}}}).dump());
        context_t ctx{};
        ctx.agent = &agent;
        ASSERT_EQ(handleReservedIpSettingsInfo(element, &ctx), 0);
        tola_tree_free(element);
        EXPECT_EQ(agent.ValidateObjectParameters(), c.code);
        EXPECT_EQ(agent.GetErrorMessage(), std::string(c.error));
    }
}

}  // namespace
