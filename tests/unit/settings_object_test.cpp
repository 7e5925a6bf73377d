// The settings object: members seeded from the simulated device, null when the device fails,
// the reset of the lists, the error message bound.
#include <gtest/gtest.h>

#include <string>

#include "app_fixture.h"
#include "device_state.h"
#include "tola_agent.h"

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

}  // namespace
