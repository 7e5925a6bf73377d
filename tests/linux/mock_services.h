// ModemManager and logind stand-ins (python3-dbusmock) on a private bus that plays both the
// device's bus and the system bus, for the Linux backend's tests. The controls go through busctl.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "private_bus.h"

namespace tola_test {

class MockServices {
  public:
    // Starts a private bus (ARDO_BUS_ADDRESS and ARDO_SYSTEM_BUS_ADDRESS point at it) and the two
    // stand-ins; ok() tells whether they came up.
    MockServices();
    ~MockServices();
    bool ok() const { return mOk; }

    // Back to one fresh modem and an obliging logind. options: the stand-in's Reset parameters
    // as "name=value" pairs of booleans ("messaging=false") or texts ("interface=lo").
    bool reset(const std::vector<std::string>& options = {});
    // An SMS arrives (complete, or still arriving: then completeSms finishes it).
    bool receiveSms(const std::string& text, bool complete = true, std::string* path = nullptr);
    bool completeSms(const std::string& path) { return mm("CompleteSms", {"o", path}); }
    bool changeNetworkTime(const std::string& iso8601) { return mm("ChangeNetworkTime", {"s", iso8601}); }
    // The next call of a ModemManager method fails with the D-Bus error.
    bool failModem(const std::string& method,
                   const std::string& error = "org.freedesktop.ModemManager1.Error.Core.Failed") {
        return mm("Fail", {"ss", method, error});
    }
    // logind refuses the next reboot, or every one.
    bool refuseReboot(bool forGood);
    // ModemManager leaves the bus (and stays away until the next reset starts it again).
    void stopModemManager();
    // The data-call methods ModemManager saw ("Connect apn=...", "Disconnect <bearer>").
    std::vector<std::string> modemJournal();
    // Reboot calls that logind got since the last reset.
    int logindReboots();

  private:
    bool startModemManager();
    // A call to a stand-in's control interface, and busctl's print of the answer.
    bool call(const char* service, const char* member, const std::vector<std::string>& args,
              std::string* answer = nullptr);
    bool mm(const char* member, const std::vector<std::string>& args, std::string* answer = nullptr) {
        return call("ModemManager1", member, args, answer);
    }

    PrivateBus mBus;
    std::unique_ptr<ChildProcess> mModemManager, mLogind;
    bool mOk = false;
};

}  // namespace tola_test
