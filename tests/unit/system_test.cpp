#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "device_state.h"
#include "http_helper.h"
#include "maintenance_thread.h"
#include "sys_core.h"
#include "sys_settings.h"
#include "test_env.h"
#include "watchdog.h"
#include "xmldata.h"

using ardo::json;

namespace {

std::vector<json> journal(const tola_test::TempRoot& root) {
    std::vector<json> lines;
    std::istringstream in(root.readFile("/var/lib/ardo/calls.jsonl"));
    std::string line;
    while (std::getline(in, line)) {
        lines.push_back(json::parse(line));
    }
    return lines;
}

json state() {
    return ardo::deviceStateRead();
}

}  // namespace

// Counting keep-alives is checked on every backend; here, the simulated device's own record.
TEST(Watchdog, RegistrationAndKeepAlivesAreRecorded) {
    tola_test::TempRoot root(true);
    ASSERT_EQ(sys_watchdogApplicationRegister("odd/na~me", 1), 0);
    EXPECT_EQ(state()["watchdog"]["registered"]["odd/na~me"], true);
    ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", 4242), 0);
    EXPECT_EQ(state()["watchdog"]["last_keepalive"]["tola"]["pid"], 4242);
    EXPECT_NEAR(state()["watchdog"]["last_keepalive"]["tola"]["time"].get<double>(),
                static_cast<double>(sys_time()), 5);

    // Keep-alives stay out of the device state file: it is neither rewritten nor replaced.
    struct stat before {};
    ASSERT_EQ(0, stat(ardo::deviceStatePath().c_str(), &before));
    ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", 4243), 0);
    struct stat after {};
    ASSERT_EQ(0, stat(ardo::deviceStatePath().c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(state()["watchdog"]["last_keepalive"]["tola"]["pid"], 4243);
    // The record is rewritten in place: a longer predecessor's tail after the first line is not
    // part of it, and a damaged record counts from zero again.
    std::string record = root.readFile("/run/ardo/watchdog.json");
    root.writeFile("/run/ardo/watchdog.json", record + "\"tail of an older, longer record\"}\n");
    EXPECT_EQ(ardo::deviceKeepAlives()["keepalives"]["tola"], 2);
    root.writeFile("/run/ardo/watchdog.json", "{\"keepalives\": ");
    ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", 4243), 0);
    EXPECT_EQ(ardo::deviceKeepAlives()["keepalives"]["tola"], 1);

    ASSERT_EQ(sys_watchdogApplicationRegister("odd/na~me", 0), 0);
    EXPECT_EQ(state()["watchdog"]["registered"]["odd/na~me"], false);
    std::vector<json> calls = journal(root);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1]["args"]["reg"], 0);
}

TEST(Watchdog, IntervalComesFromTheDeviceStateWhenSet) {
    tola_test::TempRoot root(true);
    struct Case {
        json value;  // null: the entry is removed
        unsigned int expected;
    } cases[] = {
        {json(), 20}, {0, 20}, {45, 45}, {-5, 20}, {"abc", 20}, {1, 1}, {json(99999999999LL), 20},
    };
    for (const Case& c : cases) {
        ardo::deviceStateUpdate([&](json& s) {
            if (c.value.is_null()) {
                s["watchdog"].erase("interval_seconds");
            } else {
                s["watchdog"]["interval_seconds"] = c.value;
            }
        });
        unsigned int seconds = 20;
        EXPECT_EQ(sys_getWatchdogInterval(&seconds), 0) << c.value;
        EXPECT_EQ(seconds, c.expected) << c.value;
    }
    EXPECT_NE(sys_getWatchdogInterval(nullptr), 0);
}

TEST(SystemFaults, ScriptedResultsComeFirstAndChangeNothing) {
    tola_test::TempRoot root(true);
    ardo::deviceStateSet("/power/end_process_on_reboot", true);  // a faulted reboot must not end us
    struct Case {
        const char* call;
        std::function<int()> invoke;
        const char* unchanged;  // JSON pointer that a faulted call leaves alone
    } cases[] = {
        {"sys_sdkInitialize", [] { return sys_sdkInitialize(); }, "/sdk/opened"},
        {"sys_sdkShutdown", [] { return sys_sdkShutdown(); }, "/sdk/sessions"},
        {"sys_watchdogApplicationRegister", [] { return sys_watchdogApplicationRegister("tola", 1); },
         "/watchdog/registered"},
        {"sys_watchdogApplicationKeepAlive", [] { return sys_watchdogApplicationKeepAlive("tola", 1); },
         "/watchdog/keepalives"},
        {"sys_getWatchdogInterval",
         [] {
             unsigned int s = 0;
             return sys_getWatchdogInterval(&s);
         },
         "/watchdog/interval_seconds"},
        {"sys_rebootSystem", [] { return sys_rebootSystem(); }, "/power/reboots"},
        {"sys_restoreFactoryDefaults", [] { return sys_restoreFactoryDefaults(); }, "/power/factory_resets"},
    };
    for (const Case& c : cases) {
        json before = state()[json::json_pointer(c.unchanged)];
        ardo::deviceStateSet(std::string("/faults/") + c.call, json::array({7, 3}));
        EXPECT_EQ(c.invoke(), 7) << c.call;
        EXPECT_EQ(c.invoke(), 3) << c.call;
        EXPECT_EQ(state()[json::json_pointer(c.unchanged)], before) << c.call;
    }
    EXPECT_FALSE(root.exists("/opt/ardo/data/tola/restore_ace_defaults"));
    std::vector<json> calls = journal(root);
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back()["call"], "sys_restoreFactoryDefaults");
    EXPECT_EQ(calls.back()["result"], 3);
}

// Scripted faults of the reader and the HTTP client fail calls that would work.
TEST(SystemFaults, ReaderAndHttpFaultsComeFirst) {
    tola_test::TempRoot root(true);
    root.writeFile("/good.xml", "<A/>");
    ardo::deviceStateSet("/faults/xmldata_initialize", json::array({2}));
    EXPECT_EQ(xmldata_initialize(root.path("/good.xml").c_str(), nullptr), 2);
    EXPECT_EQ(xmldata_initialize(root.path("/good.xml").c_str(), nullptr), 0);
    xmldata_close();
    ardo::deviceStateSet("/faults/HttpHelper::ExecuteGetRequest", 5);
    HttpHelper client;
    std::string answer;
    int status = -1;
    EXPECT_EQ(client.ExecuteGetRequest("http://127.0.0.1:9/", "x", answer, status), 5);
}

// The waits journal tells a test how a sleep ended without timing it.
TEST(Journal, SleepsCutShortByAProcessStopAreJournalledSo) {
    tola_test::TempRoot root(true);
    sys_requestProcessStop();
    sys_sleepSeconds(86400);
    json entry = json::parse(root.readFile("/var/lib/ardo/waits.jsonl"));
    EXPECT_TRUE(entry["time"].is_string());  // entries carry their time, to follow a check-in
    entry.erase("time");
    EXPECT_EQ(entry.dump(),
              R"({"args":{"full":false,"seconds":86400},"call":"sys_sleepSeconds","result":0})");
}

// An interval of 0 neither ends periodic runs nor makes them continuous: it waits the built-in day.
TEST(Timer, AnIntervalOfZeroWaitsTheBuiltInDay) {
    tola_test::TempRoot root(true, 864000.0);  // the day is 100 ms, an hour 4 ms
    struct Counter : MaintenanceThreadCallbackInterface {
        std::atomic<int> calls{0};
        bool OnThreadNotify(unsigned int) override {
            ++calls;
            return false;
        }
    } counter;
    MaintenanceThread timer(&counter, 0, 3456);
    ASSERT_EQ(timer.Run(), 0);
    for (int i = 0; i < 2000 && counter.calls < 2; ++i) {
        usleep(10000);
    }
    timer.Shutdown();
    timer.WaitForCompletion();
    EXPECT_GE(counter.calls, 2);   // periodic, never signalled
    EXPECT_LE(counter.calls, 10);  // taken literally, 0 would have run thousands of times
}

// A text cut inside a UTF-8 sequence (at a record field's bound) still gives a whole journal line.
TEST(Journal, TextsThatAreNotUtf8AreJournalledWithAReplacement) {
    tola_test::TempRoot root(true);
    EXPECT_EQ(sys_setSambaHostname("caf\xc3"), 0);
    std::vector<json> lines = journal(root);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["args"], "caf\xef\xbf\xbd");
}

TEST(FactoryReset, RestoresSettingsKeepsBookkeepingAndWritesTheMarker) {
    tola_test::TempRoot root(true);
    const json& factory = ardo::deviceFactoryState();
    ardo::deviceStateUpdate([](json& s) {
        s["gps"]["enabled"] = 0;                    // a setting
        s["identity"]["hardware"]["imei"] = "111";  // what the hardware reports
        s["clock"]["offset_seconds"] = -1000;
        s["faults"]["sys_other"] = 2;
        s["watchdog"]["keepalives"]["tola"] = 9;
        s["power"]["reboots"] = 4;
        s["notes"] = "added by hand";  // no factory value: left alone
    });
    ASSERT_EQ(sys_restoreFactoryDefaults(), 0);
    json s = state();
    EXPECT_EQ(s["gps"], factory["gps"]);
    EXPECT_EQ(s["identity"]["hardware"]["imei"], "111");
    EXPECT_EQ(s["clock"]["offset_seconds"], -1000);
    EXPECT_EQ(s["faults"]["sys_other"], 2);
    EXPECT_EQ(s["watchdog"]["keepalives"]["tola"], 9);
    EXPECT_EQ(s["power"]["reboots"], 4);
    EXPECT_EQ(s["power"]["factory_resets"], 1);
    EXPECT_EQ(s["notes"], "added by hand");
    EXPECT_EQ(root.readFile("/opt/ardo/data/tola/restore_ace_defaults"), "true");
    std::vector<json> calls = journal(root);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0]["call"], "sys_restoreFactoryDefaults");
    EXPECT_EQ(calls[0]["result"], 0);
}

TEST(RebootDeathTest, EndsTheProcessWhenTheDeviceStateSaysSo) {
    tola_test::TempRoot root(true);
    ardo::deviceStateSet("/power/end_process_on_reboot", true);
    EXPECT_EXIT(sys_rebootSystem(), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(sys_restoreFactoryDefaults(), ::testing::ExitedWithCode(0), "");
    // What the ended processes recorded is there for the next boot.
    EXPECT_EQ(state()["power"]["reboots"], 1);
    EXPECT_EQ(state()["power"]["factory_resets"], 1);
    EXPECT_TRUE(root.exists("/opt/ardo/data/tola/restore_ace_defaults"));
}
