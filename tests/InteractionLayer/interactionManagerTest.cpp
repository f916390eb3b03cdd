#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "InteractionLayer/interactionManager.h"
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

}  // namespace
