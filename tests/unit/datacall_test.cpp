// Data calls by DataCallType with scripted platform results, the conditions for a data-usage
// query, the bounded wait for the service's notice and the texts derived from its plans.
#include <chrono>
#include <cstdint>
#include <thread>
#include <tuple>

#include "app_fixture.h"
#include "case_rows.h"
#include "sys_device.h"

using ardo::json;
using tola_test::AppTest;

namespace {

class DataCallTest : public AppTest {
  protected:
    void Notice(uint32_t status) { app->OnChannelNotify(TOLA_CHANNEL_DATA_USAGE, &status, sizeof status); }
    // A check-in asks for figures and this test plays the service's notice.
    void FreshFigures() {
        ardo::deviceStateSet("/data_usage/notice", "never");
        ASSERT_TRUE(app->RequestDataUsage());
        Notice(0);
    }
    // The request with the data-usage placeholders filled; they stay out of the envelope.
    std::string Filled() {
        const std::string usage =
            "%PLANTYPE%|%ALLOWANCE%|%UNIT%|%LINEUSAGE%|%TOTALSHRUSAGE%|%CYCLEENDDT%|%USAGETIMESTAMP%|%"
            "PREPAYIND%";
        std::string checkIn = usage, request = usage;
        app->ProcessRequest(checkIn, request);
        EXPECT_EQ(checkIn, usage);
        // Only fresh figures choose the data-usage template.
        std::string chosen;
        EXPECT_EQ(app->GetRequestParameters(chosen), 0);
        EXPECT_EQ(chosen.find("%PLANTYPE%") != std::string::npos, app->GotDataUsageInfo());
        return request;
    }
};

TEST_F(DataCallTest, InternetCallOnTheOnlyAttemptCountsAsFailedEvenWhenUp) {
    // Status before and after a connect, result, connects, routing waits; up already needs no connect.
    const std::tuple<int, int, int, size_t, size_t> cases[] = {
        {2, 2, 0, 0, 0}, {0, 2, 1, 1, 1}, {0, 0, 1, 1, 0}};
    SetConfigValue("DataCallType", "1");
    for (auto [status, statusAfterConnect, rc, newConnects, routingWaits] : cases) {
        ardo::deviceStateSet("/data_call/internet/status", status);
        ardo::deviceStateSet("/data_call/internet/status_after_connect", statusAfterConnect);
        size_t connects = Journal("sys_cellularDataConnect").size(),
               waits = LogCount("sleeping for 20 seconds");
        EXPECT_EQ(app->CheckDataCallAndConnect(), rc);
        EXPECT_EQ(Journal("sys_cellularDataConnect").size() - connects, newConnects);
        EXPECT_EQ(LogCount("sleeping for 20 seconds") - waits, routingWaits);
    }
    // Two attempts allowed: a call that comes up on the first one is reported up.
    ardo::deviceStateSet("/data_call/internet/status", 0);
    ardo::deviceStateSet("/data_call/internet/status_after_connect", 2);
    EXPECT_TRUE(app->EstablishInternetApnCall(2));
    EXPECT_FALSE(app->EstablishInternetApnCall(0));  // no attempts allowed: never reported up
    app->EndRequest();                               // the Internet call is never torn down
    EXPECT_TRUE(Journal("sys_cellularDataDisconnect").empty());
    EXPECT_TRUE(Journal("sys_cellularDataUsageAPNCallDisconnect").empty());
}

TEST_F(DataCallTest, AppsApnCallLearnsTheInterfaceByTheSizeProtocol) {
    app->EndRequest();  // nothing open: nothing to disconnect
    EXPECT_TRUE(Journal("sys_cellularDataUsageAPNCallDisconnect").empty());
    EXPECT_EQ(app->CheckDataCallAndConnect(), 0);
    EXPECT_EQ(app->InterfaceName(), "lo");
    app->EndRequest();
    for (const char* call :
         {"sys_cellularDataUsageAPNCallConnect", "sys_cellularDataUsageAPNCallDisconnect"}) {
        std::vector<json> lines = Journal(call, 0);
        ASSERT_EQ(lines.size(), 1u) << call;
        EXPECT_EQ(lines[0]["args"]["call_id"], "tola_data_call_id");
    }

    // A name far longer than any fixed buffer arrives whole.
    std::string longName(300, 'x');
    ardo::deviceStateSet("/data_call/apps_apn/interface", longName);
    EXPECT_TRUE(app->EstablishAdminApnCall(1));
    EXPECT_EQ(app->InterfaceName(), longName);
}

TEST_F(DataCallTest, AppsApnCallRetriesOnceThenGivesUp) {
    // The connect's scripted results, up, failures logged.
    const std::tuple<json, bool, size_t> cases[] = {
        {json::array({1, 1}), false, 2},
        {json::array({1}), true, 1},
        {json::array({7, 7}), false, 2},  // "too small" without a size: nothing to allocate
    };
    for (const auto& [faults, up, failuresLogged] : cases) {
        ardo::deviceStateSet("/faults/sys_cellularDataUsageAPNCallConnect", faults);
        size_t before = LogCount("sys_cellularDataUsageAPNCallConnect returned");
        EXPECT_EQ(app->EstablishAdminApnCall(1), up) << faults;
        EXPECT_EQ(LogCount("sys_cellularDataUsageAPNCallConnect returned") - before, failuresLogged);
        EXPECT_EQ(app->InterfaceName().empty(), !up);
        ardo::deviceStateSet("/faults", json::object());
    }
    EXPECT_EQ(LogCount("AdminAPNCallConnect failed"), 2u);
}

TEST_F(DataCallTest, DataUsageQueryPreconditions) {
    json factory = ardo::deviceStateRead();
    for (const auto& c : tola_test::readCases("datausage_preconditions.tsv", 4)) {
        ardo::deviceStateUpdate([&](json& s) { s = factory; });
        ardo::deviceStateSet(c[0], json::parse(c[1]));
        EXPECT_EQ(app->CheckPreconditionsForRequest(), c[2] == "1") << c[0];
        EXPECT_NE(Log().find(c[3]), std::string::npos) << c[3];
    }
}

TEST_F(DataCallTest, NoticeWithStatusZeroEndsTheWait) {
    SetConfigValue("DataUsageResponseWaitTime", "3600");  // an hour, compressed to 3.6 s
    ardo::deviceStateSet("/data_usage/notice", "never");  // the test plays the service
    std::thread service([this] {
        while (Journal("dua_start_data_usage_script").empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        Notice(0);
    });
    auto start = std::chrono::steady_clock::now();
    app->GetUpdatedDataUsage();
    auto waited = std::chrono::steady_clock::now() - start;
    service.join();
    EXPECT_TRUE(app->GotDataUsageInfo());
    EXPECT_LT(waited, std::chrono::milliseconds(3600));  // did not sit out the whole wait
    app->RecordDataUsageInformation();
    EXPECT_EQ(Filled(), "Shared|50|GB|2.35|17.80|2024-05-31|2024-05-14T08:30:00Z|N");
}

TEST_F(DataCallTest, NoFiguresWithoutAFreshNotice) {
    // The service's notice and its status, roaming, asked (a roaming device does not ask, and a
    // notice from before counts for nothing).
    const std::tuple<const char*, int, int, bool> cases[] = {
        {"never", 0, 0, true}, {"publish", 1, 0, true}, {"publish", 0, 1, false}};
    for (auto [notice, status, network, asked] : cases) {
        SCOPED_TRACE(std::string(notice) + std::to_string(status) + std::to_string(network));
        ardo::deviceStateSet("/data_usage/notice", notice);
        ardo::deviceStateSet("/data_usage/notice_status", status);
        ardo::deviceStateSet("/service/network", network);
        root.remove("/var/lib/ardo/calls.jsonl");
        size_t timeouts = LogCount("no data usage info within 15 seconds");
        Notice(0);
        app->GetUpdatedDataUsage();
        EXPECT_FALSE(app->GotDataUsageInfo());
        EXPECT_EQ(Journal("dua_start_data_usage_script").empty(), !asked);
        EXPECT_EQ(LogCount("no data usage info within 15 seconds") - timeouts, asked ? 1u : 0u);
        app->RecordDataUsageInformation();
        EXPECT_EQ(Filled().substr(0, 10), "%PLANTYPE%");
    }
}

TEST_F(DataCallTest, PlanLinesGiveTheEightTexts) {
    for (const auto& c : tola_test::readCases("datausage_plans.tsv", 3)) {
        ardo::deviceStateSet("/data_usage/plans", json::parse(c[0]));
        ardo::deviceStateSet("/data_usage/status", std::stoi(c[1]));
        FreshFigures();
        app->RecordDataUsageInformation();
        EXPECT_EQ(app->GotDataUsageInfo(), c[2] != "-") << c[0];
        if (c[2] != "-") {
            EXPECT_EQ(Filled(), c[2]);
        }
    }
    ardo::deviceStateSet("/faults/dua_get_data_usage_info", 1);  // the plans of the last case
    FreshFigures();
    app->RecordDataUsageInformation();
    EXPECT_FALSE(app->GotDataUsageInfo());
}

}  // namespace
