// Opening a D-Bus connection where the environment says, for the platform and the tools alike.
#pragma once

#include <systemd/sd-bus.h>

namespace ardo {

// Opens a client connection to the bus whose address is in the environment variable
// `addressVariable`, or, when that is unset or empty, to the bus `openDefault` opens
// (sd_bus_open_user, sd_bus_open_system). Returns sd-bus's result; *bus is set only on success.
int openBusFromEnvironment(sd_bus** bus, const char* addressVariable, int (*openDefault)(sd_bus**));

}  // namespace ardo
