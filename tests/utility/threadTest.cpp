#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "captureStdout.h"
#include "utility/startGate.h"
#include "utility/thread.h"
#include "utility/threadLock.h"
#include "utility/threadLoop.h"

namespace {

class CountingThread : public Thread {
 public:
  CountingThread(const char* name, int priority) : Thread(name, THREAD_STATUS_STOPPED, priority, 1) {}
  void run() override {
    for (;;) {
      runs.fetch_add(1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  std::atomic<int> runs{0};
};

bool eventually(const std::function<bool()>& condition) {
  for (int i = 0; i < 200; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

TEST(ThreadTest, NameIsCutTo63Characters) {
  char name[64];
  std::string exact(63, 'a');
  EXPECT_EQ(std::string(CountingThread(exact.c_str(), 0).getName(name)), exact);
  std::string longer(100, 'b');
  EXPECT_EQ(std::string(CountingThread(longer.c_str(), 0).getName(name)), std::string(63, 'b'));
}

TEST(ThreadTest, CreateRunsDetachedAndCancelOnlyChangesTheStatus) {
  // Objects whose thread never ends live as long as the process, as in the service.
  auto* thread = new CountingThread("worker", 3);
  ASSERT_EQ(thread->create(), 0) << "a refused priority under SCHED_OTHER does not fail create";
  EXPECT_EQ(thread->status(), THREAD_STATUS_CREATED);
  EXPECT_EQ(thread->schedPolicy(), 0);
  ASSERT_TRUE(eventually([&] { return thread->runs.load() > 0; }));
  EXPECT_EQ(thread->cancel(), 0);
  EXPECT_EQ(thread->status(), THREAD_STATUS_STOPPED);
  int seen = thread->runs.load();
  EXPECT_TRUE(eventually([&] { return thread->runs.load() > seen; })) << "cancel stops nothing";
}

TEST(ThreadTest, EntryPointWithNullReturnsAtOnce) { EXPECT_EQ(Thread::entryPoint(nullptr), nullptr); }

// An owner's loop: works holding a lock, through a cancel point of the C library, then waits.
struct Worker {
  pthread_mutex_t held = PTHREAD_MUTEX_INITIALIZER;
  std::atomic<int> rounds{0};
  ~Worker() { pthread_mutex_destroy(&held); }
  static void* loop(void* self) {
    Worker* w = static_cast<Worker*>(self);
    for (;;) {
      pthread_mutex_lock(&w->held);
      ++w->rounds;
      usleep(20000);
      pthread_mutex_unlock(&w->held);
      pauseMs(1);
    }
  }
};

TEST(ThreadTest, StartTracesForTheOwnersPlaceAndStopEndsTheThreadInItsWait) {
  for (E_ThreadIdTrace idTrace : {E_THREAD_ID_TRACED, E_THREAD_ID_UNTRACED}) {
    Worker worker;
    Thread thread("worker");
    int line = 0;
    std::string out = captured([&] {
      line = __LINE__; EXPECT_EQ(thread.start(Worker::loop, &worker, TRACE_SITE, "no thread\n", idTrace), 0);
    });
    std::string id = "INF:[threadTest,L" + std::to_string(line) + "]_threadId = " +
                     std::to_string(static_cast<int>(thread.getThreadId())) + "\n\033[0m";
    EXPECT_EQ(out.substr(std::min(out.find("INF:"), out.size())), idTrace == E_THREAD_ID_TRACED ? id : "");
    ASSERT_TRUE(eventually([&] { return worker.rounds.load() > 0; }));  // mostly in its first round
    thread.stop();
    EXPECT_EQ(thread.status(), THREAD_STATUS_STOPPED);
    const int locked = pthread_mutex_trylock(&worker.held);
    EXPECT_EQ(locked, 0) << "cancelled while it held the lock, or still running";
    if (locked == 0) pthread_mutex_unlock(&worker.held);
    thread.stop();  // nothing left to stop
  }
}

TEST(StartGateTest, ACancelledWaiterLeavesTheGateToOpenForTheOthers) {
  struct Waiter {
    StartGate* gate;
    std::atomic<bool> through{false};
    static void* loop(void* self) {
      Waiter* w = static_cast<Waiter*>(self);
      w->gate->wait();
      w->through = true;
      parkForever();
    }
  };
  auto* gate = new StartGate();  // left behind only when a waiter holds it for good
  Waiter cancelled{gate}, waiter{gate};
  Thread first("cancelled"), second("waiter");
  ASSERT_EQ(first.start(Waiter::loop, &cancelled, TRACE_SITE, "", E_THREAD_ID_UNTRACED), 0);
  ASSERT_EQ(second.start(Waiter::loop, &waiter, TRACE_SITE, "", E_THREAD_ID_UNTRACED), 0);
  first.stop();
  std::atomic<bool> opened{false};
  std::thread([gate, &opened] { gate->open(), opened = true; }).detach();
  ASSERT_TRUE(eventually([&] { return opened.load(); })) << "the gate stayed locked";
  EXPECT_TRUE(eventually([&] { return waiter.through.load(); }));
  EXPECT_FALSE(cancelled.through);
  second.stop();
  gate->wait();  // open for good
  delete gate;
}

TEST(ThreadLockTest, ExcludesAcrossThreads) {
  ThreadLock lock;
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 100000; ++i) {
      ThreadLockGuard guard(lock);
      ++counter;
    }
  };
  std::thread a(work);
  std::thread b(work);
  a.join();
  b.join();
  EXPECT_EQ(counter, 200000);
}

}  // namespace
