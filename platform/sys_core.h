// System family, core part: SDK session, the clock seam, file-system root, device-wide actions.
#pragma once

#include <pthread.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

// SDK session with the device's system-interface daemon. 0 on success.
int sys_sdkInitialize(void);
int sys_sdkShutdown(void);

// ---- Clock seam -------------------------------------------------------------------------
// The agent reads the time and sleeps only through these. On the host the device clock is the
// real clock plus the device state's offset, and every wait is divided by ARDO_TIME_SCALE.

// Device time, seconds since the epoch.
time_t sys_time(void);
// Device time with microseconds; 0 on success, as gettimeofday(2).
int sys_gettimeofday(struct timeval* tv);
// Sleeps for the given device time. Only a process stop (sys_requestProcessStop) ends a sleep
// early; stopping or restarting a timer thread never does.
void sys_sleepSeconds(unsigned int seconds);
void sys_sleepMilliseconds(unsigned int milliseconds);
// The CLOCK_MONOTONIC deadline that lies the given device milliseconds from now; for timed waits
// on condition variables created with a monotonic clock (see sys_condInitMonotonic).
struct timespec sys_deadlineAfterMilliseconds(uint64_t milliseconds);
// Initialises a condition variable whose timed waits use CLOCK_MONOTONIC. 0 on success.
int sys_condInitMonotonic(pthread_cond_t* cond);

// ---- Process stop ----------------------------------------------------------------------
// Announces that the process is stopping: every platform sleep in progress, on any thread, ends
// at once, and later ones return at once. Not undone for the life of the process.
void sys_requestProcessStop(void);
// true once the process stop has been announced; a caller that was woken from a sleep checks it
// before going on.
bool sys_processStopRequested(void);

// ---- File-system root -------------------------------------------------------------------
// Maps one of the device's fixed paths (for example "/opt/ardo/data/tola/acl_config.xml") to the
// place where it lives: unchanged on the device, under ARDO_ROOT on the host.
std::string sys_fsPath(const std::string& devicePath);

// ---- Shared memory ----------------------------------------------------------------------
// Key of the access-control-list segment that other processes of the device know (9999).
key_t sys_getACLSharedMemoryKey(void);

// ---- Device-wide actions ----------------------------------------------------------------
// Reboots the device. 0 when the reboot was started.
int sys_rebootSystem(void);
// Restores the device's factory settings and restarts it. 0 when started.
int sys_restoreFactoryDefaults(void);
