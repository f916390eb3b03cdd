#ifndef PK_TOOLS_PKNETCONF_ALD_QUEUE_CLIENT_H
#define PK_TOOLS_PKNETCONF_ALD_QUEUE_CLIENT_H

#include <pthread.h>
#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "InteractionLayer/interactionMsg.h"

// How one request to the AISG service ended.
enum E_AldExchangeResult {
  E_ALD_EXCHANGE_REPLY = 0,       // the service's reply is in *reply
  E_ALD_EXCHANGE_NOT_SENT = -1,   // the command queue refused the request
  E_ALD_EXCHANGE_WITHDRAWN = -2,  // no reply in time; the request was taken back before the service saw it
  E_ALD_EXCHANGE_NO_REPLY = -3,   // no reply in time, and the service had taken the request
};

// The M-Plane side of the service's queue pair: one request at a time, from any
// number of callers. A request carries the program's own type word and a tag in
// `reserved`, the one field every reply returns unchanged; a reply with another
// tag (late, or another peer's) is dropped, never handed to the next caller.
// Lives as long as the process: its receiving thread stays blocked on the
// response queue, as the service's own threads do.
class AldQueueClient {
 public:
  // The client of the queues named in the service's configuration file.
  static AldQueueClient* getInstance();

  // Sends one frame (address, control, information bytes; at most
  // interaction::kMaxDataLength) and waits for its reply, at most
  // kReplyWaitMs from the enqueue. On E_ALD_EXCHANGE_REPLY, *frameLength is the
  // number of bytes of reply->data that the reply carried.
  int exchange(const uint8_t* frame, size_t length, S_InteractionMsg* reply, size_t* frameLength);

  // The type word of the requests; the service answers any positive one.
  static constexpr int32_t kRequestType = 0x504B4E43;
  static constexpr int kReplyWaitMs = 3000;

 private:
  AldQueueClient(int commandKey, int responseKey);
  static void* receiveThread(void* object);
  // Takes this program's request back from the command queue, if it still waits there.
  bool withdraw();
  int send(const S_InteractionMsg& request, size_t textSize);

  const int _commandKey;
  const int _responseKey;
  int _commandMsgId;   // used under _turnLock
  int _responseMsgId;  // used by the receiving thread only
  std::mutex _turnLock;
  uint8_t _lastTag = 0;

  std::mutex _replyLock;
  std::condition_variable _replyCond;
  int _awaitedTag = -1;
  bool _replyReady = false;
  S_InteractionMsg _reply;
  ssize_t _replyText = 0;
  pthread_t _threadId;

  static AldQueueClient* _pAldQueueClient;
};

#endif
