// Data calls, the watchdog, reboot and factory reset.
#include <cstdint>
#include <cstring>
#include <string>

#include "conformance.h"
#include "sys_interface.h"
#include "watchdog.h"

using DeviceCallTest = DeviceTest;

// The interface name comes back by the size protocol: a null or short buffer learns the size.
TEST_F(DeviceCallTest, AppsApnCallGivesItsInterfaceNameByTheSizeProtocol) {
    const std::string name = backend::dataCallInterface();
    const uint32_t needed = static_cast<uint32_t>(name.size() + 1);
    uint32_t size = 0;
    EXPECT_EQ(sys_cellularDataUsageAPNCallConnect(nullptr, &size, "conformance"),
              SYS_RESULT_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, needed);
    char buffer[64];
    std::memset(buffer, '#', sizeof buffer);
    size = needed - 1;
    EXPECT_EQ(sys_cellularDataUsageAPNCallConnect(buffer, &size, "conformance"), SYS_RESULT_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, needed);
    EXPECT_EQ(buffer[0], '#');

    size = sizeof buffer;
    ASSERT_EQ(sys_cellularDataUsageAPNCallConnect(buffer, &size, "conformance", 4), 0);
    EXPECT_STREQ(buffer, name.c_str());
    EXPECT_EQ(buffer[needed], '#');
    EXPECT_EQ(sys_cellularDataUsageAPNCallDisconnect("conformance"), 0);
}

TEST_F(DeviceCallTest, InternetCallConnectsAndDisconnects) {
    int profile = 0;
    ASSERT_EQ(sys_getActiveModemProfileIndex(&profile), 0);
    ASSERT_EQ(sys_cellularDataConnect(profile), 0);
    int status = -1;
    ASSERT_EQ(sys_getCellularDataConnectionStatus(&status), 0);
    EXPECT_EQ(status, SYS_DATA_CALL_CONNECTED);
    ASSERT_EQ(sys_cellularDataDisconnect(profile), 0);
    ASSERT_EQ(sys_getCellularDataConnectionStatus(&status), 0);
    EXPECT_EQ(status, SYS_DATA_CALL_DISCONNECTED);
}

// A call that the device's services refuse gives the call's failure, and the next one works.
TEST_F(DeviceCallTest, RefusedCallsFailAndLeaveTheNextWorking) {
    struct Case {
        const char* call;
        int (*invoke)();
    } cases[] = {
        {"sys_cellularDataUsageAPNCallConnect",
         [] {
             char name[64];
             uint32_t size = sizeof name;
             int rc = sys_cellularDataUsageAPNCallConnect(name, &size, "refused");
             sys_cellularDataUsageAPNCallDisconnect("refused");
             return rc;
         }},
        {"sys_cellularDataConnect", [] { return sys_cellularDataConnect(0); }},
        {"sys_rebootSystem", sys_rebootSystem},
        {"sys_sdkInitialize", sys_sdkInitialize},
        {"sys_restoreFactoryDefaults", sys_restoreFactoryDefaults},
    };
    for (const Case& c : cases) {
        if (backend::failNextCall(c.call)) {
            EXPECT_NE(c.invoke(), 0) << c.call;
        }
        EXPECT_EQ(c.invoke(), 0) << c.call;
    }
    // Only the reboot and the factory reset that went through are recorded.
    EXPECT_EQ(backend::reboots(), 1);
    EXPECT_EQ(backend::factoryResets(), 1);
    EXPECT_EQ(sys_sdkShutdown(), 0);
}

TEST_F(DeviceCallTest, WatchdogCountsKeepAlivesOfRegisteredApplications) {
    unsigned int seconds = 0;
    ASSERT_EQ(sys_getWatchdogInterval(&seconds), 0);
    EXPECT_GT(seconds, 0u);
    ASSERT_EQ(sys_watchdogApplicationRegister("tola", 1), 0);
    ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", 4242), 0);
    ASSERT_EQ(sys_watchdogApplicationKeepAlive("tola", 4242), 0);
    EXPECT_EQ(backend::keepAlives("tola"), 2);
    EXPECT_EQ(sys_watchdogApplicationRegister("tola", 0), 0);
    EXPECT_NE(sys_watchdogApplicationRegister(nullptr, 1), 0);
    EXPECT_NE(sys_watchdogApplicationKeepAlive(nullptr, 1), 0);
}
