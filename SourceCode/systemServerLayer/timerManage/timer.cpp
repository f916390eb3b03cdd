#include "systemServerLayer/timerManage/timer.h"

#include <cerrno>
#include <cstring>

#include "utility/debugTrace.h"

namespace {

constexpr long kNsPerMs = 1000000;
constexpr long kFirstExpiryNs = 100 * kNsPerMs;

}  // namespace

Timer::Timer(int periodMs, void (*callback)(sigval)) : _timerId(), _created(false) {
  memset(&_sigEvent, 0, sizeof(_sigEvent));
  _sigEvent.sigev_notify = SIGEV_THREAD;
  _sigEvent.sigev_notify_function = callback;
  memset(&_timerSpec, 0, sizeof(_timerSpec));
  _timerSpec.it_interval.tv_sec = periodMs / 1000;
  _timerSpec.it_interval.tv_nsec = static_cast<long>(periodMs % 1000) * kNsPerMs;
  _timerSpec.it_value.tv_sec = 0;
  _timerSpec.it_value.tv_nsec = kFirstExpiryNs;
#if defined(__SANITIZE_THREAD__)
  // The thread sanitizer cannot follow the helper thread that the C library starts for
  // SIGEV_THREAD timers and crashes in it. Under it the timer only keeps its settings,
  // and a thread of our own (see notifyLoop) delivers the expiries.
  struct sigevent silent = _sigEvent;
  silent.sigev_notify = SIGEV_NONE;
  _created = timer_create(CLOCK_REALTIME, &silent, &_timerId) == 0;
#else
  _created = timer_create(CLOCK_REALTIME, &_sigEvent, &_timerId) == 0;
#endif
  if (!_created) TRACE(1, "Timer_create failed\n");
}

// A timer that is released stops: nothing may call back into its owner afterwards.
Timer::~Timer() {
  if (_created) timer_delete(_timerId);
}

int Timer::startTimer() {
  int rc = 0;
  if (!_created || timer_settime(_timerId, 0, &_timerSpec, nullptr) != 0) {
    TRACE(1, " fail to start Timer\n ");
    rc = -1;
  }
  TRACE(3, "Timer::startTimer\n");
#if defined(__SANITIZE_THREAD__)
  if (rc == 0 && !_notifierStarted) {
    pthread_t id;
    _notifierStarted = pthread_create(&id, nullptr, notifyLoop, this) == 0;
    if (_notifierStarted) pthread_detach(id);
  }
#endif
  return rc;
}

#if defined(__SANITIZE_THREAD__)
void* Timer::notifyLoop(void* self) {
  Timer* timer = static_cast<Timer*>(self);
  const struct itimerspec spec = timer->_timerSpec;
  struct timespec next;
  clock_gettime(CLOCK_REALTIME, &next);
  next.tv_nsec += spec.it_value.tv_nsec;
  for (;;) {
    while (next.tv_nsec >= 1000 * kNsPerMs) {
      next.tv_nsec -= 1000 * kNsPerMs;
      ++next.tv_sec;
    }
    // A sleep that a signal cuts short is simply taken again up to the same moment.
    while (clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &next, nullptr) == EINTR) {
    }
    timer->_sigEvent.sigev_notify_function(timer->_sigEvent.sigev_value);
    next.tv_sec += spec.it_interval.tv_sec;
    next.tv_nsec += spec.it_interval.tv_nsec;
  }
  return nullptr;
}
#endif
