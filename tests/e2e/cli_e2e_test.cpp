// The command lines of tola_agent, tola-devicectl and tola-portal as an operator types them: the
// cases in tests/corpus/e2e/cli_cases.tsv, run in order against one simulated device.
#include "e2e_fixture.h"

namespace tola_test {
namespace {

// An expected output: a part of the output, or all of it after '='.
void ExpectOutput(const std::string& actual, std::string expected, const char* what) {
    expected = Replace(expected, "\\n", "\n");
    if (!expected.empty() && expected[0] == '=') {
        EXPECT_EQ(actual, expected.substr(1)) << what;
    } else {
        EXPECT_HAS(actual, expected) << what;
    }
}

TEST(CliE2E, CasesFromTheTable) {
    TempRoot root;
    PrivateBus bus;
    const std::string docs = std::string(TOLA_SOURCE_DIR) + "/tests/corpus/e2e";
    for (std::vector<std::string> fields : ReadCases("cli_cases.tsv")) {
        fields.resize(4);
        std::string command = Replace(fields[0], "@CTL@", kCtl);
        command = Replace(command, "@AGENT@", "'" + kAgentBinary + "'");
        command = Replace(command, "@PORTAL@", "timeout 10 '" + kBin + "tola-portal'");  // if it starts
        command = Replace(Replace(command, "@ROOT@", root.dir()), "@DOCS@", docs);
        SCOPED_TRACE(command);
        std::string device = root.readFile("/var/lib/ardo/device.json");
        Outcome run = Shell("(" + command + ") < /dev/null");
        EXPECT_EQ(run.status, std::stoi(fields[1])) << run.err;
        ExpectOutput(run.out, fields[2], "standard output");
        ExpectOutput(run.err, Replace(fields[3], "@ROOT@", root.dir()), "standard error");
        if (command.find(" validate ") != std::string::npos) {
            EXPECT_EQ(root.readFile("/var/lib/ardo/device.json"), device);  // a dry run
        }
    }
    // status reads the agent's record: the flag, the URL and the key in use, masked.
    StoreRecord("https://127.0.0.1:8443/", true, "fleet-key-0042");
    std::string status = Shell(kCtl + "status").out;
    EXPECT_HAS(status, "check-in flag   true\n");
    EXPECT_HAS(status, "check-in URL    https://127.0.0.1:8443/\n");
    EXPECT_HAS(status, "key in use      fle...42 (14 characters)");
    EXPECT_LACKS(status, "fleet-key-0042");
}

}  // namespace
}  // namespace tola_test
