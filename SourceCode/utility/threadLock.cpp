#include "utility/threadLock.h"

ThreadLock::ThreadLock() { pthread_mutex_init(&_mutex, nullptr); }

ThreadLock::~ThreadLock() { pthread_mutex_destroy(&_mutex); }

int ThreadLock::acquire() { return pthread_mutex_lock(&_mutex); }

int ThreadLock::release() { return pthread_mutex_unlock(&_mutex); }
