// Check-in scheduling: the timer callback, re-arming, the time left, and the bus notices.
#include <chrono>
#include <cstdint>
#include <ctime>
#include <thread>
#include <tuple>

#include "app_fixture.h"
#include "case_rows.h"
#include "private_bus.h"
#include "sys_core.h"

namespace {

// The device clock plus an offset, as the agent writes dates.
std::string deviceDate(long long offsetSeconds) {
    time_t t = sys_time() + static_cast<time_t>(offsetSeconds);
    struct tm broken {};
    gmtime_r(&t, &broken);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &broken);
    return text;
}

class SchedulingTest : public tola_test::AppTest {
  protected:
    void setLastCheckIn(const std::string& date, uint32_t hours) {
        tolaagent_runtime_config_t& record = app->RuntimeConfig();
        tola_copy_text(record.lastCheckInDate, date.c_str());
        record.checkInInterval = hours;
        app->Agent().SetRuntimeConfig(record);
    }
    void notify(const std::string& channel, const void* data, int length) {
        app->OnChannelNotify(channel, const_cast<void*>(data), length);
    }
};

TEST_F(SchedulingTest, TimeLeftSinceTheLastCheckIn) {
    for (const auto& c : tola_test::readCases("remaining_seconds.tsv", 5)) {
        SCOPED_TRACE(c[0]);
        const time_t start = sys_time();
        std::string date = c[1];
        if (!date.empty() && date[0] == '@') {
            size_t end = 0;
            long long offset = std::stoll(date.substr(1), &end);
            date = deviceDate(offset) + date.substr(1 + end);
        }
        setLastCheckIn(date, std::stoul(c[2]));
        const bool networkTime = c[0] != "no network time";
        ardo::deviceStateSet("/network_time/available", networkTime);
        unsigned long long remaining = networkTime ? 0 : 7;  // callers start from 0
        int days = 9;
        EXPECT_EQ(networkTime ? 0 : 1, app->getRemainingSeconds(remaining));
        EXPECT_EQ(networkTime ? 0 : 1, app->getRemainingDays(days));
        // The device clock runs on while the row is set up and read: only less may be left.
        const double expected = std::stod(c[3]), ticked = static_cast<double>(sys_time() - start) + 1;
        EXPECT_LE(static_cast<double>(remaining), expected);
        EXPECT_GE(static_cast<double>(remaining) + ticked, expected);
        EXPECT_EQ(std::stoi(c[4]), days);
    }
}

TEST_F(SchedulingTest, CompletedCheckInStampsTheDateAndRearmsThePeriod) {
    for (const auto& c : tola_test::readCases("checkin_periods.tsv", 5)) {
        if (c[0] != "rearm") {
            continue;
        }
        SCOPED_TRACE(c[1] + "/" + c[2] + "/" + c[3]);
        app->RuntimeConfig().checkInIntervalOverrideFlag = c[1] == "1";
        app->RuntimeConfig().checkInInterval = std::stoul(c[2]);
        app->MutableConfig().checkInInterval = std::stoul(c[3]);
        std::string before = deviceDate(0);
        EXPECT_EQ(0, app->resetMaintenanceThread());
        std::string after = deviceDate(0);
        EXPECT_EQ(std::stoul(c[4]), app->CheckInTimer().GetInterval());
        std::string stamped = Stored().lastCheckInDate;
        EXPECT_TRUE(before <= stamped && stamped <= after) << before << " " << stamped << " " << after;
        EXPECT_NE(std::string::npos, root.readFile("/opt/ardo/data/tola/acl_config.xml")
                                         .find("<LastCheckInDate>" + stamped + "</LastCheckInDate>"));
    }
}

// The watchdog timer only keeps the agent alive; the check-in timer checks in when the flag is set,
// after waiting for the modem until a store has carried the wait's end to the agent.
TEST_F(SchedulingTest, TimerEvents) {
    const std::string bootWait =
        "during bootup performing check-in with server, so sleep for 120 seconds to modem up.";
    const std::string flagTrue = "Check-In flag true, performing check-in with server.";
    app->OnThreadNotify(TOLA_WATCHDOG_TIMER_ID);
    app->OnThreadNotify(TOLA_WATCHDOG_TIMER_ID);
    EXPECT_EQ(0u, LogCount("Initiating check-in"));
    EXPECT_FALSE(app->OnThreadNotify(TOLA_CHECKIN_TIMER_ID));  // flag clear: nothing happens
    EXPECT_EQ(0u, LogCount(flagTrue));
    EXPECT_EQ(2, ardo::deviceKeepAlives()["keepalives"]["tola"]);

    Activate("");  // no portal URL: the check-in itself ends at once
    app->OnThreadNotify(TOLA_CHECKIN_TIMER_ID);
    app->OnThreadNotify(TOLA_CHECKIN_TIMER_ID);  // nothing stored the field: the wait is still due
    EXPECT_EQ(2u, LogCount(bootWait));
    app->RuntimeConfig().bootupWaitDone = true;
    app->Agent().SetRuntimeConfig(app->RuntimeConfig());
    app->OnThreadNotify(TOLA_CHECKIN_TIMER_ID);
    EXPECT_EQ(2u, LogCount(bootWait));
    EXPECT_EQ(3u, LogCount(flagTrue));
    // The field never reaches the file.
    EXPECT_EQ(std::string::npos, root.readFile("/opt/ardo/data/tola/acl_config.xml").find("ootup"));
}

TEST_F(SchedulingTest, DataUsageNoticeWakesOnlyOnStatusZero) {
    const int32_t zero = 0, one = 1;
    const uint8_t shortData[2] = {0, 0};
    // A check-in waits for figures; the service itself stays silent so that only the notices
    // below arrive: status 1, no data, shorter than a word, another channel, then status 0.
    ardo::deviceStateSet("/data_usage/notice", "never");
    ASSERT_TRUE(app->RequestDataUsage());
    const std::tuple<const char*, const void*, int, bool> cases[] = {
        {TOLA_CHANNEL_DATA_USAGE, &one, 4, false},      {TOLA_CHANNEL_DATA_USAGE, nullptr, 4, false},
        {TOLA_CHANNEL_DATA_USAGE, shortData, 2, false}, {"some.other.channel", &zero, 4, false},
        {TOLA_CHANNEL_DATA_USAGE, &zero, 4, true},
    };
    for (auto [channel, data, length, wakes] : cases) {
        notify(channel, data, length);
        EXPECT_EQ(wakes, app->GotDataUsageInfo()) << channel << " " << length;
    }
    // A notice after the wait ran out is not taken.
    ASSERT_TRUE(app->RequestDataUsage());
    app->WaitForDataUsage();  // runs out: nothing was published
    notify(TOLA_CHANNEL_DATA_USAGE, &zero, 4);
    EXPECT_FALSE(app->GotDataUsageInfo());
}

// Only the first notice that comes with a valid clock counts: it re-arms the check-in timer for
// what is left of the period, or, with nothing left, checks in at once when the flag is set.
TEST_F(SchedulingTest, FirstValidClockNoticeRearmsTheCheckInTimer) {
    const uint8_t payload[3] = {1, 2, 3};
    const struct {
        bool checkedIn, checkInFlag;
        double interval;
        const char* line;
    } cases[] = {
        {true, true, 50400, "Got Valid Time info from Channel modem2.time_change"},
        {false, false, 777, "CheckIn Flag false, No need to Check-in "},
        {false, true, 777, "Network is updated and timer expired, so performing check-in Now"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        Stop();
        root.remove("/var/log/tola.log");
        Start();
        app->RuntimeConfig().checkInFlag = c.checkInFlag;
        const time_t start = sys_time();
        setLastCheckIn(c.checkedIn ? deviceDate(-36000) : "", 24);
        // A notice while the clock still shows 1980 is ignored and does not count.
        ardo::deviceStateSet("/clock/offset_seconds", static_cast<long long>(315532800 - std::time(nullptr)));
        notify(TOLA_CHANNEL_TIME_CHANGE, payload, 3);
        EXPECT_EQ(0u, LogCount("Got Valid Time info"));
        ardo::deviceStateSet("/clock/offset_seconds", 0LL);
        app->CheckInTimer().SetInterval(777);
        notify(TOLA_CHANNEL_TIME_CHANGE, payload, 3);
        EXPECT_EQ(1u, LogCount(c.line));
        // What is left of the period shrinks as the device clock runs on (1,000 times real time).
        EXPECT_LE(app->CheckInTimer().GetInterval(), c.interval);
        EXPECT_GE(app->CheckInTimer().GetInterval() + (c.checkedIn ? sys_time() - start + 1 : 0), c.interval);
        // Later notices change nothing.
        app->CheckInTimer().SetInterval(1234);
        notify(TOLA_CHANNEL_TIME_CHANGE, nullptr, 0);
        EXPECT_EQ(1234u, app->CheckInTimer().GetInterval());
        EXPECT_EQ(1u, LogCount("Got Valid Time info"));
    }
}

TEST_F(SchedulingTest, ClockNoticeRearmWaitsForTheBootWaitAndRestartsTheTimer) {
    setenv("ARDO_TIME_SCALE", "100", 1);  // the boot wait takes 1.2 s of real time
    const uint8_t payload[1] = {1};
    Activate("");                                    // no portal URL: each check-in ends at once
    setLastCheckIn(deviceDate(60 - 24 * 3600), 24);  // the period ends in a minute
    app->CheckInTimer().SetInterval(0);
    ASSERT_EQ(0, app->CheckInTimer().Run());
    app->CheckInTimer().SignalTimerThread();
    ASSERT_TRUE(tola_test::waitForText(root.path("/var/log/tola.log"), "sleep for 120 seconds to modem up"));
    // The re-arm waits for the running check-in, boot wait and all, then runs the timer again.
    notify(TOLA_CHANNEL_TIME_CHANGE, payload, 1);
    EXPECT_EQ(1u, Count(root.readFile("/var/lib/ardo/waits.jsonl"),
                        R"("args":{"full":true,"seconds":120},"call":"sys_sleepSeconds")"));
    EXPECT_EQ(1u, LogCount("Check-In flag true, performing check-in with server."));
    EXPECT_NEAR(60.0, static_cast<double>(app->CheckInTimer().GetInterval()), 2.0);
    // The restarted timer expires on its own after the remaining minute.
    for (int i = 0; i < 10000 && LogCount("during bootup performing check-in with server") < 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_EQ(2u, LogCount("during bootup performing check-in with server"));
    EXPECT_EQ(2u, LogCount("Initiating check-in due to TOLA timer expiry or portal Invocation"));
    sys_requestProcessStop();  // ends the second boot wait, so that the test need not sit it out
}

}  // namespace
