// The real agent against the real portal over HTTPS on a private bus.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <regex>

#include "canned_http.h"
#include "e2e_fixture.h"
#include "payload_cipher.h"

using ardo::json;
using tola_test::waitForText;

namespace {

class CheckInE2E : public tola_test::E2ETest {
  protected:
    void SetUp() override { unsetenv("ARDO_CA_FILE"); }
    void TearDown() override { unsetenv("ARDO_CA_FILE"); }

    // Stores the portal URL and a pending check-in, as an activated device has them.
    void Activate(const std::string& url) { tola_test::StoreRecord(url, true); }
    // A new device for the portal (it forgets the key it handed out before) and its next answer.
    void Script(const json& answer) {
        Admin("/admin/reset", "");
        int status = 0;
        Admin("/admin/answers", answer.dump(), &status);
        ASSERT_EQ(status, 200);
    }
};

TEST_F(CheckInE2E, PortalReceivesAFullyFilledRequestOverHttps) {
    StartPortal(true);
    setenv("ARDO_CA_FILE", caFile.c_str(), 1);
    Activate("https://portal.tola.test:" + httpsPort);
    StartAgent();
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << tola_test::readWholeFile(agentOut);
    // A stop aborts an exchange still running: let this one finish first.
    ASSERT_TRUE(
        waitForText(root.path("/opt/ardo/data/tola/acl_config.xml"), "<LastCommand>1</LastCommand>", 10000));
    StopAgent();
    json received = Received();
    ASSERT_GE(received.size(), 1u);
    const json& first = received[0];
    EXPECT_EQ(first["kind"], "checkin");
    EXPECT_EQ(first["imei"], "356938035643809");
    EXPECT_EQ(first["key"], "factory");
    ASSERT_TRUE(first["request"].is_object());
    EXPECT_EQ(first["request"].dump().find('%'), std::string::npos) << first["request"].dump();
    EXPECT_EQ(first["request"]["MDN"], "5551234567");
    EXPECT_NE(Acl().find("<LastCommand>1</LastCommand>"), std::string::npos) << Acl();
}

TEST_F(CheckInE2E, StopDuringTheBootWaitSendsNothing) {
    StartPortal(true);
    setenv("ARDO_CA_FILE", caFile.c_str(), 1);
    Activate("https://portal.tola.test:" + httpsPort);
    setenv("ARDO_TIME_SCALE", "1", 1);  // a real two-minute boot wait (TempRoot restores the scale)
    StartAgent();
    ASSERT_TRUE(waitForText(root.path("/var/log/tola.log"), "sleep for 120 seconds to modem up", 20000));
    StopAgent();  // exits within its 10 s only because the stop ends the wait
    EXPECT_TRUE(Received().empty());
    std::string log = Log();
    EXPECT_NE(log.find("Process is stopping, no check-in with server."), std::string::npos);
    EXPECT_EQ(log.find("Contacting server now"), std::string::npos);
    EXPECT_NE(log.find("End TOLA Agent"), std::string::npos);
}

TEST_F(CheckInE2E, ResultCodesChangeKeyUrlAndFlag) {
    const json kDocument = json::parse(R"([{"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])");
    struct Case {
        json answer;
        std::vector<std::string> expected;  // the first is waited for
    } cases[] = {
        // Each code's change arrives with a configuration: applied, confirmed with a receipt, the
        // new version kept. (The codes without one are covered by the unit tests of the answer.)
        {{{"ResultCode", 94},
          {"Version", "4"},
          {"DeviceEncryptionKey", "key-with-config"},
          {"Configuration", kDocument}},
         {"<AclConfigStatus>2</AclConfigStatus>",
          "<PayloadEncryptionKey>key-with-config</PayloadEncryptionKey>", "<Version>4</Version>",
          "<Name>WiFiSSID</Name>"}},
        {{{"ResultCode", 96},
          {"Version", "5"},
          {"CheckInUrl", "https://127.0.0.1:PORT"},
          {"Configuration", kDocument}},
         {"<AclConfigStatus>2</AclConfigStatus>", "<CheckInURL>https://127.0.0.1:", "<Version>5</Version>"}},
        // A new URL that the answer does not carry: the old one stays and the receipt goes there.
        {{{"ResultCode", 96}, {"Version", "7"}, {"Configuration", kDocument}},
         {"<AclConfigStatus>2</AclConfigStatus>",
          "<CheckInURL>https://portal.tola.test:", "<Version>7</Version>"}},
        {{{"ResultCode", 98}, {"Version", "6"}, {"Configuration", kDocument}},
         {"<AclConfigStatus>2</AclConfigStatus>", "<CheckInFlag>false</CheckInFlag>",
          "<Version>6</Version>"}},
    };
    StartPortal(true);
    setenv("ARDO_CA_FILE", caFile.c_str(), 1);
    for (Case& c : cases) {
        if (c.answer.contains("CheckInUrl")) {
            c.answer["CheckInUrl"] =
                std::regex_replace(c.answer["CheckInUrl"].get<std::string>(), std::regex("PORT"), httpsPort);
        }
        SCOPED_TRACE(c.answer.dump());
        root.remove("/opt/ardo/data/tola/acl_config.xml");
        root.remove("/opt/ardo/data/tola/acl_config.xml.bkp");
        Activate("https://portal.tola.test:" + httpsPort);
        Script(c.answer);
        size_t before = Received().size();
        StartAgent();
        for (int i = 0; i < 200 && Received().size() == before; ++i) {
            usleep(50 * 1000);
        }
        ASSERT_GT(Received().size(), before);
        ASSERT_TRUE(waitForText(root.path("/opt/ardo/data/tola/acl_config.xml"), c.expected[0], 10000))
            << Acl();
        StopAgent();
        for (const std::string& text : c.expected) {
            EXPECT_NE(Acl().find(text), std::string::npos) << text << Acl();
        }
        json last = Received().back();
        EXPECT_EQ(last["kind"], "receipt") << last.dump();
        EXPECT_EQ(last["request"]["ErrorCode"], "0") << last.dump();
    }
}

// A refused and an accepted document, each through the real agent and portal (a freshly started
// agent, as every document meets on a device): the receipt carries the outcome, and the device
// reboots after each (the agent process ends, as on a device). The refused case needs the
// validators (the LAN group refuses a public router address); its access-control entries,
// set while it was read, are gone again from the shared list and the file.
TEST_F(CheckInE2E, RefusedAndAcceptedDocumentsAreConfirmedAndFollowedByAReboot) {
    struct Case {
        const char* name;
        json document;
        const char* code;
        const char* message;
        int ledAfter;  // the device's LED switch afterwards (factory: 1)
        const char* aclStatus;
        const char* writeEnabled;  // WiFiSSID's, unlocked before the document
    } cases[] = {
        {"refused",
         json::parse(
             R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}, "DevicePreferences": {"LEDEnabled": false}},
                         {"AccessControlSettings": {"WiFiSSID": {"Lock": true}, "GPSEnabled": {"Hide": true}}}])"),
         "158", "Invalid Private IP address or network address or broadcast address . ", 1,
         "<AclConfigStatus>0</AclConfigStatus>", "True"},
        {"accepted", json::parse(R"([{"DevicePreferences": {"LEDEnabled": false},
                         "VornSharingSettings": {"VornSharingTopLevelFolder": [{"FolderName": "Music"}]}},
                         {"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])"),
         "0", "", 0, "<AclConfigStatus>2</AclConfigStatus>", "False"},
    };
    StartPortal(true);
    setenv("ARDO_CA_FILE", caFile.c_str(), 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        root.remove("/var/lib/ardo/device.json");
        root.remove("/var/lib/ardo/calls.jsonl");
        root.remove("/opt/ardo/data/tola/acl_config.xml");
        root.remove("/opt/ardo/data/tola/acl_config.xml.bkp");
        ardo::deviceStateSet("/power/end_process_on_reboot", true);
        root.writeFile(tola_test::kAclFile,
                       "<ACLConfig><TOLA/><ACL><ACE><Name>WiFiSSID</Name>"
                       "<DisplayEnabled>True</DisplayEnabled><WriteEnabled>True"
                       "</WriteEnabled></ACE></ACL></ACLConfig>");
        Activate("https://portal.tola.test:" + httpsPort);
        Script({{"ResultCode", 0}, {"Version", "7"}, {"Configuration", c.document}});
        StartAgent();
        int exitStatus = -1;
        ASSERT_TRUE(agent->waitForExit(exitStatus, 30000)) << tola_test::readWholeFile(agentOut);
        agent.reset();
        EXPECT_EQ(exitStatus, 0);
        EXPECT_EQ(ardo::deviceStateValue<int>("/power/reboots", 0), 1);

        json last = Received().back();
        ASSERT_EQ(last["kind"], "receipt") << last.dump();
        EXPECT_EQ(last["request"]["ErrorCode"], c.code);
        EXPECT_EQ(last["request"]["ErrorMessage"], c.message);
        EXPECT_NE(tola_test::readWholeFile(portalOut).find(std::string("ErrorCode ") + c.code +
                                                           " ErrorMessage " + json(c.message).dump()),
                  std::string::npos);
        EXPECT_EQ(ardo::deviceStateValue<int>("/settings/ledEnabled", -1), c.ledAfter);
        EXPECT_NE(Acl().find(c.aclStatus), std::string::npos) << Acl();
        std::string ace = std::string("<Name>WiFiSSID</Name>\n<DisplayEnabled>True</DisplayEnabled>\n") +
                          "<WriteEnabled>" + c.writeEnabled + "</WriteEnabled>\n</ACE>\n</ACL>";
        EXPECT_NE(Acl().find(ace), std::string::npos) << Acl();
        EXPECT_EQ(tola_test::Devicectl("acl"),
                  std::string("header: 1\ncount: 1\n0 name=WiFiSSID display=1 write=") +
                      (c.ledAfter == 0 ? "0\n" : "1\n"));
        std::string journal = root.readFile("/var/lib/ardo/calls.jsonl");
        EXPECT_EQ(journal.find("ardo.tola.acl") != std::string::npos, c.ledAfter == 0);
        EXPECT_EQ(journal.find("sys_setSambaFolderSettings") != std::string::npos, c.ledAfter == 0);
        if (c.ledAfter == 0) {
            EXPECT_LT(journal.find("ardo.tola.acl"), journal.find("sys_setLEDEnabled"));
        }
        EXPECT_NE(journal.find("sys_rebootSystem"), std::string::npos);
        EXPECT_NE(Log().find("Configuration is applied successfully. Rebooting system."), std::string::npos);
    }
}

// A configuration downloaded before a restart is applied at the next start; its receipt names
// the device, though no check-in has run yet.
TEST_F(CheckInE2E, ADownloadedConfigurationIsConfirmedAtStartUpWithTheDeviceIdentity) {
    StartPortal(false);
    tola_test::StoreRecord(portalUrl, false, "", 1);
    char* cipher = nullptr;
    ASSERT_EQ(
        AesEncrypt("VeltraFactoryKey-2017", R"([{"DevicePreferences": {"LEDEnabled": false}}])", &cipher), 0);
    root.writeFile("/opt/ardo/data/tola/tola_downloaded_config",
                   json({{"ResultCode", 0}, {"Version", "8"}, {"EncryptedConfiguration", cipher}}).dump());
    std::free(cipher);
    ardo::deviceStateSet("/power/end_process_on_reboot", true);
    StartAgent();
    int exitStatus = -1;
    ASSERT_TRUE(agent->waitForExit(exitStatus, 30000)) << tola_test::readWholeFile(agentOut);
    agent.reset();
    ASSERT_EQ(Received().size(), 1u);
    EXPECT_EQ(Received()[0]["kind"], "receipt");
    EXPECT_EQ(Received()[0]["imei"], "356938035643809");
    EXPECT_EQ(Received()[0]["request"]["ErrorCode"], "0");
}

// The self-signed certificate is trusted by nobody while ARDO_CA_FILE is unset: every attempt
// fails, and the attempts stop at the configured count (a refused connection is covered by the
// unit tests of the check-in).
TEST_F(CheckInE2E, UntrustedCertificateIsRefusedForTheConfiguredAttempts) {
    StartPortal(true);
    Activate("https://portal.tola.test:" + httpsPort);
    StartAgent();
    ASSERT_TRUE(waitForText(root.path("/var/log/tola.log"), "Checking server - attempt [3]", 20000));
    ASSERT_TRUE(waitForText(root.path("/var/log/tola.log"), "Disconnecting apps APN call", 5000));
    usleep(500 * 1000);  // a fourth attempt would follow within the compressed retry wait
    StopAgent();
    for (const json& r : Received()) {
        EXPECT_NE(r.value("kind", ""), "checkin");
    }
    std::string log = Log();
    EXPECT_EQ(log.find("Checking server - attempt [4]"), std::string::npos);
    const std::regex failed("HTTP request failed");
    EXPECT_EQ(std::distance(std::sregex_iterator(log.begin(), log.end(), failed), std::sregex_iterator()), 3);
}

// A portal that takes the request and never answers, with no time limit configured: a stop
// still ends the agent at once, rather than after the exchange (which would never end).
TEST_F(CheckInE2E, StopEndsAStalledExchange) {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(listener, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 8), 0);  // the kernel completes the connection; nobody reads
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    std::string config = root.readFile("/opt/ardo/etc/tola/config.xml");
    root.writeFile("/opt/ardo/etc/tola/config.xml",
                   std::regex_replace(config, std::regex("<RequestTimeout>\\d+<"), "<RequestTimeout>0<"));
    Activate("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)));
    StartAgent();
    ASSERT_TRUE(waitForText(root.path("/var/log/tola.log"), "Checking server - attempt [1]", 20000));
    usleep(200 * 1000);  // the request is out and waits for its answer
    StopAgent();
    close(listener);
}

// A hostile answer nested a million levels deep is refused as malformed, and the agent's memory
// comes back to where it was.
TEST_F(CheckInE2E, DeeplyNestedAnswerCostsNoLastingMemory) {
    tola_test::CannedHttpServer portal({R"({"ResultCode":1,"Version":"1"})", std::string(1 << 20, '['),
                                        R"({"ResultCode":1,"Version":"1"})"});
    Activate(portal.url());
    StartAgent();
    auto rssKb = [this] {
        std::smatch m;
        std::string status = tola_test::readWholeFile("/proc/" + std::to_string(agent->pid()) + "/status");
        return std::regex_search(status, m, std::regex("VmRSS:\\s+(\\d+)")) ? std::stol(m[1]) : -1L;
    };
    for (int i = 0; i < 400 && portal.bodies().size() < 1; ++i) {
        usleep(25 * 1000);
    }
    ASSERT_TRUE(waitForText(root.path("/var/log/tola.log"), "Success no new configuration follows", 10000));
    long before = rssKb();
    ASSERT_EQ(tola_test::Devicectl("sms send '<103>'").empty(), false);
    ASSERT_TRUE(waitForText(root.path("/var/log/tola.log"), "Failed to parse Check-in Response", 20000));
    for (int i = 0; i < 400 && portal.bodies().size() < 3; ++i) {
        usleep(25 * 1000);
    }
    ASSERT_EQ(portal.bodies().size(), 3u);  // the answer after the hostile one was taken
    long after = rssKb();
    StopAgent();
    EXPECT_LT(after - before, 16 * 1024) << before << " kB before, " << after << " kB after";
    std::printf("resident memory around a hostile answer: %ld kB before, %ld kB after\n", before, after);
}

}  // namespace
