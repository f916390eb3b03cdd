#include "aisgAppLayer/commManager/aisgSerialportComm.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "common/configFile.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "utility/debugTrace.h"
#include "utility/hexText.h"
#include "utility/notifyTimer.h"
#include "utility/threadLoop.h"

namespace {

// A dump line keeps to 255 characters, three a byte ("7E "): 85 bytes are shown whole.
constexpr std::size_t kDumpLineSize = 255;
constexpr unsigned int kDumpWholeBytes = kDumpLineSize / 3;
// A longer message shows this many bytes, leaving room for the mark of the cut.
constexpr unsigned int kDumpCutBytes = 80;

// glibc may start the notification thread of an expiry just before timer_delete,
// and that thread calls handle afterwards. So the timer carries a key rather than
// the object's address, and handle looks the object up here under the lock that
// the destructor takes to withdraw it: a late notification finds nothing.
struct TimerClients {
  ThreadLock lock;
  std::map<int, AisgSerialportComm*> objects;
  int nextKey = 1;
};

TimerClients& timerClients() {
  // Never destroyed, since a notification thread may still run while the process exits.
  static TimerClients* clients = new TimerClients();
  return *clients;
}


// The one dump of both directions.
void traceHexDump(const unsigned char* bytes, unsigned int length) {
  const unsigned int shown = length <= kDumpWholeBytes ? length : kDumpCutBytes;
  std::string text = hexText(bytes, shown);
  if (shown > 0) text += ' ';
  if (shown < length) text += "...(" + std::to_string(length) + " bytes)";
  TRACE(3, "%s\n", text.c_str());
}

}  // namespace

AisgSerialportComm::AisgSerialportComm(int msgId)
    : _thread("serialportCommThread"),
      _stopFlag(0),
      _pRevLock(nullptr),
      _pSendLock(nullptr),
      _pRs485Adapter(nullptr),
      _msgId(msgId),
      _revBuffer(),
      _pRevMsg(nullptr),
      _timerId(),
      _timerCreated(false),
      _revLength(0),
      _postedCount(0),
      _timerKey(0) {
  _pRevLock = new ThreadLock();
  _pSendLock = new ThreadLock();
  _pRs485Adapter = new Rs485Adapter(ConfigFile::getInstance()->_portName.c_str());
  const S_UartConfig busConfig = {9600, 8, 1, 'N'};
  _pRs485Adapter->setConfig(busConfig);
  _pRevMsg = new S_SerialportMsg();
  createTimer();
  createThread();
}

AisgSerialportComm::~AisgSerialportComm() {
  // First the thread, which appends and restarts the timer; then the timer; then
  // withdraw the key, which waits for a notification that is still running.
  deleteThread();
  if (_timerCreated) timer_delete(_timerId);
  {
    TimerClients& clients = timerClients();
    ThreadLockGuard guard(clients.lock);
    clients.objects.erase(_timerKey);
  }
  delete _pRs485Adapter;
  delete _pRevLock;
  delete _pSendLock;
  delete _pRevMsg;
}

void AisgSerialportComm::sendCommandMsg(unsigned char* buffer, int length) {
  ThreadLockGuard guard(*_pSendLock);
  TRACE(3, "Rs485 send Data(%d).\n", length);
  traceHexDump(buffer, static_cast<unsigned int>(length));
  _pRs485Adapter->send(buffer, static_cast<unsigned int>(length));
}

void AisgSerialportComm::receiveMsgTransmission() {
  ThreadLockGuard guard(*_pRevLock);
  if (_revLength == 0) {
    TRACE(2, "%s() no data transmission -- _revLength = %d !!!\n", "receiveMsgTransmission", _revLength);
    return;
  }
  TRACE(3, "Rs485 receive data _revLength = %d \n", _revLength);
  traceHexDump(_revBuffer, _revLength);
  memcpy(_pRevMsg->data, _revBuffer, _revLength);
  _pRevMsg->msgType = kSerialportMsgType;
  if (msgcheckAndsnd(_msgId, _pRevMsg, _revLength, 0) == 0) ++_postedCount;
  // A refused message is lost: the next one starts empty all the same.
  _revLength = 0;
}

unsigned int AisgSerialportComm::dropGathered() {
  ThreadLockGuard guard(*_pRevLock);
  if (_revLength > 0) {
    _revLength = 0;
    // Nothing is left for the silence to end.
    resetTimer(0);
  }
  return _postedCount;
}

void AisgSerialportComm::handle(sigval value) {
  TimerClients& clients = timerClients();
  ThreadLockGuard guard(clients.lock);
  auto found = clients.objects.find(value.sival_int);
  if (found != clients.objects.end()) found->second->receiveMsgTransmission();
}

void* AisgSerialportComm::serialportCommThread(void* object) {
  AisgSerialportComm* self = static_cast<AisgSerialportComm*>(object);
  unsigned char buffer[kRevBufferSize];
  memset(buffer, 0, sizeof(buffer));
  const bool waitsForTheLine = self->_pRs485Adapter->isTerminal();
  TRACE(3, "serialportCommThread start");
  for (;;) {
    TRACE(4, "2020-03 AisgSerialportComm:modualCommThread running .........\n");
    const int count = cancelPoint([&] { return self->_pRs485Adapter->receive(buffer, kRevBufferSize); });
    if (count > 0) self->gatherReceived(buffer, static_cast<unsigned int>(count));
    // A port that is not open (or hung up) fails again at once, and a file that is no
    // terminal answers at once, with nothing or without end (/dev/zero): read either
    // once a second.
    if (count <= 0 || !waitsForTheLine) pauseMs(kPortRetryPauseMs);
  }
  return nullptr;
}

void AisgSerialportComm::gatherReceived(const unsigned char* bytes, unsigned int count) {
  // The timer's callback drains the same buffer under this lock. Restarted and appended
  // in one hold: a countdown that ran out between the two would find nothing to post,
  // and the bytes would wait for the next reply and spoil it.
  ThreadLockGuard guard(*_pRevLock);
  // Restarted even when the buffer is full: the message ends only with silence.
  resetTimer(kSilenceMs);
  const unsigned int room = kRevBufferSize - _revLength;
  if (count > room) count = room;
  memcpy(_revBuffer + _revLength, bytes, count);
  _revLength += count;
}

void AisgSerialportComm::createThread() {
  _thread.start(serialportCommThread, this, TRACE_SITE, "fail to create serialportCommThread thread\n",
                E_THREAD_ID_UNTRACED);
}

// Joined rather than detached, so that nothing is released under a running thread.
void AisgSerialportComm::deleteThread() { _thread.stop(); }

int AisgSerialportComm::createTimer() {
  TimerClients& clients = timerClients();
  {
    ThreadLockGuard guard(clients.lock);
    _timerKey = clients.nextKey++;
    clients.objects[_timerKey] = this;
  }
  sigval value;
  value.sival_int = _timerKey;
  if (createNotifyTimer(handle, value, &_timerId) != 0) {
    TRACE(1, "Error:%s create timer error\n", "createTimer");
    return -1;
  }
  _timerCreated = true;
  return 0;
}

int AisgSerialportComm::resetTimer(unsigned int milliseconds) {
  if (!_timerCreated) return -1;
  itimerspec countdown;
  memset(&countdown, 0, sizeof(countdown));
  countdown.it_value.tv_sec = milliseconds / 1000;
  countdown.it_value.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  if (timer_settime(_timerId, 0, &countdown, nullptr) != 0) {
    TRACE(1, "Error:%s reset timer error\n", "resetTimer");
    return -1;
  }
  return 0;
}

void AisgSerialportComm::stopServer() { _stopFlag = 1; }
