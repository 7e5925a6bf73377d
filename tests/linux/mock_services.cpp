#include "mock_services.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace tola_test {

namespace {

// Debian's python3-dbusmock is installed for the system's python; a python earlier on PATH
// (pyenv, a virtual environment) may not see it.
constexpr const char* kPython = "/usr/bin/python3";
constexpr const char* kMM = "org.freedesktop.ModemManager1";
constexpr const char* kMMPath = "/org/freedesktop/ModemManager1";
constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kMock = "org.freedesktop.DBus.Mock";

sd_bus* connect(const std::string& address) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0) {
        return nullptr;
    }
    if (sd_bus_set_address(bus, address.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
        sd_bus_start(bus) < 0) {
        sd_bus_unref(bus);
        return nullptr;
    }
    sd_bus_set_method_call_timeout(bus, 10ULL * 1000 * 1000);
    return bus;
}

bool hasOwner(const std::string& address, const char* name) {
    sd_bus* bus = connect(address);
    if (bus == nullptr) {
        return false;
    }
    sd_bus_message* reply = nullptr;
    int owned = 0;
    bool ok = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameHasOwner", nullptr, &reply, "s", name) >= 0 &&
              sd_bus_message_read(reply, "b", &owned) >= 0 && owned != 0;
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return ok;
}

bool waitForOwner(const std::string& address, const char* name, bool owned) {
    for (int i = 0; i < 400; ++i) {
        if (hasOwner(address, name) == owned) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    return false;
}

}  // namespace

MockServices::MockServices() : mBus(std::make_unique<PrivateBus>()) {
    char dir[] = "/tmp/tola-mocks-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        return;
    }
    mDir = dir;
    setenv("ARDO_SYSTEM_BUS_ADDRESS", address().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address().c_str(), 1);
    mLogind = std::make_unique<ChildProcess>(
        kPython, std::vector<std::string>{"-m", "dbusmock", "--system", "--template", "logind"},
        mDir + "/logind.out");
    mOk = startModemManager() && waitForOwner(address(), kLogind, true) && refuseReboot(0);
}

MockServices::~MockServices() {
    mModemManager.reset();
    mLogind.reset();
    unsetenv("ARDO_SYSTEM_BUS_ADDRESS");
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (!mDir.empty()) {
        std::string cmd = "rm -rf '" + mDir + "'";
        if (std::system(cmd.c_str()) != 0) {
            // a left-over folder under /tmp is harmless
        }
    }
}

bool MockServices::startModemManager() {
    mModemManager = std::make_unique<ChildProcess>(
        kPython,
        std::vector<std::string>{"-m", "dbusmock", "--system", "--template",
                                 std::string(TOLA_SOURCE_DIR) + "/tests/linux/modemmanager_mock.py"},
        mDir + "/modemmanager.out");
    return waitForOwner(address(), kMM, true);
}

void MockServices::stopModemManager() {
    mModemManager.reset();
    waitForOwner(address(), kMM, false);
}

bool MockServices::call(const char* service, const char* path, const char* interface, const char* member,
                        const char* types, ...) {
    sd_bus* bus = connect(address());
    if (bus == nullptr) {
        return false;
    }
    sd_bus_message* m = nullptr;
    sd_bus_message* reply = nullptr;
    int r = sd_bus_message_new_method_call(bus, &m, service, path, interface, member);
    if (r >= 0 && types != nullptr) {
        va_list args;
        va_start(args, types);
        r = sd_bus_message_appendv(m, types, args);
        va_end(args);
    }
    if (r >= 0) {
        r = sd_bus_call(bus, m, 0, nullptr, &reply);
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(m);
    sd_bus_flush_close_unref(bus);
    return r >= 0;
}

bool MockServices::reset(const std::vector<std::string>& options) {
    if (!mModemManager && !startModemManager()) {
        return false;
    }
    sd_bus* bus = connect(address());
    if (bus == nullptr) {
        return false;
    }
    sd_bus_message* m = nullptr;
    int r = sd_bus_message_new_method_call(bus, &m, kMM, kMMPath, kMock, "Reset");
    r = r >= 0 ? sd_bus_message_open_container(m, 'a', "{sv}") : r;
    for (const std::string& option : options) {
        size_t eq = option.find('=');
        std::string name = option.substr(0, eq);
        std::string value = eq == std::string::npos ? "true" : option.substr(eq + 1);
        if (value == "true" || value == "false") {
            r = r >= 0 ? sd_bus_message_append(m, "{sv}", name.c_str(), "b", value == "true") : r;
        } else {
            r = r >= 0 ? sd_bus_message_append(m, "{sv}", name.c_str(), "s", value.c_str()) : r;
        }
    }
    r = r >= 0 ? sd_bus_message_close_container(m) : r;
    r = r >= 0 ? sd_bus_call(bus, m, 0, nullptr, nullptr) : r;
    sd_bus_message_unref(m);
    sd_bus_flush_close_unref(bus);
    return r >= 0 && refuseReboot(0) && call(kLogind, kLogindPath, "com.ardo.Test", "Set", "ii", 0, 0);
}

bool MockServices::receiveSms(const std::string& text, bool complete, std::string* path) {
    sd_bus* bus = connect(address());
    sd_bus_message* reply = nullptr;
    const char* object = nullptr;
    bool ok = bus != nullptr &&
              sd_bus_call_method(bus, kMM, kMMPath, kMock, "ReceiveSms", nullptr, &reply, "sb", text.c_str(),
                                 complete) >= 0 &&
              sd_bus_message_read(reply, "o", &object) >= 0;
    if (ok && path != nullptr) {
        *path = object;
    }
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return ok;
}

bool MockServices::completeSms(const std::string& path) {
    return call(kMM, kMMPath, kMock, "CompleteSms", "o", path.c_str());
}

bool MockServices::changeNetworkTime(const std::string& iso8601) {
    return call(kMM, kMMPath, kMock, "ChangeNetworkTime", "s", iso8601.c_str());
}

bool MockServices::failModem(const std::string& method, const std::string& error) {
    return call(kMM, kMMPath, kMock, "Fail", "ss", method.c_str(), error.c_str());
}

// logind's Reboot counts what it accepts and refuses while its refusal count is not 0 (a
// negative count refuses for good).
bool MockServices::refuseReboot(int times) {
    const char* reboot =
        "if getattr(self, 'refuse', 0) != 0:\n"
        "    self.refuse -= 1\n"
        "    raise dbus.exceptions.DBusException('not now', name='org.freedesktop.login1.NotAllowed')\n"
        "self.reboots = getattr(self, 'reboots', 0) + 1\n";
    return call(kLogind, kLogindPath, kMock, "AddMethod", "sssss", "org.freedesktop.login1.Manager", "Reboot",
                "b", "", reboot) &&
           call(kLogind, kLogindPath, kMock, "AddMethod", "sssss", "com.ardo.Test", "Reboots", "", "i",
                "ret = getattr(self, 'reboots', 0)") &&
           call(kLogind, kLogindPath, kMock, "AddMethod", "sssss", "com.ardo.Test", "Set", "ii", "",
                "self.refuse = args[0]\nself.reboots = args[1] if args[1] >= 0 else getattr(self, 'reboots', "
                "0)") &&
           call(kLogind, kLogindPath, "com.ardo.Test", "Set", "ii", times, -1);
}

std::vector<std::string> MockServices::modemJournal() {
    std::vector<std::string> lines;
    sd_bus* bus = connect(address());
    sd_bus_message* reply = nullptr;
    char** strv = nullptr;
    if (bus != nullptr && sd_bus_call_method(bus, kMM, kMMPath, kMock, "Journal", nullptr, &reply, "") >= 0 &&
        sd_bus_message_read_strv(reply, &strv) >= 0 && strv != nullptr) {
        for (char** s = strv; *s != nullptr; ++s) {
            lines.emplace_back(*s);
            free(*s);
        }
        free(strv);
    }
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return lines;
}

int MockServices::logindReboots() {
    sd_bus* bus = connect(address());
    sd_bus_message* reply = nullptr;
    int count = -1;
    if (bus == nullptr ||
        sd_bus_call_method(bus, kLogind, kLogindPath, "com.ardo.Test", "Reboots", nullptr, &reply, "") < 0 ||
        sd_bus_message_read(reply, "i", &count) < 0) {
        count = -1;
    }
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return count;
}

}  // namespace tola_test
