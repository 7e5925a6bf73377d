// The portal's check-in answer: parsing, what each result code changes, the receipt.
#include "app_fixture.h"
#include "canned_http.h"
#include "case_rows.h"
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
    tola_copy_text(app->RuntimeConfig().version, "4");  // the version stored before this answer
    for (const auto& c : tola_test::readCases("checkin_answers.tsv", 6)) {
        SCOPED_TRACE(c[0].substr(0, 80));
        std::string text = c[0];
        TOLAJSONParser parser(app.get());
        EXPECT_EQ(parser.ProcessCheckinResponse(text), c[1] == "1");
        EXPECT_EQ(app->mResultCode, std::stoi(c[2]));
        if (c[3] != "-") {
            EXPECT_EQ(app->mVersion, c[3]);
        }
        EXPECT_EQ(app->mCheckInIntervalPresent, c[4] != "0");
        EXPECT_EQ(app->mCheckInIntervalHours, std::stoi(c[4]));
        EXPECT_EQ(text, c[5]);
    }
}

// Answers without a configuration: what each code changes, and the data call ended each time.
TEST_F(ResponseTest, ResultCodesChangeKeyUrlAndFlag) {
    for (const auto& c : tola_test::readCases("result_codes.tsv", 6)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        Activate("https://portal.tola.test/checkin", "old-key");
        ASSERT_TRUE(app->EstablishAdminApnCall(1));
        size_t disconnects = Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size();
        json answer = {{"ResultCode", std::stoi(c[0])}, {"Version", "1"}};
        answer.update(json::parse(c[1]));
        std::string text = answer.dump();
        EXPECT_TRUE(app->SaveConfiguration(text));
        tolaagent_runtime_config_t stored = Stored();
        EXPECT_EQ(stored.payloadEncryptionKey, c[2]);
        EXPECT_EQ(stored.checkInURL, c[3]);
        EXPECT_EQ(stored.checkInFlag, c[4] == "1");
        EXPECT_FALSE(stored.checkInIntervalOverrideFlag);
        EXPECT_STREQ(stored.version, "0");
        EXPECT_EQ(stored.lastCommand, c[0]);
        EXPECT_NE(Log().find(c[5]), std::string::npos);
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

TEST_F(ResponseTest, DisablingWithAConfigurationAppliesItStoresItsVersionAndClearsTheFlag) {
    json answer = {{"ResultCode", 98},
                   {"Version", "8"},
                   {"EncryptedConfiguration", tola_test::Encrypt(kFactoryKey, "[{}]")}};
    EXPECT_EQ(ReceiptFor(answer, "", true).value("ErrorCode", ""), "0");
    EXPECT_STREQ(Stored().version, "8");
    EXPECT_FALSE(Stored().checkInFlag);
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
    tola_copy_text(app->RuntimeConfig().version, "4");
    json receipt = ReceiptFor({{"ResultCode", 0},
                               {"Version", ""},
                               {"EncryptedConfiguration", tola_test::Encrypt(kFactoryKey, "[{}]")}},
                              "", true);
    EXPECT_STREQ(Stored().version, "4");
    EXPECT_EQ(receipt.value("ErrorCode", ""), "0");
    EXPECT_EQ(receipt.value("Version", ""), "4");
    std::string request = "{\"Version\":\"%VERSION%\"}";
    std::string checkIn = "{}";
    app->ProcessRequest(checkIn, request);
    EXPECT_EQ(request, "{\"Version\":\"4\"}");
}

TEST(MaskSecrets, PasswordsAndKeysNeverReachTheLog) {
    for (const auto& c : tola_test::readCases("masked_secrets.tsv", 2)) {
        EXPECT_EQ(tola_mask_secrets(c[0]), c[1]) << c[0];
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
