// SMS commands end to end: tola-devicectl publishes on the private bus, the real agent acts, the
// real portal answers the check-ins and the key-and-URL exchange.
#include <unistd.h>

#include <cstdlib>
#include <regex>

#include "e2e_fixture.h"

using ardo::json;
using tola_test::kAclFile;
using tola_test::StoreRecord;
using tola_test::waitForText;

namespace {

const std::string kLog = "/var/log/tola.log";

class SmsE2E : public tola_test::E2ETest {
  protected:
    void StartAgent() {
        E2ETest::StartAgent();
        ASSERT_TRUE(waitForText(root.path(kLog), "TOLA started", 10000));
    }
    // Runs tola-devicectl sms ARGS; its exit status.
    int Sms(const std::string& args) {
        int status = -1;
        tola_test::Devicectl("sms " + args, "/dev/null", &status);
        return status;
    }
    // Waits until the file holds the text `count` times.
    bool WaitFor(const std::string& file, const std::string& text, size_t count = 1) {
        for (int waited = 0; waited < 10000; waited += 20) {
            std::string content = root.readFile(file);
            size_t n = 0;
            for (size_t at = content.find(text); at != std::string::npos; at = content.find(text, at + 1)) {
                ++n;
            }
            if (n >= count) {
                return true;
            }
            usleep(20000);
        }
        return false;
    }
    bool WaitForLog(const std::string& text, size_t count = 1) { return WaitFor(kLog, text, count); }
    // The record is stored just after the command's log line.
    bool WaitForAcl(const std::string& text) { return WaitFor(kAclFile, text); }
    // The end of the agent's log, for failure messages.
    std::string LogTail() {
        std::string log = Log();
        return log.size() > 6000 ? log.substr(log.size() - 6000) : log;
    }
};

TEST_F(SmsE2E, CommandsOnTheBusChangeTheStoredRecord) {
    StartAgent();
    ASSERT_EQ(Sms("send '<101>key-by-sms'"), 0);
    ASSERT_TRUE(WaitForLog("device specific key SMS received"));
    EXPECT_TRUE(WaitForAcl("<PayloadEncryptionKey>key-by-sms</PayloadEncryptionKey>")) << Acl();

    // Under the new key; then a malformed one, and one the agent cannot open: both refused.
    ASSERT_EQ(Sms("send --key key-by-sms '<150>apn.by.sms'"), 0);
    ASSERT_EQ(Sms("raw '<TOLA><not a command'"), 0);
    ASSERT_EQ(Sms("send --key unknown-key '<101>other'"), 0);
    ASSERT_TRUE(WaitForLog("Invalid SMS received", 2));
    EXPECT_TRUE(WaitForLog("APN SMS received"));
    EXPECT_NE(Acl().find("<PayloadEncryptionKey>key-by-sms</PayloadEncryptionKey>"), std::string::npos);
    EXPECT_EQ(ardo::deviceStateRead()["modem"]["profiles"]["0:1"]["apn"], "apn.by.sms");

    // A URL with a query and a key the record file cannot hold: refused, and the device still
    // knows its key after a restart.
    ASSERT_EQ(Sms("send --key key-by-sms '<102>http://portal.test/c?a=1&b=2'"), 0);
    ASSERT_EQ(Sms("send --key key-by-sms '<101>k<y'"), 0);
    ASSERT_TRUE(WaitForLog("refused, it cannot be stored", 2));
    StopAgent();
    E2ETest::StartAgent();
    ASSERT_TRUE(WaitForLog("TOLA started", 2));
    EXPECT_EQ(Log().find("looks like file got corrupted"), std::string::npos);
    EXPECT_NE(Acl().find("<PayloadEncryptionKey>key-by-sms</PayloadEncryptionKey>"), std::string::npos)
        << Acl();
    EXPECT_NE(Acl().find("<CheckInURL></CheckInURL>"), std::string::npos) << Acl();
    StopAgent();
}

// On a system bus an unprivileged user cannot command the agent, even one who knows the factory
// key: the shipped bus policy refuses the signal, and where a bus lets it through all the same,
// the platform drops it by its sender's user.
TEST_F(SmsE2E, OnlyRootReachesTheAgentOnASystemBus) {
    const std::string policy = std::string(TOLA_SOURCE_DIR) + "/packaging/dbus/com.ardo.Msgbus1.conf";
    struct Case {
        const char* name;
        std::string extraPolicy;
        bool busRefuses;
    } cases[] = {
        {"the shipped policy", "", true},
        {"a bus that lets everyone send",
         "<policy context=\"default\"><allow send_interface=\"com.ardo.Msgbus1\"/></policy>", false},
    };
    std::smatch key;
    std::string config = root.readFile("/opt/ardo/etc/tola/config.xml");
    ASSERT_TRUE(std::regex_search(config, key, std::regex("<BaseEncryptionKey>([^<]*)<")));
    root.writeFile("/plain", "<101>stolen-key");
    std::string body = tola_test::Devicectl("encrypt --key '" + key[1].str() + "'", root.path("/plain"));
    body.erase(body.find_last_not_of("\n") + 1);
    ASSERT_FALSE(body.empty());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        tola_test::PrivateBus systemBus(tola_test::SystemStyleBusConfig({policy}, c.extraPolicy));
        root.remove(kLog);
        StoreRecord("", false, "old-key");
        StartAgent();
        std::string emit = "setpriv --reuid=nobody --regid=nogroup --clear-groups busctl --address='" +
                           systemBus.address() +
                           "' emit /com/ardo/Msgbus com.ardo.Msgbus1 Notify sv sms.msg.tola s '<TOLA><" +
                           body + ">' 2>/dev/null";
        ASSERT_NE(std::system(emit.c_str()), -1);
        // Root's command, sent after it: once it is stored, the other one has been dealt with.
        ASSERT_EQ(Sms("send --key old-key '<101>root-key'"), 0);
        ASSERT_TRUE(WaitForAcl("<PayloadEncryptionKey>root-key</PayloadEncryptionKey>")) << LogTail();
        StopAgent();
        std::string log = Log();
        EXPECT_EQ(log.find("stolen-key"), std::string::npos) << LogTail();
        EXPECT_EQ(log.find("Dropped a message on sms.msg.tola") == std::string::npos, c.busRefuses)
            << LogTail();
    }
}

TEST_F(SmsE2E, NewUrlLeadsToACheckInThere) {
    StartPortal(false);
    StartAgent();
    ASSERT_EQ(Sms("send '<102>" + portalUrl + "'"), 0);
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << LogTail();
    EXPECT_NE(Acl().find("<CheckInURL>" + portalUrl + "</CheckInURL>"), std::string::npos);
    EXPECT_NE(Acl().find("<CheckInFlag>true</CheckInFlag>"), std::string::npos);
    StopAgent();
}

TEST_F(SmsE2E, KeyAndUrlProvisionAFreshDevice) {
    StartPortal(false);
    Admin("/admin/provision",
          json{{"DeviceEncryptionKey", "provisioned-key"}, {"CheckInUrl", portalUrl}}.dump());
    StoreRecord("", true);  // as it leaves the factory: it would check in, but knows no portal
    StartAgent();
    ASSERT_TRUE(WaitForLog("Don't perform check-in, device hasn't been activated"));
    ASSERT_EQ(Sms("send '<104>" + portalUrl + "/provision'"), 0);
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << LogTail();
    StopAgent();
    EXPECT_NE(Acl().find("<PayloadEncryptionKey>provisioned-key</PayloadEncryptionKey>"), std::string::npos);
    json received = Received();
    ASSERT_GE(received.size(), 2u) << received.dump(2);
    EXPECT_EQ(received[0]["kind"], "provision");
    EXPECT_EQ(received[0]["imei"], "356938035643809");
    EXPECT_EQ(received[0]["path"], "/provision");
    EXPECT_EQ(received[1]["kind"], "checkin");
    EXPECT_EQ(received[1]["key"], "device");  // opened with the key it handed out
}

TEST_F(SmsE2E, FactoryResetRestartsWithOrWithoutCheckIn) {
    StartPortal(false);
    struct Case {
        const char* argument;
        bool checksIn;
    } cases[] = {{"0", false}, {"1", true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.argument);
        StoreRecord(portalUrl, false);  // no check-in at start; only the reset decides
        ardo::deviceStateSet("/power/end_process_on_reboot", true);
        root.remove(kLog);
        StartAgent();
        ASSERT_EQ(Sms(std::string("send '<200>") + c.argument + "'"), 0);
        int status = -1;
        ASSERT_TRUE(agent->waitForExit(status, 10000));  // the reset restarts the device
        agent.reset();
        EXPECT_NE(Acl().find("<FactoryResetFlag>true</FactoryResetFlag>"), std::string::npos) << Acl();
        EXPECT_EQ(Acl().find(portalUrl) != std::string::npos, c.checksIn);

        size_t before = Received().size();
        StartAgent();
        if (c.checksIn) {
            ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000));
            EXPECT_TRUE(WaitForLog("MANUAL FACTORY RESET : Check In Flag is true"));
        } else {
            EXPECT_TRUE(WaitForLog("MANUAL FACTORY RESET : check In Flag is false"));
            usleep(300000);  // more than the boot wait at this time scale
            EXPECT_EQ(Received().size(), before);
        }
        StopAgent();
        EXPECT_NE(Acl().find("<FactoryResetFlag>false</FactoryResetFlag>"), std::string::npos);
    }
}

}  // namespace
