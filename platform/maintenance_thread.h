// Platform timer thread: calls back on every interval expiry and on every explicit signal.
#pragma once

#include <pthread.h>

#include <cstdint>

class MaintenanceThreadCallbackInterface {
  public:
    virtual ~MaintenanceThreadCallbackInterface() = default;
    virtual bool OnThreadNotify(unsigned int timerId) = 0;
};

// One worker thread per object. The callback runs on that thread, never concurrently with
// itself. A signal that arrives while the callback runs is kept and runs the callback once more
// afterwards (several such signals run it once). An interval of 0 disables the periodic expiry:
// the thread then runs only when signalled. A new interval takes effect at the next wait.
class MaintenanceThread {
  public:
    MaintenanceThread(MaintenanceThreadCallbackInterface* callback, uint32_t intervalSeconds,
                      unsigned int timerId);
    ~MaintenanceThread();
    MaintenanceThread(const MaintenanceThread&) = delete;
    MaintenanceThread& operator=(const MaintenanceThread&) = delete;

    int Initialize();
    // Starts the worker thread (again, after Shutdown and WaitForCompletion). 0 on success.
    int Run();
    // Wakes the worker now: the callback runs as if the interval had expired.
    void SignalTimerThread();
    // Asks the worker to stop after the callback in progress; does not wait, and does not cut
    // the callback short (its platform sleeps run their full time; only a process stop ends them).
    int Shutdown();
    // Waits until the worker has stopped (after Shutdown), the callback in progress included.
    void WaitForCompletion();

    void SetInterval(uint32_t intervalSeconds);
    uint32_t GetInterval() const;
    unsigned int GetTimerId() const { return mTimerId; }

  private:
    static void* ThreadMain(void* self);
    void Loop();

    MaintenanceThreadCallbackInterface* mCallback;
    unsigned int mTimerId;
    mutable pthread_mutex_t mMutex;
    pthread_cond_t mCond;
    uint32_t mIntervalSeconds;
    bool mSignalled = false;  // a wake-up is pending (kept while the callback runs)
    bool mQuit = false;       // the worker is to stop before its next callback
    bool mJoinable = false;   // mThread has been started and not yet joined
    pthread_t mThread{};
};
