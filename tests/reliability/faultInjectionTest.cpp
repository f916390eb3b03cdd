// Faults on the bus, end to end: the service with its console and its run
// machine against simulated ALDs that garble, split, misaddress or drop their
// replies, or go away for a while.
#include <map>
#include <set>
#include <sstream>

#include "serviceBench.h"
#include "utility/hexText.h"

namespace {

const char* const kReset = "RX 7E FF BF 81 F0 02 07 00";

// The bytes of text in hexadecimal, with the separator between them.
std::string hexOf(const std::string& text, const char* separator = "") {
  return hexText(reinterpret_cast<const unsigned char*>(text.data()), text.size(), separator);
}

// The start of the frame that gives this UID its address, as the simulator logs it.
std::string assignmentOf(const std::string& uid) {
  const std::string head = {static_cast<char>(uid.size() + 5), 0x01, static_cast<char>(uid.size())};
  return "RX 7E FF BF 81 F0 " + hexOf(head + uid, " ") + " 02 01";
}

class FaultInjectionTest : public e2e::ServiceBench {
 protected:
  // Asks until the ALD of this address answers a layer-7 command through the console.
  bool answersConsole(int address, int timeoutMs) {
    return waitUntil([&] { return console("mret_v2 getSubNums " + std::to_string(address), "subUint nums", 1500); },
                     timeoutMs);
  }

  // The simulator's view: the address of each ALD by UID in hexadecimal, "-" for none.
  std::map<std::string, std::string> simAddresses() {
    size_t mark = bus.mark();
    bus.send("list\n");
    pumpFor(300);
    std::map<std::string, std::string> addresses;
    std::istringstream lines(e2e::stripColours(bus.output().substr(mark)));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      std::string hash, number, address, link, uid;
      if (words >> hash >> number >> address >> link >> uid && hash == "#" && (link == "up" || link == "down")) {
        addresses[uid] = address;
      }
    }
    return addresses;
  }

  // The service's view: the console's listing, address by UID text.
  std::map<std::string, int> listedAlds() {
    std::map<std::string, int> alds;
    size_t mark = service.mark();
    if (!console("aisg getDevNums", "ALD nums = ")) return alds;
    pumpFor(300);
    std::istringstream lines(e2e::stripColours(service.output().substr(mark)));
    for (std::string line; std::getline(lines, line);) {
      int address = 0;
      char uid[64] = {0};
      if (sscanf(line.c_str(), "addr:%d , type=0x%*x, AISGv2 , uid:%63s", &address, uid) == 2) alds[uid] = address;
    }
    return alds;
  }

  // No two ALDs of the bus share an address, the service lists `count` ALDs, each
  // at its address on the bus, and each of them answers a console command in the end.
  void expectEveryAldServed(size_t count, int timeoutMs = 8000) {
    std::map<std::string, std::string> onBus = simAddresses();
    std::set<std::string> used;
    for (const auto& ald : onBus) {
      if (ald.second == "-") continue;
      EXPECT_TRUE(used.insert(ald.second).second) << "two ALDs at address " << ald.second;
    }
    std::map<std::string, int> listed = listedAlds();
    EXPECT_EQ(listed.size(), count) << e2e::stripColours(bus.output());
    for (const auto& ald : listed) {
      EXPECT_EQ(onBus[hexOf(ald.first)], std::to_string(ald.second)) << ald.first;
      EXPECT_TRUE(answersConsole(ald.second, timeoutMs)) << ald.first << "\n" << tail(bus) << tail(service);
    }
  }
  // The service counts its cycles in the status block.
  void expectAlive() { EXPECT_EQ(pkstatus(), 0) << service.plainOutput(); }

  static std::string tail(const e2e::Child& child) {
    std::string text = child.plainOutput();
    return text.substr(text.size() > 4000 ? text.size() - 4000 : 0);
  }
  bool busSays(const std::string& text, int timeoutMs, size_t from = 0) { return says(bus, text, timeoutMs, from); }
};

// A third of the replies fails its check: scans see false collisions, confirmations
// and assignments go garbled, polls fail now and then. The run machine keeps
// working the bus, counts and traces every damaged frame, and stays alive.
TEST_F(FaultInjectionTest, OnANoisyBusTheRunMachineKeepsWorkingTheBus) {
  startBus({"uid=ARET1,badFcs=30", "uid=BRET2,badFcs=30", "uid=DRET3,badFcs=30"});
  startService({"-c"});
  pumpFor(12000);
  expectAlive();
  EXPECT_NE(service.output().find("serialport msg decode failed -- ret=-1!"), std::string::npos);
  size_t mark = bus.mark();
  pumpFor(3000);
  EXPECT_GE(e2e::occurrences(bus.output().substr(mark), " RX "), 2) << "frames still go out";
  expectAlive();
}

// Silent for a few seconds: five polls fail, the ALD takes its address again and is
// polled on, and the bus is not scanned again.
TEST_F(FaultInjectionTest, AnAldAwayForAFewSecondsIsAddressedAgain) {
  // A failed poll stretches the cycle to two seconds: the fifth fails about ten seconds in.
  startBus({"uid=ARET1", "uid=BRET2,silentAt=6-17"});
  startService({"-c"});
  ASSERT_TRUE(busSays(assignmentOf("BRET2"), 5000));
  size_t scanned = bus.mark();
  ASSERT_TRUE(busSays(assignmentOf("BRET2"), 20000, scanned)) << bus.plainOutput();
  ASSERT_TRUE(busSays("TX 7E 02 11", 8000, bus.mark())) << bus.plainOutput();
  EXPECT_EQ(e2e::occurrences(bus.output(), kReset), 1) << bus.plainOutput();
  expectAlive();
  expectEveryAldServed(2);
}

// Silent for longer: the ALD is lost, the bus is scanned again and again while it is
// away, and when it is back the scan finds it and it is polled.
TEST_F(FaultInjectionTest, AnAldAwayForLongIsFoundByTheRescan) {
  startBus({"uid=ARET1,silentAt=5-28"});
  startService({"-c"});
  ASSERT_TRUE(busSays("TX 7E 01 11", 6000));
  // Five failed polls and five failed assignments of two seconds each, then the scan.
  ASSERT_TRUE(busSays(kReset, 24000, bus.mark())) << bus.plainOutput();
  ASSERT_TRUE(busSays("TX 7E 01 11", 14000, bus.mark())) << bus.plainOutput();
  expectAlive();
  expectEveryAldServed(1);
}

// An ALD that answers from another address: each poll fails with a trace; after
// five it is given its address again, which it takes (an assignment goes to all
// stations, so any address may answer it), and it is polled again: the road of
// failed polls and assignments goes round, and no rescan comes. The other ALD is
// served all along.
TEST_F(FaultInjectionTest, AnAldThatAnswersFromAnotherAddressGoesRoundTheRecoveryRoad) {
  startBus({"uid=ARET1", "uid=BRET2,wrongAddr=9"});
  startService({"-c"});
  ASSERT_TRUE(says(service, "Reply addr[9] is not target addr[2]!", 8000)) << service.plainOutput();
  size_t first = bus.mark();
  ASSERT_TRUE(busSays(assignmentOf("BRET2"), 20000, first)) << bus.plainOutput();
  ASSERT_TRUE(busSays(assignmentOf("BRET2"), 20000, bus.mark())) << bus.plainOutput();
  EXPECT_EQ(e2e::occurrences(bus.output(), kReset), 1) << "no rescan: " << bus.plainOutput();
  expectAlive();
  EXPECT_TRUE(answersConsole(1, 5000));
}

// Seven ALDs answer the first probe at once and collide down to the third bit of
// their UIDs; one of them can never be addressed (its answers lack the vendor code)
// and collides at every scan. The six others end with an address each.
TEST_F(FaultInjectionTest, CollidingAldsAreAllFoundAndAddressed) {
  startBus({"uid=B1", "uid=D2", "uid=F3", "uid=H4", "uid=J5", "uid=L6", "uid=N7,noVendor=1"});
  startService({"-c"});
  ASSERT_TRUE(busSays("TX COLLISION", 5000));
  ASSERT_TRUE(busSays("TX 7E 06 11", 20000)) << bus.plainOutput();
  expectAlive();
  expectEveryAldServed(6);
}

// Replies that come in two halves 40 ms apart: each half is a message of its own
// that fails to decode for a missing flag, and is counted as such.
TEST_F(FaultInjectionTest, RepliesSplitByAGapFailAndAreCounted) {
  startBus({"uid=ARET1", "uid=BRET2,split=40"});
  startService({});
  std::string out;
  // Address assignments through the pipe: to the split ALD, then to the sound one.
  EXPECT_EQ(mplane({"FF", "BF", "81F00A0105" + hexOf("BRET2") + "020102"}, &out), 1) << out;
  EXPECT_NE(out.find("errorInfo: receive hdlc data decode failed."), std::string::npos) << out;
  // The second half comes after that exchange has ended, and the next one takes it.
  pumpFor(300);
  int status = -1;
  for (int i = 0; i < 3 && status != 0; ++i) status = mplane({"FF", "BF", "81F00A0105" + hexOf("ARET1") + "020101"}, &out);
  ASSERT_EQ(status, 0) << out;
  EXPECT_NE(out.find("address: 01\ncontrol: BF\ninfo: 81 F0 0A 01 05 41 52 45 54 31"), std::string::npos) << out;
  unsigned int counted = 0;
  EXPECT_EQ(sscanf(out.c_str() + out.find("withoutStopFlagCount: "), "withoutStopFlagCount: %u", &counted), 1);
  EXPECT_GE(counted, 2u) << out;
  EXPECT_GE(e2e::occurrences(service.output(), "serialport msg decode failed -- ret=-3!"), 2);
  expectAlive();
}

}  // namespace
