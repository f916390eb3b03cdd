#include "InteractionLayer/interactionManager.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "InteractionLayer/InteractionObj/CommandLine/commandLineObj.h"
#include "InteractionLayer/InteractionObj/ProcessComm/processCommObj.h"
#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "serviceEntry.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/debugTrace.h"

InteractionManager* InteractionManager::_pInteractionManager = nullptr;

namespace {

const char* const kTextTooShort = "Command msg is incorrect,the size less then minsize.";
const char* const kTextBadPacket = "The HDLC packet is incorrect.";
const char* const kTextNotReady = "ALD is not ready.";
const char* const kTextBusError = "HDLC bus error.";
const char* const kTextTimeOut = "ALD reply time out.";
const char* const kTextReplyDecode = "receive hdlc data decode failed.";

// Address and control byte in front of the information field of an M-Plane request.
constexpr uint32_t kMPlaneAddressControl = 2;

// A reply never claims more than the record holds. Cut before the addition, so
// that no size can wrap around to a reply shorter than its header.
unsigned int replySize(unsigned int size) {
  return std::min(size, interaction::kMsgSize - interaction::kHeaderSize) + interaction::kHeaderSize;
}

// A failure reply: result 0 and the whole errorInfo field, text and zeros; nothing else changes.
unsigned int fail(S_InteractionMsg* msg, const char* text, unsigned int size) {
  msg->result = 0;
  memset(msg->errorInfo, 0, sizeof(msg->errorInfo));
  snprintf(msg->errorInfo, sizeof(msg->errorInfo), "%s", text);
  return replySize(size);
}

void setSuccess(InteractionBusInterface& bus, S_InteractionMsg* msg) {
  msg->result = 1;
  msg->crcErrorCount = bus.getCrcErrorCount();
  msg->withoutStopFlagCount = bus.getWithoutStopFlagCount();
  msg->receivedOctetsCount = bus.getReceivedOctetsCount();
}

// The bus in service. The singleton is taken anew for every call: the first
// request may be taken before start-up has made the communication manager.
class CommManagerBus : public InteractionBusInterface {
 public:
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    return AisgCommManager::getInstance()->sendCmdAndWaitResponse(packet, time);
  }
  int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) override {
    return AisgCommManager::getInstance()->sendCmdAndWaitResponse(data, length, time);
  }
  unsigned int getCrcErrorCount() override { return AisgCommManager::getInstance()->getCrcErrorCount(); }
  unsigned int getWithoutStopFlagCount() override {
    return AisgCommManager::getInstance()->getWithoutStopFlagCount();
  }
  unsigned int getReceivedOctetsCount() override { return AisgCommManager::getInstance()->getReceivedOctetsCount(); }
};

// Serves a console record; returns the reply size.
unsigned int serveConsole(InteractionBusInterface& bus, S_InteractionMsg* msg, unsigned int size) {
  if (size <= interaction::kHeaderSize) return fail(msg, kTextTooShort, size);
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  uint32_t frameLength = msg->dataLength;
  // The frame has to lie in the data field, and its data must leave room for the FCS behind it.
  if (frameLength > interaction::kMaxDataLength ||
      HdlcProtocol::decode(msg->data, frameLength, &packet, hdlc::kStructured) != 0 ||
      packet.dataLength > hdlc::kMaxDataLength) {
    return fail(msg, kTextBadPacket, size);
  }
  if (packet.address != aisg::kBroadcastAddress) {
    AldDevice* ald = AldDeviceContainer::getInstance()->findAldDeviceObj(packet.address);
    if (ald == nullptr) {
      char text[interaction::kErrorInfoSize];
      snprintf(text, sizeof(text) - 1, "Not find ALD[addr=%d].", packet.address);
      return fail(msg, text, size);
    }
    // The run machine writes the status on its own thread; one byte, read whole.
    if (ald->getStatus() != RUNNING) {
      return fail(msg, kTextNotReady, size);
    }
  }
  int result = bus.sendCmdAndWaitResponse(&packet, InteractionManager::kConsoleReplyWaitMs);
  if (result == E_EXCHANGE_UNDECODABLE) return fail(msg, kTextBusError, size);
  if (result == E_EXCHANGE_TIME_OUT) return fail(msg, kTextTimeOut, size);
  // Encoded aside first: a reply that no longer fits once stuffed again is a
  // failure, and must not leave a half-written success behind.
  unsigned char frame[hdlc::kMaxFrame];
  unsigned int length = 0;
  if (HdlcProtocol::encode(&packet, frame, &length, hdlc::kStructured) != 0) return fail(msg, kTextBusError, size);
  setSuccess(bus, msg);
  msg->dataLength = length;
  memcpy(msg->data, frame, length);
  return length + interaction::kHeaderSize;
}

// Serves an M-Plane record; returns the reply size.
unsigned int serveMPlane(InteractionBusInterface& bus, S_InteractionMsg* msg, unsigned int size) {
  unsigned char frame[InteractionManager::kMPlaneFrameBufferSize];
  memset(frame, 0, sizeof(frame));
  int length = 0;
  if (size <= interaction::kHeaderSize) return fail(msg, kTextTooShort, size);
  uint32_t requestLength = msg->dataLength;
  if (requestLength < kMPlaneAddressControl || requestLength > kMPlaneAddressControl + hdlc::kMaxDataLength) {
    return fail(msg, kTextBadPacket, size);
  }
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  memcpy(hdlc::frameArea(packet), msg->data, requestLength);
  packet.dataLength = static_cast<uint16_t>(requestLength - kMPlaneAddressControl);
  unsigned int encoded = 0;
  if (HdlcProtocol::encode(&packet, frame, &encoded, hdlc::kTransparent) != 0) return fail(msg, kTextBadPacket, size);
  length = static_cast<int>(encoded);
  if (bus.sendCmdAndWaitResponse(frame, &length, InteractionManager::kMPlaneReplyWaitMs) != E_EXCHANGE_SUCCESS) {
    return fail(msg, kTextTimeOut, size);
  }
  if (HdlcProtocol::decode(frame, static_cast<unsigned int>(length), &packet, hdlc::kTransparent) != 0) {
    return fail(msg, kTextReplyDecode, size);
  }
  setSuccess(bus, msg);
  msg->dataLength = packet.dataLength + kMPlaneAddressControl;
  memcpy(msg->data, hdlc::frameArea(packet), msg->dataLength);
  // The reply size follows the request, never the reply's own length.
  return replySize(size);
}

}  // namespace

InteractionManager* InteractionManager::getInstance() {
  if (_pInteractionManager == nullptr) _pInteractionManager = new InteractionManager("InteractionManagerThread");
  return _pInteractionManager;
}

void InteractionManager::openStartGate() { _startGate.open(); }

InteractionManager::InteractionManager(const std::string& threadName)
    : _pMsgManageInterface(nullptr),
      _msgId(-1),
      _pMsgBuffer(nullptr),
      _thread("interactionManagerThread"),
      _threadName(threadName),
      _serviceFlag(0),
      _pBus(nullptr) {
  _msgId = MsgHandlerManager::getInstance()->allocMsgHandler();
  // Made here, on the initial thread: the console and the services look ALDs up
  // on their own threads, and a singleton's first call takes no lock.
  AldDeviceContainer::getInstance();
  // Cleared once, so that a short record never lets a service read stale bytes of an older one.
  _pMsgBuffer = new unsigned char[interaction::kMsgSize]();
  _pMsgManageInterface = new InteractionMsgManageInterface(_msgId);
  createInteractionInterface();
  createThread();
}

InteractionManager::~InteractionManager() {
  // The threads first, then what they use.
  deleteThread();
  _interactionMap.clear();
  _ownEndpoints.clear();
  delete _pMsgManageInterface;
  delete[] _pMsgBuffer;
}

std::string InteractionManager::getThreadName() { return _threadName; }

void InteractionManager::createThread() {
  _thread.start(interactionManagerThread, this, TRACE_SITE, "fail to create InteractionManager thread!\n",
                E_THREAD_ID_TRACED);
}

// Joined rather than detached: the thread works on this object and its buffer.
void InteractionManager::deleteThread() { _thread.stop(); }

void InteractionManager::stopServive() { _serviceFlag = 0; }

void InteractionManager::startServive() { _serviceFlag = 1; }

pthread_t InteractionManager::getThreadId() { return _thread.getThreadId(); }

InteractionInterface* InteractionManager::registerInteraction(long msgType, InteractionInterface* endpoint) {
  endpoint->attach(_pMsgManageInterface);
  InteractionInterface*& entry = _interactionMap[msgType];
  InteractionInterface* replaced = entry;
  entry = endpoint;
  return replaced;
}

InteractionBusInterface* InteractionManager::bus() {
  // Never destroyed, not even at exit, when a request may still be in service.
  static InteractionBusInterface* const commManager = new CommManagerBus();
  InteractionBusInterface* bus = _pBus;
  return bus != nullptr ? bus : commManager;
}

int InteractionManager::createInteractionInterface() {
  if (commandObjEnable != 0) {
    _ownEndpoints.emplace_back(new CommandLineObj(_startGate));
    registerInteraction(E_INTERACTION_MSG_COMMAND_LINE, _ownEndpoints.back().get());
  }
  _ownEndpoints.emplace_back(new ProcessCommObj(_startGate));
  registerInteraction(E_INTERACTION_MSG_MPLANE, _ownEndpoints.back().get());
  return 0;
}

int InteractionManager::sendInteractionResponseMsg(unsigned char* msg, unsigned int size) {
  long port = recordType(msg);
  auto it = _interactionMap.find(port);
  if (it == _interactionMap.end()) {
    TRACE(1, "not find port[%d]!\n", static_cast<int>(port));
    return 0;
  }
  TRACE(3, "send reply to port[%d]!\n", static_cast<int>(port));
  it->second->sendResponseMsg(msg, static_cast<int>(std::min(size, interaction::kMsgSize)));
  return 0;
}

int InteractionManager::messageProcessingService(S_InteractionMsg* msg, unsigned int size) {
  unsigned int reply = serveConsole(*bus(), msg, size);
  sendInteractionResponseMsg(reinterpret_cast<unsigned char*>(msg), reply);
  return 0;
}

int InteractionManager::messageProcessingMPlaneService(S_InteractionMsg* msg, unsigned int size) {
  unsigned int reply = serveMPlane(*bus(), msg, size);
  sendInteractionResponseMsg(reinterpret_cast<unsigned char*>(msg), reply);
  return 0;
}

void* InteractionManager::interactionManagerThread(void* object) {
  InteractionManager* self = static_cast<InteractionManager*>(object);
  TRACE(3, "interactionManagerThread start\n");
  self->_startGate.wait();
  for (;;) {
    TRACE(4, "interactionManagerThread wait msg = %d!\n", self->_msgId);
    ssize_t n = interaction::receiveMsg(self->_msgId, self->_pMsgBuffer);
    if (n < 0) continue;
    int32_t msgType = recordType(self->_pMsgBuffer);
    TRACE(4, "interactionManagerThread receive msg -- length = %d , msgType = %d\n", static_cast<int>(n), msgType);
    S_InteractionMsg* msg = reinterpret_cast<S_InteractionMsg*>(self->_pMsgBuffer);
    if (msgType == E_INTERACTION_MSG_MPLANE) {
      self->messageProcessingMPlaneService(msg, static_cast<unsigned int>(n));
    } else if (msgType == E_INTERACTION_MSG_COMMAND_LINE) {
      self->messageProcessingService(msg, static_cast<unsigned int>(n));
    }
  }
  return nullptr;
}
