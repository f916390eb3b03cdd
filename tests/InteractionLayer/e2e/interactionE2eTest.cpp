// The interaction layer end to end: the real service, the ALD simulator on a pty, the
// console on the service's terminal and the M-Plane queues.
#include <atomic>
#include <fstream>
#include <thread>

#include "../interactionTestSupport.h"
#include "serviceBench.h"

namespace {

using itest::Bytes;
const std::string kTooShort = "Command msg is incorrect,the size less then minsize.";

class InteractionE2eTest : public e2e::ServiceBench {
 protected:
  // Sends a request of this text size, its tag in the reserved byte; the result of the send.
  int send(int32_t type, uint8_t tag, size_t text, const Bytes& data = {0x01, 0x93}, int flags = 0) {
    std::vector<unsigned char> record(std::max(kRecordTypeSize + text, sizeof(S_InteractionMsg)));
    S_InteractionMsg msg = itest::request(type, tag, data);
    memcpy(record.data(), &msg, sizeof(msg));
    return recordSend(_command, record.data(), text, flags);
  }
  int _command = itest::commandQueue(), _response = itest::responseQueue();
  S_InteractionMsg _reply;
};

TEST_F(InteractionE2eTest, ConsoleSessionToTheEndOfItsInput) {
  start({"uid=NX0001,subs=2,tilt=3.5"}, {"-c"});
  play(
      "says => | type mret_v3 getTilt 1 1 | says command not support!\n=>  | type mret_v2 getTilt 1 | "
      "says the command is incomplete!\n=>  | "
      // Blank lines and a line too long for the console bring the prompt again, and nothing else.
      "type \n   \n" +
      std::string(600, 'x') +
      " | says => => =>  | "
      "bus TX 7E 01 11 | "  // polled: the ALD is RUNNING
      "type aisg getDevNums | says ALD nums = 1 \naddr:1 , type=0x01, AISGv2 , uid:NX0001\n=>  | "
      "type mret_v2 getSubNums 1 | says command msg send\n=>  | "
      "says mret_v2 Command response analyse:\nald[1] :\nsubUint nums = 2\n\n=>  | type mret_v2 getTilt 1 1 | "
      "says ald[1] subNo[1]:\ntilt = 3.500000\n\n=>  | type mret_v2 setTilt 1 1 5.5 | "
      "says ald[1] subNo[1]:\nset tilt success\n | "
      // Binary garbage and lines of 10 000 characters leave the console serving.
      "type " +
      e2e::garbage(4000, 7) + "\n" + std::string(10000, 'x') + "\nmret_v2 " + std::string(10000, '1') + "\n" +
      e2e::garbage(10000, 11) +
      " | type mret_v2 getTilt 1 1 | says tilt = 5.500000\n | sim alarm 1 7 | "
      "bus ald 1 alarm 7 | type mret_v2 getTilt 1 1 | says ald[1] subNo[1]:\nalarm = 7\n | sim quiet 1 | "
      "bus ald 1 quiet | type mret_v2 getTilt 1 1 | says command msg send\n=>  | "
      "says ErrorInfo: ALD reply time out.\n=>  | "
      // At the end of its input the console parks without spinning; the M-Plane side serves on.
      "eof | idle | run mplanectl --size 150 01 93 | reply errorInfo: " +
      kTooShort);
}

TEST_F(InteractionE2eTest, MPlaneRecordsOfEveryShapeEachGetOneReply) {
  // A request that waits on the queue before the service starts is served.
  ASSERT_EQ(send(1, 0x11, 150), 0);
  start({"uid=AB,subs=2,tilt=2.5"}, {});
  ASSERT_EQ(itest::receive(_response, &_reply, 5000), 296);
  EXPECT_EQ(itest::summary(_reply) + " " + std::to_string(_reply.reserved), "1 0 " + kTooShort + " 17");
  // mplanectl gives the ALD of UID "AB" address 1: SNRM frames to it are answered from now on.
  play("run mplanectl FF BF 81F0070102414202 0101 | reply address: 01\ncontrol: BF\ninfo: 81 F0");
  // A text too long for any record is dropped with a trace. Any type word is served as M-Plane (the
  // console's own too), and the reply's size follows the request's. Nobody has address 2.
  ASSERT_EQ(send(1, 0xEE, 1700), 0);
  play(
      "says dropped a message longer than 1646 bytes | run mplanectl --type 2 --size 1646 01 93 | "
      "reply result: 1 (success) | reply reply size: 1646\n | run mplanectl --type 2147483647 01 93 | "
      "reply result: 1 (success) | run mplanectl 02 93 | reply errorInfo: ALD reply time out.");
  // Two replies that nobody fetched, of 297 and 298 bytes of text: only the newer one is there.
  for (uint8_t tag : {1, 2}) ASSERT_EQ(send(1, tag, 150 + tag), 0);
  EXPECT_TRUE(e2e::waitUntil([&] { return itest::queued(_response) == std::make_pair(1, 298L); }, 3000));
  // Through mplanectl: the reserved byte echoed; an I-frame with N(S) 0 and N(R) 0 whose reply carries
  // N(R) 1, the layer-7 answer and the bus counters; a whole record from a file, its type word
  // little-endian, then its text (150 bytes: too short).
  S_InteractionMsg raw = itest::request(0x01020304, 0x33, {0x01, 0x93});
  std::ofstream("/tmp/request.bin", std::ios::binary).write(reinterpret_cast<const char*>(&raw), 4 + 150);
  play(
      "run mplanectl --reserved 0x5A 01 93 | "
      "reply reserved: 90\nreply size: 298\ndataLength: 2\naddress: 01\ncontrol: 73\ninfo:\n | "
      "run mplanectl 01 10 880000 | reply address: 01\ncontrol: 30\ninfo: 88 02 00 00 02\n | "
      "reply crcErrorCount: 0\nwithoutStopFlagCount: 0\n | run mplanectl --raw /tmp/request.bin | "
      "reply errorInfo: " +
      kTooShort + "\n | reply reserved: 51\nreply size: 296\n");
  // A peer removes both queues and makes them anew: the relay does not spin meanwhile, and serves the new ones.
  ASSERT_EQ(msgctl(_command, IPC_RMID, nullptr), 0);
  ASSERT_EQ(msgctl(_response, IPC_RMID, nullptr), 0);
  play("idle");
  _command = itest::commandQueue(), _response = itest::responseQueue();
  play("run mplanectl 01 93 | reply control: 73");
}

// 300 requests at once: the command queue takes what it can, the relay hands on what the service's
// own queue takes and prints a limit message for each one it refuses, and each request handed on
// gets exactly one reply.
TEST_F(InteractionE2eTest, AFloodOfRequestsGetsOneReplyForEachAcceptedAndTheLimitsForTheRest) {
  start({"uid=AB"}, {});
  // A reader waiting on the response queue takes each reply the moment it is sent, before the next
  // one replaces it. A record of type 2 from here ends it.
  std::atomic<int> replies{0}, failures{0};
  std::thread reader([&] {
    S_InteractionMsg reply;
    while (recordReceive(_response, &reply, 1646, 0, 0) >= 0 && reply.msgType == 1) {
      ++replies;
      failures += reply.result != 1;
    }
  });
  // The first probe of a scan, which an ALD without an address answers every time.
  const Bytes probe = {0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
  int accepted = 0;
  for (int i = 0; i < 300; ++i) accepted += send(1, 0, 159, probe, IPC_NOWAIT) == 0;
  for (int seen = -1; seen != replies; e2e::sleepMs(2000)) seen = replies;  // until two seconds pass without one
  S_InteractionMsg end = itest::request(2, 0, {});
  EXPECT_EQ(recordSend(_response, &end, 0, 0), 0);
  reader.join();
  EXPECT_EQ(failures, 0);
  // The refusals of the interaction manager's queue, the first that the service makes.
  char queue[32];
  snprintf(queue, sizeof(queue), "__msqid 0x%x ", msgget(0x600000, 0));
  int refused = e2e::occurrences(service.output(), queue);
  EXPECT_GT(refused, 0) << service.plainOutput();
  EXPECT_EQ(replies, accepted - refused);
}

}  // namespace
