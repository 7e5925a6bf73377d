// The debug log: the file var/log/tola.log under the root (optionally mirrored to stderr with
// ARDO_LOG_STDERR=1). ARDO_LOG_LEVEL is the highest level written to it; a line above it returns
// before anything is formatted. Shared by the host and linux backends; each writes syslog lines
// its own way (syslog.cpp: syslog(3) here, the journal on linux).
//
// Each line of the file starts with the time it was written, ISO 8601 UTC with milliseconds and a
// space, so that a check-in can be followed across the log, the journals and the portal's log.
// Under systemd (JOURNAL_STREAM set) errors and notices (level 5 and below) also go to stderr with
// the "<level>" prefix journald reads, so that a failed start shows in `systemctl status`.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "device_state.h"
#include "host_env.h"
#include "sys_core.h"
#include "vorn_dbg.h"

namespace {

std::mutex gLogMutex;
FILE* gLogFile = nullptr;
bool gMirror = false;
bool gJournal = false;  // stderr is the journal's stream

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
    // The debug log can hold keys and requests: its owner's alone, an older file included.
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0) {
        fchmod(fd, 0600);
        gLogFile = fdopen(fd, "a");
        if (gLogFile == nullptr) {
            close(fd);
        }
    }
    const char* mirror = std::getenv("ARDO_LOG_STDERR");
    gMirror = mirror != nullptr && std::strcmp(mirror, "1") == 0;
    const char* journal = std::getenv("JOURNAL_STREAM");
    gJournal = !gMirror && journal != nullptr && *journal != '\0';
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
    std::string stamp = ardo::deviceTimestamp();
    std::lock_guard<std::mutex> guard(gLogMutex);
    openLocked();
    if (gLogFile != nullptr) {
        std::fputs(stamp.c_str(), gLogFile);
        std::fputc(' ', gLogFile);
        std::fputs(text.c_str(), gLogFile);
        std::fflush(gLogFile);
    }
    if (gMirror) {
        std::fprintf(stderr, "%s %s", stamp.c_str(), text.c_str());
    } else if (gJournal && level <= 5) {
        std::fprintf(stderr, "<%d>%s", level < 0 ? 0 : level, text.c_str());
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
