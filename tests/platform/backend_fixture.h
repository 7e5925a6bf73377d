// The device behind the platform library under test. The conformance cases call the platform
// only through its headers; what they cannot do that way (start from a fresh device, make the
// device's own services misbehave, see what reached them) goes through these few functions, which
// every backend implements once (fixture_<backend>.cpp).
#pragma once

#include <string>

namespace backend {

// Before and after every case: a fresh device with factory settings, a bus to publish on, no
// data call open, and the process running (a process stop an earlier case announced is
// withdrawn, which only a test may do).
void setUp();
void tearDown();

// Device seconds that pass in one real second of the platform's sleeps and timer waits (1 when
// the backend runs in real time).
double timeScale();

// An SMS arriving from the network, and the network's time changing: both reach the
// subscribers of "sms.msg.tola" and "modem2.time_change". false when the backend cannot stage
// them (the case is skipped).
bool receiveSms(const std::string& text);
bool changeNetworkTime();

// The next call of the named platform function fails through the device's own services (a
// bearer that does not come up, a refused reboot, ...). false when the backend cannot stage it.
bool failNextCall(const std::string& call);

// What the device's services recorded: reboots and factory resets started, keep-alives of one
// watchdog application.
int reboots();
int factoryResets();
int keepAlives(const std::string& application);

// The interface name that the device gives an apps-APN data call, and the device's IMEI.
std::string dataCallInterface();
std::string imei();

// Makes HTTPS trust the certificates of the PEM bundle as well as the system's.
void trustCertificates(const std::string& pemFile);

}  // namespace backend
