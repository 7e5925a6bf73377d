// The agent on the Linux backend against tola-portal and the ModemManager and logind stand-ins.
// The portal's name is answered by the hosts file under the root, so no DNS responder is needed.
#include "e2e_fixture.h"
#include "mock_services.h"

using tola_test::waitForText;

namespace {

const std::string kLinuxAgent = std::string(TOLA_BIN_DIR) + "/tola_agent_linux";

class LinuxAgentE2E : public tola_test::E2ETest {
  protected:
    void SetUp() override { ASSERT_TRUE(services.ok()) << "python3-dbusmock did not start"; }

    // An SMS command as the portal sends it: "<TOLA><" + the command encrypted under key + ">".
    bool Sms(const std::string& command, const std::string& key = tola_test::kFactoryKey) {
        return services.receiveSms(tola_test::Sms(command, key));
    }

    // The stand-ins' bus is the agent's device bus and its system bus.
    tola_test::MockServices services;
};

TEST_F(LinuxAgentE2E, CheckInRidesItsOwnBearerAndTakesItDown) {
    StartPortal(false);
    tola_test::StoreRecord("http://portal.tola.test:" + portalUrl.substr(portalUrl.rfind(':') + 1), true);
    StartAgent(1, kLinuxAgent);
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << Log();
    ASSERT_TRUE(tola_test::Eventually([&] { return services.modemJournal().size() >= 2; })) << Log();
    StopAgent();

    std::vector<std::string> journal = services.modemJournal();
    EXPECT_EQ(journal[0], "Connect apn= ip-type=4");
    EXPECT_EQ(journal[1].rfind("Disconnect /org/freedesktop/ModemManager1/Bearer/0", 0), 0u) << journal[1];
    ardo::json received = Received();
    ASSERT_GE(received.size(), 1u);
    EXPECT_EQ(received[0]["imei"], "867698041234567");  // the modem's, not the simulator's
}

TEST_F(LinuxAgentE2E, SmsFromTheModemReachTheAgentAndAResetReachesLogind) {
    tola_test::StoreRecord("", false);
    StartAgent(1, kLinuxAgent);
    ASSERT_TRUE(Sms("<101>key-by-sms"));
    EXPECT_TRUE(waitForText(root.path(tola_test::kAclFile), "<PayloadEncryptionKey>key-by-sms<")) << Log();
    ASSERT_TRUE(Sms("<200>0", "key-by-sms"));
    EXPECT_TRUE(tola_test::Eventually([&] { return services.logindReboots() == 1; })) << Log();
    EXPECT_TRUE(root.exists("/opt/ardo/data/tola/restore_ace_defaults"));
    StopAgent();
}

}  // namespace
