// The real agent against the real portal over HTTPS on a private bus.
#include <sys/socket.h>

#include "canned_http.h"
#include "e2e_fixture.h"

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

// A fully filled check-in over HTTPS whose answer hands out a key with a configuration: applied,
// confirmed with a receipt, the new key and version kept.
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
    // The check-in under the factory key (the record holds none of its own), then the receipt.
    json r = Received();
    ASSERT_GE(r.size(), 2u);
    EXPECT_EQ(json({r[0]["kind"], r[0]["imei"], r[0]["key"], r[0]["request"]["MDN"], r.back()["kind"],
                    r.back()["request"]["ErrorCode"]}),
              json({"checkin", kImei, "factory", "5551234567", "receipt", "0"}))
        << r.dump();
    EXPECT_LACKS(r[0]["request"].dump(), "%");
}

// A refused and an accepted document, each through a freshly started agent: the receipt carries
// the outcome, and the device reboots after each (the agent process ends, as on a device). The
// refused document's access-control entries, set while it was read, are gone again from the
// shared list and the file.
TEST_F(CheckInE2E, RefusedAndAcceptedDocumentsAreConfirmedAndFollowedByAReboot) {
    struct Case {
        const char *document, *code, *message;
    } cases[] = {
        {R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}, "DevicePreferences": {"LEDEnabled": false}},
             {"AccessControlSettings": {"WiFiSSID": {"Lock": true}, "GPSEnabled": {"Hide": true}}}])",
         "158", "Invalid Private IP address or network address or broadcast address . "},
        {R"([{"DevicePreferences": {"LEDEnabled": false},
              "VornSharingSettings": {"VornSharingTopLevelFolder": [{"FolderName": "Music"}]}},
             {"AccessControlSettings": {"WiFiSSID": {"Lock": true}}}])",
         "0", ""},
    };
    StartPortal(true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        const bool accepted = std::string(c.code) == "0";
        for (const char* file : {"/var/lib/ardo/device.json", "/var/lib/ardo/calls.jsonl",
                                 "/opt/ardo/data/tola/acl_config.xml.bkp"}) {
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
        EXPECT_EQ(json({last["kind"], last["request"]["ErrorCode"], last["request"]["ErrorMessage"]}),
                  json({"receipt", c.code, c.message}));
        EXPECT_EQ(ardo::deviceStateValue<int>("/settings/ledEnabled", -1), accepted ? 0 : 1);
        EXPECT_HAS(Acl(), std::string("<AclConfigStatus>") + (accepted ? "2" : "0"));
        EXPECT_HAS(Acl(), std::string("<Name>WiFiSSID</Name>\n<DisplayEnabled>True</DisplayEnabled>\n") +
                              "<WriteEnabled>" + (accepted ? "False" : "True") +
                              "</WriteEnabled>\n</ACE>\n</ACL>");
        EXPECT_EQ(Shell(kCtl + "acl").out,
                  std::string("header: 1\ncount: 1\n0 name=WiFiSSID display=1 write=") +
                      (accepted ? "0\n" : "1\n"));
    }
}

// A configuration downloaded before a restart is applied at the next start; its receipt names
// the device, though no check-in has run yet.
TEST_F(CheckInE2E, ADownloadedConfigurationIsConfirmedAtStartUpWithTheDeviceIdentity) {
    StartPortal(false);
    StoreRecord(portalUrl, false, "", 1);
    const std::string cipher = Encrypt(kFactoryKey, R"([{"DevicePreferences": {"LEDEnabled": false}}])");
    root.writeFile("/opt/ardo/data/tola/tola_downloaded_config",
                   json({{"ResultCode", 0}, {"Version", "8"}, {"EncryptedConfiguration", cipher}}).dump());
    ardo::deviceStateSet("/power/end_process_on_reboot", true);
    StartAgent();
    AgentEnds();
    json r = Received();
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(json({r[0]["kind"], r[0]["imei"], r[0]["request"]["ErrorCode"]}),
              json({"receipt", kImei, "0"}));
}

// A stop ends the agent at once while it waits: in the two-minute boot wait (at real time), and
// for a portal that took the request and never answers, with no time limit configured (the
// exchange would never end).
TEST_F(CheckInE2E, AStopEndsTheBootWaitAndAStalledExchange) {
    StartPortal(true);
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int port = listenOnLoopback(listener);  // the kernel completes the connection; nobody reads
    std::string config = root.readFile("/opt/ardo/etc/tola/config.xml");
    root.writeFile("/opt/ardo/etc/tola/config.xml",
                   std::regex_replace(config, std::regex("<RequestTimeout>\\d+<"), "<RequestTimeout>0<"));
    for (bool bootWait : {true, false}) {
        SCOPED_TRACE(bootWait ? "boot wait" : "stalled exchange");
        StoreRecord(bootWait ? httpsUrl : "http://127.0.0.1:" + std::to_string(port), true);
        setenv("ARDO_TIME_SCALE", bootWait ? "1" : "1000", 1);  // TempRoot restores the scale
        StartAgent();
        ASSERT_TRUE(WaitForLog(
            bootWait ? "sleep for 120 seconds to modem up" : "Checking server - attempt [1]", 1, 20000));
        usleep(200 * 1000);  // the request is out and waits for its answer
        StopAgent();         // within its 10 s only because the stop ends the wait
    }
    EXPECT_TRUE(Received().empty());
    EXPECT_EQ(countOf(Log(), "Process is stopping, no check-in with server."), 1u);
    close(listener);
}

}  // namespace
}  // namespace tola_test
