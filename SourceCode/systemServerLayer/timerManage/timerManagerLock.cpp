#include "systemServerLayer/timerManage/timerManagerLock.h"

#include "utility/debugTrace.h"

pthread_mutex_t timerLockMutex;

TimerManagerLock::TimerManagerLock() {
  if (pthread_mutex_init(&timerLockMutex, nullptr) != 0) {
    TRACE(1, "fail to create TimerManagerLock mutex\n");
  }
}

TimerManagerLock::~TimerManagerLock() { pthread_mutex_destroy(&timerLockMutex); }

int TimerManagerLock::acquire() { return pthread_mutex_lock(&timerLockMutex) == 0 ? 0 : -1; }

int TimerManagerLock::release() { return pthread_mutex_unlock(&timerLockMutex) == 0 ? 0 : -1; }
