// The real tola_agent on a simulated device with a private bus: the quit signals, a failed
// start, and the shared list it leaves to tola-devicectl.
#include "e2e_fixture.h"

namespace tola_test {
namespace {

using AgentSpineE2E = E2ETest;

TEST_F(AgentSpineE2E, QuitSignalsRunTheStopSequence) {
    size_t runs = 0;
    for (int sig : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(sig);
        StartAgent(++runs);
        EXPECT_TRUE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", false));
        agent->signal(sig);
        EXPECT_EQ(AgentEnds(10000), 0);
        EXPECT_EQ(Count(Log(), "End TOLA Agent"), runs);
        EXPECT_FALSE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", true));
        EXPECT_EQ(0, ardo::deviceStateValue<int>("/sdk/sessions", -1));
        EXPECT_TRUE(root.exists(kAclFile));
    }
}

TEST_F(AgentSpineE2E, FailedStartStillEndsWithStatusZero) {
    setenv("ARDO_LOG_STDERR", "1", 1);
    root.remove("/opt/ardo/etc/tola/config.xml");
    StartAgent();
    std::string out = agentOut;
    EXPECT_EQ(AgentEnds(10000), 0);
    unsetenv("ARDO_LOG_STDERR");
    EXPECT_HAS(readWholeFile(out), "Failed to read settings for agent");
    EXPECT_HAS(readWholeFile(out), "End TOLA Agent");
    EXPECT_LACKS(readWholeFile(out), "TOLA started");
}

TEST_F(AgentSpineE2E, DevicectlSeesTheSharedListTheAgentLoaded) {
    auto ace = [](const std::string& name, const char* display, const char* write) {
        return "<ACE><Name>" + name + "</Name><DisplayEnabled>" + display +
               "</DisplayEnabled><WriteEnabled>" + write + "</WriteEnabled></ACE>";
    };
    root.writeFile(kAclFile, "<ACLConfig><TOLA/><ACL>" + ace("WiFiSSID", "True", "False") +
                                 ace(std::string(120, 'n'), "False", "True") + "</ACL></ACLConfig>");
    StartAgent(1);
    StopAgent();
    // The segment outlives the agent, as on the device.
    int status = -1;
    EXPECT_EQ(Devicectl("acl", "/dev/null", &status),
              "header: 1\ncount: 2\n0 name=WiFiSSID display=1 write=0\n1 name=" + std::string(100, 'n') +
                  " display=0 write=1\n");
    EXPECT_EQ(0, status);
}

}  // namespace
}  // namespace tola_test
