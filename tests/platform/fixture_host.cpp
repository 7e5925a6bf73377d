// The simulated device: a temporary ARDO_ROOT with the factory device state, a private
// dbus-daemon, time compressed a thousandfold; outside events are published the way the
// device's other daemons publish them, faults and records go through the device state.
#include <cstdlib>
#include <memory>

#include "backend_fixture.h"
#include "device_state.h"
#include "msgbus_handler.h"
#include "private_bus.h"
#include "test_env.h"

namespace backend {

namespace {

constexpr double kTimeScale = 1000.0;

struct Device {
    tola_test::TempRoot root{true, kTimeScale};
    tola_test::PrivateBus bus;
};
std::unique_ptr<Device> gDevice;

}  // namespace

void setUp() {
    gDevice = std::make_unique<Device>();
}

void tearDown() {
    gDevice.reset();
    unsetenv("ARDO_CA_FILE");
}

double timeScale() {
    return kTimeScale;
}

bool receiveSms(const std::string& text) {
    MsgbusHandler daemon;
    return daemon.Initialize() == 0 && daemon.PublishData("sms.msg.tola", text) == 0;
}

bool changeNetworkTime() {
    int32_t status = 0;
    MsgbusHandler daemon;
    return daemon.Initialize() == 0 && daemon.PublishData("modem2.time_change", &status, sizeof status) == 0;
}

bool failNextCall(const std::string& call) {
    return ardo::deviceStateSet("/faults/" + call, ardo::json::array({1}));
}

int reboots() {
    return ardo::deviceStateValue<int>("/power/reboots", 0);
}
int factoryResets() {
    return ardo::deviceStateValue<int>("/power/factory_resets", 0);
}
int keepAlives(const std::string& application) {
    ardo::json counts = ardo::deviceKeepAlives()["keepalives"];
    return counts.contains(application) && counts[application].is_number() ? counts[application].get<int>()
                                                                           : 0;
}

std::string dataCallInterface() {
    return ardo::deviceStateValue<std::string>("/data_call/apps_apn/interface", "");
}
std::string imei() {
    return ardo::deviceStateValue<std::string>("/identity/hardware/imei", "");
}

void trustCertificates(const std::string& pemFile) {
    setenv("ARDO_CA_FILE", pemFile.c_str(), 1);
}

}  // namespace backend
