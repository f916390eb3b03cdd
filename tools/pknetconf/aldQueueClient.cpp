#include "aldQueueClient.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "common/configFile.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/threadLoop.h"

namespace {

// The text of a record up to its data field.
constexpr size_t kReplyHeaderText = interaction::kHeaderSize - kRecordTypeSize;
// The service answers with as much text as the request had plus the header's,
// so a reply's data field carries as many bytes as the request's text has. The
// request is made long enough for the longest reply frame: address, control and
// the longest information field.
constexpr size_t kLongestFrame = 2 + hdlc::kMaxDataLength;

// Opened, never re-created: the service and this program may start in either order.
int openQueue(int key) { return msgget(key, IPC_CREAT | 0666); }

}  // namespace

AldQueueClient* AldQueueClient::_pAldQueueClient = nullptr;

AldQueueClient* AldQueueClient::getInstance() {
  if (_pAldQueueClient == nullptr) {
    ConfigFile* config = ConfigFile::getInstance();
    _pAldQueueClient = new AldQueueClient(config->_commandMsgKey, config->_responseMsgKey);
  }
  return _pAldQueueClient;
}

AldQueueClient::AldQueueClient(int commandKey, int responseKey)
    : _commandKey(commandKey),
      _responseKey(responseKey),
      _commandMsgId(openQueue(commandKey)),
      _responseMsgId(openQueue(responseKey)),
      _reply(),
      _threadId() {
  if (pthread_create(&_threadId, nullptr, receiveThread, this) != 0) {
    fprintf(stderr, "pknetconf: cannot start the reply receiver\n");
  }
}

int AldQueueClient::send(const S_InteractionMsg& request, size_t textSize) {
  // Never waits for room: any local process may fill the queue between the check of
  // its limits and the send, and a blocked send would hold every session past its 3 s.
  if (msgcheckAndsnd(_commandMsgId, &request, textSize, IPC_NOWAIT) == 0) return 0;
  // The queue may have been removed and made anew by the service's side.
  int reopened = openQueue(_commandKey);
  if (reopened < 0 || reopened == _commandMsgId) return -1;
  _commandMsgId = reopened;
  return msgcheckAndsnd(_commandMsgId, &request, textSize, IPC_NOWAIT);
}

bool AldQueueClient::withdraw() {
  S_InteractionMsg request;
  return recordReceive(_commandMsgId, &request, interaction::kMaxText, kRequestType, IPC_NOWAIT | MSG_NOERROR) >= 0;
}

int AldQueueClient::exchange(const uint8_t* frame, size_t length, S_InteractionMsg* reply, size_t* frameLength) {
  std::lock_guard<std::mutex> turn(_turnLock);
  S_InteractionMsg request;
  memset(&request, 0, sizeof(request));
  length = std::min<size_t>(length, interaction::kMaxDataLength);
  request.msgType = kRequestType;
  _lastTag = static_cast<uint8_t>(_lastTag == 0xFF ? 1 : _lastTag + 1);
  request.reserved = _lastTag;
  request.dataLength = static_cast<uint32_t>(length);
  if (length > 0) memcpy(request.data, frame, length);
  size_t textSize = std::min<size_t>(interaction::kMaxText, kReplyHeaderText + std::max(length, kLongestFrame));
  {
    std::lock_guard<std::mutex> lock(_replyLock);
    _awaitedTag = _lastTag;
    _replyReady = false;
  }
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kReplyWaitMs);
  int result = send(request, textSize) == 0 ? E_ALD_EXCHANGE_REPLY : E_ALD_EXCHANGE_NOT_SENT;
  std::unique_lock<std::mutex> lock(_replyLock);
  if (result == E_ALD_EXCHANGE_REPLY && !_replyCond.wait_until(lock, deadline, [this] { return _replyReady; })) {
    result = withdraw() ? E_ALD_EXCHANGE_WITHDRAWN : E_ALD_EXCHANGE_NO_REPLY;
  }
  _awaitedTag = -1;
  if (result == E_ALD_EXCHANGE_REPLY) {
    *reply = _reply;
    size_t carried = static_cast<size_t>(_replyText) - kReplyHeaderText;
    *frameLength = std::min<size_t>({reply->dataLength, carried, interaction::kMaxDataLength});
  }
  return result;
}

void* AldQueueClient::receiveThread(void* object) {
  AldQueueClient* self = static_cast<AldQueueClient*>(object);
  S_InteractionMsg record;
  for (;;) {
    ssize_t n = recordReceive(self->_responseMsgId, &record, interaction::kMaxText, 0, MSG_NOERROR);
    if (n < 0) {
      if (errno != EINTR) {
        usleep(kFailedReceivePauseMs * 1000);
        self->_responseMsgId = openQueue(self->_responseKey);
      }
      continue;
    }
    std::lock_guard<std::mutex> lock(self->_replyLock);
    if (static_cast<size_t>(n) >= kReplyHeaderText && record.reserved == self->_awaitedTag && !self->_replyReady) {
      self->_reply = record;
      self->_replyText = n;
      self->_replyReady = true;
      self->_replyCond.notify_all();
    }
  }
  return nullptr;
}
