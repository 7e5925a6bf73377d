// The command lines of tola-devicectl and tola_agent as an operator types them: help, refusals by
// name, exit codes, and what validate and parse say about a faulty document.
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "e2e_fixture.h"

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

// Runs a shell command line; its exit status, standard output and standard error.
Outcome Shell(const std::string& command, const tola_test::TempRoot& root) {
    std::string errFile = root.dir() + "/stderr.txt";
    FILE* pipe = popen((command + " 2>'" + errFile + "'").c_str(), "r");
    Outcome run{-1, "", ""};
    char buffer[4096];
    for (size_t n; pipe != nullptr && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        run.out.append(buffer, n);
    }
    int rc = pipe != nullptr ? pclose(pipe) : -1;
    run.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    run.err = tola_test::readWholeFile(errFile);
    return run;
}

const std::string kCtl = "'" + std::string(TOLA_BIN_DIR) + "/tola-devicectl' ";
const std::string kAgent = "'" + tola_test::kAgentBinary + "' ";

TEST(DevicectlCliE2E, ConventionsAndDiagnoses) {
    tola_test::TempRoot root;
    tola_test::PrivateBus bus;
    // The agent's help starts nothing: no log, no record.
    EXPECT_EQ(Shell(kAgent + "--help", root).status, 0);
    EXPECT_FALSE(root.exists("/var/log/tola.log"));
    EXPECT_FALSE(root.exists(tola_test::kAclFile));
    root.writeFile("/syntax.json", "[{\"GPSSettings\": {\n  \"GPSEnabled\": true,, }}]");
    root.writeFile("/object.json", "{\"GPSSettings\": {}}");
    root.writeFile("/typo.json", "[{\"WiFiNetworkSettings\": {\"WifiSSID\": \"x\"}}]");
    root.writeFile("/port.json", "[{\"GPSSettings\": {\"GPSNMEAOverWiFiPortNumber\": 1023}}]");
    root.writeFile("/kind.json", "[{\"LANSettings\": {\"DHCPLeaseTime\": \"long\"}}]");
    root.writeFile("/empty.json", "[]");
    root.writeFile("/trailing.json", "[{}]\n x");
    root.writeFile("/nested.json",
                   "[{\"BlockedDevices\": [{\"DeviceMacAdress\": \"a\"}], \"PortFilteringSettings\": "
                   "{\"PortFilteringCustomApplications\": [{\"AppNme\": \"b\"}]}, "
                   "\"DevicePreferences\": {\"USBModePreferences\": {\"USBmode\": 1}}}]");
    std::string encrypted = Shell("echo hello | " + kCtl + "encrypt --key right", root).out;
    root.writeFile("/cipher.txt", encrypted);
    struct Case {
        std::string args;
        int status;
        std::string out;  // found in standard output
        std::string err;  // found in standard error
    } cases[] = {
        {kCtl + "--help", 0, "tola-devicectl validate FILE", ""},
        {kCtl + "help", 0, "Exit status: 0 success", ""},
        {kCtl + "help state", 0, "usage: tola-devicectl state show [PATH]", ""},
        {kCtl + "acl --help", 0, "usage: tola-devicectl acl", ""},
        {kCtl, 2, "", "tola-devicectl validate FILE"},
        {kCtl + "frobnicate", 2, "", "unknown verb 'frobnicate'"},
        {kCtl + "encrypt --kye x", 2, "", "unknown option '--kye'"},
        {kCtl + "acl extra", 2, "", "unexpected argument 'extra'"},
        {kCtl + "validate a b", 2, "", "unexpected argument 'b'"},
        {kCtl + "state show /power/reboots", 0, "0\n", "device root " + root.dir()},
        {kCtl + "state show /power/rebots", 1, "", "no part /power/rebots"},
        {kCtl + "state set /power/rebots 1", 2, "", "unknown path /power/rebots"},
        {kCtl + "state set /power/reboots true", 2, "", "holds a number"},
        {kCtl + "state set /power/reboots 3", 0, "", ""},
        {kCtl + "fault set sys_getLEDEnabld 1", 2, "", "unknown platform call 'sys_getLEDEnabld'"},
        {kCtl + "fault set sys_getLEDEnabled 1", 0, "", ""},
        {kCtl + "fault list", 0, "sys_rebootSystem\n", ""},
        {kCtl + "decrypt --key right < '" + root.path("/cipher.txt") + "'", 0, "hello", ""},
        {kCtl + "decrypt --key wrong < '" + root.path("/cipher.txt") + "'", 1, "", "not a text encrypted"},
        {"echo 'not base64!' | " + kCtl + "decrypt --key right", 1, "", "not a text encrypted"},
        {kCtl + "validate '" + root.path("/syntax.json") + "'", 1, "code 1", "line 2, column 22"},
        {kCtl + "validate '" + root.path("/object.json") + "'", 1, "code 1", "top level is an object"},
        {kCtl + "validate '" + root.path("/typo.json") + "'", 0, "code 0",
         "WifiSSID: unknown key, did you mean WiFiSSID?"},
        {kCtl + "validate '" + root.path("/port.json") + "'", 1, "code 159",
         "GPSSettings.GPSNMEAOverWiFiPortNumber = 1023: value not accepted"},
        {kCtl + "parse '" + root.path("/kind.json") + "'", 1, "\"code\": 109",
         "LANSettings.DHCPLeaseTime = \"long\": wrong JSON kind"},
        {kCtl + "validate '" + root.path("/empty.json") + "'", 1, "code 1", "top-level array is empty"},
        {kCtl + "validate '" + root.path("/trailing.json") + "'", 0, "code 0",
         "line 2, column 2: trailing garbage"},
        {kCtl + "validate '" + root.path("/nested.json") + "'", 0, "code 0",
         "DeviceMacAdress: unknown key, did you mean DeviceMacAddress? (in BlockedDevices"},
        {kCtl + "validate '" + root.path("/nested.json") + "'", 0, "code 0",
         "AppNme: unknown key, did you mean AppName? (in "
         "PortFilteringSettings.PortFilteringCustomApplications[]"},
        {kCtl + "validate '" + root.path("/nested.json") + "'", 0, "code 0",
         "USBmode: unknown key, did you mean USBMode? (in DevicePreferences.USBModePreferences"},
        {kCtl + "sms send '<103>'", 0, "<TOLA><", "no agent is subscribed to sms.msg.tola"},
        {kCtl + "status", 0, "reboots         3", ""},
        {kAgent + "--help", 0, "usage: tola_agent", ""},
        {kAgent + "--verbose", 2, "", "unknown option '--verbose'"},
        {kAgent + "now", 2, "", "unknown argument 'now'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        Outcome run = Shell(c.args, root);
        EXPECT_EQ(run.status, c.status) << run.err;
        EXPECT_NE(run.out.find(c.out), std::string::npos) << run.out;
        EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    }

    // status reads the agent's record: the flag, the URL and the key in use, masked.
    tola_test::StoreRecord("https://127.0.0.1:8443/", true, "fleet-key-0042");
    Outcome status = Shell(kCtl + "status", root);
    EXPECT_NE(status.out.find("check-in flag   true\n"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("check-in URL    https://127.0.0.1:8443/\n"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("key in use      fle...42 (14 characters)"), std::string::npos) << status.out;
    EXPECT_EQ(status.out.find("fleet-key-0042"), std::string::npos);
}

}  // namespace
