#ifndef PK_COMMMANAGER_CANCEL_POINT_H
#define PK_COMMMANAGER_CANCEL_POINT_H

#include <pthread.h>

// The threads of the link run with cancellation disabled and open it only around
// their blocking waits. So a cancel from the owner's destructor strikes in the
// wait, never while the thread holds a lock, which would stay locked for good.
inline void blockCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }

template <typename Call>
auto cancelPoint(Call call) -> decltype(call()) {
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  auto result = call();
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  return result;
}

#endif
