// ModemManager and logind stand-ins (python3-dbusmock) on a private bus that plays both the
// device's bus and the system bus, for the Linux backend's tests; their controls go through busctl.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "private_bus.h"

namespace tola_test {

class MockServices {
  public:
    // Starts a private bus (ARDO_BUS_ADDRESS and ARDO_SYSTEM_BUS_ADDRESS point at it) and the two
    // stand-ins; ok() tells whether they came up.
    MockServices() {
        setenv("ARDO_SYSTEM_BUS_ADDRESS", mBus.address().c_str(), 1);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", mBus.address().c_str(), 1);
        mLogind = dbusmock("logind");
        mOk = waitForOwner("login1", true) && reset();
    }
    ~MockServices() {  // the stand-ins end before their bus (members end in reverse order)
        unsetenv("ARDO_SYSTEM_BUS_ADDRESS");
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }
    bool ok() const { return mOk; }

    // One fresh modem and an obliging logind. options: the stand-in's Reset parameters as
    // "name=value" pairs of booleans ("profiles=false") or texts ("interface=lo").
    bool reset(const std::vector<std::string>& options = {}) {
        if (!mModemManager) {
            mModemManager = dbusmock(kModemManager);
            if (!waitForOwner("ModemManager1", true)) {
                return false;
            }
        }
        std::vector<std::string> args = {"a{sv}", std::to_string(options.size())};
        for (const std::string& option : options) {
            std::string value = option.substr(option.find('=') + 1);
            bool flag = value == "true" || value == "false";
            args.insert(args.end(), {option.substr(0, option.find('=')), flag ? "b" : "s", value});
        }
        return mm("Reset", args) && call("login1", "ClearCalls", {}) && reboot("");
    }
    // An SMS arrives (complete, or still arriving: then completeSms finishes it).
    bool receiveSms(const std::string& text, bool complete = true, std::string* path = nullptr) {
        std::string answer;
        bool ok = mm("ReceiveSms", {"sb", text, complete ? "true" : "false"}, &answer);
        if (ok && path != nullptr) {
            *path = texts(answer).at(0);
        }
        return ok;
    }
    bool completeSms(const std::string& path) { return mm("CompleteSms", {"o", path}); }
    bool changeNetworkTime(const std::string& iso8601) { return mm("ChangeNetworkTime", {"s", iso8601}); }
    // The next call of a ModemManager method fails with the D-Bus error.
    bool failModem(const std::string& method,
                   const std::string& error = "org.freedesktop.ModemManager1.Error.Core.Failed") {
        return mm("Fail", {"ss", method, error});
    }
    // logind refuses every reboot, or the next one (its refusal puts the obliging method back).
    bool refuseReboot(bool forGood) {
        std::string refuse =
            "raise dbus.exceptions.DBusException('not now', name='org.freedesktop.login1.NotAllowed')";
        return reboot(forGood ? refuse
                              : "self.AddMethod('" + kManager + "', 'Reboot', 'b', '', '')\n" + refuse);
    }
    // ModemManager leaves the bus (and stays away until the next reset starts it again).
    void stopModemManager() {
        mModemManager.reset();
        waitForOwner("ModemManager1", false);
    }
    // The data-call methods ModemManager saw ("Connect apn=...", "Disconnect <bearer>").
    std::vector<std::string> modemJournal() {
        std::string answer;
        return mm("Journal", {}, &answer) ? texts(answer) : std::vector<std::string>{};
    }
    // Reboot calls that logind got since the last reset.
    int logindReboots() {
        std::string answer;  // "a(tav) <count> ..."
        return call("login1", "GetMethodCalls", {"s", "Reboot"}, &answer) ? std::atoi(answer.c_str() + 6)
                                                                          : -1;
    }

  private:
    const std::string kManager = "org.freedesktop.login1.Manager";
    const std::string kModemManager = std::string(TOLA_SOURCE_DIR) + "/tests/linux/modemmanager_mock.py";

    // Debian's python3-dbusmock is installed for the system's python; a python earlier on PATH
    // (pyenv, a virtual environment) may not see it.
    static std::unique_ptr<ChildProcess> dbusmock(const std::string& templ) {
        return std::make_unique<ChildProcess>(
            "/usr/bin/python3", std::vector<std::string>{"-m", "dbusmock", "--system", "--template", templ},
            "/dev/null");
    }
    // The texts of a busctl answer, which prints them in double quotes ("as 2 \"a\" \"b\"").
    static std::vector<std::string> texts(const std::string& answer) {
        std::vector<std::string> out;
        for (size_t at = answer.find('"'), end; at != std::string::npos; at = answer.find('"', end + 1)) {
            end = answer.find('"', at + 1);
            out.push_back(answer.substr(at + 1, end - at - 1));
        }
        return out;
    }
    // Runs busctl on the bus with the arguments, each quoted for the shell; its output in *output.
    bool busctl(const std::vector<std::string>& args, std::string* output = nullptr) {
        std::string command = "busctl --address=" + mBus.address();
        for (const std::string& arg : args) {
            command += " '";
            for (char c : arg) {
                command += c == '\'' ? std::string("'\\''") : std::string(1, c);
            }
            command += "'";
        }
        return runShell(command + " 2>/dev/null", output) == 0;
    }
    bool waitForOwner(const std::string& name, bool owned) {
        return Eventually([&] { return busctl({"status", "org.freedesktop." + name}) == owned; });
    }
    // A call to a stand-in's control interface, and busctl's print of the answer.
    bool call(const std::string& service, const char* member, std::vector<std::string> args,
              std::string* answer = nullptr) {
        args.insert(args.begin(), {"call", "org.freedesktop." + service, "/org/freedesktop/" + service,
                                   "org.freedesktop.DBus.Mock", member});
        return busctl(args, answer);
    }
    bool mm(const char* member, const std::vector<std::string>& args, std::string* answer = nullptr) {
        return call("ModemManager1", member, args, answer);
    }
    bool reboot(const std::string& code) {
        return call("login1", "AddMethod", {"sssss", kManager, "Reboot", "b", "", code});
    }

    PrivateBus mBus;
    std::unique_ptr<ChildProcess> mModemManager, mLogind;
    bool mOk = false;
};

}  // namespace tola_test
