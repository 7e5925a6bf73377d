// The Linux backend against ModemManager and logind stand-ins: what only this backend does (the
// conformance suite runs on it too), and the faults of the system's services.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bus_recorder.h"
#include "case_rows.h"
#include "device_state.h"
#include "linux_events.h"
#include "mock_services.h"
#include "sys_interface.h"
#include "test_env.h"
#include "vorn_dbg.h"
#include "watchdog.h"

namespace {

tola_test::MockServices& services() {
    static tola_test::MockServices instance;
    return instance;
}

template <typename T, int (*get)(T*)>
int into() {
    T record;
    return get(&record);
}

class LinuxBackendTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(services().ok()) << "python3-dbusmock did not start";
        ASSERT_TRUE(services().reset());
    }
    void TearDown() override { vorn_dbg_stop(); }  // the next case logs under its own root
    std::string Log() const { return root.readFile("/var/log/tola.log"); }

    tola_test::TempRoot root{true};
};

TEST_F(LinuxBackendTest, IdentityComesFromTheModemAndItsSim) {
    sys_hardware_info_t hw;
    sys_subscriber_info_t sub;
    sys_system_version_t version;
    time_t now = 0;
    ASSERT_EQ(sys_getHardwareInfo(&hw) | sys_getSubscriberInfo(&sub) | sys_getSystemVersion(&version) |
                  sys_getNetworkTime(&now),
              0);
    EXPECT_EQ(
        std::vector<std::string>(
            {hw.model, hw.imei, hw.meid, hw.esn, sub.mdn, sub.min, sub.imsi, version.firmwareVersion}),
        std::vector<std::string>({"EG25-G", "867698041234567", "A1000049ABCDEF", "80ABCDEF", "+15551234567",
                                  "5551234567", "310150123456789", "EG25GGBR07A08M2G"}));
    EXPECT_EQ(now, 1772366400);  // the stand-in's 2026-03-01T12:00:00+00:00
}

TEST_F(LinuxBackendTest, RegistrationAndOperatorGiveRoamingAndCarrier) {
    struct Case {
        std::vector<std::string> options;
        uint32_t roaming;
        int network, carrier;
    } cases[] = {
        {{}, 0, SYS_NETWORK_HOME, SYS_SIM_CARRIER_VELTRA},
        {{"registration=5"}, 1, SYS_NETWORK_ROAMING, SYS_SIM_CARRIER_VELTRA},
        {{"registration=7"}, 1, SYS_NETWORK_ROAMING, SYS_SIM_CARRIER_VELTRA},
        {{"registration=6", "operator=Partner"}, 0, SYS_NETWORK_HOME, SYS_SIM_CARRIER_UNKNOWN},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options.empty() ? "home" : c.options[0]);
        ASSERT_TRUE(services().reset(c.options));
        sys_cellular_service_stats_t stats;
        ASSERT_EQ(sys_getCellularServiceStats(&stats), 0);
        int network = -1, carrier = -1, status = -1;
        ASSERT_EQ(sys_validateHomeNetwork(&network) | sys_getSIMCarrier(&carrier) |
                      sys_getCellularServiceStatus(&status),
                  0);
        // The signal is 75 % of the -113..-51 dBm scale.
        EXPECT_EQ(
            std::vector<long>({stats.roaming, stats.radioTechnology, stats.rssi, network, carrier, status}),
            std::vector<long>(
                {c.roaming, SYS_RADIO_TECH_LTE, -67, c.network, c.carrier, SYS_SERVICE_STATUS_IN_SERVICE}));
    }
}

TEST(LinuxNetworkTime, ParsesModemManagerTimes) {
    for (const std::vector<std::string>& c : tola_test::readCases("linux_network_times.tsv", 2)) {
        time_t seconds = 0;
        bool ok = ardo_linux::parseNetworkTime(c[0], &seconds);
        EXPECT_EQ(ok ? std::to_string(seconds) : "refused", c[1]) << c[0];
    }
}

// A bearer on the store's apps APN with the asked IP family; its name servers in the resolver file.
TEST_F(LinuxBackendTest, AppsApnCallBringsUpABearerWithItsNameServers) {
    ASSERT_TRUE(ardo::deviceStateSet("/data_call/apps_apn/apn", "apps.veltra"));
    char name[16];
    uint32_t size = sizeof name;
    ASSERT_EQ(sys_cellularDataUsageAPNCallConnect(name, &size, "tola_data_call_id", 6), 0);
    EXPECT_EQ(root.readFile("/opt/ardo/tmp/router2/resolv_data_usage.conf"),
              "nameserver 192.0.2.53\nnameserver 192.0.2.54\n");
    ASSERT_EQ(sys_cellularDataUsageAPNCallDisconnect("tola_data_call_id"), 0);
    EXPECT_NE(sys_cellularDataUsageAPNCallDisconnect("tola_data_call_id"), 0);  // no longer open
    // The Internet call uses the active profile's APN, on both IP families.
    ASSERT_EQ(sys_cellularDataConnect(0), 0);
    std::vector<std::string> journal = services().modemJournal();
    ASSERT_EQ(journal.size(), 3u);
    EXPECT_EQ(journal[0], "Connect apn=apps.veltra ip-type=2");
    EXPECT_EQ(journal[1].rfind("Disconnect /org/freedesktop/ModemManager1/Bearer/", 0), 0u) << journal[1];
    EXPECT_EQ(journal[2], "Connect apn=vzwinternet ip-type=4");
}

TEST_F(LinuxBackendTest, ProfilesGoToTheModemOrTheStore) {
    for (bool manager : {true, false}) {
        SCOPED_TRACE(manager ? "profile manager" : "store");
        ASSERT_TRUE(services().reset({manager ? "profiles=true" : "profiles=false"}));
        sys_modem_profile_t profile{}, back{};
        std::strcpy(profile.apn, "apn.by.sms");
        std::strcpy(profile.userName, "user");
        profile.authType = SYS_MODEM_AUTH_PAP;
        profile.pdpType = SYS_MODEM_PDP_IPV6;
        ASSERT_EQ(sys_setModemProfile(SYS_MODEM_PROFILE_3GPP, 1, &profile), 0);
        ASSERT_EQ(sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, 1, &back), 0);
        EXPECT_EQ(std::memcmp(&back, &profile, sizeof profile), 0);  // every field as it was set
        EXPECT_EQ(ardo::deviceStateRead()["modem"]["profiles"]["0:1"].value("apn", "") == "apn.by.sms",
                  !manager);
        EXPECT_EQ(sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, 77, &back), 3);
    }
}

TEST_F(LinuxBackendTest, SmsInPartsAndTimeChangesReachTheBusOnce) {
    tola_test::BusRecorder rec;
    MsgbusHandler subscriber(&rec);
    ASSERT_EQ(subscriber.Initialize(), 0);
    ASSERT_EQ(subscriber.RegisterForChannelSubscription("sms.msg.tola", true), 0);
    ASSERT_EQ(subscriber.RegisterForChannelSubscription("modem2.time_change", true), 0);
    ASSERT_EQ(sys_sdkInitialize(), 0);

    std::string arriving;
    ASSERT_TRUE(services().receiveSms("second", false, &arriving));
    ASSERT_TRUE(services().receiveSms("first"));
    ASSERT_TRUE(rec.waitFor("sms.msg.tola"));
    EXPECT_EQ(rec.received(), std::vector<std::string>{"sms.msg.tola=str:first"});
    ASSERT_TRUE(services().completeSms(arriving));
    ASSERT_TRUE(services().completeSms(arriving));  // a second change of the message: no second copy
    ASSERT_TRUE(services().changeNetworkTime("2026-05-04T12:20:30+02:00"));
    ASSERT_TRUE(rec.waitFor("modem2.time_change"));
    EXPECT_EQ(rec.received(), (std::vector<std::string>{"sms.msg.tola=str:first", "sms.msg.tola=str:second",
                                                        "modem2.time_change=bin:ee72f86900000000"}));
    EXPECT_EQ(sys_sdkShutdown(), 0);
    subscriber.Uninitialize();
}

TEST_F(LinuxBackendTest, WatchdogIntervalIsHalfOfSystemdsWatchdog) {
    const std::pair<const char*, unsigned> cases[] = {{nullptr, 77}, {"30000000", 15}, {"1500000", 1}};
    unsigned int seconds = 77;
    for (const auto& c : cases) {
        c.first != nullptr ? setenv("WATCHDOG_USEC", c.first, 1) : unsetenv("WATCHDOG_USEC");
        ASSERT_EQ(sys_getWatchdogInterval(&seconds), 0);
        EXPECT_EQ(seconds, c.second);
    }
    unsetenv("WATCHDOG_USEC");
}

TEST_F(LinuxBackendTest, ServiceFaultsFailTheCallWithALogLine) {
    auto appsApnCall = [] {
        uint32_t size = 0;
        return sys_cellularDataUsageAPNCallConnect(nullptr, &size, "tola_data_call_id");
    };
    struct Case {
        const char* name;
        std::function<void()> stage;
        std::function<int()> call;
        const char* logLine;
        int logindReboots = 0;
    } cases[] = {
        {"bearer fails", [] { services().failModem("Connect"); }, appsApnCall,
         "did not come up (org.freedesktop.ModemManager1.Error.Core.Failed)"},
        {"bearer without interface", [] { services().reset({"interface="}); }, appsApnCall,
         "has no connected interface"},
        {"logind refuses", [] { services().refuseReboot(true); }, sys_rebootSystem,
         "logind refused the reboot (org.freedesktop.login1.NotAllowed)", 1},
        {"logind refuses the reset", [] { services().refuseReboot(true); }, sys_restoreFactoryDefaults,
         "sys_restoreFactoryDefaults: logind refused the reboot", 1},
        {"network time fails", [] { services().failModem("GetNetworkTime"); },
         into<time_t, sys_getNetworkTime>, "GetNetworkTime failed"},
        {"no modem", [] { services().reset({"modem=false"}); },
         into<sys_subscriber_info_t, sys_getSubscriberInfo>, "ModemManager has no modem"},
        {"no ModemManager", [] { services().stopModemManager(); },
         into<int, sys_getCellularDataConnectionStatus>,
         "ModemManager is not reachable (org.freedesktop.DBus.Error.ServiceUnknown)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(services().reset());
        c.stage();
        auto start = std::chrono::steady_clock::now();
        EXPECT_NE(c.call(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_NE(Log().find(c.logLine), std::string::npos) << Log();
        EXPECT_EQ(services().logindReboots(), c.logindReboots);  // asked, and refused
    }
    // The refused reboot was recorded before logind was asked.
    EXPECT_EQ(ardo::deviceStateValue<int>("/power/reboots", 0), 1);
}

}  // namespace
