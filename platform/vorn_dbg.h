// Platform logging: syslog for errors and notices, a debug log for everything.
#pragma once

#include <cstdarg>

// Opens the debug log. Safe to call more than once.
int vorn_dbg_start(void);
// Flushes and closes the debug log.
int vorn_dbg_stop(void);

// Appends one line to the debug log (a line break is added when the text has none). Lines above
// the platform's log level are dropped before they are formatted.
void vorn_dbg_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void vorn_dbg_vlog(int level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

// Sends one message to syslog(3) with the given priority.
void vorn_dbg_syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Name of a log level: 3 "ERROR", 5 "NOTICE", 6 "INFO", 7 "DEBUG" (and the other syslog levels).
const char* vorn_dbg_get_level_name(int level);
