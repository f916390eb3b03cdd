#include "systemServerLayer/msgAlloc/msgAlloc.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cstdio>

#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"
#include "utility/debugTrace.h"

MsgHandlerManager* MsgHandlerManager::msgHandlerManagerInstance = nullptr;

MsgHandlerManager::MsgHandlerManager() : _nextMsgKey(kFirstMsgKey) {}

MsgHandlerManager* MsgHandlerManager::getInstance() {
  if (msgHandlerManagerInstance == nullptr) msgHandlerManagerInstance = new MsgHandlerManager();
  return msgHandlerManagerInstance;
}

int MsgHandlerManager::allocMsgHandler() {
  ThreadLockGuard guard(_lock);
  key_t key = _nextMsgKey++;
  int id = msgget(key, IPC_CREAT | 0666);
  if (id < 0) TRACE(1, "create msg error\n");
  // A queue left by an earlier run goes, with everything in it.
  msgctl(id, IPC_RMID, nullptr);
  id = msgget(key, IPC_CREAT | 0666);
  if (id < 0) {
    TRACE(1, "create msg error\n");
    return -1;
  }
  drainQueue(id, E_DRAIN_TEXT_MSGS);
  return id;
}

int MsgHandlerManager::allocMsgKey() { return _nextMsgKey++; }

int msgcheckAndsnd(int msqid, const void* msgp, std::size_t msgsz, int msgflg) {
  struct msqid_ds state;
  if (msgctl(msqid, IPC_STAT, &state) < 0) {
    printf("__msqid 0x%x msgctl failed!\n", msqid);
    return -1;
  }
  if (state.msg_cbytes >= kQueueByteLimit) {
    printf("__msqid 0x%x the current number[%ld] of bytes on queue >= %d !\n", msqid,
           static_cast<long>(state.msg_cbytes), static_cast<int>(kQueueByteLimit));
    return -1;
  }
  if (state.msg_qnum >= kQueueMessageLimit) {
    printf("__msqid 0x%x the number[%ld] of messages currently on queue >= 100!\n", msqid,
           static_cast<long>(state.msg_qnum));
    return -1;
  }
  return recordSend(msqid, msgp, msgsz, msgflg);
}
