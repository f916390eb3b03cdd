#include "utility/startGate.h"

#include "utility/threadLoop.h"

namespace {

void unlock(void* mutex) { pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex)); }

}  // namespace

StartGate::StartGate() : _mutex(), _opened(), _open(false) {
  pthread_mutex_init(&_mutex, nullptr);
  pthread_cond_init(&_opened, nullptr);
}

StartGate::~StartGate() {
  pthread_cond_destroy(&_opened);
  pthread_mutex_destroy(&_mutex);
}

void StartGate::open() {
  pthread_mutex_lock(&_mutex);
  _open = true;
  pthread_cond_broadcast(&_opened);
  pthread_mutex_unlock(&_mutex);
}

void StartGate::wait() {
  pthread_mutex_lock(&_mutex);
  // A cancel in pthread_cond_wait takes the mutex again before it unwinds.
  pthread_cleanup_push(unlock, &_mutex);
  cancelPoint([this] {
    while (!_open) pthread_cond_wait(&_opened, &_mutex);
    return 0;
  });
  pthread_cleanup_pop(1);
}
