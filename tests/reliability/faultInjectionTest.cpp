// Faults on the bus, end to end: the service with its console and its run
// machine against simulated ALDs that garble, split, misaddress or drop their
// replies, or go away for a while.
#include <set>

#include "reliabilityBench.h"

namespace {

std::string hexOf(const std::string& text) {
  std::string hex;
  char pair[3];
  for (unsigned char c : text) {
    snprintf(pair, sizeof(pair), "%02X", c);
    hex += pair;
  }
  return hex;
}

class FaultInjectionTest : public rel::Bench {
 protected:
  // No two ALDs of the bus share an address, and every ALD that the service
  // lists sits at that address on the bus.
  void expectOneAddressEach() {
    std::map<std::string, std::string> onBus = simAddresses();
    std::map<std::string, int> listed = listedAlds();
    std::set<std::string> used;
    for (const auto& ald : onBus) {
      if (ald.second == "-") continue;
      EXPECT_TRUE(used.insert(ald.second).second) << "address " << ald.second << " twice";
    }
    for (const auto& ald : listed) EXPECT_EQ(onBus[hexOf(ald.first)], std::to_string(ald.second)) << ald.first;
  }

  // Every ALD that the service lists answers a command of the console in the end.
  void expectListedAldsServed(int timeoutMs) {
    std::map<std::string, int> listed = listedAlds();
    EXPECT_FALSE(listed.empty()) << service.plainOutput();
    for (const auto& ald : listed) EXPECT_TRUE(answersConsole(ald.second, timeoutMs)) << ald.first;
  }
};

TEST_F(FaultInjectionTest, NoisyBus) {
  startBus({"uid=AAA,badFcs=30", "uid=BBB,badFcs=30", "uid=CCC,badFcs=30"});
  startService({"-c"});
  pumpFor(25000);
  EXPECT_EQ(pkstatus(), 0);
  EXPECT_NE(service.output().find("serialport msg decode failed -- ret=-1!"), std::string::npos);
  expectOneAddressEach();
  expectListedAldsServed(8000);
}

}  // namespace
