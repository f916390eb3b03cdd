#include "utility/notifyTimer.h"

#include <cstring>

#if defined(__SANITIZE_THREAD__)
#include <pthread.h>
#include <unistd.h>

#include <future>
#include <vector>

#include "utility/threadLock.h"

namespace {

struct Notification {
  void (*callback)(sigval);
  sigval value;
};

// The timers of the process, by the key that their signal carries. Timers are
// created once per owner, so the list stays as short as the list of owners.
struct Notifier {
  ThreadLock lock;
  std::vector<Notification> timers;
  pid_t threadId = 0;
};

int notifySignal() { return SIGRTMIN + 3; }

void* notifyLoop(void* self) {
  Notifier* notifier = static_cast<Notifier*>(self);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, notifySignal());
  for (;;) {
    siginfo_t info;
    if (sigwaitinfo(&signals, &info) != notifySignal()) continue;
    Notification notification;
    {
      ThreadLockGuard guard(notifier->lock);
      notification = notifier->timers.at(static_cast<size_t>(info.si_value.sival_int));
    }
    notification.callback(notification.value);
  }
  return nullptr;
}

Notifier& notifier() {
  // Never destroyed: its thread runs to the end of the process.
  static Notifier* instance = [] {
    Notifier* created = new Notifier();
    sigset_t signals;
    sigset_t previous;
    sigemptyset(&signals);
    sigaddset(&signals, notifySignal());
    // The signal stays blocked in the notifier, which takes it with sigwaitinfo.
    pthread_sigmask(SIG_BLOCK, &signals, &previous);
    std::promise<pid_t> started;
    struct Start {
      Notifier* notifier;
      std::promise<pid_t>* started;
    } start{created, &started};
    pthread_t thread;
    pthread_create(
        &thread, nullptr,
        [](void* arg) -> void* {
          Start* s = static_cast<Start*>(arg);
          Notifier* n = s->notifier;
          s->started->set_value(gettid());
          return notifyLoop(n);
        },
        &start);
    pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    created->threadId = started.get_future().get();
    return created;
  }();
  return *instance;
}

}  // namespace

int createNotifyTimer(void (*callback)(sigval), sigval value, timer_t* timerId) {
  Notifier& n = notifier();
  int key;
  {
    ThreadLockGuard guard(n.lock);
    key = static_cast<int>(n.timers.size());
    n.timers.push_back(Notification{callback, value});
  }
  struct sigevent event;
  memset(&event, 0, sizeof(event));
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = notifySignal();
  event.sigev_value.sival_int = key;
  event._sigev_un._tid = n.threadId;
  return timer_create(CLOCK_REALTIME, &event, timerId);
}

#else

int createNotifyTimer(void (*callback)(sigval), sigval value, timer_t* timerId) {
  struct sigevent event;
  memset(&event, 0, sizeof(event));
  event.sigev_notify = SIGEV_THREAD;
  event.sigev_notify_function = callback;
  event.sigev_notify_attributes = nullptr;
  event.sigev_value = value;
  return timer_create(CLOCK_REALTIME, &event, timerId);
}

#endif
