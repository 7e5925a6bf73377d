// The settings object seeded from the simulated device, its address, port and text checks over
// tables of inputs (corpus/cases/checks.txt: their return conventions differ on purpose, so each
// case states the exact result), and the config.xml reader.
#include <arpa/inet.h>

#include <cstring>
#include <functional>
#include <map>
#include <sstream>

#include "app_fixture.h"
#include "case_rows.h"
#include "tola_config.h"
#include "xmldata.h"

namespace {

using tola_test::CaseRow;

class SettingsObjectTest : public tola_test::RootTest {
  protected:
    TOLAAgent agent;
};

// A member is read from the device once and kept; a failing getter gives null and is asked again.
TEST_F(SettingsObjectTest, MembersAreSeededOnceFromTheDevice) {
    ardo::deviceStateSet("/settings/lan/ipAddress", "10.1.2.3");
    sys_lan_settings_t* lan = agent.GetLANSettings();
    ASSERT_NE(lan, nullptr);
    EXPECT_STREQ(lan->ipAddress, "10.1.2.3");
    EXPECT_STREQ(lan->subnetMask, "255.255.255.0");  // factory default
    EXPECT_FALSE(agent.CheckForSameSubnet(inet_addr("10.1.3.77")));
    ardo::deviceStateSet("/settings/lan/ipAddress", "10.9.9.9");
    EXPECT_EQ(agent.GetLANSettings(), lan);  // kept, not read again
    EXPECT_STREQ(lan->ipAddress, "10.1.2.3");
    // So are the subnet check's; after a reset, unreadable settings answer false.
    EXPECT_TRUE(agent.CheckForSameSubnet(inet_addr("10.1.2.77")));
    ardo::deviceStateSet("/faults/sys_getLANSettings", 2);
    agent.ResetObjectData();
    EXPECT_FALSE(agent.CheckForSameSubnet(inet_addr("10.9.9.77")));
    ardo::deviceStateSet("/faults/sys_getSambaPrimaryNetworkEnabled", ardo::json::array({1}));
    ardo::deviceStateSet("/faults/webui_get_login_settings", ardo::json::array({5}));
    EXPECT_EQ(agent.GetSambaPrimaryNetworkEnabled(), nullptr);
    EXPECT_EQ(agent.GetLoginSettings(), nullptr);
    ASSERT_NE(agent.GetSambaPrimaryNetworkEnabled(), nullptr);  // the fault was used up
    EXPECT_EQ(*agent.GetSambaPrimaryNetworkEnabled(), 1);
    ASSERT_NE(agent.GetLoginSettings(), nullptr);
    // GPS is read with the privacy agreement accepted for the moment, then restored.
    ardo::deviceStateSet("/settings/gpsPrivacyAgreementAccepted", 0);
    ardo::deviceStateSet("/gps/enabled", 1);
    ASSERT_NE(agent.GetGPSEnabled(), nullptr);
    EXPECT_EQ(*agent.GetGPSEnabled(), 1);
    int accepted = -1;
    ASSERT_EQ(sys_getGPSPrivacyAgreementAccepted(&accepted), 0);
    EXPECT_EQ(accepted, 0);
}

TEST_F(SettingsObjectTest, ResetClearsEveryListEvenWhenOneFails) {
    // Each list's count, and its value after a reset (also the value it is created with).
    const std::pair<int* (TOLAAgent::*)(), int> cases[] = {{&TOLAAgent::GetMacCount, 0},
                                                           {&TOLAAgent::GetWhiteListMacCount, 0},
                                                           {&TOLAAgent::GetPortFilteringAppsCount, 0},
                                                           {&TOLAAgent::GetPortForwardingAppsCount, 0},
                                                           {&TOLAAgent::GetReservedAddrListCount, 0},
                                                           {&TOLAAgent::GetSambaFolderNamesCount, 10}};
    for (const auto& [count, afterReset] : cases) {
        EXPECT_EQ(*(agent.*count)(), afterReset);
        *(agent.*count)() = 3;
    }
    agent.GetMacAddrList()[0].macAddress[0] = 'x';
    EXPECT_EQ(agent.ResetObjectData(), 0);
    for (const auto& [count, afterReset] : cases) {
        EXPECT_EQ(*(agent.*count)(), afterReset);
    }
    EXPECT_EQ(agent.GetMacAddrList()[0].macAddress[0], '\0');
    EXPECT_STREQ(agent.GetErrorMessage(), "");
    // A list that cannot be had does not stop the others.
    struct NoMacListAgent : TOLAAgent {
        sys_mac_entry_t* GetMacAddrList() override { return nullptr; }
    } noList;
    *noList.GetPortForwardingAppsCount() = 6;
    *noList.GetSambaFolderNamesCount() = 1;
    EXPECT_EQ(noList.ResetObjectData(), 200);
    EXPECT_STREQ(noList.GetErrorMessage(), "Reset Data - Received NULL pointer for mac count or mac list");
    EXPECT_EQ(*noList.GetPortForwardingAppsCount(), 0);
    EXPECT_EQ(*noList.GetSambaFolderNamesCount(), 10);
}

TEST_F(SettingsObjectTest, ErrorMessageIsBoundedAndReplaced) {
    agent.SetErrorMessage("%s", std::string(5000, 'e').c_str());
    EXPECT_EQ(std::string(agent.GetErrorMessage()), std::string(1023, 'e'));
    agent.SetErrorMessage("code %d", 7);
    EXPECT_STREQ(agent.GetErrorMessage(), "code 7");
}

TEST_F(SettingsObjectTest, PresentFlagsMarkTheGroup) {
    EXPECT_FALSE(agent.IsPresent(TolaField::LANSettings));
    agent.SetPresent(TolaField::LANSettings_DHCPLeaseTime);
    EXPECT_TRUE(agent.IsPresent(TolaField::LANSettings));
    EXPECT_FALSE(agent.IsPresent(TolaField::LANSettings_DHCPEnabled));
}

TEST_F(SettingsObjectTest, AddressChecksReturnOneForUnacceptable) {
    for (const CaseRow& c : tola_test::readCaseRows("checks.txt", "address")) {
        std::string ip = c[0];
        std::string results = std::to_string(agent.IsValidIP(&ip[0])) + " " +
                              std::to_string(agent.IsValidIPWithPrivateAddressRange(&ip[0])) + " " +
                              std::to_string(agent.IsvalidIpWithBroadcastRange(ip.c_str())) + " " +
                              std::to_string(agent.IsNetworkOrBroadcastIp(ip.c_str()));
        EXPECT_EQ(results, c[1]) << c.where;
    }
}

TEST_F(SettingsObjectTest, TextsComparisonsAndRanges) {
    // Each table's check on the columns of one row; the last column is the result.
    const std::map<std::string, std::function<int(const CaseRow&)>> checks = {
        {"site", [&](const CaseRow& c) { return agent.CheckForValidSiteName(c[1]); }},
        {"date", [&](const CaseRow& c) { return agent.isValidDateFormat(c[1].c_str()); }},
        {"mac", [&](const CaseRow& c) { return agent.IsValidMacAddress(c[1].c_str()); }},
        {"url", [&](const CaseRow& c) { return agent.CheckIsFullURL(c[1]); }},
        {"print", [&](const CaseRow& c) { return agent.HasNonPrintableChars(c[1].c_str()); }},
        {"subnet",
         [&](const CaseRow& c) { return agent.CheckSubnetMatch(c[1].c_str(), c[2].c_str(), c[3].c_str()); }},
        {"inrange",
         [&](const CaseRow& c) {
             return agent.validateIpWithDhcpRange(c[1].c_str(), c[2].c_str(), c[3].c_str());
         }},
        {"differ", [&](const CaseRow& c) { return agent.IsValidIpWithDhcp(c[1].c_str(), c[2].c_str()); }},
        {"room", [&](const CaseRow& c) { return agent.IsValidDhcpRange(c[1].c_str(), c.num(2)); }},
        {"ports",
         [&](const CaseRow& c) { return agent.CheckPortRanges(c.num(1), c.num(2), c.num(3), c.num(4)); }},
    };
    for (const CaseRow& c : tola_test::readCaseRows("checks.txt")) {
        if (c[0] != "address") {
            ASSERT_EQ(checks.count(c[0]), 1u) << c.where;
            EXPECT_EQ(checks.at(c[0])(c), c.num(c.cols.size() - 1)) << c.where;
        }
    }
    EXPECT_FALSE(agent.HasNonPrintableChars(nullptr));
    EXPECT_TRUE(agent.HasNonPrintableChars("del\x7f"));
    char ip[] = "192.168.1.10";
    EXPECT_EQ(agent.IPToInt32(ip), 0xC0A8010Au);
}

const std::string kConfigFile = "/opt/ardo/etc/tola/config.xml";

// config.xml with every element, or all but one.
std::string configXml(const std::string& skip = "") {
    std::string xml =
        tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/config_sample.xml");
    size_t at = skip.empty() ? std::string::npos : xml.find("  <" + skip + ">");
    return at == std::string::npos ? xml : xml.erase(at, xml.find('\n', at) + 1 - at);
}

class ConfigReaderTest : public ::testing::Test {
  protected:
    // Reads the given text as config.xml into a zeroed record; the reader's result.
    int read(const std::string& xml, tolaagent_config_t& config) {
        root.writeFile(kConfigFile, xml);
        std::memset(&config, 0, sizeof config);
        std::string path = root.path(kConfigFile);
        EXPECT_EQ(0, xmldata_initialize(path.c_str(), path.c_str()));
        int rc = get_tolaagent_configuration(&config);
        xmldata_shutdown();
        return rc;
    }
    tola_test::TempRoot root{true};
};

TEST_F(ConfigReaderTest, ReadsEveryElementAndCutsLongTextsTo127Characters) {
    std::string xml = configXml();
    xml.replace(xml.find("req.json"), 8, std::string(200, 'r'));
    xml.replace(xml.find("FactoryKey"), 10, std::string(127, 'k'));
    tolaagent_config_t config;
    ASSERT_EQ(0, read(xml, config));
    EXPECT_EQ(std::string(127, 'r'), config.requestTemplate);
    EXPECT_EQ(std::string(127, 'k'), config.baseEncryptionKey);
    std::ostringstream rest;
    rest << config.checkInTemplate << "|" << config.receiptTemplate << "|" << config.requestDataUsageTemplate
         << "|" << config.sms104CheckInTemplate << "|" << config.reserved128 << "|" << config.checkInInterval
         << "|" << config.checkInRetryInterval << "|" << config.checkInFailedRetries << "|"
         << config.requestTimeout << "|" << config.dataUsageResponseWaitTime << "|" << config.dataCallType;
    EXPECT_EQ(rest.str(), "checkin.json|receipt.json|usage.json|sms104.json||24|60|2|30|15|1");
}

TEST_F(ConfigReaderTest, FirstFailureStopsTheReading) {
    for (const auto& c : tola_test::readCases("config_missing.tsv", 3)) {
        SCOPED_TRACE(c[0]);
        tolaagent_config_t config;
        EXPECT_NE(0, read(configXml(c[0]), config));
        EXPECT_EQ(0u, config.dataCallType);
        EXPECT_EQ(c[2] == "1" ? 15u : 0u, config.dataUsageResponseWaitTime);
        std::string filled = std::string(config.checkInTemplate) + config.baseEncryptionKey;
        EXPECT_TRUE(c[1].empty() ? filled.empty() : filled.find(c[1]) != std::string::npos) << filled;
    }
}

}  // namespace
