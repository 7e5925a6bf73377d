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
    for (const auto& c : tola_test::readCases("result_codes.tsv", 7)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        Activate("https://portal.tola.test/checkin", "old-key");
        ASSERT_TRUE(app->EstablishAdminApnCall(1));
        size_t disconnects = Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size();
        json answer = {{"ResultCode", std::stoi(c[0])}, {"Version", "1"}};
        answer.update(json::parse(c[1]));
        std::string text = answer.dump();
        EXPECT_TRUE(app->SaveConfiguration(text));
        tolaagent_runtime_config_t stored = Stored();
        EXPECT_EQ(std::string(stored.payloadEncryptionKey) + "|" + stored.checkInURL + "|" +
                      std::to_string(stored.checkInFlag),
                  c[2] + "|" + c[3] + "|" + c[4]);
        EXPECT_EQ(stored.checkInIntervalOverrideFlag, !c[6].empty());
        if (!c[6].empty()) {
            EXPECT_EQ(stored.checkInInterval, std::stoul(c[6]));
            EXPECT_EQ(app->CheckInTimer().GetInterval(), std::stoul(c[6]) * 3600);
        }
        EXPECT_STREQ(stored.version, "0");
        EXPECT_EQ(stored.lastCommand, c[0]);
        EXPECT_NE(Log().find(c[5]), std::string::npos);
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), disconnects + 1);
    }
    EXPECT_EQ(Reboots(), 0);
}

TEST_F(ResponseTest, AConfigurationIsConfirmedByAReceiptThenAReboot) {
    for (const auto& c : tola_test::readCases("receipts.tsv", 13)) {
        SCOPED_TRACE(c[0] + " " + c[1] + " " + c[2]);
        CannedHttpServer portal({R"({"ResultCode":1,"Version":"1"})"});
        tola_copy_text(app->RuntimeConfig().version, "4");  // stored with the rest by Activate
        app->RuntimeConfig().aclConfigStatus = 0;
        Activate(portal.url(), c[4]);
        app->RecordModemInformation();  // as the check-in did before the answer came
        const std::string key = c[4].empty() ? kFactoryKey : c[4];
        std::string text = json{{"ResultCode", std::stoi(c[0])},
                                {"Version", c[1]},
                                {"EncryptedConfiguration",
                                 c[2].empty() ? "" : tola_test::Encrypt(c[3].empty() ? key : c[3], c[2])}}
                               .dump();
        int reboots = Reboots();
        EXPECT_EQ(app->SaveConfiguration(text), c[5] == "1");
        EXPECT_EQ(Reboots(), reboots + 1);
        ASSERT_EQ(portal.bodies().size(), 1u);
        json envelope = json::parse(portal.bodies()[0], nullptr, false);
        EXPECT_EQ(envelope.value("IMEI", ""), "356938035643809");
        const std::string plain = Decrypt(key, envelope.value("Request", ""));
        EXPECT_TRUE(!plain.empty() && plain.front() == '{' && plain.back() == '}') << plain;  // trimmed
        json receipt = json::parse(plain, nullptr, false);
        // The shipped template uses only the placeholders a receipt gets: none is left.
        EXPECT_EQ(receipt.dump().find('%'), std::string::npos) << receipt.dump();
        EXPECT_EQ(receipt.value("ErrorCode", "") + "|" + receipt.value("ErrorMessage", "unset") + "|" +
                      receipt.value("Version", ""),
                  c[6] + "|" + c[7] + "|" + c[8]);
        tolaagent_runtime_config_t stored = Stored();
        EXPECT_EQ(std::string(stored.version) + "|" + std::to_string(stored.checkInFlag) + "|" +
                      std::to_string(stored.aclConfigStatus),
                  c[9] + "|" + c[10] + "|" + c[11]);
        EXPECT_NE(Log().find(c[12]), std::string::npos);
        std::string request = "%VERSION%", checkIn = "{}";
        app->ProcessRequest(checkIn, request);
        EXPECT_EQ(request, c[9]);
    }
}

TEST(MaskSecrets, PasswordsAndKeysNeverReachTheLog) {
    for (const auto& c : tola_test::readCases("masked_secrets.tsv", 2)) {
        EXPECT_EQ(tola_mask_secrets(c[0]), c[1]) << c[0];
    }
}

}  // namespace
