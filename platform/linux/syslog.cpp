// Syslog lines of the linux backend go to the systemd journal with their priority and facility.
// The debug log file is the host platform's (platform/host/log.cpp), as on the device.
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "vorn_dbg.h"

// The priority is syslog's (facility | severity); a priority without a facility is LOG_LOCAL1's,
// the agent's own.
void vorn_dbg_syslog(int priority, const char* format, ...) {
    char text[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    int facility = (priority & LOG_FACMASK) != 0 ? (priority & LOG_FACMASK) : LOG_LOCAL1;
    sd_journal_send("MESSAGE=%s", text, "PRIORITY=%d", priority & LOG_PRIMASK, "SYSLOG_FACILITY=%d",
                    facility >> 3, "SYSLOG_IDENTIFIER=tola", "SYSLOG_PID=%d", static_cast<int>(getpid()),
                    nullptr);
}
