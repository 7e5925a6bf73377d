// Linux platform internals: the bridge from ModemManager's signals to the device's message bus.
// A received SMS's text goes out on "sms.msg.tola" (text); a change of the network's time on
// "modem2.time_change" (binary: the new network time, seconds since the epoch, int64 in host
// byte order; 0 when ModemManager sent an unreadable time).
#pragma once

#include <ctime>
#include <string>

namespace ardo_linux {

// Starts the bridge's thread (it connects to the system bus on its own). Idempotent.
void startModemEvents();
// Stops it and waits for the thread.
void stopModemEvents();

// Parses ModemManager's network time, ISO 8601 ("2026-05-04T10:20:30+02:00"; fractions of a
// second and the zone optional, no zone meaning UTC). false when malformed.
bool parseNetworkTime(const std::string& text, time_t* seconds);

}  // namespace ardo_linux
