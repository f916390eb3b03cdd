#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "utility/thread.h"
#include "utility/threadLock.h"

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
