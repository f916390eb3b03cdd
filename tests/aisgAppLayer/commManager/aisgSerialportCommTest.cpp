#include "captureStdout.h"
#include <gtest/gtest.h>
#include <sys/msg.h>

#include <memory>

#include "aisgAppLayer/commManager/aisgSerialportComm.h"
#include "ptyBus.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"

namespace {

class AisgSerialportCommTest : public testing::Test {
 protected:
  void SetUp() override { _queue = msgget(IPC_PRIVATE, IPC_CREAT | 0600); }
  void TearDown() override {
    _comm.reset();
    msgctl(_queue, IPC_RMID, nullptr);
  }
  void start() { _comm = std::make_unique<AisgSerialportComm>(_queue); }
  // The next message posted within timeoutMs; empty when none came.
  Bytes posted(int timeoutMs) {
    S_SerialportMsg msg;
    for (int waited = 0; waited <= timeoutMs; waited += 2, e2e::sleepMs(2)) {
      ssize_t n = recordReceive(_queue, &msg, sizeof(msg.data), 0, IPC_NOWAIT);
      if (n < 0) continue;
      EXPECT_EQ(recordType(&msg), 3);
      return Bytes(msg.data, msg.data + n);
    }
    return Bytes();
  }
  PtyBus _bus;
  int _queue = -1;
  std::unique_ptr<AisgSerialportComm> _comm;
};

TEST_F(AisgSerialportCommTest, AMessageEndsWithSilenceAndHoldsTheFirst384Bytes) {
  start();
  const Bytes ua = frame(3, 0x63, 0, 0);
  _bus.write(ua);
  _bus.write(ua);
  EXPECT_EQ(posted(500), Bytes({0x7E, 0x03, 0x73, 0x33, 0x64, 0x7E, 0x7E, 0x03, 0x73, 0x33, 0x64, 0x7E}));
  // A pause of more than 20 ms inside a frame cuts it in two.
  _bus.write(Bytes(ua.begin(), ua.begin() + 3));
  e2e::sleepMs(80);
  _bus.write(Bytes(ua.begin() + 3, ua.end()));
  EXPECT_EQ(posted(500), Bytes(ua.begin(), ua.begin() + 3));
  EXPECT_EQ(posted(500), Bytes(ua.begin() + 3, ua.end()));

  Bytes burst(385);
  for (size_t i = 0; i < burst.size(); ++i) burst[i] = static_cast<unsigned char>(i * 7 + 0x7D);
  _bus.write(burst);
  EXPECT_EQ(posted(500), Bytes(burst.begin(), burst.begin() + 384));
  // Reads into a full buffer still restart the timer: nothing goes before the silence.
  _bus.write(burst);
  for (int i = 0; i < 20; ++i, e2e::sleepMs(4)) _bus.write({0x55});
  EXPECT_TRUE(posted(0).empty());
  EXPECT_EQ(posted(500), Bytes(burst.begin(), burst.begin() + 384));
}

TEST_F(AisgSerialportCommTest, SentFramesAreDumpedWithinTheTraceBuffer) {
  start();
  std::string out = captured([this] {
    Bytes snrm = {0x7E, 0x03, 0x93, 0x3D, 0x83, 0x7E};
    Bytes longFrame(300, 0xAB);
    _comm->sendCommandMsg(snrm.data(), 6);
    _comm->sendCommandMsg(longFrame.data(), 300);
  });
  EXPECT_EQ(_bus.receive().size(), 306u);
  EXPECT_NE(out.find("Rs485 send Data(6).\n"), std::string::npos) << out;
  EXPECT_NE(out.find("]7E 03 93 3D 83 7E \n"), std::string::npos) << out;
  std::string first80;
  for (int i = 0; i < 80; ++i) first80 += "AB ";
  EXPECT_NE(out.find("]" + first80 + "...(300 bytes)\n"), std::string::npos) << out;
}

TEST_F(AisgSerialportCommTest, APortThatDoesNotOpenIsTriedOnceASecondUntilDestruction) {
  PtyBus::pointPortAt("/nonexistent/port");
  std::string out = captured([this] {
    start();
    e2e::sleepMs(1500);
    auto stopping = std::chrono::steady_clock::now();
    _comm.reset();
    EXPECT_LT(msSince(stopping), 500);
  });
  size_t complaints = 0;
  for (size_t at = out.find("not init yet"); at != std::string::npos; at = out.find("not init yet", at + 1)) ++complaints;
  // One from the line settings, then one per try: at 0 and at about 1000 ms.
  EXPECT_GE(complaints, 2u) << out;
  EXPECT_LE(complaints, 4u) << out;
}

TEST_F(AisgSerialportCommTest, DestructionAtAnyPointOfTheSilenceLeavesNothingBehind) {
  for (int round = 0; round < 6; ++round) {
    start();
    _bus.write(frame(3, 0x63, 0, 0));
    e2e::sleepMs(round * 5);
    _comm.reset();
  }
  e2e::sleepMs(60);
  while (!posted(0).empty()) {
  }
  _bus.write(frame(3, 0x63, 0, 0));
  EXPECT_TRUE(posted(100).empty());
}

}  // namespace
