#ifndef PK_UTILITY_THREAD_LOOP_H
#define PK_UTILITY_THREAD_LOOP_H

#include <pthread.h>

// The waits of the service's endless loops.
//
// Every thread that Thread::start starts runs with cancellation disabled and
// opens it only around its blocking waits, which all go through the helpers
// here. So the cancel of an owner that stops its thread strikes in a wait,
// never while the thread holds a lock, which would then stay locked for good.

// The pauses of the loops, in milliseconds: a wait that fails at once must not
// make its loop spin.
constexpr unsigned int kFailedReceivePauseMs = 100;  // after a failed receive from a queue
constexpr unsigned int kPortRetryPauseMs = 1000;     // before the next read of a port that is not open, or no terminal

// Runs call with cancellation open, and gives back its result.
template <typename Call>
auto cancelPoint(Call call) -> decltype(call()) {
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  auto result = call();
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  return result;
}

// Sleeps ms milliseconds; a cancel ends it.
void pauseMs(unsigned int ms);

// Nothing will ever come: the thread stays, without a sound and without using
// the processor, until it is cancelled or the process ends.
[[noreturn]] void parkForever();

#endif
