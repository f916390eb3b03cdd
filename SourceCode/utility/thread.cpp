#include "utility/thread.h"

#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "utility/debugTrace.h"

Thread::Thread(const char* name, ThreadStatusEnum status, int priority, int schedPolicy)
    : _status(status), _schedPolicy(schedPolicy), _priority(priority), _threadId() {
  memset(_threadName, 0, sizeof(_threadName));
  if (name != nullptr) strncpy(_threadName, name, sizeof(_threadName) - 1);
}

void Thread::run() {
  for (;;) {
    sleep(1);
    puts("Thread Thread::run begin running");
  }
}

int Thread::create() {
  _status = THREAD_STATUS_CREATED;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  pthread_t id;
  int rc = pthread_create(&id, &attr, entryPoint, this);
  pthread_attr_destroy(&attr);
  if (rc != 0) return -1;
  _schedPolicy = SCHED_OTHER;
  struct sched_param param;
  memset(&param, 0, sizeof(param));
  param.sched_priority = _priority;
  // A non-zero priority is refused under SCHED_OTHER; that has no effect on the thread.
  (void)pthread_setschedparam(id, _schedPolicy, &param);
  _threadId = id;
  return 0;
}

void* Thread::entryPoint(void* self) {
  if (self == nullptr) return self;
  Thread* thread = static_cast<Thread*>(self);
  (void)nice(thread->_priority);
  thread->run();
  return self;
}

int Thread::cancel() {
  _status = THREAD_STATUS_STOPPED;
  return 0;
}

char* Thread::getName(char* out) {
  memcpy(out, _threadName, sizeof(_threadName));
  return out;
}

int Thread::destroy() {
  pthread_detach(_threadId);
  TRACE(3, "pthread_detach(%d);\n", static_cast<int>(_threadId));
  pthread_cancel(_threadId);
  TRACE(3, "pthread_cancel(%d)\n", static_cast<int>(_threadId));
  return 0;
}
