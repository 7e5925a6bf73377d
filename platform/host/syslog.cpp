// Syslog lines of the host platform: syslog(3), as the device's own syslog daemon takes them, under
// the agent's name and facility.
#include <syslog.h>

#include <cstdarg>
#include <mutex>

#include "vorn_dbg.h"

void vorn_dbg_syslog(int priority, const char* format, ...) {
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("tola", LOG_PID | LOG_NDELAY, LOG_LOCAL1); });
    va_list args;
    va_start(args, format);
    vsyslog(priority, format, args);
    va_end(args);
}
