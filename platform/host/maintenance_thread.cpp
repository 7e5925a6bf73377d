// Host timer thread: one pthread waiting on a CLOCK_MONOTONIC condition variable through the
// clock seam, so that intervals are divided by ARDO_TIME_SCALE and a change of the device clock
// (its offset) never shortens or stretches a wait.
#include "maintenance_thread.h"

#include "sys_core.h"
#include "vorn_dbg.h"

namespace {
constexpr uint32_t kDefaultIntervalSeconds = 86400;
}  // namespace

MaintenanceThread::MaintenanceThread(MaintenanceThreadCallbackInterface* callback, uint32_t intervalSeconds,
                                     unsigned int timerId)
    : mCallback(callback), mTimerId(timerId), mIntervalSeconds(intervalSeconds) {
    pthread_mutex_init(&mMutex, nullptr);
    if (sys_condInitMonotonic(&mCond) != 0) {
        pthread_cond_init(&mCond, nullptr);
    }
}

MaintenanceThread::~MaintenanceThread() {
    // Destroying a timer from its own callback is not supported (the worker still uses the
    // object when the callback returns); WaitForCompletion at least does not self-join.
    Shutdown();
    WaitForCompletion();
    pthread_cond_destroy(&mCond);
    pthread_mutex_destroy(&mMutex);
}

int MaintenanceThread::Initialize() {
    return 0;
}

int MaintenanceThread::Run() {
    pthread_mutex_lock(&mMutex);
    if (mJoinable && !mQuit) {
        pthread_mutex_unlock(&mMutex);
        return 0;  // already running
    }
    bool self = mJoinable && pthread_equal(mThread, pthread_self());
    pthread_mutex_unlock(&mMutex);
    if (self) {
        return 1;  // a worker cannot restart itself before it has stopped
    }
    // Shut down but not yet joined: finish the old worker first.
    WaitForCompletion();

    pthread_mutex_lock(&mMutex);
    mQuit = false;
    // A signal sent while the thread was stopped stays pending and runs the callback at once.
    int rc = pthread_create(&mThread, nullptr, &MaintenanceThread::ThreadMain, this);
    mJoinable = rc == 0;
    pthread_mutex_unlock(&mMutex);
    return rc == 0 ? 0 : 1;
}

void MaintenanceThread::SignalTimerThread() {
    pthread_mutex_lock(&mMutex);
    mSignalled = true;
    pthread_cond_signal(&mCond);
    pthread_mutex_unlock(&mMutex);
}

int MaintenanceThread::Shutdown() {
    pthread_mutex_lock(&mMutex);
    mQuit = true;
    pthread_cond_signal(&mCond);
    pthread_mutex_unlock(&mMutex);
    return 0;
}

void MaintenanceThread::WaitForCompletion() {
    pthread_mutex_lock(&mMutex);
    if (!mJoinable || pthread_equal(mThread, pthread_self())) {
        pthread_mutex_unlock(&mMutex);
        return;
    }
    pthread_t thread = mThread;
    mJoinable = false;
    pthread_mutex_unlock(&mMutex);
    pthread_join(thread, nullptr);
}

void MaintenanceThread::SetInterval(uint32_t intervalSeconds) {
    pthread_mutex_lock(&mMutex);
    mIntervalSeconds = intervalSeconds;
    pthread_mutex_unlock(&mMutex);
}

uint32_t MaintenanceThread::GetInterval() const {
    pthread_mutex_lock(&mMutex);
    uint32_t interval = mIntervalSeconds;
    pthread_mutex_unlock(&mMutex);
    return interval;
}

void* MaintenanceThread::ThreadMain(void* self) {
    static_cast<MaintenanceThread*>(self)->Loop();
    return nullptr;
}

void MaintenanceThread::Loop() {
    pthread_mutex_lock(&mMutex);
    while (!mQuit) {
        if (!mSignalled) {
            // The interval is read once per wait: a change made meanwhile applies to the next one.
            uint32_t interval = mIntervalSeconds;
            if (interval == 0) {
                // A period of 0 would either never expire (check-ins end for good) or expire at
                // once (check-ins without pause): the timer waits the built-in day instead.
                interval = kDefaultIntervalSeconds;
                vorn_dbg_log(5, "[%s]:[%s] - timer %u has an interval of 0, waiting %u seconds\n", "TOLA",
                             vorn_dbg_get_level_name(5), mTimerId, interval);
            }
            {
                struct timespec deadline =
                    sys_deadlineAfterMilliseconds(static_cast<uint64_t>(interval) * 1000);
                int rc = 0;
                // Loop over spurious wake-ups until signalled, stopped or expired (or an error,
                // treated as expiry rather than spinning).
                while (!mSignalled && !mQuit && rc == 0) {
                    rc = pthread_cond_timedwait(&mCond, &mMutex, &deadline);
                }
            }
            if (mQuit) {
                break;
            }
        }
        // Expiry or signal: either way one callback; signals arriving during it are kept.
        mSignalled = false;
        pthread_mutex_unlock(&mMutex);
        if (mCallback != nullptr) {
            mCallback->OnThreadNotify(mTimerId);
        }
        pthread_mutex_lock(&mMutex);
    }
    pthread_mutex_unlock(&mMutex);
}
