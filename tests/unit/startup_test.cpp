// TOLAApp start-up and stop on a simulated device with a private bus.
#include <chrono>
#include <ctime>
#include <thread>

#include "app_fixture.h"
#include "bus_recorder.h"
#include "case_rows.h"
#include "msgbus_handler.h"
#include "private_bus.h"

using tola_test::countOf;

namespace {

const std::string kAclFile = "/opt/ardo/data/tola/acl_config.xml";
const std::string kMarker = "/opt/ardo/data/tola/restore_ace_defaults";
const std::string kConfigFile = "/opt/ardo/etc/tola/config.xml";

class StartupTest : public ::testing::Test {
  protected:
    void SetUp() override { vorn_dbg_stop(); }
    void TearDown() override { vorn_dbg_stop(); }

    std::string log() const { return root->readFile("/var/log/tola.log"); }

    // Leaves an acl_config.xml (and shared list, one entry) as an earlier run would have.
    void storeRecord(const tolaagent_runtime_config_t& record) {
        TOLAAgent agent;
        agent.Initialize();
        agent.SetACEProperties("Item", true, true);
        agent.SetRuntimeConfig(record);
    }
    // Runs the stop sequence of a started app the way the quit signal does (a quit signalled
    // before the wait is not lost); the app is registered with the watchdog while it runs.
    static void stop(TOLAApp& app) {
        EXPECT_TRUE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", false));
        app.SignalQuit();
        EXPECT_EQ(0, app.Run());
        EXPECT_EQ(0, app.Shutdown());
        EXPECT_FALSE(ardo::deviceStateValue<bool>("/watchdog/registered/tola", true));
    }
    void newRoot() {
        root.reset();
        root = std::make_unique<tola_test::TempRoot>();
        vorn_dbg_stop();
    }

    tola_test::PrivateBus bus;
    std::unique_ptr<tola_test::TempRoot> root = std::make_unique<tola_test::TempRoot>();
};

// What the last run left pending is handled once at start-up: applied settings (status 2) are
// announced, a downloaded answer (status 1: the check-in that stored it did not get to finish) is
// handled; either way the status goes back to 0, so that the next start has nothing to do.
TEST_F(StartupTest, PendingSettingsAreHandledOnceAtStartUp) {
    root->writeFile("/opt/ardo/data/tola/tola_downloaded_config",
                    R"({"ResultCode":97,"Version":"3","CheckInUrl":"https://moved.tola.test/c"})");
    for (int status : {2, 0, 1}) {
        SCOPED_TRACE(status);
        if (status != 0) {
            tolaagent_runtime_config_t record{};
            record.aclConfigStatus = status;
            tola_copy_text(record.checkInURL, "https://portal.tola.test/checkin");
            storeRecord(record);
        }
        tola_test::BusRecorder rec;
        MsgbusHandler listener(&rec);
        ASSERT_EQ(0, listener.Initialize());
        ASSERT_EQ(0, listener.RegisterForChannelSubscription("ardo.tola.new.settings", true));
        TOLAApp app;
        ASSERT_EQ(0, app.Initialize());
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        stop(app);
        EXPECT_EQ(rec.received(),
                  std::vector<std::string>(status == 2 ? 1 : 0, "ardo.tola.new.settings=int:1"));
        std::string acl = root->readFile(kAclFile);
        EXPECT_NE(std::string::npos, acl.find("<AclConfigStatus>0</AclConfigStatus>"));
        EXPECT_EQ(status == 1,
                  acl.find("<CheckInURL>https://moved.tola.test/c</CheckInURL>") != std::string::npos);
        EXPECT_EQ(status == 1, acl.find("<LastCommand>97</LastCommand>") != std::string::npos);
    }
    EXPECT_EQ(1u, countOf(log(), "New url no config follows"));
}

TEST_F(StartupTest, ManualFactoryResetMarker) {
    for (const auto& c : tola_test::readCases("reset_markers.tsv", 3)) {
        const bool checkInFlag = c[1] == "1", reset = c[2] == "1";
        SCOPED_TRACE(c[0] + (checkInFlag ? " flag" : ""));
        newRoot();
        tolaagent_runtime_config_t record{};
        record.checkInFlag = checkInFlag;
        // Without a portal URL the check-in that a set flag starts ends at once.
        tola_copy_text(record.checkInURL, checkInFlag ? "" : "http://portal.tola.test/");
        tola_copy_text(record.payloadEncryptionKey, "key");
        tola_copy_text(record.lastCheckInDate, "2020-01-01T00:00:00");
        tola_copy_text(record.version, "12");
        record.factoryResetFlag = true;  // cleared by every start
        storeRecord(record);
        if (c[0] != "-") {
            root->writeFile(kMarker, c[0]);
        }
        {
            TOLAApp app;
            ASSERT_EQ(0, app.Initialize());
            stop(app);
        }
        std::string file = root->readFile(kAclFile);
        auto has = [&file](const std::string& text) { return file.find(text) != std::string::npos; };
        // A reset empties the list and the version; the portal's values go too unless a check-in
        // is pending.
        bool dropped = reset && !checkInFlag;
        EXPECT_TRUE(has(reset ? "<Version>0</Version>" : "<Version>12</Version>"));
        EXPECT_EQ(!reset, has("<ACE>"));
        EXPECT_EQ(!dropped, has("<PayloadEncryptionKey>key</PayloadEncryptionKey>"));
        EXPECT_EQ(!dropped, has("<LastCheckInDate>2020-01-01T00:00:00</LastCheckInDate>"));
        EXPECT_EQ(!reset && !checkInFlag, has("<CheckInURL>http://portal.tola.test/</CheckInURL>"));
        EXPECT_TRUE(has("<FactoryResetFlag>false</FactoryResetFlag>"));
        EXPECT_EQ(checkInFlag ? 0u : 1u, countOf(log(), "No need to Check-in "));
        EXPECT_EQ(reset ? "false" : c[0] == "-" ? "" : c[0], root->readFile(kMarker));
    }
}

TEST_F(StartupTest, CheckInIntervalChoice) {
    for (const auto& c : tola_test::readCases("checkin_periods.tsv", 5)) {
        if (c[0] != "start") {
            continue;
        }
        SCOPED_TRACE(c[1] + "/" + c[2] + "/" + c[3]);
        newRoot();
        std::string xml = root->readFile(kConfigFile);
        size_t open = xml.find("<CheckInInterval>") + std::string("<CheckInInterval>").size();
        xml.replace(open, xml.find("</CheckInInterval>") - open, c[3]);
        root->writeFile(kConfigFile, xml);
        tolaagent_runtime_config_t record{};
        record.checkInIntervalOverrideFlag = c[1] == "1";
        record.checkInInterval = std::stoul(c[2]);
        storeRecord(record);
        TOLAApp app;
        ASSERT_EQ(0, app.Initialize());
        EXPECT_EQ(std::stoul(c[4]), app.CheckInTimer().GetInterval());
        stop(app);
    }
}

TEST_F(StartupTest, FailuresStopTheStartUp) {
    root->remove(kConfigFile);
    EXPECT_EQ(1, TOLAApp().Initialize());
    newRoot();
    std::string saved = std::getenv("ARDO_BUS_ADDRESS");
    setenv("ARDO_BUS_ADDRESS", ("unix:path=" + root->dir() + "/no-bus").c_str(), 1);
    EXPECT_EQ(1, TOLAApp().Initialize());
    setenv("ARDO_BUS_ADDRESS", saved.c_str(), 1);
}

// The clock notice is subscribed only while the clock is unset (1980 at boot).
TEST_F(StartupTest, ClockChangeIsSubscribedOnlyWhileTheClockIsUnset) {
    const std::string emit =
        "busctl --address='" + bus.address() + "' emit /com/ardo/Msgbus com.ardo.Msgbus1 Notify sv ";
    for (bool unset : {true, false}) {
        SCOPED_TRACE(unset);
        newRoot();
        ardo::deviceStateSet("/clock/offset_seconds",
                             unset ? static_cast<long long>(315532800 - std::time(nullptr)) : 0LL);
        TOLAApp app;
        ASSERT_EQ(0, app.Initialize());
        ASSERT_EQ(0, std::system((emit + "modem2.time_change ay 1 7").c_str()));
        // A subscribed channel after it: once that arrives, the clock notice would have too.
        ASSERT_EQ(0, std::system((emit + "ardo.dua.usage.info ay 4 1 0 0 0").c_str()));
        ASSERT_TRUE(
            tola_test::waitForText(root->path("/var/log/tola.log"), "on channel ardo.dua.usage.info"));
        EXPECT_EQ(unset ? 1u : 0u, countOf(log(), "on channel modem2.time_change"));
        stop(app);
    }
}

}  // namespace
