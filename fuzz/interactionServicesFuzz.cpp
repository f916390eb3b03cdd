// The two message services against arbitrary records, received sizes and bus
// answers: each request gets exactly one reply, within the record, with the
// fields its outcome may change changed and every other one as it came, and
// nothing is read or written outside the record (an exact-size heap copy).
//
// Input: byte 0 flags (bit 0 console service, else M-Plane; bits 1-2 the
// exchange's result 0, -1, -2, -3; bit 3 the received size taken whole, else
// cut to what a queue can carry), bytes 1-4 the received size, bytes 5-6 the
// length N of the bus's reply, N reply bytes, then the record from offset 0 (its
// type word is set to the service's own, as the interaction thread routes it).
// ALD 1 is RUNNING, ALD 2 ADDRESSED, ALD 3 LOST; no other is known.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "InteractionLayer/interactionManager.h"
#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/debugTrace.h"

namespace {

constexpr unsigned int kCrcErrors = 0x11111111;
constexpr unsigned int kWithoutStopFlag = 0x22222222;
constexpr unsigned int kReceivedOctets = 0x33333333;

// An exact-size heap copy of some input bytes.
struct Bytes {
  Bytes(const uint8_t* data, size_t size) : bytes(new unsigned char[size]), size(size) {
    if (size > 0) memcpy(bytes.get(), data, size);
  }
  std::unique_ptr<unsigned char[]> bytes;
  size_t size;
};

// Reads every byte of a buffer, so that a length beyond it is caught.
unsigned int touch(const unsigned char* data, size_t size) {
  unsigned int sum = 0;
  for (size_t i = 0; i < size; ++i) sum += data[i];
  return sum;
}

// Answers at once, as the communication manager would after its wait.
class FakeBus : public InteractionBusInterface {
 public:
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int) override {
    ++exchanges;
    sink += touch(reinterpret_cast<unsigned char*>(packet), sizeof(*packet));
    if (result == E_EXCHANGE_TIME_OUT || result == E_EXCHANGE_UNDECODABLE) return result;
    // The manager hands back only a reply that decoded.
    if (hdlc::decodeFrame(reply->bytes.get(), static_cast<unsigned int>(reply->size), *packet, hdlc::kStructured) !=
        hdlc::HDLC_OK) {
      return E_EXCHANGE_UNDECODABLE;
    }
    return result;
  }
  int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int) override {
    ++exchanges;
    if (*length < 0 || static_cast<unsigned int>(*length) > hdlc::kMaxFrame) abort();
    sink += touch(data, static_cast<size_t>(*length));
    if (result != E_EXCHANGE_SUCCESS) return -1;
    // No more than the manager's receive buffer holds.
    size_t size = reply->size < AisgCommManager::kRevTextSize ? reply->size : AisgCommManager::kRevTextSize;
    if (size > 0) memcpy(data, reply->bytes.get(), size);
    *length = static_cast<int>(size);
    return 0;
  }
  unsigned int getCrcErrorCount() override { return kCrcErrors; }
  unsigned int getWithoutStopFlagCount() override { return kWithoutStopFlag; }
  unsigned int getReceivedOctetsCount() override { return kReceivedOctets; }

  int result = 0;
  const Bytes* reply = nullptr;
  int exchanges = 0;
  unsigned int sink = 0;
};

// Counts the replies routed to it and reads each one whole.
class CountingEndpoint : public InteractionInterface {
 public:
  void attach(MsgCommandManagerInterface*) override {}
  int sendResponseMsg(unsigned char* msg, int size) override {
    ++replies;
    lastSize = size;
    if (size > 0) sink += touch(msg, static_cast<size_t>(size));
    return 0;
  }
  int replies = 0;
  int lastSize = -1;
  unsigned int sink = 0;
};

FakeBus gBus;
CountingEndpoint gEndpoint;

InteractionManager* setUp() {
  gLogLevel = 0;
  InteractionManager* manager = InteractionManager::getInstance();
  manager->setBus(&gBus);
  manager->registerInteraction(E_INTERACTION_MSG_MPLANE, &gEndpoint);
  manager->registerInteraction(E_INTERACTION_MSG_COMMAND_LINE, &gEndpoint);
  static AldDevice alds[3];
  const uint8_t statuses[3] = {RUNNING, ADDRESSED, LOST};
  for (uint8_t i = 0; i < 3; ++i) {
    alds[i].address = static_cast<uint8_t>(i + 1);
    alds[i].baseInfo.address = static_cast<uint8_t>(i + 1);
    alds[i].setStatus(statuses[i]);
    AldDeviceContainer::getInstance()->attach(&alds[i]);
  }
  return manager;
}

uint32_t littleEndian(const uint8_t* bytes, size_t count) {
  uint32_t value = 0;
  for (size_t i = 0; i < count; ++i) value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
  return value;
}

void checkReply(const S_InteractionMsg& request, const S_InteractionMsg& reply, bool console, unsigned int size) {
  const unsigned char* before = reinterpret_cast<const unsigned char*>(&request);
  const unsigned char* after = reinterpret_cast<const unsigned char*>(&reply);
  if (gEndpoint.replies != 1 || gBus.exchanges > 1) abort();
  if (gEndpoint.lastSize < static_cast<int>(interaction::kHeaderSize) ||
      gEndpoint.lastSize > static_cast<int>(interaction::kMsgSize)) {
    abort();
  }
  if (memcmp(before, after, offsetof(S_InteractionMsg, result)) != 0) abort();  // type word and reserved
  const size_t counters = offsetof(S_InteractionMsg, crcErrorCount);
  if (reply.result == 0) {
    size_t text = strnlen(reply.errorInfo, sizeof(reply.errorInfo));
    if (text == 0 || text == sizeof(reply.errorInfo)) abort();
    for (size_t i = text; i < sizeof(reply.errorInfo); ++i) {
      if (reply.errorInfo[i] != 0) abort();
    }
    if (memcmp(before + counters, after + counters, sizeof(S_InteractionMsg) - counters) != 0) abort();
    return;
  }
  if (reply.result != 1 || gBus.exchanges != 1) abort();
  if (memcmp(request.errorInfo, reply.errorInfo, sizeof(reply.errorInfo)) != 0) abort();
  if (reply.crcErrorCount != kCrcErrors || reply.withoutStopFlagCount != kWithoutStopFlag ||
      reply.receivedOctetsCount != kReceivedOctets) {
    abort();
  }
  uint32_t dataLength = reply.dataLength;
  if (console) {
    // The reply frame in its form on the wire, and the reply as long as it.
    if (dataLength > hdlc::kMaxFrame || gEndpoint.lastSize != static_cast<int>(dataLength + interaction::kHeaderSize)) {
      abort();
    }
    S_HdlcPacket packet;
    if (hdlc::decodeFrame(reply.data, dataLength, packet, hdlc::kStructured) != hdlc::HDLC_OK) abort();
  } else {
    // Address, control and information; the reply as long as the request.
    if (dataLength < 2 || dataLength > 2 + hdlc::kMaxDataLength) abort();
    unsigned int expected = size < interaction::kMaxDataLength ? size + interaction::kHeaderSize : interaction::kMsgSize;
    if (gEndpoint.lastSize != static_cast<int>(expected)) abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static InteractionManager* manager = setUp();
  uint8_t head[7] = {0};
  memcpy(head, data, size < sizeof(head) ? size : sizeof(head));
  size_t used = size < sizeof(head) ? size : sizeof(head);
  const bool console = (head[0] & 0x01) != 0;
  static const int kResults[] = {E_EXCHANGE_SUCCESS, E_EXCHANGE_OTHER_ADDRESS, E_EXCHANGE_TIME_OUT,
                                 E_EXCHANGE_UNDECODABLE};
  gBus.result = kResults[(head[0] >> 1) & 0x03];
  unsigned int received = littleEndian(head + 1, 4);
  if ((head[0] & 0x08) == 0) received %= interaction::kMaxText + 1;
  size_t replyLength = littleEndian(head + 5, 2);
  if (replyLength > size - used) replyLength = size - used;
  Bytes reply(data + used, replyLength);
  used += replyLength;

  std::unique_ptr<unsigned char[]> record(new unsigned char[interaction::kMsgSize]);
  memset(record.get(), 0, interaction::kMsgSize);
  size_t recordBytes = size - used < interaction::kMsgSize ? size - used : interaction::kMsgSize;
  if (recordBytes > 0) memcpy(record.get(), data + used, recordBytes);
  setRecordType(record.get(), console ? E_INTERACTION_MSG_COMMAND_LINE : E_INTERACTION_MSG_MPLANE);
  S_InteractionMsg request;
  memcpy(&request, record.get(), sizeof(request));

  gBus.reply = &reply;
  gBus.exchanges = 0;
  gEndpoint.replies = 0;
  gEndpoint.lastSize = -1;
  S_InteractionMsg* msg = reinterpret_cast<S_InteractionMsg*>(record.get());
  if (console) {
    manager->messageProcessingService(msg, received);
  } else {
    manager->messageProcessingMPlaneService(msg, received);
  }
  checkReply(request, *msg, console, received);
  return 0;
}
