#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <cstring>
#include <string>
#include <vector>

#include "captureStdout.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"

namespace {

#pragma pack(push, 1)
struct TestRecord {
  int32_t type;
  unsigned char text[200];
};
#pragma pack(pop)

std::string capturedSend(int id, const TestRecord& record, size_t size, int* result) {
  fflush(stdout);
  testing::internal::CaptureStdout();
  *result = msgcheckAndsnd(id, &record, size, 0);
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

// One more message is refused: result -1 and the text of `format`, with the queue's id in it.
void expectRefusal(int id, const TestRecord& record, size_t size, const char* format) {
  int result = 0;
  std::string text = capturedSend(id, record, size, &result);
  EXPECT_EQ(result, -1);
  char expected[128];
  snprintf(expected, sizeof(expected), format, id);
  EXPECT_EQ(text, expected);
}

int messagesOn(int id) {
  struct msqid_ds state;
  msgctl(id, IPC_STAT, &state);
  return static_cast<int>(state.msg_qnum);
}

TEST(MsgQueueTest, RecordTravelsWithItsTypeWordAndTextOnly) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  ASSERT_GE(id, 0);
  TestRecord out{};
  out.type = 7;
  memcpy(out.text, "abc", 3);
  ASSERT_EQ(recordSend(id, &out, 3, 0), 0);
  struct msqid_ds state;
  msgctl(id, IPC_STAT, &state);
  EXPECT_EQ(state.msg_cbytes, 3u) << "the queue counts the text only";

  TestRecord in{};
  EXPECT_EQ(recordReceive(id, &in, sizeof(in.text), 0, IPC_NOWAIT), 3);
  EXPECT_EQ(in.type, 7);
  EXPECT_EQ(memcmp(in.text, "abc", 3), 0);
  // A text larger than the receiver's room is refused unless cut on purpose.
  ASSERT_EQ(recordSend(id, &out, 100, 0), 0);
  EXPECT_EQ(recordReceive(id, &in, 10, 0, IPC_NOWAIT), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(recordReceive(id, &in, 10, 0, IPC_NOWAIT | MSG_NOERROR), 10);
  EXPECT_EQ(recordSend(id, &out, kMaxQueueText + 1, 0), -1);
  msgctl(id, IPC_RMID, nullptr);
}

// The queues are open to any local process: a message longer than its reader takes is taken
// off with a trace at the reader's level, and the one behind it comes through.
TEST(QueueLoopTest, AnOverlongMessageIsDroppedAndTheOneBehindItReceived) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  TestRecord record{1, {}};
  ASSERT_EQ(recordSend(id, &record, 1, 0), 0);
  ASSERT_EQ(recordSend(id, &record, 0, 0), 0);
  unsigned char in[kRecordTypeSize + 1] = {0, 0, 0, 0, 0xAA};  // a reader of empty messages, and a guard
  ssize_t n = 0;
  const std::string text = captured([&] { n = receiveOrPause(id, in, 0, S_TraceSite{"reader", 7}, 2); });
  EXPECT_NE(text.find("]WRN:[reader,L7]msgId=" + std::to_string(id) + ": dropped a message longer than 0 bytes\n"),
            std::string::npos) << text;
  EXPECT_EQ(std::vector<long>({n, receiveOrPause(id, in, 0, S_TraceSite{"reader", 7}, 2), in[4]}),
            std::vector<long>({-1, 0, 0xAA}));
  msgctl(id, IPC_RMID, nullptr);
}

TEST(MsgAllocTest, KeysCountUpAndEachQueueStartsEmpty) {
  // A queue left by an earlier run under the first key, with a message in it.
  int old = msgget(MsgHandlerManager::kFirstMsgKey, IPC_CREAT | 0666);
  ASSERT_GE(old, 0);
  TestRecord stale{};
  stale.type = 1;
  ASSERT_EQ(recordSend(old, &stale, 10, 0), 0);

  MsgHandlerManager* manager = MsgHandlerManager::getInstance();
  int first = manager->allocMsgHandler();
  int second = manager->allocMsgHandler();
  ASSERT_GE(first, 0);
  ASSERT_GE(second, 0);
  EXPECT_EQ(messagesOn(first), 0) << "the message of the earlier run is gone";
  EXPECT_EQ(msgget(MsgHandlerManager::kFirstMsgKey, 0), first);
  EXPECT_EQ(msgget(MsgHandlerManager::kFirstMsgKey + 1, 0), second);
  EXPECT_EQ(manager->allocMsgKey(), MsgHandlerManager::kFirstMsgKey + 2);
  int fourth = manager->allocMsgHandler();
  EXPECT_EQ(fourth, msgget(MsgHandlerManager::kFirstMsgKey + 3, 0)) << "a key handed out is never reused";
}

TEST(MsgCheckAndSndTest, MessageLimitIsTestedBeforeTheSend) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  TestRecord record{};
  record.type = 1;
  int result = 0;
  for (int i = 0; i < 99; ++i) ASSERT_EQ(msgcheckAndsnd(id, &record, 0, 0), 0);
  EXPECT_EQ(capturedSend(id, record, 0, &result), "");
  EXPECT_EQ(result, 0) << "99 messages accept one more";
  expectRefusal(id, record, 0, "__msqid 0x%x the number[100] of messages currently on queue >= 100!\n");
  EXPECT_EQ(messagesOn(id), 100);
  msgctl(id, IPC_RMID, nullptr);
}

TEST(MsgCheckAndSndTest, ByteLimitIsTestedBeforeTheSendAndWinsOverTheCount) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  struct msqid_ds state;
  msgctl(id, IPC_STAT, &state);
  state.msg_qbytes = 65536;
  msgctl(id, IPC_SET, &state);
  TestRecord record{};
  record.type = 1;
  int result = 0;
  // 64 messages of 200 bytes and one of 199: 12999 bytes.
  for (int i = 0; i < 64; ++i) ASSERT_EQ(msgcheckAndsnd(id, &record, 200, 0), 0);
  ASSERT_EQ(msgcheckAndsnd(id, &record, 199, 0), 0);
  EXPECT_EQ(capturedSend(id, record, 200, &result), "");
  EXPECT_EQ(result, 0) << "12999 bytes accept a message of any size";
  // Now 13199 bytes: refused with the bytes message.
  expectRefusal(id, record, 1, "__msqid 0x%x the current number[13199] of bytes on queue >= 13000 !\n");
  // Filling up to 100 messages cannot happen: the bytes message is the one printed.
  for (int i = 0; i < 40; ++i) recordSend(id, &record, 0, IPC_NOWAIT);
  EXPECT_NE(capturedSend(id, record, 0, &result).find("bytes on queue"), std::string::npos);
  msgctl(id, IPC_RMID, nullptr);
}

TEST(MsgCheckAndSndTest, RemovedQueueIsReported) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  msgctl(id, IPC_RMID, nullptr);
  TestRecord record{};
  record.type = 1;
  int result = 0;
  char expected[64];
  snprintf(expected, sizeof(expected), "__msqid 0x%x msgctl failed!\n", id);
  EXPECT_EQ(capturedSend(id, record, 4, &result), expected);
  EXPECT_EQ(result, -1);
}

}  // namespace
