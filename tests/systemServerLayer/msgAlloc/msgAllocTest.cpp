#include <gtest/gtest.h>
#include <sys/msg.h>

#include <cstring>
#include <string>
#include <vector>

#include "captureStdout.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"

namespace {

struct S_Record {
  int32_t type;
  unsigned char text[2048];
};

msqid_ds stateOf(int id) {
  msqid_ds state{};
  msgctl(id, IPC_STAT, &state);
  return state;
}

TEST(MsgQueueTest, RecordTravelsWithItsTypeWordAndTextOnly) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  S_Record out{7, {'a', 'b', 'c'}}, in{};
  ASSERT_EQ(recordSend(id, &out, 3, 0), 0);
  EXPECT_EQ(stateOf(id).msg_cbytes, 3u) << "the queue counts the text only";
  EXPECT_EQ(recordReceive(id, &in, 2048, 0, IPC_NOWAIT), 3);
  EXPECT_EQ(in.type, 7);
  EXPECT_EQ(memcmp(in.text, "abc", 3), 0);
  EXPECT_EQ(recordSend(id, &out, 2049, 0), -1);
  msgctl(id, IPC_RMID, nullptr);
}

// The queues are open to any local process: a message longer than its reader takes is taken
// off with a trace at the reader's level, and the one behind it comes through.
TEST(QueueLoopTest, AnOverlongMessageIsDroppedAndTheOneBehindItReceived) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  S_Record record{1, {}};
  ASSERT_EQ(recordSend(id, &record, 1, 0), 0);
  ASSERT_EQ(recordSend(id, &record, 0, 0), 0);
  unsigned char in[5] = {0, 0, 0, 0, 0xAA};  // a reader of empty messages, and a guard
  ssize_t n = 0;
  const std::string text = captured([&] { n = receiveOrPause(id, in, 0, S_TraceSite{"reader", 7}, 2); });
  EXPECT_NE(text.find("]WRN:[reader,L7]msgId=" + std::to_string(id) + ": dropped a message longer than 0 bytes\n"),
            std::string::npos) << text;
  EXPECT_EQ(std::vector<long>({n, receiveOrPause(id, in, 0, S_TraceSite{"reader", 7}, 2), in[4]}),
            std::vector<long>({-1, 0, 0xAA}));
  msgctl(id, IPC_RMID, nullptr);
}

// The tick queue's drain takes messages up to and with the first one without text.
TEST(QueueLoopTest, ATextDrainEndsWithTheFirstMessageWithoutText) {
  int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  S_Record record{1, {}};
  for (std::size_t size : {2, 0, 3}) ASSERT_EQ(recordSend(id, &record, size, 0), 0);
  drainQueue(id, E_DRAIN_TEXT_MSGS);
  EXPECT_EQ(stateOf(id).msg_cbytes, 3u);
  msgctl(id, IPC_RMID, nullptr);
}

TEST(MsgAllocTest, KeysCountUpFrom0x600000AndEachQueueStartsEmpty) {
  // A queue left by an earlier run under the first key, with a message in it.
  S_Record stale{1, {}};
  ASSERT_EQ(recordSend(msgget(0x600000, IPC_CREAT | 0666), &stale, 10, 0), 0);
  int first = MsgHandlerManager::getInstance()->allocMsgHandler();
  int second = MsgHandlerManager::getInstance()->allocMsgHandler();
  EXPECT_EQ(stateOf(first).msg_qnum, 0u) << "the message of the earlier run is gone";
  EXPECT_EQ(msgget(0x600000, 0), first);
  EXPECT_EQ(msgget(0x600001, 0), second);
}

// The guarded send refuses a queue that holds 100 messages or 13000 bytes of text (the bytes
// are tested first), or that is gone, and says so with the queue's id.
TEST(MsgCheckAndSndTest, LimitsAreTestedBeforeTheSend) {
  const struct {
    int messages;
    size_t bytes;
    const char* refusal;
  } cases[] = {
      {99, 0, ""},
      {100, 0, "__msqid 0x%x the number[100] of messages currently on queue >= 100!\n"},
      {13, 12999, ""},
      {13, 13000, "__msqid 0x%x the current number[13000] of bytes on queue >= 13000 !\n"},
      {120, 13200, "__msqid 0x%x the current number[13200] of bytes on queue >= 13000 !\n"},
      {-1, 0, "__msqid 0x%x msgctl failed!\n"},  // removed
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.refusal);
    int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
    msqid_ds state = stateOf(id);
    state.msg_qbytes = 65536;
    msgctl(id, IPC_SET, &state);
    S_Record record{1, {}};
    // The bytes spread over the messages, the last taking what is left.
    for (int i = 0; i < c.messages; ++i) {
      ASSERT_EQ(
          recordSend(id, &record, i + 1 < c.messages ? c.bytes / c.messages : c.bytes - i * (c.bytes / c.messages), 0),
          0);
    }
    if (c.messages < 0) msgctl(id, IPC_RMID, nullptr);
    int result = 1;
    std::string printed = captured([&] { result = msgcheckAndsnd(id, &record, 1, 0); });
    char expected[128];
    snprintf(expected, sizeof(expected), c.refusal, id);
    EXPECT_EQ(printed, expected);
    EXPECT_EQ(result, *c.refusal == '\0' ? 0 : -1);
    EXPECT_EQ(stateOf(id).msg_qnum, c.messages < 0 ? 0u : c.messages + (result == 0 ? 1u : 0u));
    msgctl(id, IPC_RMID, nullptr);
  }
}

}  // namespace
