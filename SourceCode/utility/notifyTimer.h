#ifndef PK_UTILITY_NOTIFY_TIMER_H
#define PK_UTILITY_NOTIFY_TIMER_H

#include <signal.h>
#include <time.h>

// Creates a disarmed POSIX timer on CLOCK_REALTIME whose expiries call
// callback(value) on a notification thread (SIGEV_THREAD). Returns 0, or -1
// with errno set when the system refused.
//
// The thread sanitizer cannot follow the threads that the C library starts for
// SIGEV_THREAD and crashes in them. In a build with it, and only there, the
// expiries are signalled to one thread of our own, which calls the callback as
// the C library's thread would; the timer itself stays a real POSIX timer.
int createNotifyTimer(void (*callback)(sigval), sigval value, timer_t* timerId);

#endif
