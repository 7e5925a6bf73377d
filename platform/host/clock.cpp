// Host clock seam: device time = real time + the device state's clock offset; every wait is
// divided by ARDO_TIME_SCALE.
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

void sleepRealMilliseconds(uint64_t ms) {
    // Sleep in slices so that a MaintenanceThread being shut down is not held up.
    constexpr uint64_t kSlice = 50;
    while (ms > 0 && !ardo::hostThreadStopRequested()) {
        uint64_t step = std::min(ms, kSlice);
        struct timespec ts {
            static_cast<time_t>(step / 1000), static_cast<long>((step % 1000) * 1000000)
        };
        while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
        }
        ms -= step;
    }
}

}  // namespace

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
    sleepRealMilliseconds(ardo::hostScaledMilliseconds(seconds * 1000ULL));
}

void sys_sleepMilliseconds(unsigned int milliseconds) {
    sleepRealMilliseconds(ardo::hostScaledMilliseconds(milliseconds));
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
