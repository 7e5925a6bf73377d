// Platform watchdog: registered applications must send keep-alives within the interval.
#pragma once

// Registers (reg = 1) or unregisters (reg = 0) an application by name. 0 on success.
int sys_watchdogApplicationRegister(const char* name, int reg);
// Writes the keep-alive period in seconds; leaves *seconds unchanged when the platform has none.
int sys_getWatchdogInterval(unsigned int* seconds);
// One keep-alive for the application; pid identifies the process that answers for it.
int sys_watchdogApplicationKeepAlive(const char* name, int pid);
