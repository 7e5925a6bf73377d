#include "bus_open.h"

#include <cstdlib>

namespace ardo {

int openBusFromEnvironment(sd_bus** bus, const char* addressVariable, int (*openDefault)(sd_bus**)) {
    const char* address = std::getenv(addressVariable);
    if (address == nullptr || *address == '\0') {
        return openDefault(bus);
    }
    sd_bus* opened = nullptr;
    int r = sd_bus_new(&opened);
    if (r >= 0) {
        r = sd_bus_set_address(opened, address);
    }
    if (r >= 0) {
        r = sd_bus_set_bus_client(opened, 1);
    }
    if (r >= 0) {
        r = sd_bus_start(opened);
    }
    if (r < 0) {
        sd_bus_unref(opened);
        return r;
    }
    *bus = opened;
    return r;
}

}  // namespace ardo
