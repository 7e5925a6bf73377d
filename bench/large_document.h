// The largest configuration document the agent accepts: every group, the most devices and
// applications each list takes, and 200 access-control entries.
#pragma once

#include <string>

// blockedDevices and whiteListed are at most 99; filterApps and forwardApps are custom
// applications on top of the predefined ones.
std::string makeLargeDocument(int blockedDevices, int whiteListed, int filterApps, int forwardApps, int aces);
