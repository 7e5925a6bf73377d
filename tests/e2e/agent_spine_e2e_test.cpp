// The real tola_agent on a simulated device with a private bus: start-up, the quit signals,
// a failed start, and what tola-devicectl shows of the agent's shared list and cipher.
#include <csignal>
#include <cstdlib>
#include <string>

#include "e2e_fixture.h"

namespace {

using tola_test::kAclFile;
const std::string& kAgent = tola_test::kAgentBinary;
using tola_test::Devicectl;

class AgentSpineE2E : public ::testing::Test {
  protected:
    void SetUp() override { setenv("ARDO_LOG_STDERR", "1", 1); }
    void TearDown() override { unsetenv("ARDO_LOG_STDERR"); }
    std::string output() const { return root.dir() + "/agent.out"; }

    tola_test::TempRoot root;
    tola_test::PrivateBus bus;
};

TEST_F(AgentSpineE2E, QuitSignalsRunTheStopSequence) {
    for (int sig : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(sig);
        std::string out = output() + std::to_string(sig);
        int status = -100;
        {
            tola_test::ChildProcess agent(kAgent, {}, out);
            ASSERT_TRUE(tola_test::waitForText(out, "TOLA started"));
            EXPECT_TRUE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", false));
            agent.signal(sig);
            ASSERT_TRUE(agent.waitForExit(status, 10000));
        }
        EXPECT_EQ(0, status);
        std::string text = tola_test::readWholeFile(out);
        for (const char* line : {"[TOLA]:[INFO] - Starting TOLA Agent",
                                 "[TOLA]:[NOTICE] - All initialization is done. We are in business now",
                                 "Unregistering tola with watchdog", "[TOLA]:[INFO] - End TOLA Agent"}) {
            EXPECT_NE(std::string::npos, text.find(line)) << line;
        }
        EXPECT_FALSE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", true));
        EXPECT_EQ(0, ardo::deviceStateValue<int>("/sdk/sessions", -1));
        EXPECT_TRUE(root.exists(kAclFile));
    }
}

TEST_F(AgentSpineE2E, FailedStartStillEndsWithStatusZero) {
    root.remove("/opt/ardo/etc/tola/config.xml");
    tola_test::ChildProcess agent(kAgent, {}, output());
    int status = -100;
    ASSERT_TRUE(agent.waitForExit(status, 10000));
    EXPECT_EQ(0, status);
    std::string text = tola_test::readWholeFile(output());
    EXPECT_NE(std::string::npos, text.find("Failed to read settings for agent"));
    EXPECT_NE(std::string::npos, text.find("End TOLA Agent"));
    EXPECT_EQ(std::string::npos, text.find("TOLA started"));
}

TEST_F(AgentSpineE2E, DevicectlSeesTheSharedListTheAgentLoaded) {
    int status = -1;
    Devicectl("acl", "/dev/null", &status);
    EXPECT_EQ(1, status);  // no segment before the agent's first start

    root.writeFile(
        kAclFile,
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ACLConfig>\n<TOLA>\n</TOLA>\n<ACL>"
        "\n<ACE>\n<Name>WiFiSSID</Name>\n<DisplayEnabled>True</DisplayEnabled>\n<WriteEnabled>False"
        "</WriteEnabled>\n</ACE>\n<ACE>\n<Name>" +
            std::string(120, 'n') +
            "</Name>\n<DisplayEnabled>False</DisplayEnabled>\n<WriteEnabled>True</WriteEnabled>\n</ACE>"
            "\n</ACL>\n</ACLConfig>");
    {
        tola_test::ChildProcess agent(kAgent, {}, output());
        ASSERT_TRUE(tola_test::waitForText(output(), "TOLA started"));
        agent.signal(SIGTERM);
        ASSERT_TRUE(agent.waitForExit(status, 10000));
    }
    // The segment outlives the agent, as on the device.
    std::string dump = Devicectl("acl", "/dev/null", &status);
    EXPECT_EQ(0, status);
    EXPECT_EQ("header: 1\ncount: 2\n0 name=WiFiSSID display=1 write=0\n1 name=" + std::string(100, 'n') +
                  " display=0 write=1\n",
              dump);
}

TEST_F(AgentSpineE2E, DevicectlCipherRoundTrip) {
    root.writeFile("/plain.txt", "{\"ResultCode\":0}\nsecond line");
    std::string encrypted = Devicectl("encrypt --key 'Key 1'", root.path("/plain.txt"));
    ASSERT_FALSE(encrypted.empty());
    EXPECT_EQ('\n', encrypted.back());
    EXPECT_EQ(std::string::npos, encrypted.substr(0, encrypted.size() - 1).find('\n'));
    root.writeFile("/cipher.txt", encrypted);
    int status = -1;
    EXPECT_EQ("{\"ResultCode\":0}\nsecond line",
              Devicectl("decrypt --key 'Key 1'", root.path("/cipher.txt"), &status));
    EXPECT_EQ(0, status);
    EXPECT_NE("{\"ResultCode\":0}\nsecond line",
              Devicectl("decrypt --key 'Key 2'", root.path("/cipher.txt")));
    Devicectl("encrypt", "/dev/null", &status);
    EXPECT_EQ(2, status);
}

}  // namespace
