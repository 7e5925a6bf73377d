// Host system services: the SDK session, the watchdog, reboot and factory reset, all recorded in
// the simulated device state (and, when they change the device, in the call journal).
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "device_state.h"
#include "host_env.h"
#include "sys_core.h"
#include "vorn_dbg.h"
#include "watchdog.h"

namespace {

using ardo::json;

// Adds one to a counter inside state[section][key], treating anything but a number as 0.
void increment(json& state, const char* section, const char* key) {
    json& counter = state[section][key];
    counter = counter.is_number_integer() ? counter.get<long long>() + 1 : 1;
}

// A reboot ends the process when the device state asks for it (end-to-end runs); unit tests
// leave that off and read the counters instead.
void endProcessIfRebooting() {
    if (ardo::deviceStateValue<bool>("/power/end_process_on_reboot", false)) {
        vorn_dbg_stop();
        _exit(0);
    }
}

}  // namespace

int sys_sdkInitialize(void) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_sdkInitialize", &rc)) {
        return rc;
    }
    ardo::deviceStateUpdate([](json& state) {
        increment(state, "sdk", "sessions");
        increment(state, "sdk", "opened");
    });
    return 0;
}

int sys_sdkShutdown(void) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_sdkShutdown", &rc)) {
        return rc;
    }
    ardo::deviceStateUpdate([](json& state) {
        json& sessions = state["sdk"]["sessions"];
        long long open = sessions.is_number_integer() ? sessions.get<long long>() : 0;
        sessions = open > 0 ? open - 1 : 0;
    });
    return 0;
}

int sys_watchdogApplicationRegister(const char* name, int reg) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_watchdogApplicationRegister", &rc)) {
        ardo::deviceJournal("sys_watchdogApplicationRegister", {{"name", name ? name : ""}, {"reg", reg}},
                            rc);
        return rc;
    }
    if (name == nullptr || *name == '\0') {
        return 1;
    }
    // Indexed by key rather than by JSON pointer, so that any name ('/' and '~' included) is
    // stored as it stands.
    ardo::deviceStateUpdate([&](json& state) { state["watchdog"]["registered"][name] = reg != 0; });
    ardo::deviceJournal("sys_watchdogApplicationRegister", {{"name", name}, {"reg", reg}}, 0);
    return 0;
}

int sys_getWatchdogInterval(unsigned int* seconds) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_getWatchdogInterval", &rc)) {
        return rc;
    }
    if (seconds == nullptr) {
        return 1;
    }
    long long interval = ardo::deviceStateValue<long long>("/watchdog/interval_seconds", 0);
    if (interval > 0 && interval <= static_cast<long long>(UINT32_MAX)) {
        *seconds = static_cast<unsigned int>(interval);
    }
    return 0;
}

// Keep-alives are frequent and change nothing on the device: counted in the watchdog's own
// record, not in the device state, and not journaled.
int sys_watchdogApplicationKeepAlive(const char* name, int pid) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_watchdogApplicationKeepAlive", &rc)) {
        return rc;
    }
    if (name == nullptr || *name == '\0') {
        return 1;
    }
    ardo::deviceKeepAlive(name, static_cast<long long>(sys_time()), pid);
    return 0;
}

int sys_rebootSystem(void) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_rebootSystem", &rc)) {
        ardo::deviceJournal("sys_rebootSystem", json::object(), rc);
        return rc;
    }
    ardo::deviceStateUpdate([](json& state) { increment(state, "power", "reboots"); });
    ardo::deviceJournal("sys_rebootSystem", json::object(), 0);
    endProcessIfRebooting();
    return 0;
}

int sys_restoreFactoryDefaults(void) {
    int rc = 0;
    if (ardo::deviceTakeFault("sys_restoreFactoryDefaults", &rc)) {
        ardo::deviceJournal("sys_restoreFactoryDefaults", json::object(), rc);
        return rc;
    }
    const json& factory = ardo::deviceFactoryState();
    ardo::deviceStateUpdate([&](json& state) {
        // Every section that has a factory value goes back to it, except the ones listed in
        // /factory_reset/keep (bookkeeping and what the hardware or network reports rather than
        // settings). Sections without a factory value are bookkeeping too and stay.
        json keep = state.contains("factory_reset") && state["factory_reset"].contains("keep")
                        ? state["factory_reset"]["keep"]
                        : factory.value("factory_reset", json::object()).value("keep", json::object());
        for (auto it = factory.begin(); it != factory.end(); ++it) {
            auto flag = keep.is_object() ? keep.find(it.key()) : keep.end();
            bool kept = flag != keep.end() && flag->is_boolean() && flag->get<bool>();
            if (!kept) {
                state[it.key()] = it.value();
            }
        }
        increment(state, "power", "factory_resets");
    });
    // The device's manual-reset marker: the agent finds it at its next start and resets its ACL.
    std::string marker = sys_fsPath("/opt/ardo/data/tola/restore_ace_defaults");
    ardo::hostMakeDirs(marker.substr(0, marker.rfind('/')));
    bool written = ardo::hostWriteFileAtomic(marker, "true");
    rc = written ? 0 : 1;
    ardo::deviceJournal("sys_restoreFactoryDefaults", json::object(), rc);
    if (written) {
        endProcessIfRebooting();
    }
    return rc;
}
