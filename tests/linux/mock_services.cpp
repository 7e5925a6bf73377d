#include "mock_services.h"

#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace tola_test {

namespace {

// Debian's python3-dbusmock is installed for the system's python; a python earlier on PATH
// (pyenv, a virtual environment) may not see it.
constexpr const char* kPython = "/usr/bin/python3";
constexpr const char* kRefuse =
    "raise dbus.exceptions.DBusException('not now', name='org.freedesktop.login1.NotAllowed')";

// The texts of a busctl answer, which prints them in double quotes ("as 2 \"a\" \"b\"").
std::vector<std::string> texts(const std::string& answer) {
    std::vector<std::string> out;
    for (size_t at = answer.find('"'), end; at != std::string::npos; at = answer.find('"', end + 1)) {
        end = answer.find('"', at + 1);
        out.push_back(answer.substr(at + 1, end - at - 1));
    }
    return out;
}

std::string quote(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

// Runs busctl on the bus at address; its output, or false when it fails.
bool busctl(const std::string& address, const std::string& args, std::string* output = nullptr) {
    FILE* pipe = popen(("busctl --address=" + quote(address) + " " + args + " 2>/dev/null").c_str(), "r");
    std::string text;
    char buffer[512];
    for (size_t n; pipe != nullptr && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        text.append(buffer, n);
    }
    bool ok = pipe != nullptr && pclose(pipe) == 0;
    if (output != nullptr) {
        *output = text;
    }
    return ok;
}

bool waitForOwner(const std::string& address, const std::string& name, bool owned) {
    for (int i = 0; i < 400; ++i) {
        if (busctl(address, "status org.freedesktop." + name + " >/dev/null") == owned) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    return false;
}

}  // namespace

MockServices::MockServices() {
    setenv("ARDO_SYSTEM_BUS_ADDRESS", mBus.address().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", mBus.address().c_str(), 1);
    mLogind = std::make_unique<ChildProcess>(
        kPython, std::vector<std::string>{"-m", "dbusmock", "--system", "--template", "logind"}, "/dev/null");
    mOk = startModemManager() && waitForOwner(mBus.address(), "login1", true) && reset();
}

MockServices::~MockServices() {
    mModemManager.reset();
    mLogind.reset();
    unsetenv("ARDO_SYSTEM_BUS_ADDRESS");
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

bool MockServices::startModemManager() {
    mModemManager = std::make_unique<ChildProcess>(
        kPython,
        std::vector<std::string>{"-m", "dbusmock", "--system", "--template",
                                 std::string(TOLA_SOURCE_DIR) + "/tests/linux/modemmanager_mock.py"},
        "/dev/null");
    return waitForOwner(mBus.address(), "ModemManager1", true);
}

void MockServices::stopModemManager() {
    mModemManager.reset();
    waitForOwner(mBus.address(), "ModemManager1", false);
}

bool MockServices::call(const char* service, const char* member, const std::vector<std::string>& args,
                        std::string* answer) {
    std::string command = std::string("call org.freedesktop.") + service + " /org/freedesktop/" + service +
                          " org.freedesktop.DBus.Mock " + member;
    for (const std::string& arg : args) {
        command += " " + quote(arg);
    }
    return busctl(mBus.address(), command, answer);
}

bool MockServices::reset(const std::vector<std::string>& options) {
    if (!mModemManager && !startModemManager()) {
        return false;
    }
    std::vector<std::string> args = {"a{sv}", std::to_string(options.size())};
    for (const std::string& option : options) {
        size_t eq = option.find('=');
        std::string value = option.substr(eq + 1);
        bool flag = value == "true" || value == "false";
        args.insert(args.end(), {option.substr(0, eq), flag ? "b" : "s", value});
    }
    return mm("Reset", args) && call("login1", "ClearCalls", {}) &&
           call("login1", "AddMethod", {"sssss", "org.freedesktop.login1.Manager", "Reboot", "b", "", ""});
}

bool MockServices::refuseReboot(bool forGood) {
    // Refused once: the refusing method puts the obliging one back before it raises.
    std::string code = forGood ? kRefuse
                               : std::string(
                                     "self.AddMethod('org.freedesktop.login1.Manager', 'Reboot', 'b', "
                                     "'', '')\n") +
                                     kRefuse;
    return call("login1", "AddMethod", {"sssss", "org.freedesktop.login1.Manager", "Reboot", "b", "", code});
}

bool MockServices::receiveSms(const std::string& text, bool complete, std::string* path) {
    std::string answer;
    bool ok = mm("ReceiveSms", {"sb", text, complete ? "true" : "false"}, &answer);
    if (ok && path != nullptr) {
        *path = texts(answer).at(0);
    }
    return ok;
}

std::vector<std::string> MockServices::modemJournal() {
    std::string answer;
    return mm("Journal", {}, &answer) ? texts(answer) : std::vector<std::string>{};
}

int MockServices::logindReboots() {
    std::string answer;  // "a(tav) <count> ..."
    return call("login1", "GetMethodCalls", {"s", "Reboot"}, &answer) ? std::atoi(answer.c_str() + 6) : -1;
}

}  // namespace tola_test
