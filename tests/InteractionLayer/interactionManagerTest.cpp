#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "InteractionLayer/interactionManager.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "interactionTestSupport.h"

namespace {

using itest::Bytes;

const char* const kTooShort = "Command msg is incorrect,the size less then minsize.";
const char* const kBadPacket = "The HDLC packet is incorrect.";

// A failure reply: result 0, the text zero-filled to the end of errorInfo, every other byte as requested.
void expectFailure(const S_InteractionMsg& request, const S_InteractionMsg& reply, const std::string& text) {
  EXPECT_EQ(reply.result, 0);
  EXPECT_EQ(itest::errorText(reply), text);
  for (size_t i = text.size(); i < sizeof(reply.errorInfo); ++i) ASSERT_EQ(reply.errorInfo[i], 0) << i;
  const unsigned char* a = reinterpret_cast<const unsigned char*>(&request);
  const unsigned char* b = reinterpret_cast<const unsigned char*>(&reply);
  EXPECT_EQ(memcmp(a, b, offsetof(S_InteractionMsg, result)), 0);
  size_t counters = offsetof(S_InteractionMsg, crcErrorCount);
  EXPECT_EQ(memcmp(a + counters, b + counters, sizeof(S_InteractionMsg) - counters), 0);
}

class InteractionServicesTest : public testing::Test {
 protected:
  void SetUp() override {
    _manager = InteractionManager::getInstance();
    _response = itest::openQueue(itest::kResponseKey);
  }
  void TearDown() override { AldDeviceContainer::getInstance()->clear(); }

  // Runs the console service on a copy of request and checks the failure it answers.
  void expectConsoleFailure(const S_InteractionMsg& request, unsigned int size, const std::string& text) {
    S_InteractionMsg msg = request;
    _manager->messageProcessingService(&msg, size);
    expectFailure(request, msg, text);
  }

  // Runs the M-Plane service and checks the failure reply on the response queue and its text size.
  void expectMPlaneFailure(const S_InteractionMsg& request, unsigned int size, const std::string& text,
                           ssize_t replyText) {
    S_InteractionMsg msg = request;
    _manager->messageProcessingMPlaneService(&msg, size);
    S_InteractionMsg reply;
    memset(&reply, 0, sizeof(reply));
    ASSERT_EQ(itest::receive(_response, &reply, 0), replyText) << text;
    EXPECT_EQ(memcmp(&reply, &msg, static_cast<size_t>(replyText) + kRecordTypeSize), 0);
    expectFailure(request, msg, text);
    EXPECT_EQ(itest::queuedMessages(_response), 0);
  }

  InteractionManager* _manager = nullptr;
  int _response = -1;
};

TEST_F(InteractionServicesTest, ConsoleRequestsRefusedBeforeTheBus) {
  Bytes frame = itest::iFrame(9, {0x82, 0x01, 0x00, 0x01});
  S_InteractionMsg good = itest::request(E_INTERACTION_MSG_COMMAND_LINE, 0x5A, frame);
  expectConsoleFailure(good, 150, kTooShort);
  expectConsoleFailure(good, 0, kTooShort);
  expectConsoleFailure(good, 151, "Not find ALD[addr=9].");

  S_InteractionMsg empty = itest::request(E_INTERACTION_MSG_COMMAND_LINE, 1, {});
  expectConsoleFailure(empty, 151, kBadPacket);
  S_InteractionMsg beyond = good;
  beyond.dataLength = 1501;
  expectConsoleFailure(beyond, 1646, kBadPacket);
  beyond.dataLength = 0xFFFFFFFF;
  expectConsoleFailure(beyond, 1646, kBadPacket);
  S_InteractionMsg badFcs = good;
  badFcs.data[frame.size() - 2] ^= 0x01;
  expectConsoleFailure(badFcs, 160, kBadPacket);
  // Well framed and within the data field, but too long for a frame once unstuffed.
  Bytes tooLong(300, 0x11);
  tooLong.front() = 0x7E;
  tooLong.back() = 0x7E;
  expectConsoleFailure(itest::request(E_INTERACTION_MSG_COMMAND_LINE, 2, tooLong), 450, kBadPacket);
}

TEST_F(InteractionServicesTest, ConsoleRequestForAnAldThatIsNotRunning) {
  AldDevice ald;
  ald.address = 4;
  ald.baseInfo.address = 4;
  ald.baseInfo.status = ADDRESSED;
  AldDeviceContainer::getInstance()->attach(&ald);
  S_InteractionMsg msg = itest::request(E_INTERACTION_MSG_COMMAND_LINE, 3, itest::iFrame(4, {0x88, 0x00, 0x00}));
  expectConsoleFailure(msg, 200, "ALD is not ready.");
  ald.baseInfo.status = LOST;
  expectConsoleFailure(msg, 200, "ALD is not ready.");
}

TEST_F(InteractionServicesTest, MPlaneRequestsRefusedBeforeTheBusWithTheirReplySizes) {
  S_InteractionMsg good = itest::request(E_INTERACTION_MSG_MPLANE, 0x77, {0x03, 0x10, 0x88, 0x00, 0x00});
  // The reply is the received size plus 150 from offset 0, so its text is four bytes less.
  expectMPlaneFailure(good, 150, kTooShort, 296);
  expectMPlaneFailure(good, 0, kTooShort, 146);

  S_InteractionMsg addressOnly = itest::request(E_INTERACTION_MSG_MPLANE, 1, {0x03});
  expectMPlaneFailure(addressOnly, 151, kBadPacket, 297);
  S_InteractionMsg tooMuch = itest::request(E_INTERACTION_MSG_MPLANE, 2, Bytes(265, 0x11));
  expectMPlaneFailure(tooMuch, 415, kBadPacket, 561);
  // 264 bytes fit the packet, but not the wire once every byte is stuffed.
  S_InteractionMsg stuffed = itest::request(E_INTERACTION_MSG_MPLANE, 3, Bytes(264, 0x7E));
  expectMPlaneFailure(stuffed, 414, kBadPacket, 560);
  // Never more than the record.
  S_InteractionMsg huge = itest::request(E_INTERACTION_MSG_MPLANE, 4, {0x03});
  huge.dataLength = 0x10000;
  expectMPlaneFailure(huge, 1646, kBadPacket, 1646);
}

TEST_F(InteractionServicesTest, AnUnfetchedReplyIsReplacedByTheNext) {
  S_InteractionMsg first = itest::request(E_INTERACTION_MSG_MPLANE, 1, {0x03, 0x10});
  S_InteractionMsg second = itest::request(E_INTERACTION_MSG_MPLANE, 2, {0x03, 0x10});
  _manager->messageProcessingMPlaneService(&first, 100);
  _manager->messageProcessingMPlaneService(&second, 120);
  EXPECT_EQ(itest::queuedMessages(_response), 1);
  S_InteractionMsg reply;
  EXPECT_EQ(itest::receive(_response, &reply, 0), 266);
  EXPECT_EQ(reply.reserved, 2);
}

TEST_F(InteractionServicesTest, RepliesAreRoutedByTheirTypeWord) {
  S_InteractionMsg msg = itest::request(E_INTERACTION_MSG_MPLANE, 9, {});
  EXPECT_EQ(_manager->sendInteractionResponseMsg(reinterpret_cast<unsigned char*>(&msg), 2000), 0);
  S_InteractionMsg reply;
  EXPECT_EQ(itest::receive(_response, &reply, 0), 1646);
  // Without the console there is no endpoint for type 2, and none for strangers.
  msg.msgType = E_INTERACTION_MSG_COMMAND_LINE;
  EXPECT_EQ(_manager->sendInteractionResponseMsg(reinterpret_cast<unsigned char*>(&msg), 200), 0);
  msg.msgType = 7;
  EXPECT_EQ(_manager->sendInteractionResponseMsg(reinterpret_cast<unsigned char*>(&msg), 200), 0);
  EXPECT_EQ(itest::queuedMessages(_response), 0);
}

// Answers every exchange at once with what the test set, and keeps what it was asked.
class FakeBus : public InteractionBusInterface {
 public:
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    ++exchanges;
    waitedMs = time;
    if (result == 0 || result == -1) *packet = replyPacket;
    return result;
  }
  int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) override {
    ++exchanges;
    waitedMs = time;
    sent.assign(data, data + *length);
    if (result != 0) return result;
    std::copy(replyBytes.begin(), replyBytes.end(), data);
    *length = static_cast<int>(replyBytes.size());
    return 0;
  }
  unsigned int getCrcErrorCount() override { return 101; }
  unsigned int getWithoutStopFlagCount() override { return 102; }
  unsigned int getReceivedOctetsCount() override { return 103; }

  int result = 0;
  S_HdlcPacket replyPacket{};
  Bytes replyBytes;
  Bytes sent;
  int exchanges = 0;
  unsigned int waitedMs = 0;
};

class InteractionBusOutcomesTest : public InteractionServicesTest {
 protected:
  void SetUp() override {
    InteractionServicesTest::SetUp();
    _manager->setBus(&_bus);
  }
  void TearDown() override {
    _manager->setBus(nullptr);
    InteractionServicesTest::TearDown();
  }

  // A success reply: the bus's counters, errorInfo as it came.
  void expectSuccess(const S_InteractionMsg& request, const S_InteractionMsg& reply) {
    EXPECT_EQ(reply.result, 1);
    EXPECT_EQ(reply.crcErrorCount, 101u);
    EXPECT_EQ(reply.withoutStopFlagCount, 102u);
    EXPECT_EQ(reply.receivedOctetsCount, 103u);
    EXPECT_EQ(memcmp(reply.errorInfo, request.errorInfo, sizeof(reply.errorInfo)), 0);
    EXPECT_EQ(reply.reserved, request.reserved);
  }

  FakeBus _bus;
};

TEST_F(InteractionBusOutcomesTest, ConsoleExchangeResults) {
  S_InteractionMsg request = itest::request(E_INTERACTION_MSG_COMMAND_LINE, 0x33, itest::iFrame(0xFF, {0x88, 0x00, 0x00}));
  _bus.result = -3;
  expectConsoleFailure(request, 200, "HDLC bus error.");
  _bus.result = -2;
  expectConsoleFailure(request, 200, "ALD reply time out.");
  EXPECT_EQ(_bus.waitedMs, InteractionManager::kConsoleReplyWaitMs);

  // A reply, from the target or from another address, goes back as a frame on the wire.
  Bytes answer = {0x88, 0x02, 0x00, 0x00, 0x02};
  _bus.replyPacket.address = 5;
  _bus.replyPacket.control = 0x10;
  _bus.replyPacket.pollFinal = 1;
  _bus.replyPacket.dataLength = static_cast<uint16_t>(answer.size());
  std::copy(answer.begin(), answer.end(), _bus.replyPacket.data);
  Bytes frame = itest::iFrame(5, answer);
  for (int result : {0, -1}) {
    _bus.result = result;
    S_InteractionMsg msg = request;
    _manager->messageProcessingService(&msg, 200);
    expectSuccess(request, msg);
    ASSERT_EQ(msg.dataLength, frame.size());
    EXPECT_EQ(Bytes(msg.data, msg.data + frame.size()), frame);
  }
  EXPECT_EQ(_bus.exchanges, 4) << "the broadcast address goes to the bus with no ALD known";
}

TEST_F(InteractionBusOutcomesTest, ConsoleReplyTooLongToStuffAgainIsABusError) {
  S_InteractionMsg request = itest::request(E_INTERACTION_MSG_COMMAND_LINE, 1, itest::iFrame(0xFF, {0x88, 0x00, 0x00}));
  _bus.result = 0;
  _bus.replyPacket.address = 1;
  _bus.replyPacket.dataLength = hdlc::kMaxDataLength;
  memset(_bus.replyPacket.data, 0x7E, hdlc::kMaxDataLength);
  expectConsoleFailure(request, 200, "HDLC bus error.");
}

TEST_F(InteractionBusOutcomesTest, MPlaneExchangeResults) {
  S_InteractionMsg request = itest::request(E_INTERACTION_MSG_MPLANE, 0x44, {0x03, 0x10, 0x88, 0x00, 0x00});
  _bus.result = -1;
  expectMPlaneFailure(request, 155, "ALD reply time out.", 301);
  EXPECT_EQ(_bus.waitedMs, InteractionManager::kMPlaneReplyWaitMs);
  // What went out is the request as a transparent frame, control byte untouched.
  S_HdlcPacket sent;
  memset(&sent, 0, sizeof(sent));
  ASSERT_EQ(HdlcProtocol::decode(_bus.sent.data(), static_cast<unsigned int>(_bus.sent.size()), &sent,
                                 hdlc::kTransparent), 0);
  EXPECT_EQ(sent.address, 0x03);
  EXPECT_EQ(sent.control, 0x10);
  EXPECT_EQ(Bytes(sent.data, sent.data + sent.dataLength), Bytes({0x88, 0x00, 0x00}));

  _bus.result = 0;
  _bus.replyBytes = {0x7E, 0x03, 0x30, 0x01, 0x02, 0x7E};
  expectMPlaneFailure(request, 155, "receive hdlc data decode failed.", 301);

  // The reply's size follows the request, not the reply.
  S_HdlcPacket answer;
  memset(&answer, 0, sizeof(answer));
  answer.address = 0x03;
  answer.control = 0x30;
  const Bytes info = {0x88, 0x02, 0x00, 0x00};
  answer.dataLength = static_cast<uint16_t>(info.size());
  std::copy(info.begin(), info.end(), answer.data);
  unsigned char frame[hdlc::kMaxFrame];
  unsigned int length = 0;
  ASSERT_EQ(HdlcProtocol::encode(&answer, frame, &length, hdlc::kTransparent), 0);
  _bus.replyBytes.assign(frame, frame + length);
  S_InteractionMsg msg = request;
  _manager->messageProcessingMPlaneService(&msg, 155);
  S_InteractionMsg reply;
  memset(&reply, 0, sizeof(reply));
  ASSERT_EQ(itest::receive(_response, &reply, 0), 301);
  expectSuccess(request, reply);
  ASSERT_EQ(reply.dataLength, 6u);
  EXPECT_EQ(Bytes(reply.data, reply.data + 6), Bytes({0x03, 0x30, 0x88, 0x02, 0x00, 0x00}));
}

TEST_F(InteractionBusOutcomesTest, NoReceivedSizeMakesAReplyShorterThanItsHeader) {
  S_InteractionMsg request = itest::request(E_INTERACTION_MSG_MPLANE, 5, {0x03, 0x10});
  _bus.result = -1;
  // Sizes a queue never delivers, whose reply size would wrap around past the top.
  for (unsigned int size : {0xFFFFFF6Au, 0xFFFFFFFFu}) expectMPlaneFailure(request, size, "ALD reply time out.", 1646);
}

}  // namespace
