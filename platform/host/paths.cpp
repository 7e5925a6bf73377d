// Where the device's fixed paths and its access-control segment are: ARDO_ROOT moves every fixed
// path under a folder (tests, the simulated device, a device whose data folder is elsewhere);
// ARDO_SHM_KEY gives parallel tests a segment each. Both backends use this file; it is apart from
// the settings store (store.cmake) so that the store carries no platform entry point.
#include <sys/types.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "host_env.h"
#include "sys_core.h"

std::string sys_fsPath(const std::string& devicePath) {
    std::string root = ardo::hostRoot();
    // Relative paths stay relative to the working directory, as on the device.
    if (root.empty() || devicePath.empty() || devicePath.front() != '/') {
        return devicePath;
    }
    return root + devicePath;
}

key_t sys_getACLSharedMemoryKey(void) {
    const char* text = std::getenv("ARDO_SHM_KEY");
    if (text != nullptr && *text != '\0') {
        char* end = nullptr;
        long key = std::strtol(text, &end, 0);
        if (*end == '\0' && key > 0 && key <= INT32_MAX) {
            return static_cast<key_t>(key);
        }
    }
    return 9999;
}
