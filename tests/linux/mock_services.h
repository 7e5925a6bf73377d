// ModemManager and logind stand-ins (python3-dbusmock) on a private bus that plays both the
// device's bus and the system bus, for the Linux backend's tests.
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
    MockServices(const MockServices&) = delete;
    MockServices& operator=(const MockServices&) = delete;

    bool ok() const { return mOk; }
    const std::string& address() const { return mBus->address(); }

    // Back to one fresh modem and an obliging logind. options: the stand-in's Reset parameters
    // as "name=value" pairs of booleans ("messaging=false") or texts ("interface=lo").
    bool reset(const std::vector<std::string>& options = {});
    // An SMS arrives (complete, or still arriving: then completeSms finishes it).
    bool receiveSms(const std::string& text, bool complete = true, std::string* path = nullptr);
    bool completeSms(const std::string& path);
    bool changeNetworkTime(const std::string& iso8601);
    // The next call of a ModemManager method fails with the D-Bus error.
    bool failModem(const std::string& method,
                   const std::string& error = "org.freedesktop.ModemManager1.Error.Core.Failed");
    // logind refuses the next `times` reboots (-1: every one; 0: accepts again).
    bool refuseReboot(int times);
    // ModemManager leaves the bus (and stays away until the next reset starts it again).
    void stopModemManager();
    // The data-call methods ModemManager saw ("Connect apn=...", "Disconnect <bearer>").
    std::vector<std::string> modemJournal();
    // Reboot calls that logind accepted.
    int logindReboots();

  private:
    bool startModemManager();
    bool call(const char* service, const char* path, const char* interface, const char* member,
              const char* types, ...);

    std::unique_ptr<PrivateBus> mBus;
    std::unique_ptr<ChildProcess> mModemManager;
    std::unique_ptr<ChildProcess> mLogind;
    std::string mDir;
    bool mOk = false;
};

}  // namespace tola_test
