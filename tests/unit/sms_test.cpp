// SMS commands: the wire form and its bounds, the key choice, what each command does to the
// runtime record and the device, and the key-and-URL exchange of command 104.
#include <gtest/gtest.h>

#include <cstring>

#include "app_fixture.h"
#include "canned_http.h"
#include "device_state.h"

using ardo::json;
using tola_test::AppTest;
using tola_test::CannedHttpServer;
using tola_test::Encrypt;
using tola_test::kFactoryKey;

namespace {

constexpr const char* kImei = "356938035643809";
constexpr const char* kDeadUrl = "http://127.0.0.1:9";  // discard port: refused on loopback

// An SMS as the portal sends it.
std::string Sms(const std::string& plain, const std::string& key = kFactoryKey) {
    return "<TOLA><" + Encrypt(key, plain) + ">";
}

class SmsTest : public AppTest {
  protected:
    void Send(const std::string& sms) { app->OnChannelNotify("sms.msg.tola", sms); }
    json Profile(const std::string& slot) { return ardo::deviceStateRead()["modem"]["profiles"][slot]; }
};

TEST_F(SmsTest, WireTextGivesCodeAndArgument) {
    std::string garbage;
    for (int c = 1; c < 256; ++c) {
        garbage += static_cast<char>(c);
    }
    std::string b64 = Encrypt(kFactoryKey, "<101>abc");
    struct Case {
        std::string sms;
        int code;
        std::string argument;  // "-" when the argument is left as it was
        const char* logged;
    } cases[] = {
        {Sms("<101>new-key"), 101, "new-key", "TOLA_COMMAND_SET_PAYLOAD_SECURE_KEY new-key"},
        {Sms("<102>https://p.test/c"), 102, "https://p.test/c",
         "TOLA_COMMAND_SET_CHECKIN_URL https://p.test/c"},
        {Sms("<103>"), 103, "-", "TOLA_COMMAND_CHECKIN_NOW"},
        {Sms("<103>x"), -1, "-", "TOLA_COMMAND_INVALID"},
        {Sms("<104>http://prov.test"), 104, "http://prov.test", "TOLA_COMMAND_GET_SECURE_KEY_CHECKIN_URL"},
        {Sms("<150>apn.test"), 150, "apn.test", "TOLA_COMMAND_SET_APN apn.test"},
        {Sms("<200>0"), 200, "0", "TOLA_COMMAND_FACTORY_RESET 0"},
        {Sms("<200>1"), 200, "1", "TOLA_COMMAND_FACTORY_RESET 1"},
        // One character is all the check asks for; a non-digit converts to 0.
        {Sms("<200>x"), 200, "x", "TOLA_COMMAND_FACTORY_RESET x"},
        // Refused, with the same log line; the argument is still handed back.
        {Sms("<200>10"), -1, "10", "TOLA_COMMAND_FACTORY_RESET 10"},
        {Sms("<200>"), -1, "-", "SMS invalid command data"},
        {Sms("<101>"), -1, "-", "SMS invalid command data"},
        {Sms("<999>zzz"), -1, "-", "TOLA_COMMAND_INVALID"},
        {Sms("<10"), -1, "-", "TOLA_COMMAND_INVALID"},
        {Sms(garbage), -1, "-", "TOLA_COMMAND_INVALID"},
        {Sms("<101>k", "another key"), -1, "-", "Failed to decrypt TOLA SMS"},
        {"<TOLA><" + b64.substr(0, 8) + "*#!" + b64.substr(8) + ">", -1, "-", "Failed to decrypt TOLA SMS"},
        {"<TOLA><>", -1, "-", "Failed to decrypt TOLA SMS"},
        // Fits, so it is decrypted (to junk).
        {"<TOLA><" + std::string(1023, 'A') + ">", -1, "-", "SMS Encrypted payload"},
        {"<TOLA><" + std::string(1024, 'A') + ">", -1, "-", "Invalid TOLA SMS"},
        {"<TOLA><" + std::string(5000, 'A') + ">", -1, "-", "Invalid TOLA SMS"},
        // 745 bytes encrypt to 1004 Base64 characters, 755 bytes to 1024: one fits, one does not.
        {Sms("<101>" + std::string(740, 'k')), 101, std::string(740, 'k'),
         "TOLA_COMMAND_SET_PAYLOAD_SECURE_KEY"},
        {Sms("<101>" + std::string(750, 'k')), -1, "-", "Invalid TOLA SMS"},
        {"", -1, "-", "Invalid TOLA SMS"},
        {"<TOLA><", -1, "-", "Invalid TOLA SMS"},
        {"<TOLA>" + b64 + ">", -1, "-", "Invalid TOLA SMS"},
        {"<TOLA><" + b64, -1, "-", "Invalid TOLA SMS"},
        {"<TOLA><" + b64 + "> ", -1, "-", "Invalid TOLA SMS"},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << n++ << ": " << c.sms.substr(0, 60));
        size_t before = Log().size();
        std::string argument = "-";
        int code = app->ParseTOLACommand(kFactoryKey, c.sms, argument);
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(argument, c.argument);
        std::string log = Log().substr(before);
        EXPECT_NE(log.find(c.logged), std::string::npos) << log;
        // A frame that is not "<TOLA><...>" of a size that fits is refused before decryption.
        if (std::string(c.logged) == "Invalid TOLA SMS") {
            EXPECT_EQ(log.find("SMS Encrypted payload"), std::string::npos);
        }
    }
}

TEST_F(SmsTest, ServerKeyFirstThenFactoryKey) {
    struct Case {
        const char* serverKey;
        const char* smsKey;
        bool accepted;
        size_t serverTries, factoryTries;
    } cases[] = {
        {"", kFactoryKey, true, 0, 1},
        {"server-key", "server-key", true, 1, 0},
        {"server-key", kFactoryKey, true, 1, 1},  // one failed attempt, then the factory key
        {"server-key", "third-key", false, 1, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.smsKey);
        std::string apnBefore = Profile("0:1")["apn"];
        tola_copy_text(app->RuntimeConfig().payloadEncryptionKey, c.serverKey);
        tola_copy_text(app->RuntimeConfig().version, "7");
        app->Agent().SetRuntimeConfig(app->RuntimeConfig());
        size_t before = Log().size();
        Send(Sms("<150>apn-" + std::string(c.smsKey), c.smsKey));
        std::string log = Log().substr(before);
        EXPECT_EQ(Count(log, "Using encryption key obtained from the server to get SMS command"),
                  c.serverTries);
        EXPECT_EQ(Count(log, "Using factory provisioned encryption key to get SMS command"), c.factoryTries);
        EXPECT_EQ(Count(log, "APN SMS received\n"), c.accepted ? 1u : 0u);
        EXPECT_EQ(Count(log, "[TOLA]:[ERROR] - Invalid SMS received\n"), c.accepted ? 0u : 1u) << log;
        EXPECT_EQ(Profile("0:1")["apn"], c.accepted ? "apn-" + std::string(c.smsKey) : apnBefore);
    }
}

TEST_F(SmsTest, RefusedCommandsChangeNothing) {
    Activate("https://portal.test", "kept-key");
    tolaagent_runtime_config_t before = Stored();
    json deviceBefore = ardo::deviceStateRead();
    for (const std::string& sms :
         {Sms("<200>10"), Sms("<200>"), Sms("<101>"), Sms("<777>x"), std::string("<TOLA><abc"),
          std::string("<TOLA><" + std::string(5000, 'Q') + ">"), Sms("<102>x", "wrong")}) {
        Send(sms);
    }
    // Accepted commands whose text the record file could not hold: refused, the old value kept.
    for (const std::string& sms :
         {Sms("<102>https://p.test/c?a=1&b=2"), Sms("<101>k<y"), Sms("<101>k]]>y")}) {
        Send(sms);
    }
    tolaagent_runtime_config_t after = Stored();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_EQ(ardo::deviceStateRead()["modem"], deviceBefore["modem"]);
    EXPECT_EQ(ardo::deviceStateRead()["power"]["factory_resets"], 0);
    EXPECT_EQ(Count(Log(), "Invalid SMS received\n"), 7u);
    EXPECT_EQ(Count(Log(), "New check-in URL refused, it cannot be stored; the old URL is kept"), 1u);
    EXPECT_EQ(Count(Log(), "New encryption key refused, it cannot be stored; the old key is kept"), 2u);
}

TEST_F(SmsTest, KeyAndUrlCommandsStoreTheirArgument) {
    Send(Sms("<101>" + std::string(200, 'K')));
    EXPECT_EQ(tola_record_text(Stored().payloadEncryptionKey), std::string(127, 'K'));
    EXPECT_FALSE(Stored().checkInFlag);
    EXPECT_NE(Log().find("[TOLA]:[NOTICE] - device specific key SMS received\n"), std::string::npos);

    // The key just stored opens the next command.
    Send(Sms("<102>https://moved.test/" + std::string(200, 'u'), std::string(127, 'K')));
    tolaagent_runtime_config_t rc = Stored();
    EXPECT_EQ(tola_record_text(rc.checkInURL), "https://moved.test/" + std::string(127 - 19, 'u'));
    EXPECT_TRUE(rc.checkInFlag);
    EXPECT_NE(Log().find("[TOLA]:[NOTICE] - check-in URL SMS received\n"), std::string::npos);

    // Check in now leaves the flag as it is.
    rc.checkInFlag = false;
    app->RuntimeConfig() = rc;
    app->Agent().SetRuntimeConfig(rc);
    Send(Sms("<103>"));
    EXPECT_FALSE(Stored().checkInFlag);
    EXPECT_NE(Log().find("[TOLA]:[NOTICE] - Force check-in SMS received\n"), std::string::npos);
}

TEST_F(SmsTest, FactoryResetWithAndWithoutCheckIn) {
    struct Case {
        const char* argument;
        bool checkIn;
    } cases[] = {{"0", false}, {"1", true}, {"x", false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.argument);
        Activate("https://portal.test", "portal-key");
        tolaagent_runtime_config_t& rc = app->RuntimeConfig();
        tola_copy_text(rc.lastCheckInDate, "2026-11-20");
        tola_copy_text(rc.version, "9");
        rc.checkInIntervalOverrideFlag = true;
        rc.checkInInterval = 6;
        app->Agent().SetRuntimeConfig(rc);
        long long resets = ardo::deviceStateRead()["power"]["factory_resets"].get<long long>();

        Send(Sms(std::string("<200>") + c.argument));
        tolaagent_runtime_config_t after = Stored();
        EXPECT_TRUE(after.factoryResetFlag);
        EXPECT_EQ(after.checkInFlag, c.checkIn);
        EXPECT_STREQ(after.version, "0");
        EXPECT_STREQ(after.checkInURL, c.checkIn ? "https://portal.test" : "");
        EXPECT_STREQ(after.payloadEncryptionKey, c.checkIn ? "portal-key" : "");
        EXPECT_STREQ(after.lastCheckInDate, c.checkIn ? "2026-11-20" : "");
        EXPECT_EQ(after.checkInIntervalOverrideFlag, c.checkIn);
        EXPECT_EQ(after.checkInInterval, c.checkIn ? 6u : 0u);
        EXPECT_NE(Log().find(c.checkIn ? "TOLA_COMMAND_FACTORY_RESET checkInFlag true"
                                       : "TOLA_COMMAND_FACTORY_RESET checkInFlag false"),
                  std::string::npos);
        // The device went back to its factory settings (what that restores is the platform's own).
        EXPECT_EQ(ardo::deviceStateRead()["power"]["factory_resets"].get<long long>(), resets + 1);
        app->RuntimeConfig().factoryResetFlag = false;
    }
}

TEST_F(SmsTest, ApnGoesIntoTheActiveProfileAlone) {
    ardo::deviceStateSet("/modem/active_profile_index", 3);
    std::string apn(150, 'a');
    Send(Sms("<150>" + apn));
    json profile = Profile("0:3");
    EXPECT_EQ(profile["apn"], std::string(100, 'a'));
    EXPECT_EQ(profile["name"], "");
    EXPECT_EQ(profile["pdpType"], 0);
    EXPECT_EQ(Profile("0:1")["apn"], "vzwinternet");  // only the active one
    ASSERT_EQ(Journal("sys_cellularDataDisconnect", 0).size(), 1u);
    EXPECT_EQ(Journal("sys_cellularDataDisconnect")[0]["args"]["profile"], 3);
    EXPECT_EQ(Journal("sys_setModemProfile", 0).size(), 1u);
    EXPECT_EQ(Journal("sys_cellularDataConnect", 0).size(), 1u);
    EXPECT_NE(Log().find("sys_cellularDataConnect successfully connected the data call"), std::string::npos);
}

TEST_F(SmsTest, ApnFailuresStopOrGoOn) {
    struct Case {
        const char* fault;
        const char* logged;
        size_t disconnects, sets, connects;  // calls made, failed or not
    } cases[] = {
        {"sys_getActiveModemProfileIndex", "sys_getActiveModemProfileIndex failed by returning 5", 0, 0, 0},
        {"sys_getModemProfile", "sys_getModemProfile failed by returning 5", 0, 0, 0},
        {"sys_cellularDataDisconnect", "sys_cellularDataDisconnect failed to set null by returning 5", 1, 1,
         1},
        {"sys_setModemProfile",
         "[TOLA]:[ERROR] - sys_setModemProfile  for index 1 failed failed with code = 5", 1, 1, 1},
        {"sys_cellularDataConnect", "sys_cellularDataConnect failed to set null by returning 5", 1, 1, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fault);
        root.remove("/var/lib/ardo/calls.jsonl");
        ardo::deviceStateSet("/faults", json{{c.fault, 5}});
        Send(Sms("<150>apn.test"));
        EXPECT_NE(Log().find(c.logged), std::string::npos);
        EXPECT_EQ(Journal("sys_cellularDataDisconnect").size(), c.disconnects);
        EXPECT_EQ(Journal("sys_setModemProfile").size(), c.sets);
        EXPECT_EQ(Journal("sys_cellularDataConnect").size(), c.connects);
    }
}

// ---- Command 104: the key-and-URL exchange -------------------------------------------------

std::string Answer(const std::string& plain) {
    return "\"" + Encrypt(kFactoryKey, plain) + "\"";
}

TEST_F(SmsTest, KeyAndUrlAnswers) {
    const std::string pair = R"({"DeviceEncryptionKey":"new-key","CheckInUrl":"https://new.test/c"})";
    const std::string longKey(200, 'k');
    const std::string longUrl = "https://" + std::string(192, 'u');
    struct Case {
        std::string answer;
        bool stored;
        const char* logged;
        std::string key = "new-key", url = "https://new.test/c";
    } cases[] = {
        {Answer(pair), true, "Setting encryption key and check-in url which are recived from sms 104\n"},
        // Only the leading quote is required; a missing closing one is tolerated.
        {Answer(pair).substr(0, Answer(pair).size() - 1), true, "Setting encryption key"},
        {Encrypt(kFactoryKey, pair), false, "SMS 104 server response is invalid"},
        {"\"", false, "Failed to decrypt SMS 104 server response"},
        {"", false, "SMS 104 server response is invalid"},
        {"\"not base64 at all\"", false, "Failed to decrypt SMS 104 server response"},
        {"\"" + Encrypt("another key", pair) + "\"", false, "Failed to decrypt SMS 104 server response"},
        {Answer("not json"), false, "Failed to parse SMS 104 Check-in Response\n"},
        {Answer("[\"new-key\",\"https://new.test/c\"]"), false,
         "Failed to parse SMS 104 Check-in Response\n"},
        {Answer(R"({"DeviceEncryptionKey":"new-key"})"), false,
         "Failed to parse SMS 104 Check-in Response\n"},
        {Answer(R"({"CheckInUrl":"https://new.test/c"})"), false,
         "Failed to parse SMS 104 Check-in Response\n"},
        {Answer(R"({"DeviceEncryptionKey":5,"CheckInUrl":"https://new.test/c"})"), false,
         "Failed to parse SMS 104 Check-in Response\n"},
        {Answer(json{{"DeviceEncryptionKey", longKey}, {"CheckInUrl", longUrl}}.dump()), true, "Setting",
         longKey.substr(0, 127), longUrl.substr(0, 127)},
        // One text the record cannot hold: neither is stored.
        {Answer(R"({"DeviceEncryptionKey":"new-key","CheckInUrl":"https://new.test/c?a&b"})"), false,
         "New encryption key and check-in URL refused"},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << n++ << ": " << c.answer.substr(0, 40));
        Stop();
        root.remove("/opt/ardo/data/tola/acl_config.xml");
        root.remove("/var/lib/ardo/calls.jsonl");
        Start();
        // A device that holds a key of its own still sends its IMEI under the factory key.
        Activate("https://old.test", "old-key");
        CannedHttpServer portal({c.answer});
        Send(Sms("<104>" + portal.url(), "old-key"));

        ASSERT_EQ(portal.bodies().size(), 1u);
        json request = json::parse(portal.bodies()[0], nullptr, false);
        ASSERT_TRUE(request.is_object()) << portal.bodies()[0];
        EXPECT_EQ(tola_test::Decrypt(kFactoryKey, request.value("EncryptedDeviceIMEI", "")), kImei);
        EXPECT_NE(Log().find(c.logged), std::string::npos);
        tolaagent_runtime_config_t rc = Stored();
        EXPECT_EQ(tola_record_text(rc.payloadEncryptionKey), c.stored ? c.key : "old-key");
        EXPECT_EQ(tola_record_text(rc.checkInURL), c.stored ? c.url : "https://old.test");
        // The data call of the exchange is ended whatever the answer.
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallConnect", 0).size(), 1u);
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), 1u);
    }
}

TEST_F(SmsTest, KeyAndUrlWithThePortalDownOrNoCall) {
    Activate("https://old.test", "old-key");
    Send(Sms("<104>" + std::string(kDeadUrl)));
    EXPECT_NE(Log().find("SMS 104 check in server response httpStatusCode:[0]"), std::string::npos);
    EXPECT_NE(Log().find("SMS 104 server response is invalid"), std::string::npos);
    EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), 1u);
    EXPECT_STREQ(Stored().payloadEncryptionKey, "old-key");

    // No data call: nothing is sent.
    ardo::deviceStateSet("/faults", json{{"sys_cellularDataUsageAPNCallConnect", 9}});
    CannedHttpServer portal({Answer(R"({"DeviceEncryptionKey":"k","CheckInUrl":"u"})")});
    Send(Sms("<104>" + portal.url()));
    EXPECT_NE(Log().find("CheckDataCallAndConnect failed"), std::string::npos);
    EXPECT_TRUE(portal.bodies().empty());
    EXPECT_STREQ(Stored().checkInURL, "https://old.test");
}

}  // namespace
