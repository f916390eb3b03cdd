#include "utility/thread.h"

#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "utility/debugTrace.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace {

// A cancel unwinds the frames of a thread without the epilogues that clear their
// red zones under the address sanitizer, and the C library's end of the thread
// then runs into them: the stack below the body's frame is made free again.
void clearUnwoundFrames(void* bodyFrame) {
#if defined(__SANITIZE_ADDRESS__)
  pthread_attr_t attributes;
  void* stack = nullptr;
  size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
  pthread_attr_getstack(&attributes, &stack, &size);
  pthread_attr_destroy(&attributes);
  __asan_unpoison_memory_region(stack, static_cast<size_t>(static_cast<char*>(bodyFrame) - static_cast<char*>(stack)));
#else
  (void)bodyFrame;
#endif
}

}  // namespace

Thread::Thread(const char* name, ThreadStatusEnum status, int priority, int schedPolicy)
    : _status(status),
      _schedPolicy(schedPolicy),
      _priority(priority),
      _threadId(),
      _threadName(),
      _body(nullptr),
      _arg(nullptr),
      _joinable(false) {
  if (name != nullptr) strncpy(_threadName, name, sizeof(_threadName) - 1);
}

Thread::Thread(const char* name) : Thread(name, THREAD_STATUS_STOPPED, 0, SCHED_OTHER) {}

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

int Thread::start(void* (*body)(void*), void* arg, S_TraceSite site, const char* failureText,
                  E_ThreadIdTrace idTrace) {
  _body = body;
  _arg = arg;
  const bool started = pthread_create(&_threadId, nullptr, bodyPoint, this) == 0;
  if (started) {
    _status = THREAD_STATUS_CREATED;
    _joinable = true;
  } else {
    DebugTrace(1, site.file, site.line, "%s", failureText);
  }
  if (idTrace == E_THREAD_ID_TRACED) {
    DebugTrace(3, site.file, site.line, "_threadId = %d\n", static_cast<int>(_threadId));
  }
  return started ? 0 : -1;
}

void* Thread::bodyPoint(void* self) {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  Thread* thread = static_cast<Thread*>(self);
  void* result = nullptr;
  char bodyFrame = 0;
  pthread_cleanup_push(clearUnwoundFrames, &bodyFrame);
  result = thread->_body(thread->_arg);
  pthread_cleanup_pop(0);
  return result;
}

void Thread::stop() {
  if (!_joinable) return;
  pthread_cancel(_threadId);
  pthread_join(_threadId, nullptr);
  _joinable = false;
  _status = THREAD_STATUS_STOPPED;
}
