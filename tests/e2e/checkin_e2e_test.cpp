// The real agent against the real portal over HTTPS on a private bus.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "canned_http.h"
#include "e2e_fixture.h"
#include "payload_cipher.h"

namespace tola_test {
namespace {

class CheckInE2E : public E2ETest {
  protected:
    // A new device for the portal (it forgets the key it handed out before) and its next answer.
    void Script(const json& answer) {
        Admin("/admin/reset", "");
        Admin("/admin/answers", answer.dump());
        ASSERT_EQ(adminStatus, 200);
    }
};

TEST_F(CheckInE2E, StopDuringTheBootWaitSendsNothing) {
    StartPortal(true);
    StoreRecord(httpsUrl, true);
    setenv("ARDO_TIME_SCALE", "1", 1);  // a real two-minute boot wait (TempRoot restores the scale)
    StartAgent();
    ASSERT_TRUE(WaitForLog("sleep for 120 seconds to modem up", 1, 20000));
    StopAgent();  // exits within its 10 s only because the stop ends the wait
    EXPECT_TRUE(Received().empty());
    EXPECT_HAS(Log(), "Process is stopping, no check-in with server.");
}

// A fully filled check-in over HTTPS whose answer hands out a key with a configuration: applied,
// confirmed with a receipt, the new key and version kept. (Each code's own change is the unit
// tests' of the answer.)
TEST_F(CheckInE2E, AnAnswerWithAKeyAndAConfigurationIsAppliedAndConfirmed) {
    StartPortal(true);
    StoreRecord(httpsUrl, true);
    Script({{"ResultCode", 94},
            {"Version", "4"},
            {"DeviceEncryptionKey", "key-with-config"},
            {"Configuration", json::parse(R"([{"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])")}});
    StartAgent();
    ASSERT_TRUE(waitForText(root.path(kAclFile), "<AclConfigStatus>2</AclConfigStatus>", 15000)) << Acl();
    StopAgent();
    for (const char* text : {"<PayloadEncryptionKey>key-with-config</PayloadEncryptionKey>",
                             "<Version>4</Version>", "<Name>WiFiSSID</Name>"}) {
        EXPECT_HAS(Acl(), text);
    }
    json received = Received();
    ASSERT_GE(received.size(), 2u);
    const json& checkin = received[0];
    EXPECT_EQ(checkin["kind"], "checkin");
    EXPECT_EQ(checkin["imei"], kImei);
    EXPECT_EQ(checkin["key"], "factory");  // the record holds no key of the device's own
    EXPECT_LACKS(checkin["request"].dump(), "%");
    EXPECT_EQ(checkin["request"]["MDN"], "5551234567");
    EXPECT_EQ(received.back()["kind"], "receipt") << received.back().dump();
    EXPECT_EQ(received.back()["request"]["ErrorCode"], "0") << received.back().dump();
}

// A refused and an accepted document, each through a freshly started agent: the receipt carries
// the outcome, and the device reboots after each (the agent process ends, as on a device). The
// refused document's access-control entries, set while it was read, are gone again from the
// shared list and the file.
TEST_F(CheckInE2E, RefusedAndAcceptedDocumentsAreConfirmedAndFollowedByAReboot) {
    struct Case {
        const char* document;
        const char* code;
        const char* message;
        bool accepted;
    } cases[] = {
        {R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}, "DevicePreferences": {"LEDEnabled": false}},
             {"AccessControlSettings": {"WiFiSSID": {"Lock": true}, "GPSEnabled": {"Hide": true}}}])",
         "158", "Invalid Private IP address or network address or broadcast address . ", false},
        {R"([{"DevicePreferences": {"LEDEnabled": false},
              "VornSharingSettings": {"VornSharingTopLevelFolder": [{"FolderName": "Music"}]}},
             {"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])",
         "0", "", true},
    };
    StartPortal(true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        for (const std::string& file : {std::string("/var/lib/ardo/device.json"),
                                        std::string("/var/lib/ardo/calls.jsonl"), kAclFile + ".bkp"}) {
            root.remove(file);
        }
        ardo::deviceStateSet("/power/end_process_on_reboot", true);
        root.writeFile(
            kAclFile,
            "<ACLConfig><TOLA/><ACL><ACE><Name>WiFiSSID</Name><DisplayEnabled>True</DisplayEnabled>"
            "<WriteEnabled>True</WriteEnabled></ACE></ACL></ACLConfig>");
        StoreRecord(httpsUrl, true);
        Script({{"ResultCode", 0}, {"Version", "7"}, {"Configuration", json::parse(c.document)}});
        StartAgent();
        EXPECT_EQ(AgentEnds(), 0);
        EXPECT_EQ(ardo::deviceStateValue<int>("/power/reboots", 0), 1);

        json last = Received().back();
        ASSERT_EQ(last["kind"], "receipt") << last.dump();
        EXPECT_EQ(last["request"]["ErrorCode"], c.code);
        EXPECT_EQ(last["request"]["ErrorMessage"], c.message);
        EXPECT_EQ(ardo::deviceStateValue<int>("/settings/ledEnabled", -1), c.accepted ? 0 : 1);
        EXPECT_HAS(Acl(), std::string("<AclConfigStatus>") + (c.accepted ? "2" : "0"));
        EXPECT_HAS(Acl(), std::string("<Name>WiFiSSID</Name>\n<DisplayEnabled>True</DisplayEnabled>\n") +
                              "<WriteEnabled>" + (c.accepted ? "False" : "True") +
                              "</WriteEnabled>\n</ACE>\n</ACL>");
        EXPECT_EQ(Shell(kCtl + "acl").out,
                  std::string("header: 1\ncount: 1\n0 name=WiFiSSID display=1 write=") +
                      (c.accepted ? "0\n" : "1\n"));
    }
}

// A configuration downloaded before a restart is applied at the next start; its receipt names
// the device, though no check-in has run yet.
TEST_F(CheckInE2E, ADownloadedConfigurationIsConfirmedAtStartUpWithTheDeviceIdentity) {
    StartPortal(false);
    StoreRecord(portalUrl, false, "", 1);
    char* cipher = nullptr;
    ASSERT_EQ(AesEncrypt(kFactoryKey.c_str(), R"([{"DevicePreferences": {"LEDEnabled": false}}])", &cipher),
              0);
    root.writeFile("/opt/ardo/data/tola/tola_downloaded_config",
                   json({{"ResultCode", 0}, {"Version", "8"}, {"EncryptedConfiguration", cipher}}).dump());
    std::free(cipher);
    ardo::deviceStateSet("/power/end_process_on_reboot", true);
    StartAgent();
    AgentEnds();
    json received = Received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0]["kind"], "receipt");
    EXPECT_EQ(received[0]["imei"], kImei);
    EXPECT_EQ(received[0]["request"]["ErrorCode"], "0");
}

// The self-signed certificate is trusted by nobody while ARDO_CA_FILE is unset: every attempt
// fails, and the attempts stop at the configured count.
TEST_F(CheckInE2E, UntrustedCertificateIsRefusedForTheConfiguredAttempts) {
    StartPortal(true);
    unsetenv("ARDO_CA_FILE");
    StoreRecord(httpsUrl, true);
    StartAgent();
    ASSERT_TRUE(WaitForLog("Checking server - attempt [3]", 1, 20000));
    ASSERT_TRUE(WaitForLog("Disconnecting apps APN call", 1, 5000));
    usleep(500 * 1000);  // a fourth attempt would follow within the compressed retry wait
    StopAgent();
    for (const json& r : Received()) {
        EXPECT_NE(r.value("kind", ""), "checkin");
    }
    EXPECT_LACKS(Log(), "Checking server - attempt [4]");
    EXPECT_EQ(Count(Log(), "HTTP request failed"), 3u);
}

// A portal that takes the request and never answers, with no time limit configured: a stop
// still ends the agent at once, rather than after the exchange (which would never end).
TEST_F(CheckInE2E, StopEndsAStalledExchange) {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 8), 0);  // the kernel completes the connection; nobody reads
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    std::string config = root.readFile("/opt/ardo/etc/tola/config.xml");
    root.writeFile("/opt/ardo/etc/tola/config.xml",
                   std::regex_replace(config, std::regex("<RequestTimeout>\\d+<"), "<RequestTimeout>0<"));
    StoreRecord("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)), true);
    StartAgent();
    ASSERT_TRUE(WaitForLog("Checking server - attempt [1]", 1, 20000));
    usleep(200 * 1000);  // the request is out and waits for its answer
    StopAgent();
    close(listener);
}

// A hostile answer nested a million levels deep is refused as malformed, and the agent's memory
// comes back to where it was.
TEST_F(CheckInE2E, DeeplyNestedAnswerCostsNoLastingMemory) {
    const std::string fine = R"({"ResultCode":1,"Version":"1"})";
    CannedHttpServer server({fine, std::string(1 << 20, '['), fine});
    StoreRecord(server.url(), true);
    StartAgent();
    auto rssKb = [this] {
        std::smatch m;
        std::string status = readWholeFile("/proc/" + std::to_string(agent->pid()) + "/status");
        return std::regex_search(status, m, std::regex("VmRSS:\\s+(\\d+)")) ? std::stol(m[1]) : -1L;
    };
    ASSERT_TRUE(WaitForLog("Success no new configuration follows"));
    long before = rssKb();
    ASSERT_EQ(Shell(kCtl + "sms send '<103>'").status, 0);
    ASSERT_TRUE(WaitForLog("Failed to parse Check-in Response", 1, 20000));
    for (int i = 0; i < 400 && server.bodies().size() < 3; ++i) {
        usleep(25 * 1000);
    }
    ASSERT_EQ(server.bodies().size(), 3u);  // the answer after the hostile one was taken
    long after = rssKb();
    StopAgent();
    EXPECT_LT(after - before, 16 * 1024) << before << " kB before, " << after << " kB after";
}

}  // namespace
}  // namespace tola_test
