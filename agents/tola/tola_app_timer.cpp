// Check-in scheduling: the timer callback of both timers, re-arming after a check-in, and the
// time left until the next periodic check-in after a clock change.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "sys_core.h"
#include "sys_device.h"
#include "tola_app.h"
#include "tola_log.h"
#include "watchdog.h"

namespace {

constexpr unsigned int kBootWaitSeconds = 120;

void formatUtcDate(time_t seconds, char* text, size_t size) {
    struct tm broken {};
    gmtime_r(&seconds, &broken);
    std::snprintf(text, size, "%04d-%02d-%02dT%02d:%02d:%02d", broken.tm_year + 1900, broken.tm_mon + 1,
                  broken.tm_mday, broken.tm_hour, broken.tm_min, broken.tm_sec);
}

int tokenToInt(const std::string& token) {
    errno = 0;
    long value = std::strtol(token.c_str(), nullptr, 10);
    if (value > INT_MAX / 2) {
        return INT_MAX / 2;
    }
    if (value < INT_MIN / 2) {
        return INT_MIN / 2;
    }
    return static_cast<int>(value);
}

// A date text "YYYY-MM-DDTHH:MM:SS" (any of "-:TZ" separate the fields) as local-time seconds
// through mktime, the same conversion for both dates compared. 0 when fewer than six fields.
time_t dateTextToSeconds(const char* text) {
    std::vector<std::string> tokens;
    std::string current;
    for (const char* p = text; *p != '\0'; ++p) {
        if (std::strchr("-:TZ", *p) != nullptr) {
            if (!current.empty()) {
                tokens.push_back(current);
                current.clear();
            }
        } else {
            current += *p;
        }
    }
    if (!current.empty()) {
        tokens.push_back(current);
    }
    if (tokens.size() < 6) {
        return 0;
    }
    struct tm broken {};
    broken.tm_year = tokenToInt(tokens[0]) - 1900;
    broken.tm_mon = tokenToInt(tokens[1]) - 1;
    broken.tm_mday = tokenToInt(tokens[2]);
    broken.tm_hour = tokenToInt(tokens[3]);
    broken.tm_min = tokenToInt(tokens[4]);
    broken.tm_sec = tokenToInt(tokens[5]);
    broken.tm_isdst = -1;
    return mktime(&broken);
}

// The network time as a date text, and both it and the last check-in date in seconds. The
// platform's result when the network time is not available, else 0.
int checkInDates(const char* lastCheckInDate, char (&currentDate)[TOLA_TEXT_SIZE], time_t& now,
                 time_t& last) {
    time_t networkTime = 0;
    int rc = sys_getNetworkTime(&networkTime);
    if (rc != 0) {
        return rc;
    }
    formatUtcDate(networkTime, currentDate, sizeof currentDate);
    now = dateTextToSeconds(currentDate);
    last = dateTextToSeconds(lastCheckInDate);
    return 0;
}

}  // namespace

bool TOLAApp::OnThreadNotify(unsigned int timerId) {
    // BEGIN and END of this callback carry the timer id.
    const char* signature = __PRETTY_FUNCTION__;
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - BEGIN timerid:%u", signature, timerId);
    if (timerId == TOLA_CHECKIN_TIMER_ID) {
        TLOG_SYS(TOLA_LOG_INFO,
                 "[%s]:[%s] - Initiating check-in due to TOLA timer expiry or portal Invocation, timerid:%u",
                 timerId);
        agent.GetRuntimeConfig(runtimeConfig);
        if (runtimeConfig.checkInFlag) {
            // bootupWaitDone comes with the agent's copy of the record: the wait is skipped only
            // once a store made after it was set has carried it there.
            if (!runtimeConfig.bootupWaitDone) {
                TLOG_SYS(
                    TOLA_LOG_NOTICE,
                    "[%s]:[%s] - during bootup performing check-in with server, so sleep for 120 seconds to "
                    "modem up.");
                sys_sleepSeconds(kBootWaitSeconds);
                runtimeConfig.bootupWaitDone = true;
            }
            // Only a process stop ends the wait early; the process is going, so no check-in.
            if (sys_processStopRequested()) {
                TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Process is stopping, no check-in with server.");
            } else {
                TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Check-In flag true, performing check-in with server.");
                PerformCheckIn();
            }
        } else {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Check-In flag false, no need to Check-in");
        }
    } else if (timerId == TOLA_WATCHDOG_TIMER_ID) {
        sys_watchdogApplicationKeepAlive(TOLA_APP_NAME, static_cast<int>(getpid()));
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning %d, timerID:%u", signature, 0, timerId);
    return 0;
}

int TOLAApp::resetMaintenanceThread() {
    TOLA_TRACE();
    char date[TOLA_TEXT_SIZE] = "";
    struct timeval now {};
    if (sys_gettimeofday(&now) == 0) {
        formatUtcDate(now.tv_sec, date, sizeof date);
    }
    tola_copy_text(runtimeConfig.lastCheckInDate, date);
    agent.SetRuntimeConfig(runtimeConfig);
    // No fallback to the built-in day here: an interval of 0 stays 0. It takes effect at the
    // timer's next wait.
    uint32_t hours =
        runtimeConfig.checkInIntervalOverrideFlag ? runtimeConfig.checkInInterval : config.checkInInterval;
    checkInTimer.SetInterval(hours * 3600);
    return trace.Returning(0);
}

int TOLAApp::getRemainingSeconds(long long unsigned int& remaining) {
    TOLA_TRACE();
    char currentDate[TOLA_TEXT_SIZE];
    time_t now = 0;
    time_t last = 0;
    int rc = checkInDates(runtimeConfig.lastCheckInDate, currentDate, now, last);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - getNetworkTime failed during calculating remaining seconds rc [%d]\n", rc);
        return trace.Returning(1);
    }
    // No last date (or one in the future), the period over, or no portal interval: remaining
    // stays 0 and the caller checks in at once.
    if (last != 0 && last < now) {
        unsigned long long elapsed = static_cast<unsigned long long>(now - last);
        unsigned long long period = static_cast<unsigned long long>(runtimeConfig.checkInInterval) * 15 * 240;
        if (elapsed < period) {
            remaining = period - elapsed;
        }
    }
    TLOG_SYS(TOLA_LOG_NOTICE,
             "[%s]:[%s] - %s: currentDate [%s] lastCheckInDate [%s] remainingSeconds [%llu]\n",
             trace.Signature(), currentDate, runtimeConfig.lastCheckInDate, remaining);
    trace.Silence();
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s: - END returning %d", trace.Signature(), 0);
    return 0;
}

int TOLAApp::getRemainingDays(int& days) {
    TOLA_TRACE();
    char currentDate[TOLA_TEXT_SIZE];
    time_t now = 0;
    time_t last = 0;
    int rc = checkInDates(runtimeConfig.lastCheckInDate, currentDate, now, last);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - getNetworkTime failed during caluculating remaning days rc [%d]\n", rc);
        return trace.Returning(1);
    }
    // Whole days since the last check-in, and whole days of the portal's period still to go.
    int elapsedDays = 0;
    int remainingDays = 0;
    if (last != 0 && last < now) {
        elapsedDays = static_cast<int>((now - last) / 86400);
        int periodDays = static_cast<int>(runtimeConfig.checkInInterval / 24);
        if (elapsedDays < periodDays) {
            remainingDays = periodDays - elapsedDays;
        }
    }
    TLOG_SYS(TOLA_LOG_NOTICE,
             "[%s]:[%s] - %s:Current Date [%s] lastCheckInDate [%s] days [%d] remainingDays [%d]\n",
             trace.Signature(), currentDate, runtimeConfig.lastCheckInDate, elapsedDays, remainingDays);
    days = remainingDays;
    return trace.Returning(0);
}
