// tola-devicectl validate: the dry run against the simulated device, through the real binary.
#include <string>

#include "e2e_fixture.h"

namespace {

using tola_test::Devicectl;

TEST(DevicectlValidateE2E, PrintsTheOutcomeAndTheCallsWithoutTouchingTheDevice) {
    tola_test::TempRoot root;
    root.writeFile("/var/lib/ardo/device.json", R"({"settings": {"ledEnabled": 1}})");
    struct Case {
        const char* name;
        std::string document;
        int status;
        std::string output;  // the whole standard output
    } cases[] = {
        {"accepted",
         R"([{"LANSettings": {"DHCPLeaseTime": 600}, "DevicePreferences": {"LEDEnabled": false},
              "NetworkSettings": {"ConnectionPreference": "Manual Connection"}},
             {"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])",
         0,
         "code 0\nmessage \ncalls 4\n"
         "  MsgbusHandler::PublishData {\"channel\":\"ardo.tola.acl\",\"value\":1}\n"
         "  sys_setLANSettings {\"dhcpAddressCount\":101,\"dhcpEnabled\":1,\"dhcpEnd\":\"192.168.1.200\","
         "\"dhcpLeaseTime\":600,\"dhcpStart\":\"192.168.1.100\",\"ipAddress\":\"192.168.1.1\","
         "\"subnetMask\":\"255.255.255.0\"}\n"
         "  sys_setLEDEnabled 0\n"
         "  sys_setCellularDataConnectionPreference 2\n"
         "acl_config.xml rewritten\n"},
        {"accepted, nothing to set", "[{}]", 0,
         "code 0\nmessage \ncalls 1\n"
         "  MsgbusHandler::PublishData {\"channel\":\"ardo.tola.acl\",\"value\":1}\n"
         "acl_config.xml unchanged\n"},
        {"refused", R"([{"LANSettings": {"DHCPLeaseTime": "long"}}])", 1,
         "code 109\nmessage Invalid LAN Settings object DHCP lease time parameter data type\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        root.writeFile("/doc.json", c.document);
        std::string before = root.readFile("/var/lib/ardo/device.json");
        int status = -1;
        EXPECT_EQ(Devicectl("validate '" + root.path("/doc.json") + "'", "/dev/null", &status), c.output);
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(root.readFile("/var/lib/ardo/device.json"), before);
        EXPECT_FALSE(root.exists("/var/lib/ardo/calls.jsonl"));
        EXPECT_FALSE(root.exists("/opt/ardo/data/tola/acl_config.xml"));
    }
    int status = -1;
    Devicectl("validate '" + root.path("/missing.json") + "'", "/dev/null", &status);
    EXPECT_EQ(status, 1);
    Devicectl("validate", "/dev/null", &status);
    EXPECT_EQ(status, 2);
}

}  // namespace
