#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "InteractionLayer/interactionManager.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "interactionTestSupport.h"

namespace {

using itest::Bytes;

constexpr int kConsole = 2, kMPlane = 1;  // the type words
const char* const kTooShort = "Command msg is incorrect,the size less then minsize.";
const char* const kBadPacket = "The HDLC packet is incorrect.";
const char* const kTimeOut = "ALD reply time out.";
const char* const kBusError = "HDLC bus error.";

// Answers every exchange at once with what the test set, and keeps what it was asked.
struct FakeBus : InteractionBusInterface {
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    ++exchanges, waitedMs = time;
    if (result == 0 || result == -1) *packet = replyPacket;
    return result;
  }
  int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) override {
    ++exchanges, waitedMs = time;
    sent.assign(data, data + *length);
    if (result == 0) *length = static_cast<int>(std::copy(replyBytes.begin(), replyBytes.end(), data) - data);
    return result;
  }
  unsigned int getCrcErrorCount() override { return 101; }
  unsigned int getWithoutStopFlagCount() override { return 102; }
  unsigned int getReceivedOctetsCount() override { return 103; }

  int result = 0, exchanges = 0;
  unsigned int waitedMs = 0;
  S_HdlcPacket replyPacket{};
  Bytes replyBytes = {0x7E, 0x03, 0x30, 0x01, 0x02, 0x7E}, sent;  // by default no frame
};

// A failure reply: result 0, the text zero-filled to the end of errorInfo, every other byte as requested.
void expectFailure(const S_InteractionMsg& request, const S_InteractionMsg& reply, const std::string& text) {
  EXPECT_EQ(reply.result, 0);
  EXPECT_EQ(std::string(reply.errorInfo, 128), text + std::string(128 - text.size(), '\0'));
  const char *a = reinterpret_cast<const char*>(&request), *b = reinterpret_cast<const char*>(&reply);
  EXPECT_EQ(memcmp(a, b, offsetof(S_InteractionMsg, result)), 0);
  size_t counters = offsetof(S_InteractionMsg, crcErrorCount);
  EXPECT_EQ(memcmp(a + counters, b + counters, sizeof(S_InteractionMsg) - counters), 0);
}

// A success reply: the bus's counters, errorInfo and reserved as they came, and the data.
void expectSuccess(const S_InteractionMsg& request, const S_InteractionMsg& reply, const Bytes& data) {
  EXPECT_EQ(reply.result, 1);
  EXPECT_EQ(std::vector<uint32_t>({reply.crcErrorCount, reply.withoutStopFlagCount, reply.receivedOctetsCount}),
            std::vector<uint32_t>({101, 102, 103}));
  EXPECT_EQ(memcmp(reply.errorInfo, request.errorInfo, sizeof(reply.errorInfo)), 0);
  EXPECT_EQ(reply.reserved, request.reserved);
  const uint32_t length = reply.dataLength;  // a copy: the packed field is not aligned
  EXPECT_EQ(Bytes(reply.data, reply.data + std::min(length, 1500u)), data);
}

class InteractionServicesTest : public testing::Test {
 protected:
  void SetUp() override { _manager->setBus(&_bus); }
  void TearDown() override {
    _manager->setBus(nullptr);
    AldDeviceContainer::getInstance()->clear();
  }

  // Serves a copy of request with the service of its type. The reply, and for M-Plane the
  // text size it had on the response queue (-1 for the console, which has no endpoint here).
  ssize_t serve(const S_InteractionMsg& request, unsigned int size, S_InteractionMsg* reply) {
    *reply = request;
    if (request.msgType == kConsole) {
      _manager->messageProcessingService(reply, size);
      return -1;
    }
    _manager->messageProcessingMPlaneService(reply, size);
    S_InteractionMsg queued;
    ssize_t n = itest::receive(_response, &queued, 0);
    EXPECT_EQ(memcmp(&queued, reply, static_cast<size_t>(std::max<ssize_t>(n, 0)) + kRecordTypeSize), 0);
    EXPECT_EQ(itest::queued(_response).first, 0);
    return n;
  }

  InteractionManager* _manager = InteractionManager::getInstance();
  int _response = itest::responseQueue();
  FakeBus _bus;
};

TEST_F(InteractionServicesTest, RefusalsAndFailedExchangesWithTheirTextsAndReplySizes) {
  AldDevice alds[2];  // known, but not RUNNING
  for (int i = 0; i < 2; ++i) {
    alds[i].address = alds[i].baseInfo.address = static_cast<uint8_t>(4 + i);
    alds[i].baseInfo.status = i == 0 ? ADDRESSED : LOST;
    AldDeviceContainer::getInstance()->attach(&alds[i]);
  }
  const Bytes to9 = itest::iFrame(9, {0x82, 0x01, 0x00, 0x01}), toAll = itest::iFrame(0xFF, {0x88, 0x00, 0x00});
  const Bytes mplane = {0x03, 0x10, 0x88, 0x00, 0x00};
  Bytes badFcs = to9, longOnceUnstuffed(300, 0x11);
  badFcs[badFcs.size() - 2] ^= 0x01;
  longOnceUnstuffed.front() = longOnceUnstuffed.back() = 0x7E;
  constexpr int kNoBus = 1;         // refused before the bus
  constexpr int64_t kAsData = -1;  // the data's size as dataLength
  const struct { int type; Bytes data; int64_t length; unsigned size; int bus; std::string text; ssize_t reply; }
      cases[] = {
      {kConsole, to9, kAsData, 150, kNoBus, kTooShort, -1},
      {kConsole, to9, kAsData, 151, kNoBus, "Not find ALD[addr=9].", -1},
      {kConsole, {}, kAsData, 151, kNoBus, kBadPacket, -1},
      {kConsole, to9, 1501, 1646, kNoBus, kBadPacket, -1},
      {kConsole, to9, 0xFFFFFFFF, 1646, kNoBus, kBadPacket, -1},
      {kConsole, badFcs, kAsData, 160, kNoBus, kBadPacket, -1},
      {kConsole, longOnceUnstuffed, kAsData, 450, kNoBus, kBadPacket, -1},
      {kConsole, itest::iFrame(4, {0x88, 0x00, 0x00}), kAsData, 200, kNoBus, "ALD is not ready.", -1},
      {kConsole, itest::iFrame(5, {0x88, 0x00, 0x00}), kAsData, 200, kNoBus, "ALD is not ready.", -1},
      {kConsole, toAll, kAsData, 200, -3, kBusError, -1},  // the broadcast address needs no ALD known
      {kConsole, toAll, kAsData, 200, -2, kTimeOut, -1},
      // The M-Plane reply is the received size plus 150 from offset 0, so its text is four bytes less.
      {kMPlane, mplane, kAsData, 150, kNoBus, kTooShort, 296},
      {kMPlane, mplane, kAsData, 0, kNoBus, kTooShort, 146},
      {kMPlane, {0x03}, kAsData, 151, kNoBus, kBadPacket, 297},
      {kMPlane, Bytes(265, 0x11), kAsData, 415, kNoBus, kBadPacket, 561},
      {kMPlane, Bytes(264, 0x7E), kAsData, 414, kNoBus, kBadPacket, 560},  // fits the packet, not the wire stuffed
      {kMPlane, {0x03}, 0x10000, 1646, kNoBus, kBadPacket, 1646},          // never more than the record
      {kMPlane, mplane, kAsData, 155, -1, kTimeOut, 301},
      {kMPlane, mplane, kAsData, 155, 0, "receive hdlc data decode failed.", 301},
      // Sizes a queue never delivers, whose reply size would wrap around past the top.
      {kMPlane, {0x03, 0x10}, kAsData, 0xFFFFFF6Au, -1, kTimeOut, 1646},
      {kMPlane, {0x03, 0x10}, kAsData, 0xFFFFFFFFu, -1, kTimeOut, 1646},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    S_InteractionMsg request = itest::request(c.type, static_cast<uint8_t>(&c - cases), c.data), reply;
    if (c.length != kAsData) request.dataLength = static_cast<uint32_t>(c.length);
    _bus.result = c.bus, _bus.exchanges = 0, _bus.waitedMs = 0;
    EXPECT_EQ(serve(request, c.size, &reply), c.reply);
    expectFailure(request, reply, c.text);
    EXPECT_EQ(_bus.exchanges, c.bus == kNoBus ? 0 : 1);
    EXPECT_EQ(_bus.waitedMs, c.bus == kNoBus ? 0u : c.type == kConsole ? 500u : 1000u);  // the reply waits
  }
}

TEST_F(InteractionServicesTest, RepliesFromTheBus) {
  // A console reply, from the target or another address, goes back as a frame on the wire.
  const Bytes answer = {0x88, 0x02, 0x00, 0x00, 0x02};
  _bus.replyPacket.address = 5, _bus.replyPacket.pollFinal = 1;
  _bus.replyPacket.dataLength = static_cast<uint16_t>(answer.size());
  std::copy(answer.begin(), answer.end(), _bus.replyPacket.data);
  S_InteractionMsg request = itest::request(kConsole, 0x33, itest::iFrame(0xFF, {0x88, 0x00, 0x00})), reply;
  for (int result : {0, -1}) {
    _bus.result = result;
    serve(request, 200, &reply);
    expectSuccess(request, reply, itest::iFrame(5, answer));
  }
  // One too long to stuff again is a bus error, with no half-written success behind.
  _bus.replyPacket.dataLength = 262;
  memset(_bus.replyPacket.data, 0x7E, 262);
  serve(request, 200, &reply);
  expectFailure(request, reply, kBusError);

  // M-Plane: the request goes out as a transparent frame, control byte untouched; the reply
  // comes back as address, control and data, in a record whose size follows the request.
  request = itest::request(kMPlane, 0x44, {0x03, 0x10, 0x88, 0x00, 0x00});
  _bus.result = 0;
  _bus.replyBytes = {0x7E, 0x03, 0x30, 0x88, 0x02, 0x00, 0x00, 0x2D, 0x52, 0x7E};
  EXPECT_EQ(serve(request, 155, &reply), 301);
  EXPECT_EQ(_bus.sent, Bytes({0x7E, 0x03, 0x10, 0x88, 0x00, 0x00, 0x34, 0xDB, 0x7E}));
  expectSuccess(request, reply, {0x03, 0x30, 0x88, 0x02, 0x00, 0x00});
}

}  // namespace
