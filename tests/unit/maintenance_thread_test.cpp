#include "maintenance_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "sys_core.h"
#include "test_env.h"

using namespace std::chrono_literals;

namespace {

// Counts callbacks; optionally holds the first one until released, or runs an action in it.
class Recorder : public MaintenanceThreadCallbackInterface {
  public:
    bool OnThreadNotify(unsigned int timerId) override {
        std::unique_lock<std::mutex> lock(mMutex);
        lastTimerId = timerId;
        ++mCalls;
        mCond.notify_all();
        if (holdFirst && mCalls == 1) {
            mCond.wait(lock, [this] { return mReleased; });
        }
        std::function<void()> act = action;
        lock.unlock();
        if (act) {
            act();
        }
        return false;
    }

    // Real time, generous: only a broken timer gets near it.
    bool waitForCalls(int n, std::chrono::milliseconds timeout = 10s) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, timeout, [&] { return mCalls >= n; });
    }
    int calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    void release() {
        std::lock_guard<std::mutex> lock(mMutex);
        mReleased = true;
        mCond.notify_all();
    }

    bool holdFirst = false;
    std::function<void()> action;
    unsigned int lastTimerId = 0;

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    int mCalls = 0;
    bool mReleased = false;
};

// Lets the worker run for a short real time, in which a broken timer would call back again.
void settle() {
    std::this_thread::sleep_for(60ms);
}

}  // namespace

TEST(MaintenanceThread, RunsOnlyWhenSignalledAndKeepsSignalsThatArriveDuringTheCallback) {
    tola_test::TempRoot root(true);
    Recorder rec;
    rec.holdFirst = true;
    MaintenanceThread timer(&rec, 0, 3456);  // interval 0: a day, far beyond this test
    ASSERT_EQ(timer.Run(), 0);
    settle();
    EXPECT_EQ(rec.calls(), 0);
    timer.SignalTimerThread();
    ASSERT_TRUE(rec.waitForCalls(1));
    // Three signals while the first callback is still running: kept, and folded into one.
    timer.SignalTimerThread();
    timer.SignalTimerThread();
    timer.SignalTimerThread();
    rec.release();
    ASSERT_TRUE(rec.waitForCalls(2));
    settle();
    EXPECT_EQ(rec.calls(), 2);
}

TEST(MaintenanceThread, AnIntervalOfZeroWaitsTheBuiltInDay) {
    // 864000 times faster: the day is 100 ms, an hour 4 ms.
    tola_test::TempRoot root(true, 864000.0);
    Recorder rec;
    MaintenanceThread timer(&rec, 0, 3456);
    ASSERT_EQ(timer.Run(), 0);
    EXPECT_TRUE(rec.waitForCalls(2));  // periodic, never signalled
    // Not continuous either: a timer that took 0 literally would have run thousands of times.
    EXPECT_LE(rec.calls(), 10);
}

TEST(MaintenanceThread, NewIntervalAppliesFromTheNextWait) {
    tola_test::TempRoot root(true);  // time scale 1000: 10 s of device time are 10 ms
    Recorder rec;
    MaintenanceThread timer(&rec, 0, 6543);
    // Like the check-in flow: the callback re-arms the period of its own timer.
    rec.action = [&] { timer.SetInterval(10); };
    ASSERT_EQ(timer.Run(), 0);
    timer.SignalTimerThread();
    EXPECT_TRUE(rec.waitForCalls(4));  // the first by signal, then periodic
    EXPECT_EQ(rec.lastTimerId, 6543u);
    EXPECT_EQ(timer.GetInterval(), 10u);
}

TEST(MaintenanceThread, ShutdownLeavesASleepInTheCallbackAndOnlyAProcessStopEndsIt) {
    tola_test::TempRoot root(true);
    Recorder rec;
    std::atomic<bool> sleepEnded{false};
    // A day of device time: 86 s of real time even at the compressed scale.
    rec.action = [&] {
        sys_sleepSeconds(86400);
        sleepEnded = true;
    };
    MaintenanceThread timer(&rec, 0, 3456);
    ASSERT_EQ(timer.Run(), 0);
    timer.SignalTimerThread();
    ASSERT_TRUE(rec.waitForCalls(1));
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
    auto later = std::async(std::launch::async, [] { sys_sleepSeconds(86400); });
    EXPECT_EQ(later.wait_for(20s), std::future_status::ready);
    // Both sleeps are journaled as cut short.
    std::string journal = root.readFile("/var/lib/ardo/waits.jsonl");
    const std::string cut =
        "{\"args\":{\"full\":false,\"seconds\":86400},\"call\":\"sys_sleepSeconds\",\"result\":0}\n";
    EXPECT_EQ(journal, cut + cut);
}

TEST(MaintenanceThread, RunsAgainAfterShutdownAndWaitForCompletion) {
    tola_test::TempRoot root(true);
    Recorder rec;
    MaintenanceThread timer(&rec, 0, 1);
    ASSERT_EQ(timer.Run(), 0);
    EXPECT_EQ(timer.Run(), 0);  // a second Run while running starts nothing new
    timer.SignalTimerThread();
    ASSERT_TRUE(rec.waitForCalls(1));
    timer.Shutdown();
    timer.WaitForCompletion();
    timer.WaitForCompletion();  // harmless when already stopped

    // Restarted with a new interval, as after a clock change.
    timer.SetInterval(5);
    ASSERT_EQ(timer.Run(), 0);
    EXPECT_TRUE(rec.waitForCalls(3));
    timer.Shutdown();
    timer.WaitForCompletion();
    int stopped = rec.calls();
    settle();
    EXPECT_EQ(rec.calls(), stopped);
}

TEST(MaintenanceThread, DestructorEndsALongWait) {
    tola_test::TempRoot root(true, 1.0);  // real time: the wait would last a day
    Recorder rec;
    auto destroyed = std::async(std::launch::async, [&] {
        MaintenanceThread timer(&rec, 86400, 1);
        timer.Run();
    });
    ASSERT_EQ(destroyed.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(rec.calls(), 0);
}
