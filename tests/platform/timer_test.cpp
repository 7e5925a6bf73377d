// The clock seam and the timer thread.
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <utility>

#include "conformance.h"
#include "maintenance_thread.h"
#include "sys_core.h"

using namespace std::chrono_literals;

namespace {

struct Recorder : MaintenanceThreadCallbackInterface {
    bool OnThreadNotify(unsigned int timerId) override {
        lastTimerId = timerId;
        ++calls;
        if (action) {
            action();
        }
        return false;
    }
    // Real time, generous: only a broken timer gets near it.
    bool waitForCalls(int n) {
        for (int waited = 0; calls < n && waited < 20000; waited += 5) {
            std::this_thread::sleep_for(5ms);
        }
        return calls >= n;
    }

    std::function<void()> action;
    std::atomic<unsigned int> lastTimerId{0};
    std::atomic<int> calls{0};
};

// Lets the worker run for a short real time, in which a broken timer would call back again.
void settle() {
    std::this_thread::sleep_for(60ms);
}

// An interval of about 10 ms of real time, at least one device second.
uint32_t shortInterval() {
    return static_cast<uint32_t>(std::max(1.0, backend::timeScale() / 100));
}

class TimerTest : public DeviceTest {
  protected:
    bool startAndSignal(MaintenanceThread& timer) {
        return timer.Run() == 0 && (timer.SignalTimerThread(), rec.waitForCalls(1));
    }
    Recorder rec;
};
using ClockTest = DeviceTest;

}  // namespace

TEST_F(ClockTest, SleepsAndDeadlinesRunOnTheDeviceClock) {
    struct timeval tv {};
    ASSERT_EQ(sys_gettimeofday(&tv), 0);
    EXPECT_LE(std::abs(static_cast<long>(tv.tv_sec - sys_time())), 1);
    // 500 device milliseconds: no less than their scaled real time.
    auto realMs = [](auto since) {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since).count();
    };
    const double scaled = 500 / backend::timeScale();
    auto start = std::chrono::steady_clock::now();
    sys_sleepMilliseconds(500);
    EXPECT_GE(realMs(start), scaled * 0.9);

    pthread_cond_t cond;
    ASSERT_EQ(sys_condInitMonotonic(&cond), 0);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    struct timespec deadline = sys_deadlineAfterMilliseconds(500);
    start = std::chrono::steady_clock::now();
    pthread_mutex_lock(&mutex);
    int rc = 0;
    while (rc == 0) {
        rc = pthread_cond_timedwait(&cond, &mutex, &deadline);
    }
    pthread_mutex_unlock(&mutex);
    EXPECT_EQ(rc, ETIMEDOUT);
    EXPECT_GE(realMs(start), scaled * 0.9);
    EXPECT_LT(realMs(start), scaled * 0.9 + 10000);
    pthread_cond_destroy(&cond);
}

TEST_F(TimerTest, RunsOnlyWhenSignalledAndKeepsSignalsThatArriveDuringTheCallback) {
    std::promise<void> release;
    std::shared_future<void> released(release.get_future());
    rec.action = [&, first = true]() mutable {
        if (std::exchange(first, false)) {
            released.wait();
        }
    };
    MaintenanceThread timer(&rec, 0, 3456);  // interval 0: a day, far beyond this case
    ASSERT_EQ(timer.Initialize(), 0);
    ASSERT_EQ(timer.Run(), 0);
    settle();
    EXPECT_EQ(rec.calls, 0);
    timer.SignalTimerThread();
    ASSERT_TRUE(rec.waitForCalls(1));
    EXPECT_EQ(rec.lastTimerId, 3456u);
    // Three signals while the first callback is still running: kept, and folded into one.
    timer.SignalTimerThread();
    timer.SignalTimerThread();
    timer.SignalTimerThread();
    release.set_value();
    ASSERT_TRUE(rec.waitForCalls(2));
    settle();
    EXPECT_EQ(rec.calls, 2);
}

TEST_F(TimerTest, ShutdownLeavesASleepInTheCallbackAndOnlyAProcessStopEndsIt) {
    std::atomic<bool> sleepEnded{false};
    // A day of device time: far longer than the case at any time scale.
    rec.action = [&] {
        sys_sleepSeconds(86400);
        sleepEnded = true;
    };
    MaintenanceThread timer(&rec, 0, 3456);
    ASSERT_TRUE(startAndSignal(timer));
    // A re-arm stops the timer and waits for it: the callback's sleep goes on.
    timer.Shutdown();
    auto joined = std::async(std::launch::async, [&] { timer.WaitForCompletion(); });
    EXPECT_EQ(joined.wait_for(100ms), std::future_status::timeout);
    EXPECT_FALSE(sleepEnded);
    // A process stop ends it, and every later sleep returns at once.
    EXPECT_FALSE(sys_processStopRequested());
    sys_requestProcessStop();
    ASSERT_EQ(joined.wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(sleepEnded);
    EXPECT_TRUE(sys_processStopRequested());
    auto later = std::async(std::launch::async, [] {
        sys_sleepSeconds(86400);
        sys_sleepMilliseconds(86400000);
    });
    EXPECT_EQ(later.wait_for(20s), std::future_status::ready);
}

TEST_F(TimerTest, RunsAgainAfterShutdownAndANewIntervalAppliesFromTheNextWait) {
    MaintenanceThread timer(&rec, 0, 1);
    ASSERT_TRUE(startAndSignal(timer));
    EXPECT_EQ(timer.Run(), 0);  // a second Run while running starts nothing new
    timer.Shutdown();
    timer.WaitForCompletion();
    timer.WaitForCompletion();  // harmless when already stopped

    // Restarted; like the check-in flow, the callback re-arms the period of its own timer.
    rec.action = [&] { timer.SetInterval(shortInterval()); };
    ASSERT_TRUE(startAndSignal(timer));
    EXPECT_TRUE(rec.waitForCalls(4));  // then periodic
    timer.Shutdown();
    timer.WaitForCompletion();
    int stopped = rec.calls;
    settle();
    EXPECT_EQ(rec.calls, stopped);
}

TEST_F(TimerTest, DestructorEndsALongWait) {
    auto destroyed = std::async(std::launch::async, [&] {
        MaintenanceThread timer(&rec, 86400, 1);
        timer.Run();
    });
    ASSERT_EQ(destroyed.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(rec.calls, 0);
}
