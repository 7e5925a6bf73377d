// tola-devicectl validate: the dry run against the simulated device, through the real binary.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "test_env.h"

namespace {

const std::string kDevicectl = std::string(TOLA_BIN_DIR) + "/tola-devicectl";

std::string run(const std::string& args, int* status) {
    FILE* pipe = popen(("'" + kDevicectl + "' " + args + " 2>/dev/null").c_str(), "r");
    std::string out;
    char buffer[4096];
    size_t n;
    while (pipe != nullptr && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        out.append(buffer, n);
    }
    int rc = pipe != nullptr ? pclose(pipe) : -1;
    *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return out;
}

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
        EXPECT_EQ(run("validate '" + root.path("/doc.json") + "'", &status), c.output);
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(root.readFile("/var/lib/ardo/device.json"), before);
        EXPECT_FALSE(root.exists("/var/lib/ardo/calls.jsonl"));
        EXPECT_FALSE(root.exists("/opt/ardo/data/tola/acl_config.xml"));
    }
    int status = -1;
    run("validate '" + root.path("/missing.json") + "'", &status);
    EXPECT_EQ(status, 1);
    run("validate", &status);
    EXPECT_EQ(status, 2);
}

}  // namespace
