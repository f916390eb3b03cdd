#include <gtest/gtest.h>
#include <sys/msg.h>

#include <atomic>

#include "e2eHarness.h"
#include "systemServerLayer/timerManage/timerManager.h"

namespace {

using e2e::sleepMs;
using e2e::waitUntil;

// Counts its ticks, notes what a reference clock showed at its last run, and holds execTick up while asked to.
struct Probe : TimingServer {
  explicit Probe(const Probe* clock = nullptr) : _clock(clock) {}
  void tick() override {
    if (_clock != nullptr) clockAtCall = _clock->calls.load();
    ++calls;
    while (hold) sleepMs(5);
  }
  // The tick of its last run, counted from the registration: one-shots are walked before
  // the periodic clock, which thus stands one tick behind.
  int lastTick() const { return clockAtCall + 1; }
  std::atomic<int> calls{0}, clockAtCall{-1};
  std::atomic<bool> hold{false};
  const Probe* _clock;
};

class TimerManagerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { TimerManager::getInstance()->startup(); }
  void TearDown() override {
    blocker.hold = false;
    timers->unregisterAllTimingServer();
    timers->resume();
  }
  void pause() {
    timers->pause();
    sleepMs(300);  // a tick sent before the pause is still delivered
  }
  void once(TimingServer& unit, int ms) { timers->registerTimingServer(&unit, E_PERIODIC_ONCE, E_EVT_TIMEOUT, ms); }
  void every(TimingServer& unit, int ms) { timers->registerTimingServer(&unit, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, ms); }
  static long ticksWaiting() {
    struct msqid_ds state;
    return msgctl(timeoutMsgid, IPC_STAT, &state) == 0 ? static_cast<long>(state.msg_qnum) : -1;
  }

  TimerManager* timers = TimerManager::getInstance();
  Probe clock;  // a periodic unit of one tick
  Probe blocker;
};

// The run machine's units: one-shots that are walked before the periodic ones, in whole ticks,
// and a periodic one whose second registration changes nothing.
TEST_F(TimerManagerTest, DurationsInWholeTicksOneShotsFirst) {
  Probe second(&clock), quarter(&clock), twice(&clock), every3;
  pause();  // all start at the same tick
  every(clock, 100);
  once(second, 1000);
  once(quarter, 250);
  once(twice, 200);
  once(twice, 300);
  every(every3, 300);
  every(every3, 100);
  timers->resume();
  ASSERT_TRUE(waitUntil([&] { return clock.calls >= 12; }, 10000));
  pause();
  EXPECT_EQ(second.lastTick(), 10);
  EXPECT_EQ(quarter.lastTick(), 2);
  EXPECT_EQ(twice.lastTick(), 3);
  EXPECT_EQ(second.calls + twice.calls, 1 + 2);
  EXPECT_EQ(every3.calls, clock.calls / 3);
  timers->unregisterAllTimingServer();  // before the units here go
}

TEST_F(TimerManagerTest, AtMostFiveTicksWaitForAHeldUpExecTickAndABrokenTickQueuePacesTheTimers) {
  blocker.hold = true;
  every(blocker, 100);
  ASSERT_TRUE(waitUntil([&] { return blocker.calls > 0; }, 2000));
  EXPECT_TRUE(waitUntil([] { return ticksWaiting() == 5; }, 2000));
  sleepMs(500);
  EXPECT_EQ(ticksWaiting(), 5);
  blocker.hold = false;
  EXPECT_TRUE(waitUntil([] { return ticksWaiting() <= 1; }, 1000));
  every(clock, 100);
  EXPECT_TRUE(waitUntil([&] { return clock.calls >= 5; }, 2000));
  // A tick queue that fails every receive: the timers go on at their pace, without spinning.
  Probe probe;
  ASSERT_EQ(msgctl(timeoutMsgid, IPC_RMID, nullptr), 0);
  sleepMs(300);
  double start = e2e::nowMs();
  once(probe, 1000);
  ASSERT_TRUE(waitUntil([&] { return probe.calls > 0; }, 5000));
  EXPECT_GE(e2e::nowMs() - start, 800);
}

}  // namespace
