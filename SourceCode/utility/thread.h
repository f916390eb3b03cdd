#ifndef PK_UTILITY_THREAD_H
#define PK_UTILITY_THREAD_H

#include <pthread.h>

enum ThreadStatusEnum { THREAD_STATUS_STOPPED = 0, THREAD_STATUS_CREATED = 1 };

// A general detached thread with a name, a priority (used as a nice increment) and a status.
class Thread {
 public:
  Thread(const char* name, ThreadStatusEnum status, int priority, int schedPolicy);
  virtual ~Thread() = default;
  virtual void run();

  int create();
  static void* entryPoint(void* self);
  int cancel();
  char* getName(char* out);
  int destroy();

  ThreadStatusEnum status() const { return _status; }
  int schedPolicy() const { return _schedPolicy; }

 protected:
  ThreadStatusEnum _status;
  int _schedPolicy;
  int _priority;
  pthread_t _threadId;
  char _threadName[64];
};

// Nothing creates one; it stands for the family of thread owners.
class ThreadManager {
 public:
  ThreadManager() = default;
};

#endif
