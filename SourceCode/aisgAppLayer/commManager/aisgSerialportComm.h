#ifndef PK_COMMMANAGER_AISG_SERIALPORT_COMM_H
#define PK_COMMMANAGER_AISG_SERIALPORT_COMM_H

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cstddef>
#include <cstdint>

#include "aisgAppLayer/commManager/rs485Adapter.h"
#include "utility/thread.h"
#include "utility/threadLock.h"

// The queue message of type 3: raw bytes from the port, at most 384 in use.
#pragma pack(push, 1)
struct S_SerialportMsg {
  int32_t msgType;
  unsigned char data[512];
};
#pragma pack(pop)
static_assert(sizeof(S_SerialportMsg) == 516, "S_SerialportMsg is the type word and 512 bytes");

// Between the port and the communication manager: sends ready frames, and gathers
// what the port delivers until 20 ms of silence into one message on the manager's queue.
class AisgSerialportComm {
 public:
  static constexpr unsigned int kRevBufferSize = 384;
  static constexpr unsigned int kSilenceMs = 20;
  static constexpr int kSerialportMsgType = 3;

  explicit AisgSerialportComm(int msgId);
  ~AisgSerialportComm();
  AisgSerialportComm(const AisgSerialportComm&) = delete;
  AisgSerialportComm& operator=(const AisgSerialportComm&) = delete;

  void sendCommandMsg(unsigned char* buffer, int length);
  // Drops the bytes gathered so far, which came before a request now going out and
  // so answer none. Returns the number of messages posted until now.
  unsigned int dropGathered();
  void receiveMsgTransmission();
  static void handle(sigval value);
  static void* serialportCommThread(void* object);
  void createThread();
  void deleteThread();
  int createTimer();
  int resetTimer(unsigned int milliseconds);
  void stopServer();

 private:
  // Restarts the silence timer and adds the bytes of one read to the message being
  // gathered, as far as there is room.
  void gatherReceived(const unsigned char* bytes, unsigned int count);

  Thread _thread;
  int _stopFlag;
  ThreadLock* _pRevLock;
  ThreadLock* _pSendLock;
  Rs485Adapter* _pRs485Adapter;
  int _msgId;
  unsigned char _revBuffer[kRevBufferSize];
  S_SerialportMsg* _pRevMsg;
  timer_t _timerId;
  bool _timerCreated;
  unsigned int _revLength;
  // Messages posted to the manager's queue; under _pRevLock, wraps silently.
  unsigned int _postedCount;
  // What the timer's notification carries: the key under which handle finds this object.
  int _timerKey;
};

#endif
