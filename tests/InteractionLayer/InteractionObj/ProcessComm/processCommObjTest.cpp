#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>
#include <string>

#include "../../interactionTestSupport.h"
#include "InteractionLayer/interactionManager.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"

namespace {

using itest::Bytes;

const char* const kTooShort = "Command msg is incorrect,the size less then minsize.";
const char* const kBadPacket = "The HDLC packet is incorrect.";

class ProcessCommObjTest : public testing::Test {
 protected:
  void SetUp() override {
    _command = itest::openQueue(itest::kCommandKey);
    _response = itest::openQueue(itest::kResponseKey);
  }

  void post(S_InteractionMsg msg, size_t text) { ASSERT_EQ(msgcheckAndsnd(_command, &msg, text, 0), 0); }

  int _command = -1;
  int _response = -1;
};

double cpuSeconds() {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

TEST_F(ProcessCommObjTest, ARequestWaitingBeforeTheStartIsServedOnceTheGateOpens) {
  if (InteractionManager::startGateIsOpen()) GTEST_SKIP() << "needs a process of its own";
  // Any positive type word: the request counts as M-Plane all the same.
  post(itest::request(77, 0x42, {0x03, 0x10}), 150);
  InteractionManager::getInstance();
  S_InteractionMsg reply;
  EXPECT_EQ(itest::receive(_response, &reply, 300), -1) << "nothing is forwarded before the start gate opens";
  EXPECT_EQ(itest::queuedMessages(_command), 1) << "the request still waits on its queue";
  InteractionManager::openStartGate();
  ASSERT_EQ(itest::receive(_response, &reply, 3000), 296);
  EXPECT_EQ(reply.msgType, E_INTERACTION_MSG_MPLANE);
  EXPECT_EQ(reply.reserved, 0x42);
  EXPECT_EQ(reply.result, 0);
  EXPECT_EQ(itest::errorText(reply), kTooShort);
}

TEST_F(ProcessCommObjTest, AnOverlongRequestIsDroppedAndTheQueueGoesOn) {
  InteractionManager::getInstance();
  InteractionManager::openStartGate();
  unsigned char big[kRecordTypeSize + 1700];
  memset(big, 0x33, sizeof(big));
  setRecordType(big, 1);
  ASSERT_EQ(msgcheckAndsnd(_command, big, 1700, 0), 0);
  post(itest::request(1, 5, {0x03}), 151);
  S_InteractionMsg reply;
  ASSERT_EQ(itest::receive(_response, &reply, 3000), 297);
  EXPECT_EQ(reply.reserved, 5);
  EXPECT_EQ(itest::errorText(reply), kBadPacket);
  EXPECT_EQ(itest::queuedMessages(_command), 0);
}

TEST_F(ProcessCommObjTest, RequestsOfNoTextAndOfTheWholeRecordArrive) {
  InteractionManager::getInstance();
  InteractionManager::openStartGate();
  post(itest::request(3, 6, {}), 0);
  S_InteractionMsg reply;
  ASSERT_EQ(itest::receive(_response, &reply, 3000), 146);
  EXPECT_EQ(itest::errorText(reply), kTooShort);

  S_InteractionMsg whole = itest::request(1, 7, {0x03});
  whole.data[1499] = 0x5C;
  post(whole, interaction::kMaxText);
  ASSERT_EQ(itest::receive(_response, &reply, 3000), static_cast<ssize_t>(interaction::kMaxText));
  EXPECT_EQ(reply.reserved, 7);
  EXPECT_EQ(itest::errorText(reply), kBadPacket);
  EXPECT_EQ(reply.data[1499], 0x5C);
}

TEST_F(ProcessCommObjTest, AQueueThatFailsEveryReceiveDoesNotSpin) {
  InteractionManager::getInstance();
  InteractionManager::openStartGate();
  usleep(100000);
  ASSERT_EQ(msgctl(_command, IPC_RMID, nullptr), 0);
  double before = cpuSeconds();
  usleep(1000000);
  EXPECT_LT(cpuSeconds() - before, 0.25);
}

}  // namespace
