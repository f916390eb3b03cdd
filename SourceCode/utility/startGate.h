#ifndef PK_UTILITY_START_GATE_H
#define PK_UTILITY_START_GATE_H

#include <pthread.h>

// Holds threads back until their owner says that everything they need is up.
// Once open it stays open.
class StartGate {
 public:
  StartGate();
  ~StartGate();
  StartGate(const StartGate&) = delete;
  StartGate& operator=(const StartGate&) = delete;

  void open();
  // Returns once the gate is open. A cancel ends the wait and leaves the gate
  // unlocked behind it, so the owner can still open it and stop other waiters.
  void wait();

 private:
  pthread_mutex_t _mutex;
  pthread_cond_t _opened;
  bool _open;
};

#endif
