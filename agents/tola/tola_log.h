// Logging conventions of the agent: every line begins "[TOLA]:[<level name>] - "; errors and
// notices also go to syslog with priority 138. Texts are written in full at the call site, so
// that the format string reads exactly as the line in the log.
#pragma once

#include "vorn_dbg.h"

#define TOLA_TAG "TOLA"
#define TOLA_SYSLOG_PRIORITY 138

enum TolaLogLevel { TOLA_LOG_ERROR = 3, TOLA_LOG_NOTICE = 5, TOLA_LOG_INFO = 6, TOLA_LOG_DEBUG = 7 };

// Debug log only. The format begins with "[%s]:[%s] - ".
#define TLOG(level, fmt, ...) \
    vorn_dbg_log((level), fmt, TOLA_TAG, vorn_dbg_get_level_name(level), ##__VA_ARGS__)

// Syslog and the debug log.
#define TLOG_SYS(level, fmt, ...)                                                                            \
    do {                                                                                                     \
        vorn_dbg_syslog(TOLA_SYSLOG_PRIORITY, fmt, TOLA_TAG, vorn_dbg_get_level_name(level), ##__VA_ARGS__); \
        vorn_dbg_log((level), fmt, TOLA_TAG, vorn_dbg_get_level_name(level), ##__VA_ARGS__);                 \
    } while (0)

// The BEGIN/END trace lines of a function, at level 7, with its full signature:
//   FnTrace trace(__PRETTY_FUNCTION__);       -> "... - <signature> - BEGIN"
//   return trace.Returning(rc);               -> "... - <signature> - END returning <rc>"
// A function left without Returning() logs a plain "... - END".
class FnTrace {
  public:
    explicit FnTrace(const char* signature) : mSignature(signature) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - BEGIN", mSignature);
    }
    ~FnTrace() {
        if (mHasResult) {
            TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning %d", mSignature, mResult);
        } else if (!mSilent) {
            TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END", mSignature);
        }
    }
    FnTrace(const FnTrace&) = delete;
    FnTrace& operator=(const FnTrace&) = delete;

    template <typename T>
    T Returning(T result) {
        mHasResult = true;
        mResult = static_cast<int>(result);
        return result;
    }
    // For functions whose END line has a text of its own (logged by the caller).
    void Silence() { mSilent = true; }
    const char* Signature() const { return mSignature; }

  private:
    const char* mSignature;
    bool mHasResult = false;
    bool mSilent = false;
    int mResult = 0;
};

#define TOLA_TRACE() FnTrace trace(__PRETTY_FUNCTION__)
