#include "aisgAppLayer/commManager/aisgCommManager.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"
#include "utility/debugTrace.h"

AisgCommManager* AisgCommManager::_pAisgCommManager = nullptr;

AisgCommManager* AisgCommManager::getInstance() {
  if (_pAisgCommManager == nullptr) _pAisgCommManager = new AisgCommManager("AisgCommManagerThread");
  return _pAisgCommManager;
}

AisgCommManager::AisgCommManager(const std::string& threadName)
    : _msgId(-1),
      _thread("aisgCommManagerThread"),
      _threadName(threadName),
      _serviceFlag(0),
      _pCommandLock(nullptr),
      _pDataLock(nullptr),
      _pSerialportComm(nullptr),
      _pRevMsg(nullptr),
      _pHdlcPacket(nullptr),
      _revData(),
      _revDataLength(0),
      _revDataAvailableFlag(0),
      _crcErrorCount(0),
      _withoutStopFlagCount(0),
      _receivedOctetsCount(0),
      _sendOctetsCount(0),
      _processedCount(0),
      _staleMessages(0) {
  _msgId = MsgHandlerManager::getInstance()->allocMsgHandler();
  _pSerialportComm = new AisgSerialportComm(_msgId);
  _pCommandLock = new ThreadLock();
  _pDataLock = new ThreadLock();
  _pRevMsg = new S_SerialportMsg();
  _pHdlcPacket = new S_HdlcPacket();
  clearStatusData();
  createThread();
}

AisgCommManager::~AisgCommManager() {
  // The thread uses the buffers and the data lock, so it goes first.
  deleteThread();
  delete _pSerialportComm;
  delete _pCommandLock;
  delete _pDataLock;
  delete _pRevMsg;
  delete _pHdlcPacket;
  _hdlcPacketNoMap.clear();
  if (_pAisgCommManager == this) _pAisgCommManager = nullptr;
}

std::string AisgCommManager::getThreadName() { return _threadName; }

void AisgCommManager::createThread() {
  _thread.start(aisgCommManagerThread, this, TRACE_SITE, "fail to create AisgCommManager thread!\n",
                E_THREAD_ID_TRACED);
}

// Joined rather than detached, so that nothing is released under a running thread.
void AisgCommManager::deleteThread() { _thread.stop(); }

void AisgCommManager::stopServive() { _serviceFlag = 0; }

void AisgCommManager::startServive() { _serviceFlag = 1; }

pthread_t AisgCommManager::getThreadId() { return _thread.getThreadId(); }

void AisgCommManager::commandSend(unsigned char* data, unsigned int length) {
  ThreadLockGuard guard(*_pCommandLock);
  commandOnlySend(data, length);
}

void AisgCommManager::commandOnlySend(unsigned char* data, unsigned int length) {
  (void)length;
  S_HdlcPacket* packet = reinterpret_cast<S_HdlcPacket*>(data);
  unsigned char frame[kRecordSize];
  memset(frame, 0, sizeof(frame));
  unsigned int frameLength = 0;
  // Before the encode, so that a request that never goes out is not answered by an earlier reply.
  forgetEarlierReplies();
  {
    // The manager thread writes the ALD's numbers under the data lock; reading them
    // under it too gives the frame the numbers of the last reply processed.
    ThreadLockGuard guard(*_pDataLock);
    AldDevice* device = AldDeviceContainer::getInstance()->findAldDeviceObj(packet->address);
    if (device != nullptr) {
      packet->sendNo = device->sendNo;
      packet->receiveNo = device->receiveNo;
    }
    const int result = HdlcProtocol::encode(packet, frame, &frameLength, hdlc::kStructured);
    if (result != hdlc::HDLC_OK) {
      TRACE(1, "data to serialport encode failed -- ret=%d!\n", result);
      return;
    }
  }
  _pSerialportComm->sendCommandMsg(frame, static_cast<int>(frameLength));
  _sendOctetsCount += frameLength;
}

int AisgCommManager::sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) {
  const uint8_t target = packet->address;
  int received;
  {
    ThreadLockGuard guard(*_pCommandLock);
    commandOnlySend(reinterpret_cast<unsigned char*>(packet), kRecordSize);
    memset(packet, 0, kRecordSize);
    received = waitOnlyReadResponseData(reinterpret_cast<unsigned char*>(packet), kRecordSize, time);
  }
  if (received < 0) {
    TRACE(1, "Wait for receive data timeout!\n");
    return E_EXCHANGE_TIME_OUT;
  }
  if (packet->decodeResult != hdlc::HDLC_OK) {
    TRACE(1, "Receive data is error!\n");
    return E_EXCHANGE_UNDECODABLE;
  }
  if (target != aisg::kBroadcastAddress && packet->address != target) {
    TRACE(1, "Reply addr[%d] is not target addr[%d]!\n", packet->address, target);
    return E_EXCHANGE_OTHER_ADDRESS;
  }
  return E_EXCHANGE_SUCCESS;
}

int AisgCommManager::sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) {
  // A request that does not decode has no address to test the replies against.
  S_HdlcPacket request;
  const uint8_t target = *length > 0 && hdlc::decodeFrame(data, static_cast<unsigned int>(*length), request,
                                                          hdlc::kTransparent) == hdlc::HDLC_OK
                             ? request.address
                             : aisg::kBroadcastAddress;
  ThreadLockGuard guard(*_pCommandLock);
  forgetEarlierReplies();
  _pSerialportComm->sendCommandMsg(data, *length);
  _sendOctetsCount += static_cast<unsigned int>(*length);
  memset(data, 0, static_cast<std::size_t>(*length));
  return waitForReply(time, [&] {
    // Another station's late reply answers nothing here; what did not decode is the
    // caller's to judge.
    const S_HdlcPacket& reply = *_pHdlcPacket;
    if (target != aisg::kBroadcastAddress && reply.decodeResult == hdlc::HDLC_OK && reply.address != target) {
      TRACE(2, "Reply addr[%d] is not target addr[%d]!\n", reply.address, target);
      return false;
    }
    memcpy(data, _revData, _revDataLength);
    *length = static_cast<int>(_revDataLength);
    return true;
  });
}

int AisgCommManager::waitOnlyReadResponseData(unsigned char* data, unsigned int length, unsigned int time) {
  const unsigned int count = length > kRecordSize ? kRecordSize : length;
  if (waitForReply(time, [&] {
        memcpy(data, _pHdlcPacket, count);
        return true;
      }) < 0) {
    return -1;
  }
  return static_cast<int>(count);
}

void AisgCommManager::forgetEarlierReplies() {
  const unsigned int posted = _pSerialportComm->dropGathered();
  ThreadLockGuard guard(*_pDataLock);
  _revDataAvailableFlag = 0;
  // The messages posted so far and not yet processed came before the request. More
  // processed than posted means messages from elsewhere on the queue: the count
  // starts afresh from here.
  const int pending = static_cast<int>(posted - _processedCount);
  if (pending < 0) _processedCount = posted;
  _staleMessages = pending > 0 ? static_cast<unsigned int>(pending) : 0;
}

template <typename TakeReply>
int AisgCommManager::waitForReply(unsigned int time, TakeReply takeReply) {
  const unsigned int ticks = time / kPollPeriodMs;
  if (ticks == 0) return -1;
  // The tests fall on absolute 10 ms marks from the start, so the wait does not
  // drift by the time each test and each wake-up take.
  struct timespec next;
  clock_gettime(CLOCK_MONOTONIC, &next);
  for (unsigned int spent = 0;;) {
    {
      // The copy is made under the same lock as the test, so a message that comes
      // right behind cannot mix into it.
      ThreadLockGuard guard(*_pDataLock);
      if (takeFlag() == 1 && takeReply()) return 0;
    }
    // No test after the last sleep: the time is up with it.
    next.tv_nsec += static_cast<long>(kPollPeriodMs) * 1000000L;
    if (next.tv_nsec >= 1000000000L) {
      next.tv_nsec -= 1000000000L;
      ++next.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) == EINTR) {
    }
    if (++spent == ticks) return -1;
  }
}

int AisgCommManager::takeFlag() {
  const int flag = _revDataAvailableFlag;
  if (flag == 1) _revDataAvailableFlag = 0;
  return flag;
}

int AisgCommManager::responseDataIsAvailable() {
  ThreadLockGuard guard(*_pDataLock);
  return takeFlag();
}

void AisgCommManager::setRevDataAvailableFlag(int value) {
  ThreadLockGuard guard(*_pDataLock);
  _revDataAvailableFlag = value;
}

unsigned int AisgCommManager::readCounter(const unsigned int& counter) {
  // The command lock keeps the reader behind a running exchange; the data lock
  // keeps it apart from the manager thread, which counts under that lock.
  ThreadLockGuard commandGuard(*_pCommandLock);
  ThreadLockGuard dataGuard(*_pDataLock);
  return counter;
}

unsigned int AisgCommManager::getCrcErrorCount() { return readCounter(_crcErrorCount); }

unsigned int AisgCommManager::getWithoutStopFlagCount() { return readCounter(_withoutStopFlagCount); }

unsigned int AisgCommManager::getReceivedOctetsCount() { return readCounter(_receivedOctetsCount); }

unsigned int AisgCommManager::getSendOctetsCount() { return readCounter(_sendOctetsCount); }

void AisgCommManager::apartFromReplies(const std::function<void()>& work) {
  ThreadLockGuard guard(*_pDataLock);
  work();
}

void AisgCommManager::clearStatusData() {
  ThreadLockGuard commandGuard(*_pCommandLock);
  ThreadLockGuard dataGuard(*_pDataLock);
  _crcErrorCount = 0;
  _withoutStopFlagCount = 0;
  _receivedOctetsCount = 0;
  _hdlcPacketNoMap.clear();
}

void* AisgCommManager::aisgCommManagerThread(void* object) {
  // The argument, not the singleton pointer: the thread starts before getInstance has stored it.
  AisgCommManager* self = static_cast<AisgCommManager*>(object);
  TRACE(3, "aisgCommManagerThread start");
  for (;;) {
    TRACE(4, "AisgCommManagerThread wait msg = %d!\n", self->_msgId);
    const ssize_t n = receiveOrPause(self->_msgId, self->_pRevMsg, kRevTextSize, TRACE_SITE, kForeignMsgTraceLevel);
    if (n < 0) continue;
    if (n == 0) {
      TRACE(1, "receive empty command -- length=%d , errno=%d!\n", 0, errno);
      continue;
    }
    TRACE(4, "AisgCommManagerThread receive msg -- length = %d\n", static_cast<int>(n));
    self->processMessage(static_cast<unsigned int>(n));
  }
  return nullptr;
}

void AisgCommManager::processMessage(unsigned int length) {
  ThreadLockGuard guard(*_pDataLock);
  ++_processedCount;
  // The raw bytes first, so that they are there whatever the decoder says.
  memcpy(_revData, _pRevMsg->data, length);
  _revDataLength = length;
  const int result = HdlcProtocol::decode(_revData, length, _pHdlcPacket, hdlc::kStructured);
  _pHdlcPacket->decodeResult = result;
  if (result == hdlc::HDLC_OK) {
    AldDevice* device = AldDeviceContainer::getInstance()->findAldDeviceObj(_pHdlcPacket->address);
    if (device != nullptr && _pHdlcPacket->receiveNo != hdlc::kNoSequenceNo) device->setSendNo(_pHdlcPacket->receiveNo);
    if (device != nullptr && _pHdlcPacket->sendNo != hdlc::kNoSequenceNo) {
      device->setReceiveNo(static_cast<unsigned char>(_pHdlcPacket->sendNo + 1));
    }
    _receivedOctetsCount += length;
  } else {
    if (result == hdlc::HDLC_FCS_ERROR) ++_crcErrorCount;
    if (result == hdlc::HDLC_NO_STOP_FLAG) ++_withoutStopFlagCount;
    TRACE(1, "serialport msg decode failed -- ret=%d!\n", result);
  }
  // A message that came before the request out now is no reply to it.
  if (_staleMessages > 0) {
    --_staleMessages;
    return;
  }
  // Up for a bad message too: the waiter ends at once rather than running into its time-out.
  _revDataAvailableFlag = 1;
}
