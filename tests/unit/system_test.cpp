// The simulated device's own behaviour beyond the conformance suite: its state document, scripted
// faults, journals, watchdog record, factory reset, name resolution, debug log and bus.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bus_recorder.h"
#include "case_rows.h"
#include "device_state.h"
#include "http_helper.h"
#include "maintenance_thread.h"
#include "msgbus_handler.h"
#include "private_bus.h"
#include "sys_core.h"
#include "sys_datacall.h"
#include "sys_settings.h"
#include "test_env.h"
#include "vorn_dbg.h"
#include "watchdog.h"
#include "xmldata.h"

using ardo::json;
using tola_test::TempRoot;

namespace {

std::vector<json> journal(const TempRoot& root) {
    std::vector<json> lines;
    std::istringstream in(root.readFile("/var/lib/ardo/calls.jsonl"));
    for (std::string line; std::getline(in, line);) {
        lines.push_back(json::parse(line));
    }
    return lines;
}

// Counting keep-alives is checked on every backend; here, the simulated device's own record.
TEST(Watchdog, RecordsRegistrationsAndKeepAlivesAndTakesTheIntervalFromTheDeviceState) {
    TempRoot root(true);
    ASSERT_EQ(sys_watchdogApplicationRegister("odd/na~me", 1), 0);
    EXPECT_EQ(ardo::deviceStateRead()["watchdog"]["registered"]["odd/na~me"], true);
    // Keep-alives stay out of the device state file: it is neither rewritten nor replaced.
    struct stat before = {}, after = {};
    ASSERT_EQ(0, stat(ardo::deviceStatePath().c_str(), &before));
    for (int pid : {4242, 4243}) {
        const time_t sent = sys_time();
        ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", pid), 0);
        json last = ardo::deviceStateRead()["watchdog"]["last_keepalive"]["tola"];
        EXPECT_EQ(last["pid"], pid);
        EXPECT_TRUE(last["time"] >= sent && last["time"] <= sys_time()) << last;
    }
    ASSERT_EQ(0, stat(ardo::deviceStatePath().c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    // The record is rewritten in place: a longer predecessor's tail after the first line is not
    // part of it, and a damaged record counts from zero again.
    std::string record = root.readFile("/run/ardo/watchdog.json");
    root.writeFile("/run/ardo/watchdog.json", record + "\"tail of an older, longer record\"}\n");
    EXPECT_EQ(ardo::deviceKeepAlives()["keepalives"]["tola"], 2);
    root.writeFile("/run/ardo/watchdog.json", "{\"keepalives\": ");
    ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", 4243), 0);
    EXPECT_EQ(ardo::deviceKeepAlives()["keepalives"]["tola"], 1);

    ASSERT_EQ(sys_watchdogApplicationRegister("odd/na~me", 0), 0);
    EXPECT_EQ(ardo::deviceStateRead()["watchdog"]["registered"]["odd/na~me"], false);
    std::vector<json> calls = journal(root);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1]["args"]["reg"], 0);

    // The interval: the device state's when it is one, else the caller's default.
    const std::pair<json, unsigned int> cases[] = {
        {json(), 20}, {0, 20}, {45, 45}, {-5, 20}, {"abc", 20}, {1, 1}, {json(99999999999LL), 20},
    };
    for (const auto& [value, expected] : cases) {
        ardo::deviceStateSet("/watchdog/interval_seconds", value);
        unsigned int seconds = 20;
        EXPECT_EQ(sys_getWatchdogInterval(&seconds), 0) << value;
        EXPECT_EQ(seconds, expected) << value;
    }
    EXPECT_NE(sys_getWatchdogInterval(nullptr), 0);
}

TEST(SystemFaults, ScriptedResultsComeFirstAndChangeNothing) {
    TempRoot root(true);
    ardo::deviceStateSet("/power/end_process_on_reboot", true);  // a faulted reboot must not end us
    root.writeFile("/good.xml", "<A/>");
    std::string answer;
    int status = -1;
    unsigned int seconds = 0;
    struct Case {
        const char* call;
        std::function<int()> invoke;
        const char* unchanged;  // JSON pointer that a faulted call leaves alone
    } cases[] = {
        // The reader and the HTTP client fail calls that would work.
        {"xmldata_initialize", [&] { return xmldata_initialize(root.path("/good.xml").c_str(), nullptr); },
         "/sdk"},
        {"HttpHelper::ExecuteGetRequest",
         [&] { return HttpHelper().ExecuteGetRequest("http://127.0.0.1:9/", "x", answer, status); }, "/sdk"},
        {"sys_sdkInitialize", sys_sdkInitialize, "/sdk/opened"},
        {"sys_sdkShutdown", sys_sdkShutdown, "/sdk/sessions"},
        {"sys_watchdogApplicationRegister", [] { return sys_watchdogApplicationRegister("tola", 1); },
         "/watchdog/registered"},
        {"sys_watchdogApplicationKeepAlive", [] { return sys_watchdogApplicationKeepAlive("tola", 1); },
         "/watchdog/keepalives"},
        {"sys_getWatchdogInterval", [&] { return sys_getWatchdogInterval(&seconds); },
         "/watchdog/interval_seconds"},
        {"sys_rebootSystem", sys_rebootSystem, "/power/reboots"},
        {"sys_restoreFactoryDefaults", sys_restoreFactoryDefaults, "/power/factory_resets"},
    };
    for (const Case& c : cases) {
        json before = ardo::deviceStateRead()[json::json_pointer(c.unchanged)];
        ardo::deviceStateSet(std::string("/faults/") + c.call, json::array({7, 3}));
        EXPECT_EQ(c.invoke(), 7) << c.call;
        EXPECT_EQ(c.invoke(), 3) << c.call;
        EXPECT_EQ(ardo::deviceStateRead()[json::json_pointer(c.unchanged)], before) << c.call;
    }
    EXPECT_FALSE(root.exists("/opt/ardo/data/tola/restore_ace_defaults"));
    json last = journal(root).back();  // the journal records the faulted result
    EXPECT_EQ(last["call"], "sys_restoreFactoryDefaults");
    EXPECT_EQ(last["result"], 3);
}

// The waits journal tells a test how a sleep ended without timing it. A text cut inside a UTF-8
// sequence (at a record field's bound) still gives a whole journal line.
TEST(Journal, SleepsCutShortAndTextsThatAreNotUtf8AreJournalledSo) {
    TempRoot root(true);
    sys_requestProcessStop();
    sys_sleepSeconds(86400);
    json entry = json::parse(root.readFile("/var/lib/ardo/waits.jsonl"));
    EXPECT_TRUE(entry["time"].is_string());  // entries carry their time, to follow a check-in
    entry.erase("time");
    EXPECT_EQ(entry.dump(),
              R"({"args":{"full":false,"seconds":86400},"call":"sys_sleepSeconds","result":0})");
    EXPECT_EQ(sys_setSambaHostname("caf\xc3"), 0);
    std::vector<json> lines = journal(root);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["args"], "caf\xef\xbf\xbd");
}

// An interval of 0 neither ends periodic runs nor makes them continuous: it waits the built-in day.
TEST(Timer, AnIntervalOfZeroWaitsTheBuiltInDay) {
    TempRoot root(true, 864000.0);  // the day is 100 ms, an hour 4 ms
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

// The device ends the agent after a factory reset when its state says so; what the reset leaves
// for the next boot is on disk by then.
TEST(FactoryResetDeathTest, RestoresSettingsKeepsBookkeepingAndWritesTheMarkerBeforeEndingTheProcess) {
    TempRoot root(true);
    // What the hardware reports, the clock, faults and records, and what has no factory value.
    const json kept = {{"/identity/hardware/imei", "111"},
                       {"/clock/offset_seconds", -1000},
                       {"/faults/sys_other", 2},
                       {"/watchdog/keepalives/tola", 9},
                       {"/power/reboots", 4},
                       {"/notes", "added by hand"}};
    ardo::deviceStateUpdate([&](json& s) {
        s["gps"]["enabled"] = 0;  // a setting
        s["power"]["end_process_on_reboot"] = true;
        for (const auto& [pointer, value] : kept.items()) {
            s[json::json_pointer(pointer)] = value;
        }
    });
    EXPECT_EXIT(sys_restoreFactoryDefaults(), ::testing::ExitedWithCode(0), "");
    json s = ardo::deviceStateRead();
    EXPECT_EQ(s["gps"], ardo::deviceFactoryState()["gps"]);
    for (const auto& [pointer, value] : kept.items()) {
        EXPECT_EQ(s[json::json_pointer(pointer)], value) << pointer;
    }
    EXPECT_EQ(s["power"]["factory_resets"], 1);
    EXPECT_EQ(root.readFile("/opt/ardo/data/tola/restore_ace_defaults"), "true");
}

TEST(DeviceState, MissingOrUnparsableGivesFactoryDefaultsAndConcurrentUpdatesAreNotLost) {
    TempRoot root(true);
    EXPECT_FALSE(root.exists("/var/lib/ardo/device.json"));
    EXPECT_EQ(ardo::deviceStateRead(), ardo::deviceFactoryState());
    EXPECT_TRUE(root.exists("/var/lib/ardo/device.json"));
    root.writeFile("/var/lib/ardo/device.json", "{ not json");
    EXPECT_EQ(ardo::deviceStateRead(), ardo::deviceFactoryState());

    ardo::deviceStateSet("/test/counter", 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 25; ++i) {
                ardo::deviceStateUpdate(
                    [](json& s) { s["test"]["counter"] = s["test"]["counter"].get<int>() + 1; });
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(ardo::deviceStateValue<int>("/test/counter", -1), 100);
}

// `tola-devicectl fault set` refuses a call that is not in deviceFaultCalls(): the list must name
// every hook of the host platform (the literal names asked of deviceTakeFault, and the getters
// and setters the settings tables generate), and nothing else.
TEST(DeviceFaultCalls, ListsEveryHookOfTheHostPlatform) {
    std::set<std::string> hooks;
    const std::regex literal(R"re(deviceTakeFault\("([^"]+)")re");
    const std::regex generated(R"(\b((?:sys|deviceui|webui)_\w+)\b)");
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(TOLA_SOURCE_DIR) + "/platform/host")) {
        if (entry.path().extension() != ".cpp") {
            continue;
        }
        std::string file = entry.path().stem();
        std::string text = tola_test::readWholeFile(entry.path());
        for (std::sregex_iterator m(text.begin(), text.end(), literal), end; m != end; ++m) {
            hooks.insert((*m)[1]);
        }
        if (file == "settings") {
            for (std::sregex_iterator m(text.begin(), text.end(), generated), end; m != end; ++m) {
                std::string name = (*m)[1];
                if (name.size() < 2 || name.compare(name.size() - 2, 2, "_t") != 0) {
                    hooks.insert(name);
                }
            }
            hooks.erase("sys_settings");  // the header's name
        }
    }
    std::set<std::string> listed(ardo::deviceFaultCalls().begin(), ardo::deviceFaultCalls().end());
    EXPECT_EQ(listed, hooks);
}

constexpr const char* kResolver = "/opt/ardo/tmp/router2/resolv_data_usage.conf";

// The addresses found, space-separated, or "result N" for a failure (and any addresses after it).
std::string Resolve(const std::string& host, int wanted = 20) {
    char buffer[SYS_RESOLVE_BUFFER_SIZE] = {};
    int count = wanted;
    int rc = sys_resolveHostName(host.c_str(), kResolver, "lo", "lo", 2, buffer, &count);
    std::string found = rc != 0 ? "result " + std::to_string(rc) : "";
    for (int i = 0; i < count; ++i) {
        found += (found.empty() ? "" : " ") + std::string(buffer + i * SYS_RESOLVE_ENTRY_SIZE);
    }
    return found;
}

TEST(Resolve, HostsFileAnswersFirstAndFailuresAreReportedNotHidden) {
    TempRoot root;
    root.writeFile("/etc/hosts",
                   "# test names\n127.0.0.1 portal.tola.test other\n::1 portal.tola.test\n"
                   "not-an-address bad.tola.test\n10.0.0.7\tOTHER.tola.test # comment\n");
    for (const std::vector<std::string>& c : tola_test::readCases("host_resolve.tsv", 4)) {
        if (!c[0].empty()) {
            root.writeFile(kResolver, c[0]);
        }
        EXPECT_EQ(Resolve(c[1], std::stoi(c[2])), c[3]) << c[1];
    }
    ardo::deviceStateSet("/faults/sys_resolveHostName", 3);
    EXPECT_EQ(Resolve("portal.tola.test"), "result 3");
    EXPECT_EQ(Resolve(""), "result 3");
}

// Starts the debug log afresh under the given ARDO_LOG_LEVEL (nullptr: unset), over a
// world-readable file of older lines if given, logs a line at levels 3, 5, 6 and 7 and gives the log.
std::string logAtEachLevel(const TempRoot& root, const char* setting, const char* older = "") {
    if (setting != nullptr) {
        setenv("ARDO_LOG_LEVEL", setting, 1);
    } else {
        unsetenv("ARDO_LOG_LEVEL");
    }
    vorn_dbg_stop();
    root.remove("/var/log/tola.log");
    if (*older != '\0') {
        root.writeFile("/var/log/tola.log", older);
        chmod(root.path("/var/log/tola.log").c_str(), 0644);
    }
    vorn_dbg_start();
    for (int level : {3, 5, 6, 7}) {
        vorn_dbg_log(level, "[%s]:[%s] - line at %d", "TOLA", "f", level);
    }
    vorn_dbg_stop();
    return root.readFile("/var/log/tola.log");
}

// The levels of the log's lines, each its time (ISO 8601 UTC, milliseconds) and the text as written.
std::string levelsIn(const std::string& log) {
    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \[TOLA\]:\[f\] - line at (\d)\n)");
    std::string levels;
    for (std::sregex_iterator m(log.begin(), log.end(), line), end; m != end; ++m) {
        levels += (*m)[1];
    }
    return levels;
}

TEST(HostLog, LinesUpToTheThresholdCarryTheirTimeAndReachTheJournalUpToNotices) {
    TempRoot root(true);
    unsetenv("ARDO_LOG_STDERR");
    // The setting (nullptr: unset) and the levels written.
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, "3567"}, {"7", "3567"}, {"6", "356"},   {"5", "35"},    {"3", "3"},        {"0", ""},
        {"", "3567"},      {"8", "3567"}, {"-1", "3567"}, {"6x", "3567"}, {"debug", "3567"},
    };
    for (auto [setting, written] : cases) {
        EXPECT_EQ(written, levelsIn(logAtEachLevel(root, setting))) << (setting ? setting : "(unset)");
    }

    // The log is its owner's alone, new or old, and an old one keeps its lines.
    for (const char* older : {"", "older lines\n"}) {
        EXPECT_EQ(logAtEachLevel(root, nullptr, older).rfind(older, 0), 0u);
        struct stat st {};
        ASSERT_EQ(stat(root.path("/var/log/tola.log").c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u) << older;
    }

    // Under systemd errors and notices, and only those, also go to stderr with journald's prefix.
    setenv("JOURNAL_STREAM", "8:12345", 1);
    testing::internal::CaptureStderr();
    logAtEachLevel(root, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "<3>[TOLA]:[f] - line at 3\n<5>[TOLA]:[f] - line at 5\n");
    unsetenv("JOURNAL_STREAM");

    // A dropped line is never formatted: an argument that would fault when read is harmless.
    setenv("ARDO_LOG_LEVEL", "6", 1);
    vorn_dbg_start();
    vorn_dbg_log(7, "%s", reinterpret_cast<const char*>(16));
    unsetenv("ARDO_LOG_LEVEL");
    vorn_dbg_start();
    vorn_dbg_stop();
}

TEST(HostBus, StandardToolsInjectAndItRefusesWhatItCannotReachOrCarry) {
    TempRoot root(true);
    tola_test::PrivateBus bus;
    tola_test::BusRecorder rec;
    // No connection is open yet: one to a bus out of reach is refused.
    {
        tola_test::PrivateBus restoresTheAddress;
        for (const char* address :
             {"unix:path=/nonexistent/tola/bus", "tcp:host=127.0.0.1,port=1", "garbage"}) {
            SCOPED_TRACE(address);
            setenv("ARDO_BUS_ADDRESS", address, 1);
            MsgbusHandler handler;
            EXPECT_NE(handler.Initialize(), 0);
            EXPECT_NE(handler.PublishData("x", 1), 0);
            EXPECT_NE(handler.RegisterForChannelSubscription("x", true), 0);
        }
    }
    MsgbusHandler subscriber(&rec);
    ASSERT_EQ(subscriber.Initialize(), 0);
    // Not the SMS channel: busctl leaves the bus before the receiver can ask for its user.
    for (const char* channel : {"any.text", "modem2.time_change"}) {
        ASSERT_EQ(subscriber.RegisterForChannelSubscription(channel, true), 0) << channel;
    }
    std::string busctl = "busctl --address='" + bus.address() + "' emit ";
    std::string emit = busctl + "/com/ardo/Msgbus com.ardo.Msgbus1 Notify ";
    // A variant kind that is not ours, a wrong signature and a wrong path: all dropped.
    for (const std::string& args :
         {emit + "sv any.text u 7", emit + "ss any.text x",
          busctl + "/other com.ardo.Msgbus1 Notify sv any.text s wrongpath",
          emit + "sv modem2.time_change ay 2 1 2", emit + "sv any.text s '<TOLA><x>'"}) {
        ASSERT_EQ(std::system(args.c_str()), 0) << args;
    }
    // Separate tool runs are separate connections: wait for both rather than rely on order.
    ASSERT_TRUE(rec.waitFor("any.text"));
    ASSERT_TRUE(rec.waitFor("modem2.time_change"));
    std::vector<std::string> got = rec.received();
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"any.text=str:<TOLA><x>", "modem2.time_change=bin:0102"}));
    // What D-Bus cannot carry: a quote in a match rule, a text that is not UTF-8.
    EXPECT_NE(subscriber.RegisterForChannelSubscription("it's", true), 0);
    EXPECT_NE(subscriber.PublishData("x", std::string("\xff\xfe")), 0);

    // Scripted faults come first.
    ardo::deviceStateSet("/faults/MsgbusHandler::PublishData", ardo::json::array({4}));
    ardo::deviceStateSet("/faults/MsgbusHandler::RegisterForChannelSubscription", ardo::json::array({5}));
    EXPECT_EQ(subscriber.PublishData("x", 1), 4);
    EXPECT_EQ(subscriber.RegisterForChannelSubscription("x", true), 5);
    EXPECT_EQ(subscriber.PublishData("x", 1), 0);
}

}  // namespace
