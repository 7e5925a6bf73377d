// The portal's check-in answer: parsing, what each result code changes, the receipt.
#include <gtest/gtest.h>

#include "app_fixture.h"
#include "canned_http.h"
#include "tola_json_parser.h"

using ardo::json;
using tola_test::AppTest;
using tola_test::CannedHttpServer;
using tola_test::Decrypt;
using tola_test::kFactoryKey;

namespace {

class ResponseTest : public AppTest {
  protected:
    int Reboots() { return ardo::deviceStateValue<int>("/power/reboots", 0); }
    // Saves an answer that carries a configuration and returns the receipt the portal received.
    // Every receipt is followed by one reboot, whatever the outcome.
    json ReceiptFor(const json& answer, const std::string& key, bool saved) {
        CannedHttpServer portal({R"({"ResultCode":1,"Version":"1"})"});
        Activate(portal.url(), key);
        app->RecordModemInformation();  // as the check-in did before the answer came
        std::string text = answer.dump();
        EXPECT_EQ(app->SaveConfiguration(text), saved);
        EXPECT_EQ(Reboots(), 1);
        EXPECT_NE(Log().find("Configuration is applied successfully. Rebooting system."), std::string::npos);
        if (portal.bodies().size() != 1u) {
            ADD_FAILURE() << portal.bodies().size() << " receipts";
            return json();
        }
        json envelope = json::parse(portal.bodies()[0], nullptr, false);
        EXPECT_EQ(envelope.value("IMEI", ""), "356938035643809");
        return json::parse(Decrypt(key.empty() ? kFactoryKey : key, envelope.value("Request", "")), nullptr,
                           false);
    }
};

TEST_F(ResponseTest, AnswerParsing) {
    const std::string interval = R"({"ResultCode":1,"Version":"3","Settings":{"CheckinIntervalInHours":)";
    struct Case {
        std::string text;
        bool ok;
        int code;
        const char* version;  // null: not checked
        int hours;            // 0: no interval taken
        const char* configuration;
    } cases[] = {
        {R"({"ResultCode":1,"Version":"7"})", true, 1, "7", 0, ""},
        // An empty Version is a Version (the answer parses) but keeps the stored one.
        {R"({"ResultCode":0,"Version":"","Settings":{"CheckinIntervalInHours":24},"EncryptedConfiguration":"QUJD"})",
         true, 0, "4", 24, "QUJD"},
        {interval + "\"24\"}}", true, 1, "3", 0, ""},
        {interval + "-5}}", true, 1, "3", 0, ""},
        {interval + "99999999999}}", true, 1, "3", 0, ""},
        {interval + "24.0}}", true, 1, "3", 0, ""},  // not an integer, whatever its value
        {interval + "2.4e1}}", true, 1, "3", 0, ""},
        {R"({"ResultCode":1})", false, 1, "4", 0, ""},
        {R"({"ResultCode":1,"Version":7})", false, 1, "4", 0, ""},
        {R"({"ResultCode":"1","Version":"7"})", false, 0, "7", 0, ""},
        {R"({"ResultCode":1.5,"Version":"7"})", false, 0, "7", 0, ""},
        {R"({"ResultCode":1e0,"Version":"7"})", false, 0, "7", 0, ""},
        {R"({"Version":"7"})", false, 0, "7", 0, ""},
        {R"([{"ResultCode":1,"Version":"7"}])", false, 0, "4", 0, ""},
        {"<html>503</html>", false, 0, "4", 0, ""},
        {"", false, 0, "4", 0, ""},
        {R"({"ResultCode":1,"Version":")" + std::string(2 * 1024 * 1024, 'v') + "\"}", true, 1, nullptr, 0,
         ""},
        {std::string(100000, '['), false, 0, "4", 0, ""},
    };
    tola_copy_text(app->RuntimeConfig().version, "4");  // the version stored before this answer
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 80));
        std::string text = c.text;
        TOLAJSONParser parser(app.get());
        EXPECT_EQ(parser.ProcessCheckinResponse(text), c.ok);
        EXPECT_EQ(app->mResultCode, c.code);
        if (c.version != nullptr) {
            EXPECT_EQ(app->mVersion, c.version);
        }
        EXPECT_EQ(app->mCheckInIntervalPresent, c.hours != 0);
        EXPECT_EQ(app->mCheckInIntervalHours, c.hours);
        EXPECT_EQ(text, c.configuration);
    }
}

TEST_F(ResponseTest, ResultCodesChangeKeyUrlAndFlag) {
    const std::string url = "https://portal.tola.test/checkin", other = "https://other.tola.test/c",
                      longKey(500, 'k');
    const json both = {{"DeviceEncryptionKey", "new-key"}, {"CheckInUrl", other}};
    struct Case {
        int code;
        json fields;  // the key and URL the answer carries
        std::string key, url;
        bool flag;
        const char* logged;
    } cases[] = {
        {1, both, "old-key", url, true, "Success no new configuration follows"},
        {95, both, "new-key", url, true, "New encrypt key no config follows"},
        {95,
         {{"DeviceEncryptionKey", longKey}},
         longKey.substr(0, 127),
         url,
         true,
         "New encrypt key no config follows"},  // cut to the field
        {97, both, "old-key", other, true, "New url no config follows"},
        {99, both, "old-key", url, false, "No new config disable check in flag"},
        {2, both, "old-key", url, true, "does not match with that available in portal"},
        {3, both, "old-key", url, true, "Incorrect device type"},
        {4, both, "old-key", url, true, "Incorrect imei"},
        {57, both, "old-key", url, true, "Received following error code from TOLA portal"},
        // A key or URL that is absent, empty, not a text or not storable keeps the stored one.
        {95, json::object(), "old-key", url, true,
         "No new encryption key in the answer; the old key is kept"},
        {95, {{"DeviceEncryptionKey", ""}}, "old-key", url, true, "No new encryption key in the answer"},
        {95, {{"DeviceEncryptionKey", 7}}, "old-key", url, true, "No new encryption key in the answer"},
        {95, {{"DeviceEncryptionKey", "a&b"}}, "old-key", url, true, "New encryption key refused"},
        {97, json::object(), "old-key", url, true, "No new check-in URL in the answer; the old URL is kept"},
        {97, {{"CheckInUrl", ""}}, "old-key", url, true, "No new check-in URL in the answer"},
        {97, {{"CheckInUrl", nullptr}}, "old-key", url, true, "No new check-in URL in the answer"},
        {97, {{"CheckInUrl", other + "?a=1&b=2"}}, "old-key", url, true, "New check-in URL refused"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        SCOPED_TRACE(c.fields.dump());
        Activate(url, "old-key");
        ASSERT_TRUE(app->EstablishAdminApnCall(1));
        size_t disconnects = Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size();
        json answer = {{"ResultCode", c.code}, {"Version", "1"}};
        answer.update(c.fields);
        std::string text = answer.dump();
        EXPECT_TRUE(app->SaveConfiguration(text));
        tolaagent_runtime_config_t stored = Stored();
        EXPECT_EQ(stored.payloadEncryptionKey, c.key);
        EXPECT_EQ(stored.checkInURL, c.url);
        EXPECT_EQ(stored.checkInFlag, c.flag);
        EXPECT_FALSE(stored.checkInIntervalOverrideFlag);
        EXPECT_STREQ(stored.version, "0");
        EXPECT_EQ(stored.lastCommand, std::to_string(c.code));
        EXPECT_NE(Log().find(c.logged), std::string::npos);
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), disconnects + 1);
    }
    EXPECT_EQ(Reboots(), 0);
}

TEST_F(ResponseTest, NewUrlWithAConfigurationButNoUrlStillReachesThePortal) {
    // Code 96 without its URL: the stored address stays, so the receipt still goes out; an
    // unstorable Version is confirmed but not stored.
    json answer = {{"ResultCode", 96},
                   {"Version", "v<2"},
                   {"EncryptedConfiguration", tola_test::Encrypt(kFactoryKey, "[{}]")}};
    json receipt = ReceiptFor(answer, "", true);
    EXPECT_EQ(receipt.value("ErrorCode", ""), "0");
    EXPECT_STREQ(Stored().version, "0");
    EXPECT_NE(Log().find("New version refused, it cannot be stored; the old version is kept"),
              std::string::npos);
}

TEST_F(ResponseTest, IntervalOverrideSetsTheTimer) {
    Activate("https://portal.tola.test/checkin");
    for (uint32_t hours : {24u, 2u}) {
        std::string text = R"({"ResultCode":1,"Version":"1","Settings":{"CheckinIntervalInHours":)" +
                           std::to_string(hours) + "}}";
        EXPECT_TRUE(app->SaveConfiguration(text));
        EXPECT_EQ(app->CheckInTimer().GetInterval(), hours * 3600);
        EXPECT_TRUE(Stored().checkInIntervalOverrideFlag);
        EXPECT_EQ(Stored().checkInInterval, hours);
    }
}

TEST_F(ResponseTest, MissingConfigurationIsConfirmedWithCodeTwo) {
    json receipt =
        ReceiptFor({{"ResultCode", 0}, {"Version", "5"}, {"EncryptedConfiguration", ""}}, "", false);
    EXPECT_EQ(receipt.value("ErrorCode", ""), "2");
    EXPECT_EQ(receipt.value("Version", ""), "5");
    EXPECT_EQ(receipt.value("ErrorMessage", "unset"), "");
    // The shipped template uses only the placeholders a receipt gets: none is left.
    EXPECT_EQ(receipt.dump().find('%'), std::string::npos) << receipt.dump();
    EXPECT_EQ(Stored().aclConfigStatus, 0);
}

TEST_F(ResponseTest, UndecryptableConfigurationIsConfirmedAsAFailure) {
    // Encrypted with a key the device does not hold: decrypts to garbage that does not parse.
    json answer = {{"ResultCode", 0},
                   {"Version", "5"},
                   {"EncryptedConfiguration", tola_test::Encrypt("another-key", R"([{"LANSettings":{}}])")}};
    json receipt = ReceiptFor(answer, "device-key", true);
    ASSERT_TRUE(receipt.is_object());
    EXPECT_NE(receipt["ErrorCode"], "0");
    EXPECT_STRNE(Stored().version, "5");
}

TEST_F(ResponseTest, EmptyVersionKeepsTheStoredOneInTheRecordTheReceiptAndTheNextRequest) {
    CannedHttpServer portal({R"({"ResultCode":1,"Version":"1"})"});
    Activate(portal.url());
    tola_copy_text(app->RuntimeConfig().version, "4");
    app->Agent().SetRuntimeConfig(app->RuntimeConfig());
    app->RecordModemInformation();
    std::string text = json{{"ResultCode", 0},
                            {"Version", ""},
                            {"EncryptedConfiguration", tola_test::Encrypt(kFactoryKey, "[{}]")}}
                           .dump();
    EXPECT_TRUE(app->SaveConfiguration(text));  // applied
    EXPECT_STREQ(Stored().version, "4");
    ASSERT_EQ(portal.bodies().size(), 1u);
    json envelope = json::parse(portal.bodies()[0], nullptr, false);
    json receipt = json::parse(Decrypt(kFactoryKey, envelope.value("Request", "")), nullptr, false);
    EXPECT_EQ(receipt.value("ErrorCode", ""), "0");
    EXPECT_EQ(receipt.value("Version", ""), "4");
    std::string request = "{\"Version\":\"%VERSION%\"}";
    std::string checkIn = "{}";
    app->ProcessRequest(checkIn, request);
    EXPECT_EQ(request, "{\"Version\":\"4\"}");
}

TEST(MaskSecrets, PasswordsAndKeysNeverReachTheLog) {
    struct Case {
        std::string text, masked;
    } cases[] = {
        {R"([{"AdminPasswordSettings":{"AdminPassword":"s3cret","AdminPasswordOnDisplay":true}}])",
         R"([{"AdminPasswordSettings":{"AdminPassword":"********","AdminPasswordOnDisplay":true}}])"},
        {R"({"WiFiKey" : "a\"b:c", "SSID":"WiFiKey", "Answer":"x"})",
         R"({"WiFiKey" : "********", "SSID":"WiFiKey", "Answer":"********"})"},
        {R"({"DeviceEncryptionKey":"k","CheckInUrl":"https://p/","ResultCode":95})",
         R"({"DeviceEncryptionKey":"********","CheckInUrl":"https://p/","ResultCode":95})"},
        {R"({"WiFiGuestKey":7,"Keys":["a","b"]})", R"({"WiFiGuestKey":7,"Keys":["a","b"]})"},
        {"<html>503</html>", "<html>503</html>"},
        {R"({"AdminPassword":"cut sh)", R"({"AdminPassword":"********")"},  // a text cut short
    };
    for (const Case& c : cases) {
        EXPECT_EQ(tola_mask_secrets(c.text), c.masked) << c.text;
    }
}

TEST_F(ResponseTest, ReceiptIsFilledTrimmedAndEncrypted) {
    Activate("https://p/", "rk");
    app->RecordModemInformation();
    app->mVersion = "9";
    app->mResultCode = 151;
    app->mResultMessage = "Invalid LAN";
    std::string receipt =
        "\n\n{\"V\":\"%VERSION%\",\"C\":\"%ERRCD%\",\"M\":\"%ERRMSG%\",\"I\":\"%IMEI%\"}\n\n";
    std::string checkIn = "{\"IMEI\":\"%IMEI%\",\"Request\":\"%ENCRYPTEDREQUEST%\"}";
    EXPECT_TRUE(app->ProcessReceipt(receipt, checkIn));
    EXPECT_EQ(receipt, "{\"V\":\"9\",\"C\":\"151\",\"M\":\"Invalid LAN\",\"I\":\"%IMEI%\"}");
    json envelope = json::parse(checkIn);
    EXPECT_EQ(envelope["IMEI"], "356938035643809");
    EXPECT_EQ(Decrypt("rk", envelope["Request"].get<std::string>()), receipt);
}

}  // namespace
