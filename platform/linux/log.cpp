// Linux logging: the debug log file var/log/tola.log (under ARDO_ROOT when set; mirrored to
// stderr with ARDO_LOG_STDERR=1) as on the device, and syslog lines to the systemd journal with
// their priority and facility. ARDO_LOG_LEVEL is the highest level written to the debug log.
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "host_env.h"
#include "sys_core.h"
#include "vorn_dbg.h"

namespace {

std::mutex gLogMutex;
FILE* gLogFile = nullptr;
bool gMirror = false;

constexpr int kMaxLevel = 7;
// -1 until first read from ARDO_LOG_LEVEL; read again by vorn_dbg_start.
std::atomic<int> gLevel{-1};

int levelFromEnvironment() {
    const char* text = std::getenv("ARDO_LOG_LEVEL");
    if (text == nullptr || *text == '\0') {
        return kMaxLevel;
    }
    char* end = nullptr;
    long level = std::strtol(text, &end, 10);
    if (*end != '\0' || level < 0 || level > kMaxLevel) {
        return kMaxLevel;
    }
    return static_cast<int>(level);
}

bool levelWanted(int level) {
    int threshold = gLevel.load(std::memory_order_relaxed);
    if (threshold < 0) {
        threshold = levelFromEnvironment();
        gLevel.store(threshold, std::memory_order_relaxed);
    }
    return level <= threshold;
}

constexpr const char* kLevelNames[] = {"EMERG",   "ALERT",  "CRIT", "ERROR",
                                       "WARNING", "NOTICE", "INFO", "DEBUG"};

void openLocked() {
    if (gLogFile != nullptr) {
        return;
    }
    std::string path = sys_fsPath("/var/log/tola.log");
    std::string dir = path.substr(0, path.rfind('/'));
    ardo::hostMakeDirs(dir);
    gLogFile = std::fopen(path.c_str(), "ae");
    const char* mirror = std::getenv("ARDO_LOG_STDERR");
    gMirror = mirror != nullptr && std::strcmp(mirror, "1") == 0;
}

}  // namespace

int vorn_dbg_start(void) {
    gLevel.store(levelFromEnvironment(), std::memory_order_relaxed);
    std::lock_guard<std::mutex> guard(gLogMutex);
    openLocked();
    return gLogFile != nullptr ? 0 : 1;
}

int vorn_dbg_stop(void) {
    std::lock_guard<std::mutex> guard(gLogMutex);
    if (gLogFile != nullptr) {
        std::fclose(gLogFile);
        gLogFile = nullptr;
    }
    return 0;
}

const char* vorn_dbg_get_level_name(int level) {
    if (level < 0 || level > 7) {
        return "UNKNOWN";
    }
    return kLevelNames[level];
}

void vorn_dbg_vlog(int level, const char* format, va_list args) {
    if (!levelWanted(level)) {
        return;
    }
    // Format outside the lock; most lines are short, long ones (payloads) get a heap buffer.
    char small[1024];
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed < 0) {
        return;
    }
    std::string text;
    if (static_cast<size_t>(needed) < sizeof small) {
        text.assign(small, static_cast<size_t>(needed));
    } else {
        text.resize(static_cast<size_t>(needed) + 1);
        std::vsnprintf(&text[0], text.size(), format, args);
        text.resize(static_cast<size_t>(needed));
    }
    if (text.empty() || text.back() != '\n') {
        text.push_back('\n');
    }
    std::lock_guard<std::mutex> guard(gLogMutex);
    openLocked();
    if (gLogFile != nullptr) {
        std::fputs(text.c_str(), gLogFile);
        std::fflush(gLogFile);
    }
    if (gMirror) {
        std::fputs(text.c_str(), stderr);
    }
}

void vorn_dbg_log(int level, const char* format, ...) {
    if (!levelWanted(level)) {
        return;
    }
    va_list args;
    va_start(args, format);
    vorn_dbg_vlog(level, format, args);
    va_end(args);
}

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
