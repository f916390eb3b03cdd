#ifndef PK_DEVICEMANAGER_DEVICE_CONTAINER_H
#define PK_DEVICEMANAGER_DEVICE_CONTAINER_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <map>

#include "utility/threadLock.h"

// The design of both device registries: an ordered map of pointers (not owned)
// by an 8-bit key, and a walk cursor. Each calling thread has a cursor of its
// own, kept as the last key it visited, so that walks on different threads do
// not disturb each other and a clear or attach on one thread never leaves
// another thread's cursor dangling.
template <typename T>
class DeviceContainer {
 public:
  using KeyOf = uint8_t (*)(const T*);

  explicit DeviceContainer(KeyOf keyOf) : _keyOf(keyOf) {}
  DeviceContainer(const DeviceContainer&) = delete;
  DeviceContainer& operator=(const DeviceContainer&) = delete;

  // Keeps the old entry when the key is there already.
  void attach(T* object) {
    ThreadLockGuard guard(_lock);
    _map.emplace(_keyOf(object), object);
  }

  void dettach(T* object) {
    ThreadLockGuard guard(_lock);
    _map.erase(_keyOf(object));
  }

  void clear() {
    ThreadLockGuard guard(_lock);
    _map.clear();
    for (auto& entry : _cursors) entry.second.atEnd = true;
  }

  T* find(uint8_t key) {
    ThreadLockGuard guard(_lock);
    auto it = _map.find(key);
    return it == _map.end() ? nullptr : it->second;
  }

  T* begin() {
    ThreadLockGuard guard(_lock);
    Cursor& cursor = _cursors[pthread_self()];
    if (_map.empty()) return nullptr;
    cursor.key = _map.begin()->first;
    cursor.atEnd = false;
    return _map.begin()->second;
  }

  T* next() {
    ThreadLockGuard guard(_lock);
    Cursor& cursor = _cursors[pthread_self()];
    if (_map.empty()) {
      cursor.atEnd = true;
      return nullptr;
    }
    if (cursor.atEnd) return nullptr;
    auto it = _map.upper_bound(cursor.key);
    if (it == _map.end()) {
      cursor.atEnd = true;
      return nullptr;
    }
    cursor.key = it->first;
    return it->second;
  }

  bool isEnd() {
    ThreadLockGuard guard(_lock);
    auto it = _cursors.find(pthread_self());
    return it == _cursors.end() || it->second.atEnd;
  }

  std::size_t size() {
    ThreadLockGuard guard(_lock);
    return _map.size();
  }

 private:
  struct Cursor {
    uint8_t key = 0;
    bool atEnd = true;
  };

  KeyOf _keyOf;
  ThreadLock _lock;
  std::map<uint8_t, T*> _map;
  // One cursor per walking thread; a handful of threads ever walk.
  std::map<pthread_t, Cursor> _cursors;
};

#endif
