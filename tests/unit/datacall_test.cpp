// Data calls by DataCallType with scripted platform results, and the conditions for a
// data-usage query.
#include <tuple>

#include "app_fixture.h"
#include "case_rows.h"
#include "sys_device.h"

using ardo::json;
using tola_test::AppTest;

namespace {

using DataCallTest = AppTest;

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
}

TEST_F(DataCallTest, AppsApnCallLearnsTheInterfaceByTheSizeProtocol) {
    EXPECT_EQ(app->CheckDataCallAndConnect(), 0);
    EXPECT_EQ(app->InterfaceName(), "lo");
    auto connects = Journal("sys_cellularDataUsageAPNCallConnect", 0);
    ASSERT_EQ(connects.size(), 1u);
    EXPECT_EQ(connects[0]["args"]["call_id"], "tola_data_call_id");
    app->EndRequest();
    auto disconnects = Journal("sys_cellularDataUsageAPNCallDisconnect", 0);
    ASSERT_EQ(disconnects.size(), 1u);
    EXPECT_EQ(disconnects[0]["args"]["call_id"], "tola_data_call_id");

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

TEST_F(DataCallTest, EndRequestDisconnectsOnlyAnOpenAppsCall) {
    app->EndRequest();  // nothing open
    EXPECT_TRUE(Journal("sys_cellularDataUsageAPNCallDisconnect").empty());
    SetConfigValue("DataCallType", "1");
    app->EndRequest();  // the Internet call is never torn down
    EXPECT_TRUE(Journal("sys_cellularDataDisconnect").empty());
    EXPECT_TRUE(Journal("sys_cellularDataUsageAPNCallDisconnect").empty());
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

}  // namespace
