#ifndef PK_INTERACTION_PROCESS_COMM_OBJ_H
#define PK_INTERACTION_PROCESS_COMM_OBJ_H

#include <pthread.h>

#include "InteractionLayer/interactionInterface.h"
#include "InteractionLayer/msgCommandManagerInterface.h"
#include "utility/startGate.h"
#include "utility/thread.h"
#include "utility/threadLock.h"

// The endpoint of the M-Plane service: relays its requests from the command
// queue to the interaction manager, and writes each reply on the response queue.
class ProcessCommObj : public InteractionInterface {
 public:
  // Its thread forwards no request before startGate opens.
  explicit ProcessCommObj(StartGate& startGate);
  ~ProcessCommObj() override;
  ProcessCommObj(const ProcessCommObj&) = delete;
  ProcessCommObj& operator=(const ProcessCommObj&) = delete;

  void attach(MsgCommandManagerInterface* manager) override;
  int sendResponseMsg(unsigned char* msg, int length) override;

  int sendCommand(unsigned char* msg, int length);
  void clearMsg(int msgId);
  void createThread();
  void deleteThread();

  static void* processCommThread(void* object);

 private:
  StartGate& _startGate;
  Thread _thread;
  ThreadLock _lock;
  unsigned char* _pMsgBuffer;
  MsgCommandManagerInterface* _pMsgCommandManager;
  int _commandMsgId;
  int _responseMsgId;
};

#endif
