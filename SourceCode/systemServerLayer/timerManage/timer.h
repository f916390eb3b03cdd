#ifndef PK_TIMERMANAGE_TIMER_H
#define PK_TIMERMANAGE_TIMER_H

#include <pthread.h>
#include <signal.h>
#include <time.h>

// One POSIX interval timer whose expiries call back on a thread of their own.
// The first expiry comes 100 ms after the start, whatever the period.
class Timer {
 public:
  Timer(int periodMs, void (*callback)(sigval));
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Arms the timer: 0, or -1 when the system refused.
  int startTimer();

 private:
  timer_t _timerId;
  struct sigevent _sigEvent;
  struct itimerspec _timerSpec;
  bool _created;
};

#endif
