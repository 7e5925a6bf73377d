// SMS commands end to end: tola-devicectl publishes on the private bus, the real agent acts, the
// real portal answers the check-ins and the key-and-URL exchange.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <regex>

#include "device_state.h"
#include "http_helper.h"
#include "private_bus.h"
#include "test_env.h"
#include "tola_agent.h"

using ardo::json;
using tola_test::ChildProcess;
using tola_test::waitForText;

namespace {

const std::string kDevicectl = std::string(TOLA_BIN_DIR) + "/tola-devicectl";
const std::string kLog = "/var/log/tola.log";
const std::string kAcl = "/opt/ardo/data/tola/acl_config.xml";

class SmsE2E : public ::testing::Test {
  protected:
    void StartPortal() {
        portalOut = root.dir() + "/portal.out";
        portal = std::make_unique<ChildProcess>(
            std::string(TOLA_BIN_DIR) + "/tola-portal",
            std::vector<std::string>{"--dir", root.dir() + "/portal", "--no-https"}, portalOut);
        ASSERT_TRUE(waitForText(portalOut, "ready "));
        std::smatch m;
        std::string text = tola_test::readWholeFile(portalOut);
        ASSERT_TRUE(std::regex_search(text, m, std::regex("http=(\\d+)")));
        portalUrl = "http://127.0.0.1:" + m[1].str();
    }
    std::string Admin(const std::string& path, const std::string& body) {
        HttpHelper client;
        client.SetTimeout(5);
        std::string answer;
        int status = 0;
        client.ExecuteGetRequest(portalUrl + path, body, answer, status);
        return answer;
    }
    json Received() {
        json j = json::parse(Admin("/admin/received", ""), nullptr, false);
        return j.is_array() ? j : json::array();
    }

    void StartAgent() {
        agent = std::make_unique<ChildProcess>(std::string(TOLA_BIN_DIR) + "/tola_agent",
                                               std::vector<std::string>{}, root.dir() + "/agent.out");
        ASSERT_TRUE(waitForText(root.path(kLog), "TOLA started", 10000));
    }
    void StopAgent() {
        agent->signal(SIGTERM);
        int status = -1;
        EXPECT_TRUE(agent->waitForExit(status, 10000));
        agent.reset();
    }

    // Runs tola-devicectl sms ARGS; its exit status.
    int Sms(const std::string& args) {
        std::string command = "'" + kDevicectl + "' sms " + args + " >/dev/null 2>&1";
        int rc = std::system(command.c_str());
        return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
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
    bool WaitForAcl(const std::string& text) { return WaitFor(kAcl, text); }
    // The end of the agent's log, for failure messages.
    std::string LogTail() {
        std::string log = root.readFile(kLog);
        return log.size() > 6000 ? log.substr(log.size() - 6000) : log;
    }
    std::string Acl() { return root.readFile(kAcl); }
    // Stores the runtime record with the portal URL (no key) and the check-in flag.
    void StoreRecord(const std::string& url, bool checkIn) {
        TOLAAgent state;
        ASSERT_EQ(state.Initialize(), 0);
        tolaagent_runtime_config_t rc{};
        state.GetRuntimeConfig(rc);
        tola_copy_text(rc.checkInURL, url.c_str());
        tola_copy_text(rc.payloadEncryptionKey, "");
        rc.checkInFlag = checkIn;
        state.SetRuntimeConfig(rc);
        state.Uninitialize();
    }

    tola_test::TempRoot root;
    tola_test::PrivateBus bus;
    std::unique_ptr<ChildProcess> portal;
    std::unique_ptr<ChildProcess> agent;
    std::string portalOut, portalUrl;
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
    StopAgent();
}

TEST_F(SmsE2E, NewUrlLeadsToACheckInThere) {
    StartPortal();
    StartAgent();
    ASSERT_EQ(Sms("send '<102>" + portalUrl + "'"), 0);
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << LogTail();
    EXPECT_NE(Acl().find("<CheckInURL>" + portalUrl + "</CheckInURL>"), std::string::npos);
    EXPECT_NE(Acl().find("<CheckInFlag>true</CheckInFlag>"), std::string::npos);
    StopAgent();
}

TEST_F(SmsE2E, KeyAndUrlProvisionAFreshDevice) {
    StartPortal();
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
    StartPortal();
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
