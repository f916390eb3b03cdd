#ifndef PK_UTILITY_THREAD_LOCK_H
#define PK_UTILITY_THREAD_LOCK_H

#include <pthread.h>

// A plain, non-recursive mutex.
class ThreadLock {
 public:
  ThreadLock();
  ~ThreadLock();
  ThreadLock(const ThreadLock&) = delete;
  ThreadLock& operator=(const ThreadLock&) = delete;

  int acquire();
  int release();

 private:
  pthread_mutex_t _mutex;
};

// Holds a ThreadLock for one scope.
class ThreadLockGuard {
 public:
  explicit ThreadLockGuard(ThreadLock& lock) : _lock(lock) { _lock.acquire(); }
  ~ThreadLockGuard() { _lock.release(); }
  ThreadLockGuard(const ThreadLockGuard&) = delete;
  ThreadLockGuard& operator=(const ThreadLockGuard&) = delete;

 private:
  ThreadLock& _lock;
};

#endif
