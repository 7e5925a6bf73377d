// SMS commands: the wire form, the key choice, each command's effect, and command 104.
#include <cstring>
#include <regex>

#include "app_fixture.h"
#include "canned_http.h"
#include "case_rows.h"

using ardo::json;
using namespace tola_test;

namespace {

constexpr const char* kImei = "356938035643809";
constexpr const char* kDeadUrl = "http://127.0.0.1:9";  // discard port: refused on loopback

// A case file's frame: each {E}, {E:a} or {E:a:b} is (part of) the plain text encrypted under key.
std::string Frame(std::string frame, const std::string& plain, const std::string& key) {
    const std::string text = Encrypt(key.empty() ? kFactoryKey : key, plain);
    std::smatch m;
    while (std::regex_search(frame, m, std::regex(R"(\{E(?::(\d+))?(?::(\d+))?\})"))) {
        size_t from = m[1].matched ? std::stoul(m[1]) : 0;
        frame.replace(m.position(), m.length(),
                      text.substr(from, m[2].matched ? std::stoul(m[2]) : std::string::npos));
    }
    return frame;
}

class SmsTest : public AppTest {
  protected:
    void Send(const std::string& sms) { app->OnChannelNotify("sms.msg.tola", sms); }
    json Profile(const std::string& slot) { return ardo::deviceStateRead()["modem"]["profiles"][slot]; }
};

TEST_F(SmsTest, WireTextGivesCodeAndArgument) {
    for (const auto& c : readCases("sms_frames.tsv", 6)) {
        std::string sms = Frame(c[0], c[1], c[2]);
        SCOPED_TRACE(c[0] + " " + c[1].substr(0, 40));
        size_t before = Log().size();
        std::string argument = "-";
        EXPECT_EQ(app->ParseTOLACommand(kFactoryKey, sms, argument), std::stoi(c[3]));
        EXPECT_EQ(argument, c[4]);
        std::string log = Log().substr(before);
        EXPECT_NE(log.find(c[5]), std::string::npos) << log;
        // A frame that is not "<TOLA><...>" of a size that fits is refused before decryption.
        EXPECT_TRUE(c[5] != "Invalid TOLA SMS" || log.find("SMS Encrypted payload") == std::string::npos);
    }
}

TEST_F(SmsTest, ServerKeyFirstThenFactoryKey) {
    for (const auto& c : readCases("sms_keys.tsv", 5)) {
        const std::string smsKey = c[1] == "factory" ? kFactoryKey : c[1];
        SCOPED_TRACE(smsKey);
        std::string apnBefore = Profile("0:1")["apn"];
        tola_copy_text(app->RuntimeConfig().payloadEncryptionKey, c[0].c_str());
        tola_copy_text(app->RuntimeConfig().version, "7");
        app->Agent().SetRuntimeConfig(app->RuntimeConfig());
        size_t before = Log().size();
        Send(Sms("<150>apn-" + smsKey, smsKey));
        std::string log = Log().substr(before);
        EXPECT_EQ(std::to_string(Count(log, "Using encryption key obtained from the server to get SMS")) +
                      " " + std::to_string(Count(log, "Using factory provisioned encryption key to get SMS")),
                  c[3] + " " + c[4]);
        EXPECT_EQ(Profile("0:1")["apn"], c[2] == "1" ? "apn-" + smsKey : apnBefore);
    }
}

TEST_F(SmsTest, RefusedCommandsChangeNothing) {
    Activate("https://portal.test", "kept-key");
    tolaagent_runtime_config_t before = Stored();
    json deviceBefore = ardo::deviceStateRead();
    // The last three are accepted commands whose text the record file could not hold: refused, the
    // old value kept.
    for (const std::string& sms :
         {Sms("<200>10"), Sms("<200>"), Sms("<101>"), Sms("<777>x"), std::string("<TOLA><abc"),
          std::string("<TOLA><" + std::string(5000, 'Q') + ">"), Sms("<102>x", "wrong"),
          Sms("<102>https://p.test/c?a=1&b=2"), Sms("<101>k<y"), Sms("<101>k]]>y")}) {
        Send(sms);
    }
    app->OnChannelNotify("some.other.channel", Sms("<200>1"));  // only the SMS channel is read
    tolaagent_runtime_config_t after = Stored();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_EQ(ardo::deviceStateRead()["modem"], deviceBefore["modem"]);
    EXPECT_EQ(ardo::deviceStateRead()["power"]["factory_resets"], 0);
    EXPECT_EQ(LogCount("Invalid SMS received\n"), 7u);
    EXPECT_EQ(LogCount("New check-in URL refused, it cannot be stored; the old URL is kept"), 1u);
    EXPECT_EQ(LogCount("New encryption key refused, it cannot be stored; the old key is kept"), 2u);
}

TEST_F(SmsTest, KeyAndUrlCommandsStoreTheirArgument) {
    Send(Sms("<101>" + std::string(200, 'K')));
    EXPECT_EQ(tola_record_text(Stored().payloadEncryptionKey), std::string(127, 'K'));
    EXPECT_FALSE(Stored().checkInFlag);

    // The key just stored opens the next command.
    Send(Sms("<102>https://moved.test/" + std::string(200, 'u'), std::string(127, 'K')));
    tolaagent_runtime_config_t rc = Stored();
    EXPECT_EQ(tola_record_text(rc.checkInURL), "https://moved.test/" + std::string(127 - 19, 'u'));
    EXPECT_TRUE(rc.checkInFlag);

    // Check in now leaves the flag as it is.
    app->RuntimeConfig().checkInFlag = false;
    app->Agent().SetRuntimeConfig(app->RuntimeConfig());
    Send(Sms("<103>"));
    EXPECT_FALSE(Stored().checkInFlag);
}

TEST_F(SmsTest, FactoryResetWithAndWithoutCheckIn) {
    for (auto [argument, checkIn] : {std::pair("0", false), std::pair("1", true), std::pair("x", false)}) {
        SCOPED_TRACE(argument);
        Activate("https://portal.test", "portal-key");
        tolaagent_runtime_config_t& rc = app->RuntimeConfig();
        tola_copy_text(rc.lastCheckInDate, "2026-11-20");
        tola_copy_text(rc.version, "9");
        rc.checkInIntervalOverrideFlag = true;
        rc.checkInInterval = 6;
        app->Agent().SetRuntimeConfig(rc);
        long long resets = ardo::deviceStateRead()["power"]["factory_resets"].get<long long>();

        Send(Sms(std::string("<200>") + argument));
        tolaagent_runtime_config_t a = Stored();
        EXPECT_EQ(std::make_tuple(a.factoryResetFlag, a.checkInFlag, a.checkInIntervalOverrideFlag,
                                  a.checkInInterval),
                  std::make_tuple(true, checkIn, checkIn, checkIn ? 6u : 0u));
        EXPECT_EQ(std::string(a.version) + "|" + a.checkInURL + "|" + a.payloadEncryptionKey + "|" +
                      a.lastCheckInDate,
                  checkIn ? "0|https://portal.test|portal-key|2026-11-20" : "0|||");
        // The device went back to its factory settings (what that restores is the platform's own).
        EXPECT_EQ(ardo::deviceStateRead()["power"]["factory_resets"].get<long long>(), resets + 1);
        app->RuntimeConfig().factoryResetFlag = false;
    }
}

// The APN goes into the active profile alone; a failing call before the profile is read stops the
// change, one after it does not.
TEST_F(SmsTest, ApnGoesIntoTheActiveProfileAlone) {
    ardo::deviceStateSet("/modem/active_profile_index", 3);
    Send(Sms("<150>" + std::string(150, 'a')));
    json profile = Profile("0:3");
    EXPECT_EQ(profile["apn"], std::string(100, 'a'));
    EXPECT_EQ(profile["name"], "");
    EXPECT_EQ(profile["pdpType"], 0);
    EXPECT_EQ(Profile("0:1")["apn"], "vzwinternet");
    EXPECT_EQ(Journal("sys_cellularDataDisconnect", 0).at(0)["args"]["profile"], 3);
    for (const auto& c : readCases("apn_faults.tsv", 2)) {
        SCOPED_TRACE(c[0]);
        root.remove("/var/lib/ardo/calls.jsonl");
        ardo::deviceStateSet("/faults", c[0].empty() ? json::object() : json{{c[0], 5}});
        Send(Sms("<150>apn.test"));
        for (const char* call :
             {"sys_cellularDataDisconnect", "sys_setModemProfile", "sys_cellularDataConnect"}) {
            EXPECT_EQ(Journal(call, c[0] == call ? 5 : 0).size(), std::stoul(c[1])) << call;
        }
    }
}

// The key-and-URL exchange (command 104): the IMEI goes out under the factory key, the answer
// sets both texts or neither, and the data call ends whatever the answer.
TEST_F(SmsTest, KeyAndUrlAnswers) {
    for (const auto& c : readCases("sms104_answers.tsv", 6)) {
        SCOPED_TRACE(c[0] + " " + c[1].substr(0, 40) + " " + c[3]);
        const bool down = c[0] == "(portal down)", noCall = c[0] == "(no data call)";
        Stop();
        root.remove("/var/lib/ardo/calls.jsonl");
        Start();
        ardo::deviceStateSet("/faults",
                             noCall ? json{{"sys_cellularDataUsageAPNCallConnect", 9}} : json::object());
        // A device that holds a key of its own still sends its IMEI under the factory key.
        Activate("https://old.test", "old-key");
        CannedHttpServer portal({Frame(c[0], c[1], c[2])});
        Send(Sms("<104>" + (down ? std::string(kDeadUrl) : portal.url()), "old-key"));

        ASSERT_EQ(portal.bodies().size(), down || noCall ? 0u : 1u);
        for (const std::string& body : portal.bodies()) {
            EXPECT_EQ(Decrypt(kFactoryKey, json::parse(body).value("EncryptedDeviceIMEI", "")), kImei)
                << body;
        }
        EXPECT_NE(Log().find(c[3]), std::string::npos);
        EXPECT_EQ(tola_record_text(Stored().payloadEncryptionKey), c[4]);
        EXPECT_EQ(tola_record_text(Stored().checkInURL), c[5]);
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallConnect", 0).size(), noCall ? 0u : 1u);
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), noCall ? 0u : 1u);
    }
}

}  // namespace
