#include "utility/threadLoop.h"

#include <unistd.h>

void pauseMs(unsigned int ms) {
  cancelPoint([ms] { return usleep(static_cast<useconds_t>(ms) * 1000); });
}

void parkForever() {
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  for (;;) pause();
}
