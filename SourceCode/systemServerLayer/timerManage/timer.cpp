#include "systemServerLayer/timerManage/timer.h"

#include <cerrno>
#include <cstring>

#include "utility/debugTrace.h"
#include "utility/notifyTimer.h"

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
  _created = createNotifyTimer(callback, _sigEvent.sigev_value, &_timerId) == 0;
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
  return rc;
}

