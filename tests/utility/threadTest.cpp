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

// An owner's loop: works holding a lock, through a cancel point of the C library, then waits at
// a gate and pauses.
struct Worker {
  StartGate gate;
  pthread_mutex_t held = PTHREAD_MUTEX_INITIALIZER;
  std::atomic<int> rounds{0};
  static void* loop(void* self) {
    Worker* w = static_cast<Worker*>(self);
    for (;;) {
      pthread_mutex_lock(&w->held);
      ++w->rounds;
      usleep(20000);
      pthread_mutex_unlock(&w->held);
      w->gate.wait();
      pauseMs(1);
    }
  }
  // Stops thread in a round of its loop; whether it left the lock free.
  bool stopsInAWait(Thread& thread, int round) {
    EXPECT_TRUE(eventually([&] { return rounds.load() >= round; }));
    thread.stop();
    if (pthread_mutex_trylock(&held) != 0) return false;
    pthread_mutex_unlock(&held);
    return true;
  }
};

TEST(ThreadTest, StartTracesForTheOwnersPlaceAndStopEndsTheThreadInAWaitOnly) {
  auto* worker = new Worker();  // left behind only when a thread holds its gate for good
  Thread first("first"), second("second");
  int line = 0;
  std::string out = captured([&] {
    line = __LINE__; EXPECT_EQ(first.start(Worker::loop, worker, TRACE_SITE, "no thread\n", E_THREAD_ID_TRACED), 0);
  });
  EXPECT_EQ(out.substr(std::min(out.find("INF:"), out.size())),
            "INF:[threadTest,L" + std::to_string(line) + "]_threadId = " +
                std::to_string(static_cast<int>(first.getThreadId())) + "\n\033[0m");
  EXPECT_TRUE(worker->stopsInAWait(first, 1)) << "in the first round, before any wait";
  EXPECT_EQ(first.status(), THREAD_STATUS_STOPPED);
  // It was cancelled at the closed gate.
  std::atomic<bool> opened{false};
  std::thread([worker, &opened] { worker->gate.open(), opened = true; }).detach();
  ASSERT_TRUE(eventually([&] { return opened.load(); })) << "the cancelled waiter left the gate locked";
  EXPECT_EQ(captured([&] { second.start(Worker::loop, worker, TRACE_SITE, "no thread\n", E_THREAD_ID_UNTRACED); }), "");
  EXPECT_TRUE(worker->stopsInAWait(second, worker->rounds.load() + 2)) << "in a round after its waits";
  second.stop();  // nothing left to stop
  delete worker;
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
