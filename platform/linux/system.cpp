// Linux system services: the SDK session (which starts the ModemManager event bridge), the
// watchdog as systemd's (sd_notify), reboot and factory reset through logind, the file-system
// root and the ACL segment key.
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "device_state.h"
#include "host_env.h"
#include "linux_events.h"
#include "sys_core.h"
#include "system_bus.h"
#include "vorn_dbg.h"
#include "watchdog.h"

using ardo_linux::json;

namespace {

std::mutex gSessionMutex;
int gSessions = 0;

void increment(json& state, const char* section, const char* key) {
    json& counter = state[section][key];
    counter = counter.is_number_integer() ? counter.get<long long>() + 1 : 1;
}

// Asks logind to reboot (not interactively: the agent has no one to ask). 0 when logind took it.
int logindReboot(const char* call) {
    std::string error;
    bool ok = ardo_linux::callMethod(
        "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Reboot",
        [](sd_bus_message* m) { return sd_bus_message_append(m, "b", 0); }, nullptr, &error);
    int rc = ok ? 0 : 1;
    if (!ok) {
        ardo_linux::logFault("%s: logind refused the reboot (%s)", call,
                             error.empty() ? "no bus" : error.c_str());
    }
    ardo::deviceJournal(call, {{"logind", ok ? "Reboot" : error}}, rc);
    return rc;
}

}  // namespace

// The session always opens: a missing system bus, ModemManager or modem is logged here, every
// modem call fails on its own until they appear, and the SMS bridge keeps trying to connect.
int sys_sdkInitialize(void) {
    std::lock_guard<std::mutex> guard(gSessionMutex);
    if (gSessions == 0) {
        std::string modem;
        json ifaces;
        if (ardo_linux::findModem(modem, ifaces)) {
            vorn_dbg_log(6, "[LINUX]:[INFO] - modem %s", modem.c_str());
            if (!ifaces.contains(ardo_linux::kMMMessaging)) {
                ardo_linux::logFault("the modem has no messaging: SMS commands will not arrive");
            }
        }
        ardo_linux::startModemEvents();
    }
    ++gSessions;
    return 0;
}

int sys_sdkShutdown(void) {
    std::lock_guard<std::mutex> guard(gSessionMutex);
    if (gSessions == 0) {
        return 1;
    }
    if (--gSessions == 0) {
        ardo_linux::stopModemEvents();
    }
    return 0;
}

// Registration tells systemd that the service is up (the agent registers once its start-up is
// done); unregistering tells it that the service is stopping.
int sys_watchdogApplicationRegister(const char* name, int reg) {
    if (name == nullptr || *name == '\0') {
        return 1;
    }
    int r = sd_notify(0, reg != 0 ? "READY=1" : "STOPPING=1");
    return r < 0 ? 1 : 0;
}

// Half of systemd's WatchdogSec=, so that one late keep-alive is not yet a miss.
int sys_getWatchdogInterval(unsigned int* seconds) {
    if (seconds == nullptr) {
        return 1;
    }
    uint64_t usec = 0;
    if (sd_watchdog_enabled(0, &usec) > 0 && usec > 0) {
        uint64_t half = usec / 2 / 1000000;
        *seconds = half > 0 ? static_cast<unsigned int>(half < UINT32_MAX ? half : UINT32_MAX) : 1;
    }
    return 0;
}

// Outside systemd (no NOTIFY_SOCKET) a keep-alive goes nowhere and still succeeds.
int sys_watchdogApplicationKeepAlive(const char* name, int /*pid*/) {
    if (name == nullptr || *name == '\0') {
        return 1;
    }
    return sd_notify(0, "WATCHDOG=1") < 0 ? 1 : 0;
}

// The reboot is counted before logind is asked, so that the record survives the reboot.
int sys_rebootSystem(void) {
    ardo::deviceStateUpdate([](json& state) { increment(state, "power", "reboots"); });
    return logindReboot("sys_rebootSystem");
}

int sys_restoreFactoryDefaults(void) {
    const json& factory = ardo::deviceFactoryState();
    bool restored = ardo::deviceStateUpdate([&](json& state) {
        // Every section with a factory value goes back to it but those listed in
        // /factory_reset/keep (bookkeeping, and what the modem rather than the store reports).
        json keep = state.contains("factory_reset") && state["factory_reset"].contains("keep")
                        ? state["factory_reset"]["keep"]
                        : factory.value("factory_reset", json::object()).value("keep", json::object());
        for (auto it = factory.begin(); it != factory.end(); ++it) {
            auto flag = keep.is_object() ? keep.find(it.key()) : keep.end();
            if (flag == keep.end() || !flag->is_boolean() || !flag->get<bool>()) {
                state[it.key()] = it.value();
            }
        }
        increment(state, "power", "factory_resets");
    });
    // The manual-reset marker: the agent finds it at its next start and resets its ACL.
    std::string marker = sys_fsPath("/opt/ardo/data/tola/restore_ace_defaults");
    ardo::hostMakeDirs(marker.substr(0, marker.rfind('/')));
    if (!restored || !ardo::hostWriteFileAtomic(marker, "true")) {
        ardo_linux::logFault("sys_restoreFactoryDefaults: the settings store was not reset");
        ardo::deviceJournal("sys_restoreFactoryDefaults", json::object(), 1);
        return 1;
    }
    return logindReboot("sys_restoreFactoryDefaults");
}
