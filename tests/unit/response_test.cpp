// The portal's check-in answer: parsing, what each result code changes, the receipt.
#include <gtest/gtest.h>

#include <cstdlib>

#include "app_fixture.h"
#include "canned_http.h"
#include "payload_cipher.h"
#include "tola_json_parser.h"

using ardo::json;
using tola_test::AppTest;
using tola_test::CannedHttpServer;

namespace {

constexpr const char* kFactoryKey = "VeltraFactoryKey-2017";

std::string Decrypt(const std::string& key, const std::string& text) {
    char* plain = nullptr;
    if (AesDecrypt(key.c_str(), text.c_str(), &plain) != 0 || plain == nullptr) {
        return "";
    }
    std::string out = plain;
    std::free(plain);
    return out;
}

class ResponseTest : public AppTest {
protected:
    int Reboots() { return ardo::deviceStateValue<int>("/power/reboots", 0); }
};

TEST_F(ResponseTest, AnswerParsing) {
    struct Case {
        std::string text;
        bool ok;
        int code;
        const char* version;
        bool interval;
        int hours;
        const char* configuration;
    } cases[] = {
        {R"({"ResultCode":1,"Version":"7"})", true, 1, "7", false, 0, ""},
        {R"({"ResultCode":0,"Version":"","Settings":{"CheckinIntervalInHours":24},"EncryptedConfiguration":"QUJD"})",
         true, 0, "", true, 24, "QUJD"},
        {R"({"ResultCode":1,"Version":"3","Settings":{"CheckinIntervalInHours":"24"}})", true, 1, "3", false, 0, ""},
        {R"({"ResultCode":1,"Version":"3","Settings":{"CheckinIntervalInHours":-5}})", true, 1, "3", false, 0, ""},
        {R"({"ResultCode":1,"Version":"3","Settings":{"CheckinIntervalInHours":99999999999}})", true, 1, "3", false,
         0, ""},
        {R"({"ResultCode":1})", false, 1, "", false, 0, ""},
        {R"({"ResultCode":1,"Version":7})", false, 1, "", false, 0, ""},
        {R"({"ResultCode":"1","Version":"7"})", false, 0, "7", false, 0, ""},
        {R"({"ResultCode":1.5,"Version":"7"})", false, 0, "7", false, 0, ""},
        {R"({"Version":"7"})", false, 0, "7", false, 0, ""},
        {R"([{"ResultCode":1,"Version":"7"}])", false, 0, "", false, 0, ""},
        {"<html>503</html>", false, 0, "", false, 0, ""},
        {"", false, 0, "", false, 0, ""},
        {R"({"ResultCode":1,"Version":")" + std::string(2 * 1024 * 1024, 'v') + "\"}", true, 1, nullptr, false, 0,
         ""},
        {std::string(100000, '['), false, 0, "", false, 0, ""},
    };
    for (const Case& c : cases) {
        std::string text = c.text;
        TOLAJSONParser parser(app.get());
        EXPECT_EQ(parser.ProcessCheckinResponse(text), c.ok) << c.text.substr(0, 80);
        EXPECT_EQ(app->mResultCode, c.code) << c.text.substr(0, 80);
        if (c.version != nullptr) {
            EXPECT_EQ(app->mVersion, c.version) << c.text.substr(0, 80);
        }
        EXPECT_EQ(app->mCheckInIntervalPresent, c.interval) << c.text.substr(0, 80);
        EXPECT_EQ(app->mCheckInIntervalHours, c.hours);
        EXPECT_EQ(text, c.configuration);
    }
}

TEST_F(ResponseTest, KeyAndUrlAnswer) {
    struct Case {
        const char* text;
        bool ok;
    } cases[] = {
        {R"({"DeviceEncryptionKey":"k2","CheckInUrl":"https://p/"})", true},
        {R"({"DeviceEncryptionKey":"k2"})", false},
        {R"({"DeviceEncryptionKey":2,"CheckInUrl":"https://p/"})", false},
        {R"(["k2","https://p/"])", false},
        {"garbage", false},
    };
    for (const Case& c : cases) {
        std::string key = "old", url = "old";
        TOLAJSONParser parser(app.get());
        EXPECT_EQ(parser.ProcessSMS104CheckinResponse(c.text, key, url), c.ok) << c.text;
        EXPECT_EQ(key, c.ok ? "k2" : "old");
        EXPECT_EQ(url, c.ok ? "https://p/" : "old");
    }
}

TEST_F(ResponseTest, CodeOneChangesOnlyTheLastCommand) {
    Activate("https://portal.tola.test/checkin", "key1");
    ASSERT_TRUE(app->EstablishAdminApnCall(1));
    tolaagent_runtime_config_t before = Stored();
    std::string answer = R"({"ResultCode":1,"Version":"7"})";
    EXPECT_TRUE(app->SaveConfiguration(answer));
    tolaagent_runtime_config_t after = Stored();
    EXPECT_STREQ(after.lastCommand, "1");
    EXPECT_STREQ(after.version, before.version);
    EXPECT_STREQ(after.checkInURL, before.checkInURL);
    EXPECT_STREQ(after.payloadEncryptionKey, before.payloadEncryptionKey);
    EXPECT_EQ(after.checkInFlag, before.checkInFlag);
    EXPECT_EQ(after.checkInIntervalOverrideFlag, before.checkInIntervalOverrideFlag);
    EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), 1u);
    EXPECT_EQ(Reboots(), 0);
}

TEST_F(ResponseTest, ResultCodesChangeKeyUrlAndFlag) {
    struct Case {
        int code;
        const char* key;
        const char* url;
        bool flag;
        const char* logged;
    } cases[] = {
        {95, "new-key", "https://portal.tola.test/checkin", true, "New encrypt key no config follows"},
        {97, "old-key", "https://other.tola.test/c", true, "New url no config follows"},
        {99, "old-key", "https://portal.tola.test/checkin", false, "No new config disable check in flag"},
        {2, "old-key", "https://portal.tola.test/checkin", true, "does not match with that available in portal"},
        {3, "old-key", "https://portal.tola.test/checkin", true, "Incorrect device type"},
        {4, "old-key", "https://portal.tola.test/checkin", true, "Incorrect imei"},
        {57, "old-key", "https://portal.tola.test/checkin", true, "Received following error code from TOLA portal"},
    };
    for (const Case& c : cases) {
        Activate("https://portal.tola.test/checkin", "old-key");
        json answer = {{"ResultCode", c.code},
                       {"Version", "1"},
                       {"DeviceEncryptionKey", "new-key"},
                       {"CheckInUrl", "https://other.tola.test/c"}};
        std::string text = answer.dump();
        EXPECT_TRUE(app->SaveConfiguration(text)) << c.code;
        tolaagent_runtime_config_t stored = Stored();
        EXPECT_STREQ(stored.payloadEncryptionKey, c.key) << c.code;
        EXPECT_STREQ(stored.checkInURL, c.url) << c.code;
        EXPECT_EQ(stored.checkInFlag, c.flag) << c.code;
        EXPECT_EQ(stored.lastCommand, std::to_string(c.code));
        EXPECT_NE(Log().find(c.logged), std::string::npos) << c.code;
    }
    EXPECT_EQ(Reboots(), 0);
}

TEST_F(ResponseTest, LongKeyAndUrlAreCutToTheirFields) {
    Activate("https://portal.tola.test/checkin");
    json answer = {{"ResultCode", 95}, {"Version", "1"}, {"DeviceEncryptionKey", std::string(500, 'k')}};
    std::string text = answer.dump();
    EXPECT_TRUE(app->SaveConfiguration(text));
    EXPECT_EQ(std::string(Stored().payloadEncryptionKey), std::string(127, 'k'));
}

TEST_F(ResponseTest, IntervalOverrideSetsTheTimer) {
    Activate("https://portal.tola.test/checkin");
    std::string text = R"({"ResultCode":1,"Version":"1","Settings":{"CheckinIntervalInHours":24}})";
    EXPECT_TRUE(app->SaveConfiguration(text));
    EXPECT_EQ(app->CheckInTimer().GetInterval(), 86400u);
    EXPECT_TRUE(Stored().checkInIntervalOverrideFlag);
    EXPECT_EQ(Stored().checkInInterval, 24u);
    text = R"({"ResultCode":1,"Version":"1","Settings":{"CheckinIntervalInHours":2}})";
    EXPECT_TRUE(app->SaveConfiguration(text));
    EXPECT_EQ(app->CheckInTimer().GetInterval(), 7200u);
    EXPECT_EQ(Stored().checkInInterval, 2u);
}

TEST_F(ResponseTest, MissingConfigurationIsConfirmedWithCodeTwo) {
    CannedHttpServer portal({R"({"ResultCode":1,"Version":"1"})"});
    Activate(portal.url());
    app->RecordModemInformation();  // as the check-in did before the answer came
    std::string text = R"({"ResultCode":0,"Version":"5","EncryptedConfiguration":""})";
    EXPECT_FALSE(app->SaveConfiguration(text));
    ASSERT_EQ(portal.bodies().size(), 1u);
    json envelope = json::parse(portal.bodies()[0], nullptr, false);
    ASSERT_TRUE(envelope.is_object()) << portal.bodies()[0];
    EXPECT_EQ(envelope["IMEI"], "356938035643809");
    json receipt = json::parse(Decrypt(kFactoryKey, envelope["Request"].get<std::string>()), nullptr, false);
    ASSERT_TRUE(receipt.is_object());
    EXPECT_EQ(receipt["ErrorCode"], "2");
    EXPECT_EQ(receipt["Version"], "5");
    EXPECT_EQ(receipt["ErrorMessage"], "");
    EXPECT_EQ(Reboots(), 0);
    EXPECT_EQ(Stored().aclConfigStatus, 0);
}

TEST_F(ResponseTest, UndecryptableConfigurationIsConfirmedAsAFailure) {
    CannedHttpServer portal({R"({"ResultCode":1,"Version":"1"})"});
    Activate(portal.url(), "device-key");
    // Encrypted with a key the device does not hold: decrypts to garbage that does not parse.
    char* wrong = nullptr;
    ASSERT_EQ(AesEncrypt("another-key", R"([{"LANSettings":{}}])", &wrong), 0);
    json answer = {{"ResultCode", 0}, {"Version", "5"}, {"EncryptedConfiguration", wrong}};
    std::free(wrong);
    std::string text = answer.dump();
    EXPECT_TRUE(app->SaveConfiguration(text));
    ASSERT_EQ(portal.bodies().size(), 1u);
    json envelope = json::parse(portal.bodies()[0]);
    json receipt = json::parse(Decrypt("device-key", envelope["Request"].get<std::string>()), nullptr, false);
    ASSERT_TRUE(receipt.is_object());
    EXPECT_NE(receipt["ErrorCode"], "0");
    EXPECT_EQ(Reboots(), 0);
    EXPECT_STRNE(Stored().version, "5");
}

TEST_F(ResponseTest, ReceiptIsFilledTrimmedAndEncrypted) {
    Activate("https://p/", "rk");
    app->RecordModemInformation();
    app->mVersion = "9";
    app->mResultCode = 151;
    app->mResultMessage = "Invalid LAN";
    std::string receipt = "\n\n{\"V\":\"%VERSION%\",\"C\":\"%ERRCD%\",\"M\":\"%ERRMSG%\",\"I\":\"%IMEI%\"}\n\n";
    std::string checkIn = "{\"IMEI\":\"%IMEI%\",\"Request\":\"%ENCRYPTEDREQUEST%\"}";
    EXPECT_TRUE(app->ProcessReceipt(receipt, checkIn));
    EXPECT_EQ(receipt, "{\"V\":\"9\",\"C\":\"151\",\"M\":\"Invalid LAN\",\"I\":\"%IMEI%\"}");
    json envelope = json::parse(checkIn);
    EXPECT_EQ(envelope["IMEI"], "356938035643809");
    EXPECT_EQ(Decrypt("rk", envelope["Request"].get<std::string>()), receipt);
}

}  // namespace
