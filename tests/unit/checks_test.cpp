// The address, port and text checks, over tables of inputs (corpus/cases/checks.txt). Their
// return conventions differ on purpose, so each case states the exact result.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "case_rows.h"
#include "device_state.h"
#include "test_env.h"
#include "tola_agent.h"

namespace {

using tola_test::CaseRow;

class ChecksTest : public ::testing::Test {
  protected:
    tola_test::TempRoot root;
    TOLAAgent agent;
};

TEST_F(ChecksTest, AddressChecksReturnOneForUnacceptable) {
    for (const CaseRow& c : tola_test::readCaseRows("checks.txt", "address")) {
        std::string ip = c[0];
        std::string results = std::to_string(agent.IsValidIP(&ip[0])) + " " +
                              std::to_string(agent.IsValidIPWithPrivateAddressRange(&ip[0])) + " " +
                              std::to_string(agent.IsvalidIpWithBroadcastRange(ip.c_str())) + " " +
                              std::to_string(agent.IsNetworkOrBroadcastIp(ip.c_str()));
        EXPECT_EQ(results, c[1]) << c.where;
    }
}

TEST_F(ChecksTest, TextsComparisonsAndRanges) {
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
