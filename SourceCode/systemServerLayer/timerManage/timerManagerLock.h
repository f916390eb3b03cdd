#ifndef PK_TIMERMANAGE_TIMER_MANAGER_LOCK_H
#define PK_TIMERMANAGE_TIMER_MANAGER_LOCK_H

#include <pthread.h>

// Guards the two registration lists of the timer service, and nothing else.
extern pthread_mutex_t timerLockMutex;

// Every object acts on the one global timerLockMutex; it has no data of its own.
class TimerManagerLock {
 public:
  TimerManagerLock();
  ~TimerManagerLock();
  TimerManagerLock(const TimerManagerLock&) = delete;
  TimerManagerLock& operator=(const TimerManagerLock&) = delete;

  int acquire();
  int release();
};

#endif
