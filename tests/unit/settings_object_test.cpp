// The settings object seeded from the simulated device, and the config.xml reader.
#include <cstring>
#include <sstream>

#include "app_fixture.h"
#include "case_rows.h"
#include "tola_config.h"
#include "xmldata.h"

namespace {

using SettingsObjectTest = tola_test::RootTest;

TEST_F(SettingsObjectTest, MembersAreSeededOnceFromTheDevice) {
    TOLAAgent agent;
    ardo::deviceStateSet("/settings/lan/ipAddress", "10.1.2.3");
    sys_lan_settings_t* lan = agent.GetLANSettings();
    ASSERT_NE(lan, nullptr);
    EXPECT_STREQ(lan->ipAddress, "10.1.2.3");
    EXPECT_STREQ(lan->subnetMask, "255.255.255.0");  // factory default
    ardo::deviceStateSet("/settings/lan/ipAddress", "10.9.9.9");
    EXPECT_EQ(agent.GetLANSettings(), lan);  // kept, not read again
    EXPECT_STREQ(lan->ipAddress, "10.1.2.3");
}

TEST_F(SettingsObjectTest, AFailingGetterGivesNullAndIsAskedAgain) {
    TOLAAgent agent;
    ardo::deviceStateSet("/faults/sys_getSambaPrimaryNetworkEnabled", ardo::json::array({1}));
    ardo::deviceStateSet("/faults/webui_get_login_settings", ardo::json::array({5}));
    EXPECT_EQ(agent.GetSambaPrimaryNetworkEnabled(), nullptr);
    EXPECT_EQ(agent.GetLoginSettings(), nullptr);
    ASSERT_NE(agent.GetSambaPrimaryNetworkEnabled(), nullptr);  // the fault was used up
    EXPECT_EQ(*agent.GetSambaPrimaryNetworkEnabled(), 1);
    ASSERT_NE(agent.GetLoginSettings(), nullptr);
}

TEST_F(SettingsObjectTest, GPSIsReadWithThePrivacyAgreementRestored) {
    ardo::deviceStateSet("/settings/gpsPrivacyAgreementAccepted", 0);
    ardo::deviceStateSet("/gps/enabled", 1);
    TOLAAgent agent;
    ASSERT_NE(agent.GetGPSEnabled(), nullptr);
    EXPECT_EQ(*agent.GetGPSEnabled(), 1);
    int accepted = -1;
    ASSERT_EQ(sys_getGPSPrivacyAgreementAccepted(&accepted), 0);
    EXPECT_EQ(accepted, 0);
}

TEST_F(SettingsObjectTest, ResetClearsEveryListAndRestoresTheFolderCapacity) {
    TOLAAgent agent;
    struct Case {
        int* (TOLAAgent::*count)();
        int afterReset;  // also the value it is created with
    } cases[] = {{&TOLAAgent::GetMacCount, 0},
                 {&TOLAAgent::GetWhiteListMacCount, 0},
                 {&TOLAAgent::GetPortFilteringAppsCount, 0},
                 {&TOLAAgent::GetPortForwardingAppsCount, 0},
                 {&TOLAAgent::GetReservedAddrListCount, 0},
                 {&TOLAAgent::GetSambaFolderNamesCount, 10}};
    for (const Case& c : cases) {
        EXPECT_EQ(*(agent.*c.count)(), c.afterReset);
        *(agent.*c.count)() = 3;
    }
    agent.GetMacAddrList()[0].macAddress[0] = 'x';
    EXPECT_EQ(agent.ResetObjectData(), 0);
    for (const Case& c : cases) {
        EXPECT_EQ(*(agent.*c.count)(), c.afterReset);
    }
    EXPECT_EQ(agent.GetMacAddrList()[0].macAddress[0], '\0');
    EXPECT_STREQ(agent.GetErrorMessage(), "");
}

// An agent whose MAC list cannot be had.
class NoMacListAgent : public TOLAAgent {
  public:
    sys_mac_entry_t* GetMacAddrList() override { return nullptr; }
};

TEST_F(SettingsObjectTest, AFailedListDoesNotStopTheOthers) {
    NoMacListAgent agent;
    *agent.GetPortForwardingAppsCount() = 6;
    *agent.GetSambaFolderNamesCount() = 1;
    EXPECT_EQ(agent.ResetObjectData(), 200);
    EXPECT_STREQ(agent.GetErrorMessage(), "Reset Data - Received NULL pointer for mac count or mac list");
    EXPECT_EQ(*agent.GetPortForwardingAppsCount(), 0);
    EXPECT_EQ(*agent.GetSambaFolderNamesCount(), 10);
}

TEST_F(SettingsObjectTest, ErrorMessageIsBoundedAndReplaced) {
    TOLAAgent agent;
    agent.SetErrorMessage("first %d", 1);
    agent.SetErrorMessage("%s", std::string(5000, 'e').c_str());
    EXPECT_EQ(std::string(agent.GetErrorMessage()), std::string(1023, 'e'));
    agent.SetErrorMessage("code %d", 7);
    EXPECT_STREQ(agent.GetErrorMessage(), "code 7");
}

TEST_F(SettingsObjectTest, PresentFlagsMarkTheGroup) {
    TOLAAgent agent;
    EXPECT_FALSE(agent.IsPresent(TolaField::LANSettings));
    agent.SetPresent(TolaField::LANSettings_DHCPLeaseTime);
    EXPECT_TRUE(agent.IsPresent(TolaField::LANSettings));
    EXPECT_FALSE(agent.IsPresent(TolaField::LANSettings_DHCPEnabled));
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
