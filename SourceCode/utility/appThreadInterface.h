#ifndef PK_UTILITY_APP_THREAD_INTERFACE_H
#define PK_UTILITY_APP_THREAD_INTERFACE_H

#include <pthread.h>

#include <string>

// The interface of every long-lived manager with a thread of its own.
class AppThreadInterface {
 public:
  virtual ~AppThreadInterface() = default;
  virtual std::string getThreadName() = 0;
  virtual void createThread() = 0;
  virtual void deleteThread() = 0;
  virtual void stopServive() = 0;
  virtual void startServive() = 0;
  virtual pthread_t getThreadId() = 0;
};

#endif
