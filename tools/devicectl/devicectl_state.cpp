// state show: the simulated device state, created from the factory defaults when missing.
#include <cstdio>
#include <string>

#include "device_state.h"
#include "devicectl.h"

namespace devicectl {
int stateSet(const Args& args);
}  // namespace devicectl

namespace {

const char* const kStateUsage = "state show | state set PATH VALUE   (print or change the device state JSON)";

int runState(const devicectl::Args& args) {
    if (!args.empty() && args[0] == "set") {
        return devicectl::stateSet(args);  // devicectl_notify.cpp
    }
    if (args.empty() || args[0] != "show") {
        return devicectl::usageError(kStateUsage);
    }
    ardo::json state = ardo::deviceStateRead();
    std::printf("%s\n", state.dump(2).c_str());
    return 0;
}

}  // namespace

DEVICECTL_VERB("state", kStateUsage, runState);
