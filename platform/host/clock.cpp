// Host clock seam: device time = real time + the device state's clock offset; every wait is
// divided by ARDO_TIME_SCALE. Platform sleeps end early only on a process stop.
#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "device_state.h"
#include "host_env.h"
#include "sys_core.h"

namespace {

long long clockOffsetSeconds() {
    return ardo::deviceStateValue<long long>("/clock/offset_seconds", 0);
}

// The process stop: one flag for every thread, and a condition (monotonic, like the sleep
// deadlines) that wakes every sleeper when it is set.
struct ProcessStop {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond;
    bool requested = false;
    ProcessStop() {
        if (sys_condInitMonotonic(&cond) != 0) {
            pthread_cond_init(&cond, nullptr);
        }
    }
};

ProcessStop& processStop() {
    static ProcessStop stop;
    return stop;
}

// Sleeps until the deadline or the process stop, whichever comes first. true when the whole
// time was slept.
bool sleepDeviceMilliseconds(uint64_t deviceMs) {
    struct timespec deadline = sys_deadlineAfterMilliseconds(deviceMs);
    ProcessStop& stop = processStop();
    pthread_mutex_lock(&stop.mutex);
    int rc = 0;
    while (!stop.requested && rc != ETIMEDOUT) {
        rc = pthread_cond_timedwait(&stop.cond, &stop.mutex, &deadline);
        if (rc != 0 && rc != ETIMEDOUT && rc != EINTR) {
            break;  // an error is taken as the end of the wait rather than spinning
        }
    }
    bool full = !stop.requested;
    pthread_mutex_unlock(&stop.mutex);
    return full;
}

}  // namespace

void sys_requestProcessStop(void) {
    ProcessStop& stop = processStop();
    pthread_mutex_lock(&stop.mutex);
    stop.requested = true;
    pthread_cond_broadcast(&stop.cond);
    pthread_mutex_unlock(&stop.mutex);
}

bool sys_processStopRequested(void) {
    ProcessStop& stop = processStop();
    pthread_mutex_lock(&stop.mutex);
    bool requested = stop.requested;
    pthread_mutex_unlock(&stop.mutex);
    return requested;
}

void ardo::hostResetProcessStop() {
    ProcessStop& stop = processStop();
    pthread_mutex_lock(&stop.mutex);
    stop.requested = false;
    pthread_mutex_unlock(&stop.mutex);
}

time_t sys_time(void) {
    return time(nullptr) + static_cast<time_t>(clockOffsetSeconds());
}

int sys_gettimeofday(struct timeval* tv) {
    if (tv == nullptr) {
        return -1;
    }
    struct timespec now {};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return -1;
    }
    tv->tv_sec = now.tv_sec + static_cast<time_t>(clockOffsetSeconds());
    tv->tv_usec = now.tv_nsec / 1000;
    return 0;
}

void sys_sleepSeconds(unsigned int seconds) {
    // Journaled (waits.jsonl), so that a test can count the agent's waits and see whether one was cut short
    // ("full" false) without measuring time.
    bool full = sleepDeviceMilliseconds(seconds * 1000ULL);
    ardo::deviceJournal("sys_sleepSeconds", {{"seconds", seconds}, {"full", full}}, 0, "waits.jsonl");
}

void sys_sleepMilliseconds(unsigned int milliseconds) {
    sleepDeviceMilliseconds(milliseconds);
}

struct timespec sys_deadlineAfterMilliseconds(uint64_t milliseconds) {
    uint64_t real = ardo::hostScaledMilliseconds(milliseconds);
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    // Clamp far-away deadlines (an interval of years) to what timespec can hold comfortably.
    const uint64_t kMaxMs = 100ULL * 365 * 24 * 3600 * 1000;
    real = std::min(real, kMaxMs);
    struct timespec deadline = now;
    deadline.tv_sec += static_cast<time_t>(real / 1000);
    deadline.tv_nsec += static_cast<long>((real % 1000) * 1000000);
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    return deadline;
}

int sys_condInitMonotonic(pthread_cond_t* cond) {
    pthread_condattr_t attr;
    if (pthread_condattr_init(&attr) != 0) {
        return 1;
    }
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    int rc = pthread_cond_init(cond, &attr);
    pthread_condattr_destroy(&attr);
    return rc == 0 ? 0 : 1;
}
