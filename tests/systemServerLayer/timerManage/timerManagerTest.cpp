#include <gtest/gtest.h>
#include <sys/msg.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "systemServerLayer/timerManage/timerManager.h"

namespace {

using Clock = std::chrono::steady_clock;

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

template <typename Fn>
bool waitUntil(Fn done, int timeoutMs) {
  for (auto end = Clock::now() + std::chrono::milliseconds(timeoutMs); !done(); sleepMs(10)) {
    if (Clock::now() > end) return false;
  }
  return true;
}

std::atomic<int> gSequence{0};

// Counts its ticks, and notes when it first ran and what a reference clock showed then.
class Probe : public TimingServer {
 public:
  explicit Probe(const Probe* clock = nullptr) : _clock(clock) {}
  void tick() override {
    if (_clock != nullptr) clockAtCall = _clock->calls.load();
    if (calls++ == 0) sequence = ++gSequence;
  }
  std::atomic<int> calls{0};
  std::atomic<int> clockAtCall{-1};
  std::atomic<int> sequence{0};

 private:
  const Probe* _clock;
};

// Holds execTick in its first tick until released.
class Blocker : public TimingServer {
 public:
  void tick() override {
    std::unique_lock<std::mutex> hold(_mutex);
    entered = true;
    _released.wait(hold, [this] { return _open; });
  }
  void release() {
    std::lock_guard<std::mutex> guard(_mutex);
    _open = true;
    _released.notify_all();
  }
  std::atomic<bool> entered{false};

 private:
  std::mutex _mutex;
  std::condition_variable _released;
  bool _open = false;
};

long ticksWaiting() {
  struct msqid_ds state;
  return msgctl(timeoutMsgid, IPC_STAT, &state) == 0 ? static_cast<long>(state.msg_qnum) : -1;
}

class TimerManagerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { TimerManager::getInstance()->startup(); }
  void TearDown() override {
    blocker.release();
    timers->unregisterAllTimingServer();
    timers->resume();
  }

  // What is registered between hold() and resume() starts on one tick, after the clock,
  // a periodic unit of one tick.
  void hold() {
    timers->pause();
    sleepMs(300);  // a tick sent before the pause is still delivered
    timers->registerTimingServer(&clock, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 100);
  }
  void once(Probe& probe, int ms) {
    timers->registerTimingServer(&probe, E_PERIODIC_ONCE, E_EVT_TIMEOUT, ms);
  }
  // The tick of its last run, counted from the registration: one-shots are walked
  // before the periodic clock, which thus stands one tick behind.
  static int ticksOf(const Probe& probe) { return probe.clockAtCall + 1; }

  TimerManager* timers = TimerManager::getInstance();
  Probe clock;
  Blocker blocker;
};

TEST_F(TimerManagerTest, DurationsAreWholeTicksAndEveryOneShotRunsOnce) {
  Probe second(&clock), quarter(&clock), tooShort(&clock), twice(&clock);
  hold();
  once(second, 1000);
  once(quarter, 250);
  once(tooShort, 99);  // 0 ticks: the first decrement goes to the all-ones value
  once(twice, 200);
  once(twice, 300);
  timers->resume();
  ASSERT_TRUE(waitUntil([&] { return second.calls > 0; }, 3000));
  sleepMs(500);
  EXPECT_EQ(ticksOf(second), 10);
  EXPECT_EQ(ticksOf(quarter), 2);
  EXPECT_EQ(ticksOf(twice), 3);
  EXPECT_EQ(second.calls, 1);
  EXPECT_EQ(twice.calls, 2);
  EXPECT_EQ(tooShort.calls, 0);
}

TEST_F(TimerManagerTest, OneShotsRunBeforePeriodicUnitsEachInRegistrationOrder) {
  Probe periodicA, periodicB, onceC, onceD;
  timers->pause();
  sleepMs(300);
  timers->registerTimingServer(&periodicA, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 200);
  once(onceC, 200);
  timers->registerTimingServer(&periodicB, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 200);
  once(onceD, 200);
  timers->resume();
  ASSERT_TRUE(waitUntil([&] { return periodicB.calls > 0; }, 2000));
  EXPECT_LT(onceC.sequence, onceD.sequence);
  EXPECT_LT(onceD.sequence, periodicA.sequence);
  EXPECT_LT(periodicA.sequence, periodicB.sequence);
}

TEST_F(TimerManagerTest, ASecondPeriodicRegistrationOfAServerChangesNothing) {
  Probe every3;
  hold();
  timers->registerTimingServer(&every3, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 300);
  timers->registerTimingServer(&every3, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 100);
  timers->resume();
  ASSERT_TRUE(waitUntil([&] { return clock.calls >= 12; }, 3000));
  hold();
  EXPECT_EQ(every3.calls, clock.calls / 3);
  // Unregistering it once leaves nothing of it.
  timers->unregisterTimingServer(&every3);
  int before = every3.calls;
  timers->resume();
  sleepMs(500);
  EXPECT_EQ(every3.calls, before);
}

TEST_F(TimerManagerTest, WhilePausedDurationsStandStillAndJiffiesGoOn) {
  Probe probe(&clock);
  hold();
  once(probe, 300);
  uint32_t jiffies = TimerManager::getSystemJiffies();
  sleepMs(1000);
  EXPECT_EQ(probe.calls + clock.calls, 0);
  EXPECT_GE(TimerManager::getSystemJiffies() - jiffies, 8u);
  timers->resume();
  ASSERT_TRUE(waitUntil([&] { return probe.calls > 0; }, 2000));
  EXPECT_EQ(ticksOf(probe), 3);
}

TEST_F(TimerManagerTest, AtMostFiveTicksWaitWhileExecTickIsHeldUp) {
  timers->registerTimingServer(&blocker, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 100);
  ASSERT_TRUE(waitUntil([&] { return blocker.entered.load(); }, 2000));
  sleepMs(1200);
  EXPECT_EQ(ticksWaiting(), 5);
  sleepMs(500);
  EXPECT_EQ(ticksWaiting(), 5);
  blocker.release();
  EXPECT_TRUE(waitUntil([] { return ticksWaiting() <= 1; }, 1000));
  timers->registerTimingServer(&clock, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, 100);
  EXPECT_TRUE(waitUntil([&] { return clock.calls >= 5; }, 2000));
}

// Breaks the tick queue for good, so it comes last when all cases run in one process.
TEST_F(TimerManagerTest, ATickQueueThatFailsEveryReceivePacesTheTimersInsteadOfSpinning) {
  Probe probe;
  ASSERT_EQ(msgctl(timeoutMsgid, IPC_RMID, nullptr), 0);
  sleepMs(300);
  auto start = Clock::now();
  once(probe, 1000);
  ASSERT_TRUE(waitUntil([&] { return probe.calls > 0; }, 3000));
  auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  EXPECT_GE(took, 800);
  EXPECT_LE(took, 1600);
}

}  // namespace
