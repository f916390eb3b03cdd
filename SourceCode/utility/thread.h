#ifndef PK_UTILITY_THREAD_H
#define PK_UTILITY_THREAD_H

#include <pthread.h>

#include "utility/debugTrace.h"

enum ThreadStatusEnum { THREAD_STATUS_STOPPED = 0, THREAD_STATUS_CREATED = 1 };

// Whether an owner's createThread traces the new thread's id.
enum E_ThreadIdTrace { E_THREAD_ID_UNTRACED, E_THREAD_ID_TRACED };

// A thread with a name, a priority (used as a nice increment) and a status.
//
// create() and run() make a general detached thread. start() and stop() are the
// way of the managers and endpoints: each holds one Thread for its endless loop
// (see threadLoop.h for the waits of such a loop).
class Thread {
 public:
  Thread(const char* name, ThreadStatusEnum status, int priority, int schedPolicy);
  // A thread for start(): no priority, the default policy.
  explicit Thread(const char* name);
  virtual ~Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  virtual void run();

  int create();
  static void* entryPoint(void* self);
  int cancel();
  char* getName(char* out);
  int destroy();

  // Starts body(arg) with default attributes, so joinable and without priority,
  // and with cancellation disabled but in the waits of threadLoop.h. A failure
  // traces failureText at level 1; then, with E_THREAD_ID_TRACED and either way,
  // "_threadId = %d\n" at level 3; both for the owner's site. 0, or -1.
  int start(void* (*body)(void*), void* arg, S_TraceSite site, const char* failureText,
            E_ThreadIdTrace idTrace);
  // Cancels a thread of start() in its wait and waits for its end, so that the
  // owner may then release what the thread uses. Nothing without a thread.
  void stop();

  ThreadStatusEnum status() const { return _status; }
  int schedPolicy() const { return _schedPolicy; }
  pthread_t getThreadId() const { return _threadId; }

 protected:
  ThreadStatusEnum _status;
  int _schedPolicy;
  int _priority;
  pthread_t _threadId;
  char _threadName[64];

 private:
  static void* bodyPoint(void* self);

  void* (*_body)(void*);
  void* _arg;
  bool _joinable;
};

// Nothing creates one; it stands for the family of thread owners.
class ThreadManager {
 public:
  ThreadManager() = default;
};

#endif
