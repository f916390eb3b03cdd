// The interaction layer end to end: the real service, the ALD simulator on a
// pty, the console on the service's terminal and the M-Plane queues.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../interactionTestSupport.h"
#include "e2eHarness.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"

namespace {

using itest::Bytes;

const char* const kPort = "/tmp/ttyALD";

class InteractionE2eTest : public testing::Test {
 protected:
  void TearDown() override {
    _service.stop();
    _sim.stop();
    // A sanitizer build reports on the service's own terminal.
    for (const char* report : {"WARNING: ThreadSanitizer", "ERROR: AddressSanitizer", "runtime error:"}) {
      EXPECT_EQ(_service.output().find(report), std::string::npos) << _service.plainOutput();
    }
  }

  // The simulator with the given ALDs, then the service with the given options.
  void start(const std::vector<std::string>& alds, const std::vector<std::string>& options) {
    std::vector<std::string> sim = {e2e::binPath("aldsim"), "--link", kPort};
    sim.insert(sim.end(), alds.begin(), alds.end());
    ASSERT_TRUE(_sim.start(sim));
    ASSERT_TRUE(_sim.waitFor("ready ", 5000)) << _sim.output();
    e2e::writeConfig(std::string("PortName ") + kPort + "\n");
    // Made here, so that a request may go out before the service has opened them.
    ASSERT_GE(itest::openQueue(itest::kCommandKey), 0);
    ASSERT_GE(itest::openQueue(itest::kResponseKey), 0);
    std::vector<std::string> service = {e2e::binPath("pylonkeeper"), "-l", "1"};
    service.insert(service.end(), options.begin(), options.end());
    ASSERT_TRUE(_service.start(service));
  }

  // Sends a console line and waits for text in what follows it.
  bool console(const std::string& line, const std::string& text, int timeoutMs = 3000) {
    size_t mark = _service.mark();
    _service.send(line + "\n");
    return _service.waitFor(text, timeoutMs, mark);
  }

  // Until the scan has brought the ALD of address to RUNNING.
  bool waitRunning(int address, int timeoutMs = 20000) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
      if (console("mret_v2 getSubNums " + std::to_string(address), "subUint nums", 700)) return true;
    }
    return false;
  }

  // Output of the service from mark on, without colours.
  std::string since(size_t mark) { return e2e::stripColours(_service.output().substr(mark)); }

  // Runs mplanectl; its exit status and output.
  int mplane(const std::vector<std::string>& args, std::string* out) {
    e2e::Child tool;
    std::vector<std::string> argv = {e2e::binPath("mplanectl")};
    argv.insert(argv.end(), args.begin(), args.end());
    if (!tool.start(argv)) return -1;
    int status = tool.waitExit(10000);
    *out = tool.plainOutput();
    return status;
  }

  e2e::Child _sim;
  e2e::Child _service;
};

TEST_F(InteractionE2eTest, ConsoleReadsAndSetsTheTilt) {
  start({"uid=NX0001,subs=2,tilt=3.5"}, {"-c"});
  ASSERT_TRUE(waitRunning(1)) << _service.plainOutput();

  size_t mark = _service.mark();
  ASSERT_TRUE(console("aisg getDevNums", "uid:NX0001\n=> "));
  EXPECT_NE(since(mark).find("ALD nums = 1 \naddr:1 , type=0x01, AISGv2 , uid:NX0001\n=> "), std::string::npos);
  EXPECT_EQ(since(mark).find("command msg send"), std::string::npos) << "the listing sends nothing";

  mark = _service.mark();
  ASSERT_TRUE(console("mret_v2 getSubNums 1", "subUint nums = 2\n\n=> "));
  EXPECT_NE(since(mark).find("command msg send\n=> => "), std::string::npos) << since(mark);
  EXPECT_NE(since(mark).find("mret_v2 Command response analyse:\nald[1] :\nsubUint nums = 2\n"), std::string::npos);

  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ald[1] subNo[1]:\ntilt = 3.500000\n\n=> "));
  EXPECT_TRUE(console("mret_v2 setTilt 1 1 5.5", "ald[1] subNo[1]:\nset tilt success\n"));
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "tilt = 5.500000\n")) << _service.plainOutput();
  EXPECT_TRUE(console("MRET_V2 GETTILT 0x01 2", "ald[1] subNo[2]:\ntilt = 3.500000\n"));
  EXPECT_TRUE(console("  mret_v2   calibrate 1  2", "ald[1] subNo[2]:\ncalibrate success\n"));
  _sim.send("alarm 1 7\n");
  ASSERT_TRUE(_sim.waitFor("ald 1 alarm 7", 2000));
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ald[1] subNo[1]:\nalarm = 7\n"));
}

TEST_F(InteractionE2eTest, ConsoleWordsHelpAndRefusals) {
  start({"uid=NX0001"}, {"-c"});
  ASSERT_TRUE(_service.waitFor("=> ", 5000));
  size_t mark = _service.mark();
  ASSERT_TRUE(console("mret_v2 help", "usage: mret_v2 getSubNums addr -- get subUnit numbers\n=> "));
  EXPECT_NE(since(mark).find("usage: mret_v2 calibrate addr subNo -- calibrate antenna\n"
                             "usage: mret_v2 getTilt addr subNo -- get tilt\n"
                             "usage: mret_v2 setTilt addr subNo tilt -- set tilt\n"),
            std::string::npos);
  EXPECT_TRUE(console("aisg", "usage: aisg getDevNums -- get number of ALD\n=> "));
  EXPECT_TRUE(console("mret_v3 getTilt 1 1", "command not support!\n=> "));
  EXPECT_TRUE(console("mret_v2 getTlt 1 1", "not find cmd[getTlt]\n=> "));
  EXPECT_TRUE(console("mret_v2 getTilt 1", "the command is incomplete!\n=> "));
  mark = _service.mark();
  // The reply may come before or after the console's own second prompt.
  EXPECT_TRUE(console("mret_v2 getTilt 9 1", "ErrorInfo: Not find ALD[addr=9].\n=> ")) << since(mark);
  EXPECT_EQ(since(mark).find("command msg send\n=> "), 0u) << since(mark);

  // Blank lines and a line too long for the console bring the prompt again, and nothing else.
  mark = _service.mark();
  _service.send("\n   \n" + std::string(600, 'x') + "\n");
  ASSERT_TRUE(_service.waitFor("=> => => ", 2000, mark)) << since(mark);
  EXPECT_TRUE(console("aisg getDevNums", "ALD nums = "));
}

TEST_F(InteractionE2eTest, ConsoleErrorsFromTheBus) {
  start({"uid=NX0001"}, {"-c"});
  ASSERT_TRUE(waitRunning(1)) << _service.plainOutput();
  _sim.send("quiet 1\n");
  ASSERT_TRUE(_sim.waitFor("ald 1 quiet", 2000));
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ErrorInfo: ALD reply time out.\n=> "));
  // Five failed polls later the ALD is no longer RUNNING, and nothing goes out for it.
  bool notReady = false;
  // One command at a time: each is answered (time-out or refusal) well within the wait.
  for (int i = 0; i < 20 && !notReady; ++i) notReady = console("mret_v2 getTilt 1 1", "ALD is not ready.", 2500);
  EXPECT_TRUE(notReady) << _service.plainOutput();
}

TEST_F(InteractionE2eTest, ConsoleReplyGarbledOnTheBusIsABusError) {
  start({"uid=AAA", "uid=BBB"}, {"-c"});
  ASSERT_TRUE(waitRunning(1));
  ASSERT_TRUE(waitRunning(2));
  ASSERT_TRUE(console("aisg getDevNums", "ALD nums = 2"));
  ASSERT_TRUE(_service.waitFor("uid:BBB\n", 2000));
  std::string listing = _service.plainOutput();
  std::string second = listing.find("addr:1 , type=0x01, AISGv2 , uid:AAA") != std::string::npos ? "424242" : "414141";
  // Through the M-Plane pipe the second ALD is given address 1 as well: both answer at once.
  std::string out;
  ASSERT_EQ(mplane({"FF", "BF", "81F00A0103" + second + "020101"}, &out), 0) << out;
  EXPECT_TRUE(console("mret_v2 getTilt 1 1", "ErrorInfo: HDLC bus error.\n=> ")) << _service.plainOutput();
}

TEST_F(InteractionE2eTest, EndOfConsoleInputParksTheConsoleQuietly) {
  start({"uid=AB"}, {"-c"});
  ASSERT_TRUE(_service.waitFor("=> ", 5000));
  _service.sendEof();
  e2e::sleepMs(300);
  size_t mark = _service.mark();
  long before = e2e::cpuTicks(_service.pid());
  e2e::sleepMs(1500);
  _service.pump(100);
  EXPECT_TRUE(_service.running());
  EXPECT_LT(e2e::cpuTicks(_service.pid()) - before, 40) << "the console must not spin at the end of its input";
  EXPECT_EQ(since(mark).find("=> "), std::string::npos);
  // The M-Plane side serves on.
  std::string out;
  EXPECT_EQ(mplane({"--size", "150", "01", "93"}, &out), 1);
  EXPECT_NE(out.find("errorInfo: Command msg is incorrect,the size less then minsize."), std::string::npos) << out;
}

// Address assignment of address 1 to the ALD of UID "AB", through the pipe.
const std::vector<std::string> kAssignAB = {"FF", "BF", "81F0070102414202", "0101"};

TEST_F(InteractionE2eTest, MPlanePipeDrivesAnAldByItself) {
  start({"uid=AB,subs=2,tilt=2.5"}, {});
  std::string out;
  ASSERT_EQ(mplane(kAssignAB, &out), 0) << out;
  EXPECT_NE(out.find("address: 01\ncontrol: BF\ninfo: 81 F0"), std::string::npos) << out;
  ASSERT_EQ(mplane({"--reserved", "0x5A", "01", "93"}, &out), 0) << out;
  EXPECT_NE(out.find("reserved: 90\n"), std::string::npos) << out;
  EXPECT_NE(out.find("reply size: 298\ndataLength: 2\naddress: 01\ncontrol: 73\ninfo:\n"), std::string::npos) << out;
  // An I-frame with N(S) 0 and N(R) 0: the reply carries N(R) 1 and the layer-7 answer.
  ASSERT_EQ(mplane({"01", "10", "880000"}, &out), 0) << out;
  EXPECT_NE(out.find("address: 01\ncontrol: 30\ninfo: 88 02 00 00 02\n"), std::string::npos) << out;
  EXPECT_NE(out.find("crcErrorCount: 0\nwithoutStopFlagCount: 0\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("receivedOctetsCount: 0\n"), std::string::npos) << out;

  // A whole record from a file: the type word little-endian, then the text (150 bytes: too short).
  S_InteractionMsg raw = itest::request(0x01020304, 0x33, {0x01, 0x93});
  {
    std::ofstream file("/tmp/request.bin", std::ios::binary);
    file.write(reinterpret_cast<const char*>(&raw), kRecordTypeSize + 150);
  }
  ASSERT_EQ(mplane({"--raw", "/tmp/request.bin"}, &out), 1) << out;
  EXPECT_NE(out.find("errorInfo: Command msg is incorrect,the size less then minsize.\n"), std::string::npos) << out;
  EXPECT_NE(out.find("reserved: 51\nreply size: 296\n"), std::string::npos) << out;

  // No ALD at address 9: the bus stays quiet for the whole second.
  auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(mplane({"09", "93"}, &out), 1) << out;
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
  EXPECT_NE(out.find("errorInfo: ALD reply time out.\n"), std::string::npos) << out;
}

TEST_F(InteractionE2eTest, MPlaneReplyWithABadFcs) {
  start({"uid=AB,badFcs=100"}, {});
  std::string out;
  ASSERT_EQ(mplane(kAssignAB, &out), 1) << out;
  EXPECT_NE(out.find("errorInfo: receive hdlc data decode failed.\n"), std::string::npos) << out;
}

TEST_F(InteractionE2eTest, MPlaneRecordsOnTheRealQueues) {
  int command = itest::openQueue(itest::kCommandKey);
  int response = itest::openQueue(itest::kResponseKey);
  // Waits on the queue before the service starts; any positive type word is served.
  S_InteractionMsg early = itest::request(1234, 0x11, {0x01, 0x93});
  ASSERT_EQ(msgcheckAndsnd(command, &early, 150, 0), 0);
  start({"uid=AB"}, {});
  S_InteractionMsg reply;
  ASSERT_EQ(itest::receive(response, &reply, 5000), 296);
  EXPECT_EQ(reply.msgType, 1);
  EXPECT_EQ(reply.reserved, 0x11);
  EXPECT_EQ(itest::errorText(reply), "Command msg is incorrect,the size less then minsize.");

  // 151 bytes of text pass the size test and reach the bus, where nobody has address 1 yet.
  S_InteractionMsg bus = itest::request(5, 0x22, {0x01, 0x93});
  ASSERT_EQ(msgcheckAndsnd(command, &bus, 151, 0), 0);
  ASSERT_EQ(itest::receive(response, &reply, 3000), 297);
  EXPECT_EQ(reply.reserved, 0x22);
  EXPECT_EQ(itest::errorText(reply), "ALD reply time out.");
  EXPECT_TRUE(_sim.waitFor("RX 7E 01 93", 1000));

  // Two replies that nobody fetched: only the newer one is there.
  S_InteractionMsg first = itest::request(1, 1, {0x01});
  S_InteractionMsg second = itest::request(1, 2, {0x01});
  ASSERT_EQ(msgcheckAndsnd(command, &first, 151, 0), 0);
  ASSERT_EQ(msgcheckAndsnd(command, &second, 151, 0), 0);
  e2e::sleepMs(500);
  EXPECT_EQ(itest::queuedMessages(response), 1);
  ASSERT_EQ(itest::receive(response, &reply, 0), 297);
  EXPECT_EQ(reply.reserved, 2);
  EXPECT_EQ(itest::errorText(reply), "The HDLC packet is incorrect.");
}

}  // namespace
