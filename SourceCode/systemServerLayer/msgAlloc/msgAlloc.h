#ifndef PK_MSGALLOC_MSG_ALLOC_H
#define PK_MSGALLOC_MSG_ALLOC_H

#include <cstddef>

#include "utility/threadLock.h"

// Hands out a fresh, empty private queue to each manager at start-up.
class MsgHandlerManager {
 public:
  static MsgHandlerManager* getInstance();

  // The id of a new, empty queue, or -1. Keys count up from 0x600000 and are never reused.
  int allocMsgHandler();
  // Returns the next key and counts it up; creates no queue.
  int allocMsgKey();

  static constexpr int kFirstMsgKey = 0x600000;

 private:
  MsgHandlerManager();

  ThreadLock _lock;
  int _nextMsgKey;

  static MsgHandlerManager* msgHandlerManagerInstance;
};

// The guarded send of the whole system: refuses a queue that holds 13000 bytes
// or 100 messages. msgp is a record with its 4-byte type word at offset 0;
// msgsz counts its text only. 0 when queued, -1 when not.
int msgcheckAndsnd(int msqid, const void* msgp, std::size_t msgsz, int msgflg);

constexpr unsigned long kQueueByteLimit = 13000;
constexpr unsigned long kQueueMessageLimit = 100;

#endif
