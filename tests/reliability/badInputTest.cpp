// Bad input end to end: a peer that floods the command queue or sends records
// of every wrong shape, an operator who types garbage and then closes the
// console, and a configuration or a port path that make no sense. Each gets its
// answer or its message, and the service goes on, without spinning.
#include <atomic>
#include <fstream>
#include <thread>

#include "../InteractionLayer/interactionTestSupport.h"
#include "serviceBench.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"

namespace {

using itest::Bytes;

const char* const kTooShort = "Command msg is incorrect,the size less then minsize.";
const char* const kBadPacket = "The HDLC packet is incorrect.";
// The first probe of a scan, which an ALD without an address answers every time.
const Bytes kProbe = {0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
// A poll of address 1, which the ALD there answers with RR.
const Bytes kPoll = {0x01, 0x11};

// Deterministic bytes of any value, line feeds included.
std::string garbage(size_t length, unsigned int seed) {
  std::string bytes;
  for (size_t i = 0; i < length; ++i) {
    seed = seed * 1103515245u + 12345u;
    bytes += static_cast<char>(seed >> 16);
  }
  return bytes;
}

class BadInputTest : public e2e::ServiceBench {
 protected:
  void SetUp() override { openQueues(); }
  void openQueues() {
    _command = itest::commandQueue();
    _response = itest::responseQueue();
    ASSERT_GE(_command, 0);
    ASSERT_GE(_response, 0);
  }

  // Sends a request of this text size and dataLength, with the reserved byte as its tag.
  int sendRequest(int32_t type, uint8_t tag, const Bytes& data, size_t textSize, uint32_t dataLength, int flags = 0) {
    S_InteractionMsg msg = itest::request(type, tag, data);
    msg.dataLength = dataLength;
    std::vector<unsigned char> record(kRecordTypeSize + textSize, 0);
    memcpy(record.data(), &msg, std::min(record.size(), sizeof(msg)));
    return recordSend(_command, record.data(), textSize, flags);
  }
  // The next reply within timeoutMs, while the programs' output is gathered; its text size or -1.
  ssize_t nextReply(S_InteractionMsg* reply, int timeoutMs) {
    ssize_t n = -1;
    waitUntil([&] { return (n = recordReceive(_response, reply, interaction::kMaxText, 0, IPC_NOWAIT)) >= 0; },
              timeoutMs);
    return n;
  }
  // One request, and its one reply.
  void expectReply(int32_t type, uint8_t tag, const Bytes& data, size_t textSize, uint32_t dataLength,
                   const char* error) {
    SCOPED_TRACE("type " + std::to_string(type) + ", text " + std::to_string(textSize) + ", dataLength " +
                 std::to_string(dataLength));
    ASSERT_EQ(sendRequest(type, tag, data, textSize, dataLength), 0);
    S_InteractionMsg reply;
    ASSERT_GE(nextReply(&reply, 3000), 0);
    EXPECT_EQ(reply.msgType, 1);
    // The tag travels in the text, if there is any.
    if (textSize > 0) {
      EXPECT_EQ(reply.reserved, tag);
    }
    EXPECT_EQ(reply.result, error == nullptr ? 1 : 0);
    // A success leaves errorInfo as the request had it.
    EXPECT_EQ(itest::errorText(reply), error != nullptr ? error : std::string(sizeof(reply.errorInfo), 'e'));
  }
  void expectNoMoreReplies() {
    S_InteractionMsg reply;
    EXPECT_LT(nextReply(&reply, 500), 0) << "a second reply, tag " << int(reply.reserved);
  }
  // The service's verdict on a request through mplanectl.
  std::string mplaneReply(const std::vector<std::string>& args) {
    std::string out;
    mplane(args, &out);
    return out;
  }

  int _command = -1;
  int _response = -1;
};

// 300 requests at once: the command queue takes what it can, the relay hands on
// what the service's own queue takes and prints a limit message for each one it
// refuses, and each request handed on gets exactly one reply.
TEST_F(BadInputTest, AFloodOfRequestsGetsOneReplyForEachAcceptedAndTheLimitsForTheRest) {
  startBus({"uid=AB"});
  startService({});
  // A reader waiting on the response queue takes each reply the moment it is sent,
  // before the next one replaces it. A record of type 2 from here ends it.
  std::atomic<int> replies{0};
  std::atomic<int> failures{0};
  std::thread reader([&] {
    S_InteractionMsg reply;
    while (recordReceive(_response, &reply, interaction::kMaxText, 0, 0) >= 0 && reply.msgType == 1) {
      ++replies;
      failures += reply.result != 1;
    }
  });
  int accepted = 0;
  for (int i = 0; i < 300; ++i) {
    accepted += sendRequest(1, 0, kProbe, interaction::kHeaderSize + kProbe.size(), kProbe.size(), IPC_NOWAIT) == 0;
  }
  // Until no reply has come for two seconds.
  for (int seen = -1; seen != replies;) {
    seen = replies;
    pumpFor(2000);
  }
  S_InteractionMsg end = itest::request(2, 0, {});
  EXPECT_EQ(recordSend(_response, &end, 0, 0), 0);
  reader.join();
  EXPECT_EQ(failures, 0);
  char queue[32];
  // The interaction manager's queue, the first that the service makes.
  snprintf(queue, sizeof(queue), "__msqid 0x%x ", msgget(MsgHandlerManager::kFirstMsgKey, 0));
  int refused = e2e::occurrences(service.output(), queue);
  EXPECT_GT(refused, 0) << service.plainOutput();
  EXPECT_EQ(replies, accepted - refused);
  EXPECT_NE(mplaneReply({"FF", "BF", "81F00401000300"}).find("result: 1 (success)"), std::string::npos);
}

// Records of every wrong shape, each with exactly one reply, and the record after
// them served.
TEST_F(BadInputTest, EveryRecordGetsExactlyOneReplyWhateverItsShape) {
  startBus({"uid=AB"});
  startService({"-c"});
  ASSERT_TRUE(says(bus, "TX 7E 01 11", 8000)) << bus.plainOutput();
  const size_t poll = interaction::kHeaderSize + kPoll.size();
  struct S_Case {
    int32_t type;
    size_t textSize;
    uint32_t dataLength;
    const char* error;
  };
  const S_Case cases[] = {
      {1, 0, 2, kTooShort},
      {1, interaction::kHeaderSize, 2, kTooShort},
      {1, poll, 0xFFFFFFFF, kBadPacket},
      {1, poll, 1501, kBadPacket},
      {1, poll, 265, kBadPacket},
      {1, poll, 1, kBadPacket},
      {1, poll, 0, kBadPacket},
      // Any type word is a request of the peer, the console's own included.
      {2, poll, 2, nullptr},
      {3, poll, 2, nullptr},
      {1234, poll, 2, nullptr},
      {0x7FFFFFFF, poll, 2, nullptr},
      {1, interaction::kMaxText, 2, nullptr},
  };
  uint8_t tag = 0;
  for (const S_Case& c : cases) expectReply(c.type, ++tag, kPoll, c.textSize, c.dataLength, c.error);

  // A text longer than any record is dropped with a trace; the request behind it is served.
  ASSERT_EQ(sendRequest(1, 0xEE, kPoll, interaction::kMaxText + 1, 2), 0);
  expectReply(1, ++tag, kPoll, poll, 2, nullptr);
  EXPECT_NE(service.output().find("dropped a message longer than 1646 bytes"), std::string::npos);
  expectNoMoreReplies();
  EXPECT_EQ(service.output().find("ErrorInfo"), std::string::npos) << "no reply goes to the console";
}

// A peer removes both queues and makes them anew: requests on the new command
// queue are served, and their replies come on the new response queue.
TEST_F(BadInputTest, QueuesThatAPeerRemovesAndMakesAnewAreServed) {
  startBus({"uid=AB"});
  startService({});
  expectReply(1, 1, kProbe, interaction::kHeaderSize + kProbe.size(), kProbe.size(), nullptr);
  ASSERT_EQ(msgctl(_command, IPC_RMID, nullptr), 0);
  ASSERT_EQ(msgctl(_response, IPC_RMID, nullptr), 0);
  pumpFor(300);
  openQueues();
  expectReply(1, 2, kProbe, interaction::kHeaderSize + kProbe.size(), kProbe.size(), nullptr);
  expectNoMoreReplies();
  EXPECT_LT(cpuPercent(1000), 10.0);
}

// Binary garbage and lines of 10 000 characters: the console prompts again and
// serves the next command. At the end of its input it goes quiet for good, and
// the pipe serves on.
TEST_F(BadInputTest, TheConsoleSurvivesGarbageAndParksAtTheEndOfItsInput) {
  startBus({"uid=AB,tilt=1.5"});
  startService({"-c"});
  ASSERT_TRUE(says(bus, "TX 7E 01 11", 8000)) << bus.plainOutput();
  size_t mark = service.mark();
  service.send(garbage(4000, 7) + "\n" + std::string(10000, 'x') + "\n" + "mret_v2 " + std::string(10000, '1') +
               "\n" + garbage(10000, 11) + "\n");
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "tilt = 1.500000", 5000)) << e2e::stripColours(service.output().substr(mark));

  service.sendEof();
  pumpFor(500);
  mark = service.mark();
  EXPECT_LT(cpuPercent(3000), 10.0);
  EXPECT_TRUE(service.running());
  EXPECT_EQ(service.output().find("=> ", mark), std::string::npos);
  EXPECT_NE(mplaneReply({"01", "11"}).find("result: 1 (success)"), std::string::npos);
}

// A configuration of garbage leaves every default; a port that is missing, or a
// file that is no terminal, gives the adapter's messages. The service runs on in
// each case, without spinning, and answers the pipe.
class BadStartTest : public BadInputTest {
 protected:
  void expectQuietAndServing(const std::string& config, const std::vector<std::string>& options,
                             const std::vector<std::string>& texts) {
    e2e::writeConfig(config);
    startService(options);
    pumpFor(1500);
    EXPECT_LT(cpuPercent(3000), 10.0);
    for (const std::string& text : texts) EXPECT_NE(service.plainOutput().find(text), std::string::npos) << text;
    EXPECT_EQ(pkstatus(), 0);
    // The request may wait behind two unanswered exchanges of a scan.
    std::string reply = mplaneReply({"--timeout", "6000", "01", "11"});
    EXPECT_NE(reply.find("result: 0 (failure)\nerrorInfo: "), std::string::npos) << reply << service.plainOutput();
  }
};

TEST_F(BadStartTest, AConfigurationOfGarbageLeavesEveryDefault) {
  expectQuietAndServing(
      garbage(3000, 3) + "\n" + std::string(10000, 'k') + " " + std::string(10000, 'v') + "\n" + garbage(5000, 5),
      {"-c", "-l", "3"},
      {"]Version = defalut\n", "]PortName = /dev/ttyPS1\n", "]CommandMsgKey = 0x00400004\n",
       "]ResponseMsgKey = 0x00400005\n", "]ShareMemKey = 0x00400009\n", "Config file version : defalut\n",
       "ERROR: open /dev/ttyPS1 failed!"});
}

TEST_F(BadStartTest, AMissingPortLeavesTheServiceRunningQuietly) {
  expectQuietAndServing("PortName /tmp/no/such/tty\n", {"-c"},
                        {"ERROR: open /tmp/no/such/tty failed!", "RS485 dev not init yet!"});
}

TEST_F(BadStartTest, APlainFileForThePortLeavesTheServiceRunningQuietly) {
  { std::ofstream plain("/tmp/plainfile"); }
  expectQuietAndServing("PortName /tmp/plainfile\n", {"-c"}, {"ERROR: Set terminal attribute failed!"});
}

// Without the run machine: a scan would take each burst of zeros for a collision and
// go down to the last bit of the UID, which holds the cycle for minutes.
TEST_F(BadStartTest, APortThatNeverFallsSilentDoesNotMakeTheServiceSpin) {
  expectQuietAndServing("PortName /dev/zero\n", {},
                        {"ERROR: Set terminal attribute failed!", "serialport msg decode failed -- ret=-2!"});
}

}  // namespace
