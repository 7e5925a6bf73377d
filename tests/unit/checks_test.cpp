// The address, port and text checks, over tables of inputs (corpus/cases/checks.txt). Their
// return conventions differ on purpose, so each case states the exact result.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "case_rows.h"
#include "device_state.h"
#include "test_env.h"
#include "tola_agent.h"

namespace {

class ChecksTest : public ::testing::Test {
  protected:
    tola_test::TempRoot root;
    TOLAAgent agent;
};

TEST_F(ChecksTest, AddressChecksReturnOneForUnacceptable) {
    for (const tola_test::CaseRow& c : tola_test::readCaseRows("checks.txt", "address")) {
        std::string ip = c[0];
        std::string results = std::to_string(agent.IsValidIP(&ip[0])) + " " +
                              std::to_string(agent.IsValidIPWithPrivateAddressRange(&ip[0])) + " " +
                              std::to_string(agent.IsvalidIpWithBroadcastRange(ip.c_str())) + " " +
                              std::to_string(agent.IsNetworkOrBroadcastIp(ip.c_str()));
        EXPECT_EQ(results, c[1]) << c.where;
    }
}

TEST_F(ChecksTest, SiteNamesDatesAndMacAddresses) {
    for (const auto& c : tola_test::readCaseRows("checks.txt", "site")) {
        EXPECT_EQ(agent.CheckForValidSiteName(c[0].c_str()), c.num(1)) << c.where;
    }
    for (const auto& c : tola_test::readCaseRows("checks.txt", "date")) {
        EXPECT_EQ(agent.isValidDateFormat(c[0].c_str()), c.num(1) == 1) << c.where;
    }
    for (const auto& c : tola_test::readCaseRows("checks.txt", "mac")) {
        EXPECT_EQ(agent.IsValidMacAddress(c[0].c_str()), c.num(1) == 1) << c.where;
    }
    EXPECT_EQ(agent.CheckIsFullURL("example.com/path"), 1);
    EXPECT_EQ(agent.CheckIsFullURL("example.com"), 0);
}

TEST_F(ChecksTest, ComparisonsAndRanges) {
    char ip[] = "192.168.1.10";
    EXPECT_EQ(agent.IPToInt32(ip), 0xC0A8010Au);
    EXPECT_EQ(agent.CheckSubnetMatch("192.168.1.1", "255.255.255.0", "192.168.1.200"), 1);
    EXPECT_EQ(agent.CheckSubnetMatch("192.168.1.1", "255.255.255.0", "192.168.2.1"), 0);
    EXPECT_TRUE(agent.validateIpWithDhcpRange("192.168.1.100", "192.168.1.100", "192.168.1.200"));
    EXPECT_TRUE(agent.validateIpWithDhcpRange("192.168.1.200", "192.168.1.100", "192.168.1.200"));
    EXPECT_FALSE(agent.validateIpWithDhcpRange("192.168.1.201", "192.168.1.100", "192.168.1.200"));
    EXPECT_EQ(agent.IsValidIpWithDhcp("192.168.1.1", "192.168.1.2"), 1);
    EXPECT_EQ(agent.IsValidIpWithDhcp("192.168.1.2", "192.168.1.2"), 0);
    // The DHCP range counts the broadcast address.
    EXPECT_EQ(agent.IsValidDhcpRange("192.168.1.200", 56), 1);
    EXPECT_EQ(agent.IsValidDhcpRange("192.168.1.200", 55), 0);
    EXPECT_EQ(agent.IsValidDhcpRange("not an ip", 1), 1);
    // Port ranges overlap when they touch.
    EXPECT_FALSE(agent.CheckPortRanges(10, 20, 20, 30));
    EXPECT_TRUE(agent.CheckPortRanges(10, 19, 20, 30));
    EXPECT_FALSE(agent.CheckPortRanges(20, 30, 10, 20));
    EXPECT_FALSE(agent.CheckPortRanges(10, 40, 20, 30));
}

TEST_F(ChecksTest, NonPrintableCharacters) {
    EXPECT_FALSE(agent.HasNonPrintableChars(nullptr));
    EXPECT_FALSE(agent.HasNonPrintableChars(""));
    EXPECT_FALSE(agent.HasNonPrintableChars(" ~Az09"));
    EXPECT_TRUE(agent.HasNonPrintableChars("tab\there"));
    EXPECT_TRUE(agent.HasNonPrintableChars("caf\xc3\xa9"));
    EXPECT_TRUE(agent.HasNonPrintableChars("del\x7f"));
}

TEST_F(ChecksTest, SameSubnetUsesTheDeviceLAN) {
    // Factory LAN: 192.168.1.1/24.
    EXPECT_TRUE(agent.CheckForSameSubnet(inet_addr("192.168.1.77")));
    EXPECT_FALSE(agent.CheckForSameSubnet(inet_addr("192.168.2.77")));
    // The LAN settings are cached until the next reset; unreadable settings answer false.
    ardo::deviceStateSet("/faults/sys_getLANSettings", 2);
    EXPECT_TRUE(agent.CheckForSameSubnet(inet_addr("192.168.1.77")));
    agent.ResetObjectData();
    EXPECT_FALSE(agent.CheckForSameSubnet(inet_addr("192.168.1.77")));
}

}  // namespace
