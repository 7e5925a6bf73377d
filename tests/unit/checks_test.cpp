// The address, port and text checks, over tables of inputs. Their return conventions differ on
// purpose, so each table states the exact result.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

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
    struct Case {
        std::string ip;
        int valid, privateRange, broadcastRange, networkOrBroadcast;
    } cases[] = {
        // ip, IsValidIP, IsValidIPWithPrivateAddressRange, IsvalidIpWithBroadcastRange,
        // IsNetworkOrBroadcastIp
        {"", 1, 1, 1, 1},  // an unread fourth number counts as 0
        {"1.2.3.4", 0, 1, 0, 0},
        {"172.32.0.1", 0, 1, 0, 0},
        {"192.169.0.1", 0, 1, 0, 0},
        {"172.31.255.254", 0, 0, 0, 0},
        {"172.16.0.1", 0, 0, 0, 0},
        {"10.300.1.1", 1, 0, 0, 0},
        {"192.168.1.255", 0, 0, 1, 1},
        {"0.1.2.3", 0, 1, 1, 0},
        {"192.168.1.1", 0, 0, 0, 0},
        {"192.168.1.0", 0, 0, 1, 1},
        {"192.168", 1, 1, 1, 1},  // prefix of a reserved network; unparsable
        {"abc", 1, 1, 1, 1},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.ip);
        EXPECT_EQ(agent.IsValidIP(&c.ip[0]), c.valid);
        EXPECT_EQ(agent.IsValidIPWithPrivateAddressRange(&c.ip[0]), c.privateRange);
        EXPECT_EQ(agent.IsvalidIpWithBroadcastRange(c.ip.c_str()), c.broadcastRange);
        EXPECT_EQ(agent.IsNetworkOrBroadcastIp(c.ip.c_str()), c.networkOrBroadcast);
    }
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

TEST_F(ChecksTest, SiteNamesAndURLs) {
    struct Case {
        const char* site;
        int result;
    } cases[] = {{"example.com", 0},     {"a-b.example.org", 0}, {"Ftp.example.com", 0},
                 {"ftp.example.com", 1}, {"FTP.example.com", 1}, {"localhost", 1},
                 {"example.c0m", 1},     {"exa mple.com", 1},    {"example.c", 1}};
    for (const Case& c : cases) {
        EXPECT_EQ(agent.CheckForValidSiteName(c.site), c.result) << c.site;
    }
    EXPECT_EQ(agent.CheckIsFullURL("example.com/path"), 1);
    EXPECT_EQ(agent.CheckIsFullURL("example.com"), 0);
}

TEST_F(ChecksTest, DatesAreCheckedByShapeOnly) {
    struct Case {
        const char* date;
        bool valid;
    } cases[] = {{"12-31-2020", true},  {"02/31/2024", true},  {"01/02-1990", true},
                 {"2020-12-31", false}, {"13/01/2020", false}, {"1/01/2020", false},
                 {"12/00/2020", false}, {"12/31/20", false},   {"", false}};
    for (const Case& c : cases) {
        EXPECT_EQ(agent.isValidDateFormat(c.date), c.valid) << c.date;
    }
}

TEST_F(ChecksTest, MacAddresses) {
    struct Case {
        const char* mac;
        bool valid;
    } cases[] = {
        {"001122334455", true},          {"00:11:22:33:44:55", true},  {"00-11-22-33-44-55", true},
        {"00:11-22:33-44:55", true},     {"aA:bB:cC:dD:eE:fF", true},  {"", false},
        {":00:11:22:33:44:55", false},   {"0:011:22:33:44:55", false}, {"00:11:22:33:44", false},
        {"00:11:22:33:44:55:", false},   {"00:11:22:33:44:5g", false}, {"0011:22:33:44:55", false},
        {"00:11:22:33:44:55:66", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(agent.IsValidMacAddress(c.mac), c.valid) << c.mac;
    }
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
