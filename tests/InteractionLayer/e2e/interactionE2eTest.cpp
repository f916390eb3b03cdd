// The interaction layer end to end: the real service, the ALD simulator on a
// pty, the console on the service's terminal and the M-Plane queues.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "../interactionTestSupport.h"
#include "e2eHarness.h"
#include "serviceBench.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"

namespace {

using Clock = std::chrono::steady_clock;
const char* const kTooShort = "Command msg is incorrect,the size less then minsize.";
constexpr size_t npos = std::string::npos;

class InteractionE2eTest : public e2e::ServiceBench {
 protected:
  // The simulator with one ALD, then the service, with its console or without.
  void start(const std::string& ald, bool withConsole) {
    startBus({ald});
    startService(withConsole ? std::vector<std::string>{"-c"} : std::vector<std::string>{});
  }

  // Output of the service from mark on, without colours.
  std::string since(size_t mark) { return e2e::stripColours(service.output().substr(mark)); }
};

TEST_F(InteractionE2eTest, ConsoleSessionToTheEndOfItsInput) {
  start("uid=NX0001,subs=2,tilt=3.5", true);
  ASSERT_TRUE(service.waitFor("=> ", 5000));
  EXPECT_TRUE(console("mret_v3 getTilt 1 1", "command not support!\n=> "));
  EXPECT_TRUE(console("mret_v2 getTilt 1", "the command is incomplete!\n=> "));
  // Blank lines and a line too long for the console bring the prompt again, and nothing else.
  size_t mark = service.mark();
  service.send("\n   \n" + std::string(600, 'x') + "\n");
  ASSERT_TRUE(service.waitFor("=> => => ", 2000, mark)) << since(mark);
  // Until the scan has brought the ALD to RUNNING.
  bool running = false;
  for (auto end = Clock::now() + std::chrono::seconds(20); !running && Clock::now() < end;) {
    running = console("mret_v2 getSubNums 1", "subUint nums", 700);
  }
  ASSERT_TRUE(running) << service.plainOutput();
  mark = service.mark();
  ASSERT_TRUE(console("aisg getDevNums", "uid:NX0001\n=> "));
  EXPECT_NE(since(mark).find("ALD nums = 1 \naddr:1 , type=0x01, AISGv2 , uid:NX0001\n=> "), npos);
  EXPECT_EQ(since(mark).find("command msg send"), npos) << "the listing sends nothing";
  mark = service.mark();
  ASSERT_TRUE(console("mret_v2 getSubNums 1", "subUint nums = 2\n\n=> "));
  EXPECT_NE(since(mark).find("command msg send\n=> => "), npos) << since(mark);
  EXPECT_NE(since(mark).find("mret_v2 Command response analyse:\nald[1] :\nsubUint nums = 2\n"), npos);
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ald[1] subNo[1]:\ntilt = 3.500000\n\n=> "));
  EXPECT_TRUE(console("mret_v2 setTilt 1 1 5.5", "ald[1] subNo[1]:\nset tilt success\n"));
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "tilt = 5.500000\n")) << service.plainOutput();
  bus.send("alarm 1 7\n");
  ASSERT_TRUE(bus.waitFor("ald 1 alarm 7", 2000));
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ald[1] subNo[1]:\nalarm = 7\n"));
  // An error from the bus; the reply may come before or after the console's own second prompt.
  bus.send("quiet 1\n");
  ASSERT_TRUE(bus.waitFor("ald 1 quiet", 2000));
  mark = service.mark();
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ErrorInfo: ALD reply time out.\n=> ")) << since(mark);
  EXPECT_EQ(since(mark).find("command msg send\n=> "), 0u) << since(mark);

  // At the end of its input the console parks, without a prompt and without spinning.
  service.sendEof();
  e2e::sleepMs(300);
  mark = service.mark();
  long before = e2e::cpuTicks(service.pid());
  e2e::sleepMs(1500);
  service.pump(100);
  EXPECT_TRUE(service.running());
  EXPECT_LT(e2e::cpuTicks(service.pid()) - before, 40) << "the console must not spin at the end of its input";
  EXPECT_EQ(since(mark).find("=> "), npos);
  std::string out;  // the M-Plane side serves on
  EXPECT_EQ(mplane({"--size", "150", "01", "93"}, &out), 1);
  EXPECT_NE(out.find(std::string("errorInfo: ") + kTooShort), npos) << out;
}

TEST_F(InteractionE2eTest, MPlaneOnTheQueuesAndThroughMplanectl) {
  int command = itest::commandQueue(), response = itest::responseQueue();
  // Waits on the queue before the service starts; any positive type word is served as M-Plane.
  S_InteractionMsg msg = itest::request(1234, 0x11, {0x01, 0x93}), reply;
  ASSERT_EQ(msgcheckAndsnd(command, &msg, 150, 0), 0);
  start("uid=AB,subs=2,tilt=2.5", false);
  ASSERT_EQ(itest::receive(response, &reply, 5000), 296);
  EXPECT_EQ(itest::summary(reply), std::string("1 17 ") + kTooShort);

  // An over-long request is dropped and the queue goes on; a whole record arrives.
  std::vector<unsigned char> big(kRecordTypeSize + 1700, 0x33);
  ASSERT_EQ(msgcheckAndsnd(command, big.data(), 1700, 0), 0);
  msg = itest::request(5, 0x22, {0x01});
  msg.data[1499] = 0x5C;
  ASSERT_EQ(msgcheckAndsnd(command, &msg, interaction::kMaxText, 0), 0);
  ASSERT_EQ(itest::receive(response, &reply, 3000), 1646);
  EXPECT_EQ(itest::summary(reply), "1 34 The HDLC packet is incorrect.");
  EXPECT_EQ(reply.data[1499], 0x5C);
  EXPECT_EQ(itest::queued(command).first, 0);

  // 151 bytes of text pass the size test and reach the bus, where nobody has address 1 yet.
  msg = itest::request(1, 0x33, {0x01, 0x93});
  auto sent = Clock::now();
  ASSERT_EQ(msgcheckAndsnd(command, &msg, 151, 0), 0);
  ASSERT_EQ(itest::receive(response, &reply, 3000), 297);
  EXPECT_GE(Clock::now() - sent, std::chrono::milliseconds(1000));
  EXPECT_EQ(itest::summary(reply), "1 51 ALD reply time out.");
  EXPECT_TRUE(bus.waitFor("RX 7E 01 93", 3000));

  // Two replies that nobody fetched, of 297 and 298 bytes of text: only the newer one is there.
  for (uint8_t reserved : {1, 2}) {
    msg = itest::request(1, reserved, {0x01});
    ASSERT_EQ(msgcheckAndsnd(command, &msg, 150 + reserved, 0), 0);
  }
  bool replaced = false;
  for (int waited = 0; !replaced && waited < 3000; waited += 10, e2e::sleepMs(10)) {
    replaced = itest::queued(response) == std::make_pair(1, 298L);
  }
  EXPECT_TRUE(replaced) << itest::queued(response).first;
  ASSERT_EQ(itest::receive(response, &reply, 0), 298);
  EXPECT_EQ(itest::summary(reply), "1 2 The HDLC packet is incorrect.");

  // mplanectl assigns address 1 to the ALD of UID "AB", links and talks to it.
  std::string out;
  ASSERT_EQ(mplane({"FF", "BF", "81F0070102414202", "0101"}, &out), 0) << out;
  EXPECT_NE(out.find("address: 01\ncontrol: BF\ninfo: 81 F0"), npos) << out;
  ASSERT_EQ(mplane({"--reserved", "0x5A", "01", "93"}, &out), 0) << out;
  EXPECT_NE(out.find("reserved: 90\nreply size: 298\ndataLength: 2\naddress: 01\ncontrol: 73\ninfo:\n"), npos) << out;
  // An I-frame with N(S) 0 and N(R) 0: the reply carries N(R) 1, the layer-7 answer and the bus counters.
  ASSERT_EQ(mplane({"01", "10", "880000"}, &out), 0) << out;
  EXPECT_NE(out.find("address: 01\ncontrol: 30\ninfo: 88 02 00 00 02\n"), npos) << out;
  EXPECT_NE(out.find("crcErrorCount: 0\nwithoutStopFlagCount: 0\n"), npos) << out;
  EXPECT_EQ(out.find("receivedOctetsCount: 0\n"), npos) << out;
  // A whole record from a file: the type word little-endian, then the text (150 bytes: too short).
  msg = itest::request(0x01020304, 0x33, {0x01, 0x93});
  std::ofstream("/tmp/request.bin", std::ios::binary).write(reinterpret_cast<const char*>(&msg), kRecordTypeSize + 150);
  ASSERT_EQ(mplane({"--raw", "/tmp/request.bin"}, &out), 1) << out;
  EXPECT_NE(out.find(std::string("errorInfo: ") + kTooShort + "\n"), npos) << out;
  EXPECT_NE(out.find("reserved: 51\nreply size: 296\n"), npos) << out;

  // A command queue that fails every receive does not make the relay spin.
  ASSERT_EQ(msgctl(command, IPC_RMID, nullptr), 0);
  long before = e2e::cpuTicks(service.pid());
  e2e::sleepMs(1000);
  EXPECT_LT(e2e::cpuTicks(service.pid()) - before, 25);
}

}  // namespace
