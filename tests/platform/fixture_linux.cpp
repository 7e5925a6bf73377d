// The Linux backend's device: the ModemManager and logind stand-ins, reset before every case, a
// temporary ARDO_ROOT, and systemd's notification socket played by a socket that counts keep-alives.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "backend_fixture.h"
#include "device_state.h"
#include "mock_services.h"
#include "sys_core.h"
#include "test_env.h"

namespace backend {

namespace {

constexpr double kTimeScale = 1000.0;

std::unique_ptr<tola_test::MockServices> gServices;
std::unique_ptr<tola_test::TempRoot> gRoot;
int gNotifyFd = -1;
int gKeepAlives = 0;
bool gSession = false;

// The platform calls of one kind that the platform journalled as started.
int journalled(const char* call) {
    std::ifstream in(sys_fsPath("/var/lib/ardo/calls.jsonl"));
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        ardo::json entry = ardo::json::parse(line, nullptr, false);
        if (entry.is_object() && entry.value("call", "") == call && entry.value("result", -1) == 0) {
            ++count;
        }
    }
    return count;
}

bool openSession() {
    if (!gSession) {
        gSession = sys_sdkInitialize() == 0;
    }
    return gSession;
}

}  // namespace

void setUp() {
    if (!gServices) {
        gServices = std::make_unique<tola_test::MockServices>();
    }
    ASSERT_TRUE(gServices->ok()) << "python3-dbusmock did not start (Debian package python3-dbusmock)";
    ASSERT_TRUE(gServices->reset());
    gRoot = std::make_unique<tola_test::TempRoot>(true, kTimeScale);
    gKeepAlives = 0;
    gSession = false;
    gNotifyFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{AF_UNIX, {}};
    std::string path = gRoot->dir() + "/notify";
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    ASSERT_EQ(bind(gNotifyFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0)
        << "no notification socket";
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    setenv("WATCHDOG_USEC", "20000000", 1);  // what systemd gives a service with WatchdogSec=20s
    unsetenv("WATCHDOG_PID");
}

void tearDown() {
    if (gSession) {
        sys_sdkShutdown();
        gSession = false;
    }
    close(gNotifyFd);
    gNotifyFd = -1;
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    unsetenv("ARDO_CA_FILE");
    gRoot.reset();
}

double timeScale() {
    return kTimeScale;
}

// The SMS and network-time bridge runs while an SDK session is open, as in the agent.
bool receiveSms(const std::string& text) {
    return openSession() && gServices->receiveSms(text);
}

bool changeNetworkTime() {
    return openSession() && gServices->changeNetworkTime("2026-06-01T08:00:00+02:00");
}

// A data call fails with its bearer; a reboot, with logind's refusal.
bool failNextCall(const std::string& call) {
    if (call == "sys_cellularDataUsageAPNCallConnect" || call == "sys_cellularDataConnect") {
        return gServices->failModem("Connect");
    }
    return (call == "sys_rebootSystem" || call == "sys_restoreFactoryDefaults") &&
           gServices->refuseReboot(false);
}

int reboots() {
    return journalled("sys_rebootSystem");
}
int factoryResets() {
    return journalled("sys_restoreFactoryDefaults");
}

// systemd keeps one watchdog per service: every keep-alive counts for it, whatever the name.
int keepAlives(const std::string& /*application*/) {
    char buffer[512];
    for (ssize_t n; gNotifyFd >= 0 && (n = recv(gNotifyFd, buffer, sizeof buffer - 1, 0)) > 0;) {
        buffer[n] = '\0';
        for (const char* p = buffer; (p = std::strstr(p, "WATCHDOG=1")) != nullptr; p += 10) {
            ++gKeepAlives;
        }
    }
    return gKeepAlives;
}

std::string dataCallInterface() {
    return "lo";
}
std::string imei() {
    return "867698041234567";
}

void trustCertificates(const std::string& pemFile) {
    setenv("ARDO_CA_FILE", pemFile.c_str(), 1);
}

}  // namespace backend
