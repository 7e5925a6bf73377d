// The real tola_agent on a private bus: the quit signals, a failed start, and SMS commands end to
// end (tola-devicectl publishes on the bus, the real portal answers the check-ins).
#include "e2e_fixture.h"

namespace tola_test {
namespace {

using AgentSpineE2E = E2ETest;

TEST_F(AgentSpineE2E, QuitSignalsRunTheStopSequenceAndAFailedStartEndsWithZero) {
    size_t runs = 0;
    for (int sig : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(sig);
        StartAgent(++runs);
        EXPECT_TRUE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", false));
        agent->signal(sig);
        EXPECT_EQ(AgentEnds(10000), 0);
        EXPECT_EQ(countOf(Log(), "End TOLA Agent"), runs);
        EXPECT_FALSE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", true));
        EXPECT_EQ(0, ardo::deviceStateValue<int>("/sdk/sessions", -1));
        EXPECT_TRUE(root.exists(kAclFile));
    }
    // A start that fails (no configuration) still ends with status 0.
    root.remove(kLogFile);
    root.remove("/opt/ardo/etc/tola/config.xml");
    StartAgent();
    EXPECT_EQ(AgentEnds(10000), 0);
    EXPECT_HAS(Log(), "End TOLA Agent");
    EXPECT_LACKS(Log(), "TOLA started");
}

using SmsE2E = E2ETest;

// On a system bus an unprivileged user cannot command the agent, even one who knows the factory
// key: the shipped bus policy refuses the signal, and where a bus lets it through all the same,
// the platform drops it by its sender's user.
TEST_F(SmsE2E, OnlyRootReachesTheAgentOnASystemBus) {
    const std::string policy = std::string(TOLA_SOURCE_DIR) + "/packaging/dbus/com.ardo.Msgbus1.conf";
    const std::pair<std::string, bool> cases[] = {
        // extra policy, whether the bus refuses
        {"", true},  // the shipped policy
        {"<policy context=\"default\"><allow send_interface=\"com.ardo.Msgbus1\"/></policy>", false},
    };
    const std::string body = Encrypt(kFactoryKey, "<101>stolen-key");
    ASSERT_FALSE(body.empty());
    for (const auto& [extraPolicy, busRefuses] : cases) {
        SCOPED_TRACE(extraPolicy);
        PrivateBus systemBus(SystemStyleBusConfig({policy}, extraPolicy));
        root.remove(kLogFile);
        StoreRecord("", false, "old-key");
        StartAgent(1);
        Shell("setpriv --reuid=nobody --regid=nogroup --clear-groups busctl --address='" +
              systemBus.address() +
              "' emit /com/ardo/Msgbus com.ardo.Msgbus1 Notify sv sms.msg.tola s '<TOLA><" + body + ">'");
        // Root's command, sent after it: once it is stored, the other one has been dealt with.
        ASSERT_EQ(Shell(kCtl + "sms send --key old-key '<101>root-key'").status, 0);
        ASSERT_TRUE(waitForText(root.path(kAclFile), "<PayloadEncryptionKey>root-key<")) << Log();
        StopAgent();
        EXPECT_LACKS(Log(), "stolen-key");
        EXPECT_EQ(Log().find("Dropped a message on sms.msg.tola") == std::string::npos, busRefuses) << Log();
    }
}

// Key and URL provision a fresh device; a new URL sent later leads to a check-in there at once, not
// at the timer's next expiry.
TEST_F(SmsE2E, KeyAndUrlProvisionAFreshDeviceAndANewUrlLeadsToACheckIn) {
    StartPortal(false);
    Admin("/admin/provision",
          json{{"DeviceEncryptionKey", "provisioned-key"}, {"CheckInUrl", portalUrl}}.dump());
    StoreRecord("", true);  // as it leaves the factory: it would check in, but knows no portal
    StartAgent(1);
    ASSERT_TRUE(WaitForLog("Don't perform check-in, device hasn't been activated"));
    ASSERT_EQ(Shell(kCtl + "sms send '<104>" + portalUrl + "/provision'").status, 0);
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << Log();
    EXPECT_HAS(Acl(), "<PayloadEncryptionKey>provisioned-key</PayloadEncryptionKey>");
    ASSERT_EQ(Shell(kCtl + "sms send '<102>" + portalUrl + "/moved'").status, 0);
    EXPECT_TRUE(Eventually([&] { return countOf(readWholeFile(portalOut), "check-in from") >= 2; }, 20000))
        << Log();
    StopAgent();
    // Then a check-in under the key the portal handed out, and one at the new URL.
    json r = Received();
    ASSERT_GE(r.size(), 3u) << r.dump(2);
    EXPECT_EQ(json({r[0]["kind"], r[0]["imei"], r[0]["path"], r[1]["kind"], r[1]["key"], r.back()["path"]}),
              json({"provision", kImei, "/provision", "checkin", "device", "/moved"}));
}

}  // namespace
}  // namespace tola_test
