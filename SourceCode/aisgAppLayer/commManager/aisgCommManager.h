#ifndef PK_COMMMANAGER_AISG_COMM_MANAGER_H
#define PK_COMMMANAGER_AISG_COMM_MANAGER_H

#include <pthread.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "aisgAppLayer/commManager/aisgSerialportComm.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/deviceCommInterface.h"
#include "utility/appThreadInterface.h"
#include "utility/thread.h"
#include "utility/threadLock.h"

// Never stored by anything; kept for the shape of the manager.
struct S_HdlcPacketNo {
  uint8_t sendNo;
  uint8_t receiveNo;
};

// The command and response service on the AISG bus: one exchange at a time.
class AisgCommManager : public AppThreadInterface, public DeviceCommInterface {
 public:
  static constexpr unsigned int kPollPeriodMs = 10;
  static constexpr unsigned int kRecordSize = sizeof(S_HdlcPacket);
  // The most one message from the port carries, and so the most a reply holds.
  static constexpr unsigned int kRevTextSize = sizeof(S_SerialportMsg::data);

  static AisgCommManager* getInstance();

  ~AisgCommManager() override;

  // AppThreadInterface
  std::string getThreadName() override;
  void createThread() override;
  void deleteThread() override;
  void stopServive() override;
  void startServive() override;
  pthread_t getThreadId() override;

  // DeviceCommInterface
  void commandSend(unsigned char* data, unsigned int length) override;
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override;
  int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) override;
  void clearStatusData() override;
  void apartFromReplies(const std::function<void()>& work) override;

  void commandOnlySend(unsigned char* data, unsigned int length);
  int waitOnlyReadResponseData(unsigned char* data, unsigned int length, unsigned int time);
  int responseDataIsAvailable();
  void setRevDataAvailableFlag(int value);

  unsigned int getCrcErrorCount();
  unsigned int getWithoutStopFlagCount();
  unsigned int getReceivedOctetsCount();
  unsigned int getSendOctetsCount();

  static void* aisgCommManagerThread(void* object);

 private:
  explicit AisgCommManager(const std::string& threadName);

  // Decodes one message from the queue and hands it to the waiter.
  void processMessage(unsigned int length);
  // Before a request goes out, under the command lock: what came before it (bytes still
  // being gathered, messages on their way through the queue, a reply processed and not
  // taken) answers it not.
  void forgetEarlierReplies();
  // Reads the flag and clears it if it was 1; the caller holds _pDataLock.
  int takeFlag();
  // Tests the flag every 10 ms as the time allows; when it is up, takeReply runs
  // under _pDataLock and says whether it took the message or the wait goes on. 0 when
  // a reply was taken, -1 when the time ran out.
  template <typename TakeReply>
  int waitForReply(unsigned int time, TakeReply takeReply);
  unsigned int readCounter(const unsigned int& counter);

  int _msgId;
  Thread _thread;
  std::string _threadName;
  int _serviceFlag;
  ThreadLock* _pCommandLock;
  ThreadLock* _pDataLock;
  AisgSerialportComm* _pSerialportComm;
  std::map<uint8_t, S_HdlcPacketNo> _hdlcPacketNoMap;
  S_SerialportMsg* _pRevMsg;
  S_HdlcPacket* _pHdlcPacket;
  unsigned char _revData[kRevTextSize];
  unsigned int _revDataLength;
  int _revDataAvailableFlag;
  unsigned int _crcErrorCount;
  unsigned int _withoutStopFlagCount;
  unsigned int _receivedOctetsCount;
  unsigned int _sendOctetsCount;
  // Messages processed, and of those to come the ones posted before the request
  // that is out now (see forgetEarlierReplies); both under _pDataLock.
  unsigned int _processedCount;
  unsigned int _staleMessages;

  static AisgCommManager* _pAisgCommManager;
};

#endif
