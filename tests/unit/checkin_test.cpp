// The check-in exchange: the envelope, the attempt loop, the client's preparation.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <tuple>

#include "app_fixture.h"
#include "canned_http.h"
#include "case_rows.h"
#include "http_helper.h"
#include "sys_core.h"

using ardo::json;
using tola_test::AppTest;
using tola_test::CannedHttpServer;
using tola_test::kFactoryKey;

namespace {

using CheckInTest = AppTest;

// Under the portal's key once there is one, else under the factory key.
TEST_F(CheckInTest, RequestIsTrimmedAndEncryptedIntoTheEnvelope) {
    for (const auto& [runtimeKey, usedKey] : {std::make_pair("", kFactoryKey), std::make_pair("k", "k")}) {
        tola_copy_text(app->RuntimeConfig().payloadEncryptionKey, runtimeKey);
        app->RecordModemInformation();
        std::string request = "\n {\"a\":1}\r\n\n\t\v\b ";
        std::string checkIn = "{\"IMEI\":\"%IMEI%\",\"Request\":\"%ENCRYPTEDREQUEST%\"}";
        EXPECT_TRUE(app->ProcessCheckIn(request, checkIn));
        EXPECT_EQ(request, "{\"a\":1}");
        json envelope = json::parse(checkIn);
        EXPECT_EQ(envelope["IMEI"], "356938035643809");
        EXPECT_EQ(tola_test::Decrypt(usedKey, envelope["Request"].get<std::string>()), "{\"a\":1}");
    }
}

TEST_F(CheckInTest, FailedAttemptsFollowTheRetryCount) {
    app->PerformCheckIn();  // no portal URL yet: no attempt
    EXPECT_TRUE(Journal("sys_cellularDataUsageAPNCallConnect").empty());
    // Retries, attempts, waits between failed attempts (none after the last).
    const std::tuple<const char*, size_t, size_t> cases[] = {{"0", 1, 0}, {"2", 3, 2}, {"4294967295", 0, 0}};
    for (auto [retries, attempts, expectedWaits] : cases) {
        SetConfigValue("CheckInFailedRetries", retries);
        root.remove("/var/lib/ardo/calls.jsonl");
        root.remove("/var/lib/ardo/waits.jsonl");
        Activate("http://127.0.0.1:9");  // the discard port: refused on loopback
        app->PerformCheckIn();
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallConnect", 0).size(), attempts) << retries;
        // Every failed attempt ends its data call.
        EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), attempts) << retries;
        size_t waits = 0;
        for (const json& sleep : Journal("sys_sleepSeconds")) {
            waits += sleep["args"]["seconds"] == app->Config().checkInRetryInterval ? 1 : 0;
            EXPECT_TRUE(sleep["args"]["full"].get<bool>());
        }
        EXPECT_EQ(waits, expectedWaits) << retries;
        EXPECT_STREQ(Stored().lastCommand, "");
    }
}

// The accepted answer replaces the downloaded file whole.
TEST_F(CheckInTest, UnparsableAnswerIsRetriedAtOnceOnTheSameCall) {
    const std::string downloaded = "/opt/ardo/data/tola/tola_downloaded_config";
    root.writeFile(downloaded, "previous answer");
    // A reader that opened the file before: a crash-safe write gives the new text a new file, so
    // this reader still sees the whole previous text, never a truncated one.
    std::ifstream earlier(root.path(downloaded));
    CannedHttpServer portal({"<html>not json</html>", R"({"ResultCode":1,"Version":"7"})"});
    Activate(portal.url());
    app->PerformCheckIn();
    ASSERT_EQ(portal.bodies().size(), 2u);
    // Only the accepted answer ends the data call.
    EXPECT_EQ(Journal("sys_cellularDataUsageAPNCallDisconnect", 0).size(), 1u);
    EXPECT_EQ(root.readFile(downloaded), R"({"ResultCode":1,"Version":"7"})");
    EXPECT_STREQ(Stored().lastCommand, "1");
    std::string seen((std::istreambuf_iterator<char>(earlier)), std::istreambuf_iterator<char>());
    EXPECT_EQ(seen, "previous answer");
    for (const auto& entry : std::filesystem::directory_iterator(root.path("/opt/ardo/data/tola"))) {
        EXPECT_EQ(entry.path().string().find(".tmp"), std::string::npos);  // nothing left beside it
    }
}

// Code 0 without its configuration is answered with a receipt and a reboot, and the failed
// answer would have the loop try again: once the reboot is asked for, nothing more is sent.
TEST_F(CheckInTest, AReceiptEndsTheCheckInWhateverTheAnswer) {
    CannedHttpServer portal({R"({"ResultCode":0,"Version":"7"})"});
    Activate(portal.url());
    app->PerformCheckIn();
    EXPECT_EQ(portal.bodies().size(), 2u);  // the check-in and its receipt
    EXPECT_EQ(Journal("sys_rebootSystem").size(), 1u);
}

TEST_F(CheckInTest, AProcessStopEndsTheRetriesWithoutContactingThePortal) {
    SetConfigValue("CheckInFailedRetries", "2");
    SetConfigValue("CheckInRetryInterval", "4000000");  // over an hour of real time, unless cut short
    CannedHttpServer portal({R"({"ResultCode":1,"Version":"7"})"});
    // The first attempt finds no data call; the process stops during the retry wait.
    ardo::deviceStateSet("/faults/sys_cellularDataUsageAPNCallConnect", json::array({5, 5, 5, 5, 5, 5}));
    Activate(portal.url());
    std::thread stopper([this] {
        while (LogCount("HTTP request failed") == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        sys_requestProcessStop();
    });
    app->PerformCheckIn();
    stopper.join();
    EXPECT_TRUE(portal.bodies().empty());
    EXPECT_EQ(LogCount("Checking server - attempt"), 1u);
    EXPECT_EQ(LogCount("Process is stopping, check-in abandoned"), 1u);
}

// Only on the apps APN call, and only for a host the lookups answer.
TEST_F(CheckInTest, PrepareRequestBuildsTheForcedResolution) {
    ASSERT_TRUE(app->EstablishAdminApnCall(1));
    for (const auto& c : tola_test::readCases("forced_resolution.tsv", 2)) {
        HttpHelper client;
        app->PrepareRequest(client, c[0]);
        EXPECT_EQ(client.GetInterface(), "lo");
        EXPECT_EQ(client.GetResolveEntry(), c[1]) << c[0];
    }
    root.writeFile("/opt/ardo/tmp/router2/resolv_data_usage.conf", "# no servers\n");
    HttpHelper client;
    app->PrepareRequest(client, "https://unknown.tola.test/checkin");
    EXPECT_EQ(client.GetResolveEntry(), "");
    for (int timeout : {2, 4, 8, 16}) {
        EXPECT_NE(Log().find("sys_resolveHostName(timeout=" + std::to_string(timeout) + ") failed"),
                  std::string::npos);
    }
    SetConfigValue("DataCallType", "1");
    size_t lookups = LogCount("[CALL_DNS]");
    HttpHelper other;
    app->PrepareRequest(other, "https://portal.tola.test/checkin");
    EXPECT_EQ(other.GetInterface(), "");
    EXPECT_EQ(other.GetResolveEntry(), "");
    EXPECT_EQ(LogCount("[CALL_DNS]"), lookups);
}

}  // namespace
