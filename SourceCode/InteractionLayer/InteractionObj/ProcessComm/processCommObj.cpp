#include "InteractionLayer/InteractionObj/ProcessComm/processCommObj.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>

#include "InteractionLayer/interactionMsg.h"
#include "common/configFile.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"
#include "utility/debugTrace.h"

namespace {

// Opened, never re-created: requests that waited before the start get served. Opened
// again after a failed receive or send, since the peer may remove a queue and make a
// new one of the same key, which must then be served.
int openPeerQueue(int key) { return msgget(key, IPC_CREAT | 0666); }

}  // namespace

ProcessCommObj::ProcessCommObj(StartGate& startGate)
    : _startGate(startGate),
      _thread("processCommThread"),
      _pMsgBuffer(nullptr),
      _pMsgCommandManager(nullptr),
      _commandMsgId(-1),
      _responseMsgId(-1) {
  _pMsgBuffer = new unsigned char[interaction::kMsgSize]();
  _commandMsgId = openPeerQueue(ConfigFile::getInstance()->_commandMsgKey);
  _responseMsgId = openPeerQueue(ConfigFile::getInstance()->_responseMsgKey);
  createThread();
}

ProcessCommObj::~ProcessCommObj() {
  deleteThread();
  delete[] _pMsgBuffer;
}

void ProcessCommObj::attach(MsgCommandManagerInterface* manager) { _pMsgCommandManager = manager; }

int ProcessCommObj::sendResponseMsg(unsigned char* msg, int length) {
  int size = std::min(std::max(length, static_cast<int>(kRecordTypeSize)), static_cast<int>(interaction::kMsgSize));
  const std::size_t text = static_cast<std::size_t>(size) - kRecordTypeSize;
  clearMsg(_responseMsgId);
  int result = msgcheckAndsnd(_responseMsgId, msg, text, 0);
  // Right after clearMsg only a removed queue refuses: the peer may have made it anew.
  int reopened = result < 0 ? openPeerQueue(ConfigFile::getInstance()->_responseMsgKey) : _responseMsgId;
  if (reopened != _responseMsgId) {
    _responseMsgId = reopened;
    clearMsg(_responseMsgId);
    result = msgcheckAndsnd(_responseMsgId, msg, text, 0);
  }
  return result;
}

int ProcessCommObj::sendCommand(unsigned char* msg, int length) {
  _pMsgCommandManager->sendMsgCommandManager(msg, length);
  return 0;
}

void ProcessCommObj::clearMsg(int msgId) {
  TRACE(4, "clearMsg msgId=%d start.\n", msgId);
  drainQueue(msgId, E_DRAIN_ALL_MSGS);
  TRACE(4, "clearMsg msgId=%d end.\n", msgId);
}

void ProcessCommObj::createThread() {
  _thread.start(processCommThread, this, TRACE_SITE, "fail to create ProcessCommObj thread\n", E_THREAD_ID_TRACED);
}

// Joined rather than detached: the thread works on this object and its buffer.
void ProcessCommObj::deleteThread() { _thread.stop(); }

void* ProcessCommObj::processCommThread(void* object) {
  ProcessCommObj* self = static_cast<ProcessCommObj*>(object);
  TRACE(3, "processCommThread start\n");
  // Requests may already wait on the queue; none is taken before the way up is attached.
  self->_startGate.wait();
  for (;;) {
    TRACE(4, "processCommThread wait msg = %d!\n", self->_commandMsgId);
    ssize_t n = interaction::receiveMsg(self->_commandMsgId, self->_pMsgBuffer);
    if (n < 0) {
      self->_commandMsgId = openPeerQueue(ConfigFile::getInstance()->_commandMsgKey);
      continue;
    }
    setRecordType(self->_pMsgBuffer, E_INTERACTION_MSG_MPLANE);
    self->sendCommand(self->_pMsgBuffer, static_cast<int>(n));
  }
  return nullptr;
}
