// The Linux backend against ModemManager and logind stand-ins: how ModemManager's values become
// the platform's records, where data calls, profiles, SMS and reboots go, and the faults of the
// system's services (each a failed call and a log line, never a hang).
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device_state.h"
#include "linux_events.h"
#include "mock_services.h"
#include "msgbus_handler.h"
#include "sys_interface.h"
#include "test_env.h"
#include "vorn_dbg.h"
#include "watchdog.h"

namespace {

using Clock = std::chrono::steady_clock;

tola_test::MockServices& services() {
    static tola_test::MockServices instance;
    return instance;
}

class Recorder : public MsgbusCallbackInterface {
  public:
    void OnChannelNotify(const std::string& channel, const std::string& data) override {
        add(channel + "=" + data);
    }
    void OnChannelNotify(const std::string& channel, const int& data) override {
        add(channel + "=int:" + std::to_string(data));
    }
    void OnChannelNotify(const std::string& channel, void* data, int length) override {
        int64_t value = 0;
        if (length == static_cast<int>(sizeof value)) {
            std::memcpy(&value, data, sizeof value);
        }
        add(channel + "=bin:" + std::to_string(value));
    }
    // Waits until count notices have come (or the time-out); all of them.
    std::vector<std::string> waitFor(size_t count, int timeoutMs = 5000) {
        std::unique_lock<std::mutex> lock(mMutex);
        mCv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return mGot.size() >= count; });
        return mGot;
    }

  private:
    void add(const std::string& text) {
        std::lock_guard<std::mutex> lock(mMutex);
        mGot.push_back(text);
        mCv.notify_all();
    }
    std::mutex mMutex;
    std::condition_variable mCv;
    std::vector<std::string> mGot;
};

class LinuxBackendTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(services().ok()) << "python3-dbusmock did not start";
        ASSERT_TRUE(services().reset());
        root = std::make_unique<tola_test::TempRoot>(true);
    }
    void TearDown() override {
        vorn_dbg_stop();  // the next case logs under its own root
        root.reset();
    }
    std::string Log() const { return root->readFile("/var/log/tola.log"); }

    std::unique_ptr<tola_test::TempRoot> root;
};

TEST_F(LinuxBackendTest, IdentityComesFromTheModemAndItsSim) {
    sys_hardware_info_t hw;
    ASSERT_EQ(sys_getHardwareInfo(&hw), 0);
    EXPECT_STREQ(hw.model, "EG25-G");
    EXPECT_STREQ(hw.imei, "867698041234567");
    EXPECT_STREQ(hw.meid, "A1000049ABCDEF");
    EXPECT_STREQ(hw.esn, "80ABCDEF");
    sys_subscriber_info_t sub;
    ASSERT_EQ(sys_getSubscriberInfo(&sub), 0);
    EXPECT_STREQ(sub.mdn, "+15551234567");
    EXPECT_STREQ(sub.min, "5551234567");
    EXPECT_STREQ(sub.imsi, "310150123456789");
    sys_system_version_t version;
    ASSERT_EQ(sys_getSystemVersion(&version), 0);
    EXPECT_STREQ(version.firmwareVersion, "EG25GGBR07A08M2G");
    time_t now = 0;
    ASSERT_EQ(sys_getNetworkTime(&now), 0);
    EXPECT_EQ(now, 1772366400);  // the stand-in's 2026-03-01T12:00:00+00:00
}

// Registration and the SIM's operator decide roaming and the carrier.
TEST_F(LinuxBackendTest, RegistrationAndOperatorGiveRoamingAndCarrier) {
    struct Case {
        std::vector<std::string> options;
        uint32_t roaming;
        int network, carrier, status;
    } cases[] = {
        {{}, 0, SYS_NETWORK_HOME, SYS_SIM_CARRIER_VELTRA, SYS_SERVICE_STATUS_IN_SERVICE},
        {{"registration=5"}, 1, SYS_NETWORK_ROAMING, SYS_SIM_CARRIER_VELTRA, SYS_SERVICE_STATUS_IN_SERVICE},
        {{"registration=7"}, 1, SYS_NETWORK_ROAMING, SYS_SIM_CARRIER_VELTRA, SYS_SERVICE_STATUS_IN_SERVICE},
        {{"registration=6", "operator=Partner"},
         0,
         SYS_NETWORK_HOME,
         SYS_SIM_CARRIER_UNKNOWN,
         SYS_SERVICE_STATUS_IN_SERVICE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options.empty() ? "home" : c.options[0]);
        ASSERT_TRUE(services().reset(c.options));
        sys_cellular_service_stats_t stats;
        ASSERT_EQ(sys_getCellularServiceStats(&stats), 0);
        EXPECT_EQ(stats.roaming, c.roaming);
        EXPECT_EQ(stats.radioTechnology, static_cast<uint32_t>(SYS_RADIO_TECH_LTE));
        EXPECT_EQ(stats.rssi, -67);  // 75 % of the -113..-51 dBm scale
        int value = -1;
        ASSERT_EQ(sys_validateHomeNetwork(&value), 0);
        EXPECT_EQ(value, c.network);
        ASSERT_EQ(sys_getSIMCarrier(&value), 0);
        EXPECT_EQ(value, c.carrier);
        ASSERT_EQ(sys_getCellularServiceStatus(&value), 0);
        EXPECT_EQ(value, c.status);
    }
}

TEST(LinuxNetworkTime, ParsesModemManagerTimes) {
    struct Case {
        const char* text;
        bool ok;
        time_t seconds;
    } cases[] = {
        {"2026-05-04T10:20:30Z", true, 1777890030},
        {"2026-05-04T10:20:30", true, 1777890030},
        {"2026-05-04T12:20:30+02:00", true, 1777890030},
        {"2026-05-04T04:50:30-0530", true, 1777890030},
        {"2026-05-04T11:20:30.250+01:00", true, 1777890030},
        {"2026-05-04", false, 0},
        {"2026-05-04T10:20:30+24:00", false, 0},
        {"2026-05-04T10:20:30+02:00x", false, 0},
        {"", false, 0},
    };
    for (const Case& c : cases) {
        time_t seconds = 0;
        EXPECT_EQ(ardo_linux::parseNetworkTime(c.text, &seconds), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(seconds, c.seconds) << c.text;
        }
    }
}

// An apps-APN call: a bearer on the store's apps APN with the asked IP family, its name servers
// in the data call's resolver file, and down again on disconnect.
TEST_F(LinuxBackendTest, AppsApnCallBringsUpABearerWithItsNameServers) {
    ASSERT_TRUE(ardo::deviceStateSet("/data_call/apps_apn/apn", "apps.veltra"));
    char name[16];
    uint32_t size = sizeof name;
    ASSERT_EQ(sys_cellularDataUsageAPNCallConnect(name, &size, "tola_data_call_id", 6), 0);
    EXPECT_STREQ(name, "lo");
    EXPECT_EQ(root->readFile("/opt/ardo/tmp/router2/resolv_data_usage.conf"),
              "nameserver 192.0.2.53\nnameserver 192.0.2.54\n");
    ASSERT_EQ(sys_cellularDataUsageAPNCallDisconnect("tola_data_call_id"), 0);
    EXPECT_NE(sys_cellularDataUsageAPNCallDisconnect("tola_data_call_id"), 0);  // no longer open
    std::vector<std::string> journal = services().modemJournal();
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[0], "Connect apn=apps.veltra ip-type=2");
    EXPECT_EQ(journal[1].rfind("Disconnect /org/freedesktop/ModemManager1/Bearer/", 0), 0u) << journal[1];

    // The Internet call uses the active profile's APN, on both IP families.
    ASSERT_EQ(sys_cellularDataConnect(0), 0);
    EXPECT_EQ(services().modemJournal().at(2), "Connect apn=vzwinternet ip-type=4");
}

// The modem's profile manager holds the 3GPP profiles when there is one; the store otherwise.
TEST_F(LinuxBackendTest, ProfilesGoToTheModemOrTheStore) {
    for (bool manager : {true, false}) {
        SCOPED_TRACE(manager ? "profile manager" : "store");
        ASSERT_TRUE(services().reset({manager ? "profiles=true" : "profiles=false"}));
        sys_modem_profile_t profile{};
        std::strcpy(profile.apn, "apn.by.sms");
        std::strcpy(profile.userName, "user");
        profile.authType = SYS_MODEM_AUTH_PAP;
        profile.pdpType = SYS_MODEM_PDP_IPV6;
        ASSERT_EQ(sys_setModemProfile(SYS_MODEM_PROFILE_3GPP, 1, &profile), 0);
        sys_modem_profile_t back{};
        ASSERT_EQ(sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, 1, &back), 0);
        EXPECT_STREQ(back.apn, "apn.by.sms");
        EXPECT_STREQ(back.userName, "user");
        EXPECT_EQ(back.authType, SYS_MODEM_AUTH_PAP);
        EXPECT_EQ(back.pdpType, SYS_MODEM_PDP_IPV6);
        EXPECT_EQ(ardo::deviceStateRead()["modem"]["profiles"]["0:1"].value("apn", "") == "apn.by.sms",
                  !manager);
        EXPECT_EQ(sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, 77, &back), 3);
    }
}

// SMS texts go out on "sms.msg.tola" once each (a message arriving in parts when it is
// complete); a network time change on "modem2.time_change" with the new time.
TEST_F(LinuxBackendTest, SmsAndTimeChangesReachTheBus) {
    Recorder rec;
    MsgbusHandler subscriber(&rec);
    ASSERT_EQ(subscriber.Initialize(), 0);
    ASSERT_EQ(subscriber.RegisterForChannelSubscription("sms.msg.tola", true), 0);
    ASSERT_EQ(subscriber.RegisterForChannelSubscription("modem2.time_change", true), 0);
    ASSERT_EQ(sys_sdkInitialize(), 0);

    std::string arriving;
    ASSERT_TRUE(services().receiveSms("second", false, &arriving));
    ASSERT_TRUE(services().receiveSms("first"));
    EXPECT_EQ(rec.waitFor(1), std::vector<std::string>{"sms.msg.tola=first"});
    ASSERT_TRUE(services().completeSms(arriving));
    ASSERT_TRUE(services().completeSms(arriving));  // a second change of the message: no second copy
    ASSERT_TRUE(services().changeNetworkTime("2026-05-04T12:20:30+02:00"));
    std::vector<std::string> got = rec.waitFor(4, 1500);
    EXPECT_EQ(got, (std::vector<std::string>{"sms.msg.tola=first", "sms.msg.tola=second",
                                             "modem2.time_change=bin:1777890030"}));
    EXPECT_EQ(sys_sdkShutdown(), 0);
    subscriber.Uninitialize();
}

TEST_F(LinuxBackendTest, RebootAndFactoryResetGoThroughLogind) {
    ASSERT_EQ(sys_rebootSystem(), 0);
    EXPECT_EQ(services().logindReboots(), 1);
    ASSERT_EQ(sys_restoreFactoryDefaults(), 0);
    EXPECT_EQ(services().logindReboots(), 2);
    EXPECT_EQ(root->readFile("/opt/ardo/data/tola/restore_ace_defaults"), "true");
    EXPECT_EQ(ardo::deviceStateValue<int>("/power/reboots", 0), 1);
}

TEST_F(LinuxBackendTest, WatchdogIntervalIsHalfOfSystemdsWatchdog) {
    unsigned int seconds = 77;
    unsetenv("WATCHDOG_USEC");
    ASSERT_EQ(sys_getWatchdogInterval(&seconds), 0);
    EXPECT_EQ(seconds, 77u);  // not run by systemd's watchdog: left as it was
    setenv("WATCHDOG_USEC", "30000000", 1);
    ASSERT_EQ(sys_getWatchdogInterval(&seconds), 0);
    EXPECT_EQ(seconds, 15u);
    setenv("WATCHDOG_USEC", "1500000", 1);
    ASSERT_EQ(sys_getWatchdogInterval(&seconds), 0);
    EXPECT_EQ(seconds, 1u);
    unsetenv("WATCHDOG_USEC");
}

// Every fault of the system's services: the call fails at once with a log line that names it.
TEST_F(LinuxBackendTest, ServiceFaultsFailTheCallWithALogLine) {
    struct Case {
        const char* name;
        std::function<void()> stage;
        std::function<int()> call;
        const char* logLine;
    } cases[] = {
        {"bearer fails", [] { services().failModem("Connect"); },
         [] {
             uint32_t size = 0;
             return sys_cellularDataUsageAPNCallConnect(nullptr, &size, "tola_data_call_id");
         },
         "did not come up (org.freedesktop.ModemManager1.Error.Core.Failed)"},
        {"bearer without interface", [] { services().reset({"interface="}); },
         [] {
             uint32_t size = 0;
             return sys_cellularDataUsageAPNCallConnect(nullptr, &size, "tola_data_call_id");
         },
         "has no connected interface"},
        {"logind refuses", [] { services().refuseReboot(-1); }, [] { return sys_rebootSystem(); },
         "logind refused the reboot (org.freedesktop.login1.NotAllowed)"},
        {"logind refuses the reset", [] { services().refuseReboot(-1); },
         [] { return sys_restoreFactoryDefaults(); },
         "sys_restoreFactoryDefaults: logind refused the reboot"},
        {"network time fails", [] { services().failModem("GetNetworkTime"); },
         [] {
             time_t t;
             return sys_getNetworkTime(&t);
         },
         "GetNetworkTime failed"},
        {"no modem", [] { services().reset({"modem=false"}); },
         [] {
             sys_subscriber_info_t info;
             return sys_getSubscriberInfo(&info);
         },
         "ModemManager has no modem"},
        {"no ModemManager", [] { services().stopModemManager(); },
         [] {
             int status;
             return sys_getCellularDataConnectionStatus(&status);
         },
         "ModemManager is not reachable (org.freedesktop.DBus.Error.ServiceUnknown)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(services().reset());
        c.stage();
        auto start = Clock::now();
        EXPECT_NE(c.call(), 0);
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
        EXPECT_NE(Log().find(c.logLine), std::string::npos) << Log();
    }
    EXPECT_EQ(services().logindReboots(), 0);
    // The refused reboot was recorded before logind was asked.
    EXPECT_EQ(ardo::deviceStateValue<int>("/power/reboots", 0), 1);
}

// A modem without messaging still opens the session (SMS commands just do not come); the log says so.
TEST_F(LinuxBackendTest, ModemWithoutMessagingIsLogged) {
    ASSERT_TRUE(services().reset({"messaging=false"}));
    ASSERT_EQ(sys_sdkInitialize(), 0);
    EXPECT_NE(Log().find("the modem has no messaging"), std::string::npos) << Log();
    EXPECT_EQ(sys_sdkShutdown(), 0);
}

}  // namespace
