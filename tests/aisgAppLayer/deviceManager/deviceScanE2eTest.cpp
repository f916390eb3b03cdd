// The scan through the real serial path against the ALD simulator. Each case
// needs a process of its own (as under ctest): the communication manager keeps
// the port it opened first.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"
#include "e2eHarness.h"

namespace {

class DeviceScanE2eTest : public testing::Test {
 protected:
  void TearDown() override { delete layer2_; }

  // Starts the simulator with these ALDs and the primary on its pty.
  void startBus(const std::vector<std::string>& alds) {
    std::vector<std::string> argv = {e2e::binPath("aldsim"), "--link", "/tmp/ttyALD"};
    argv.insert(argv.end(), alds.begin(), alds.end());
    ASSERT_TRUE(sim_.start(argv));
    ASSERT_TRUE(sim_.waitFor("ready", 10000)) << sim_.output();
    e2e::writeConfig("PortName /tmp/ttyALD\n");
    layer2_ = Layer2DeviceFactory::creatLayer2DeviceObj(2, AisgCommManager::getInstance());
    ASSERT_NE(layer2_, nullptr);
  }

  // Runs a whole scan while the simulator's log is drained, so that it never
  // blocks on a full terminal while the bus waits for it.
  unsigned char scan() {
    std::atomic<bool> done{false};
    int result = -9;
    unsigned char count = 0xEE;
    std::thread scanner([&] {
      result = layer2_->deviceScan(19, count);
      done = true;
    });
    while (!done) sim_.pump(50);
    scanner.join();
    sim_.pump(200);
    EXPECT_EQ(result, 0);
    return count;
  }

  // The frames of the simulator's log in one direction ("RX" from the primary, "TX" to it).
  std::vector<std::string> logged(const std::string& direction) {
    std::vector<std::string> frames;
    std::istringstream lines(e2e::stripColours(sim_.output()));
    const std::string tag = " " + direction + " 7E";
    for (std::string line; std::getline(lines, line);) {
      size_t at = line.find(tag);
      if (at != std::string::npos) frames.push_back(line.substr(at + direction.size() + 2));
    }
    return frames;
  }

  std::vector<AldDevice*> alds() {
    AldDeviceContainer* container = AldDeviceContainer::getInstance();
    std::vector<AldDevice*> all;
    for (AldDevice* ald = container->getBeginAldDeviceObj(); ald != nullptr && !container->isEnd();
         ald = container->getNextAldDeviceObj()) {
      all.push_back(ald);
    }
    return all;
  }

  static std::string uidOf(const AldDevice* ald) {
    return std::string(reinterpret_cast<const char*>(ald->baseInfo.uid), ald->baseInfo.uidLength);
  }

  e2e::Child sim_;
  Layer2Device* layer2_ = nullptr;
};

TEST_F(DeviceScanE2eTest, EmptyBus) {
  ASSERT_NO_FATAL_FAILURE(startBus({}));
  EXPECT_EQ(scan(), 0);
  EXPECT_EQ(logged("RX"), (std::vector<std::string>{"7E FF BF 81 F0 02 07 00 A4 F3 7E",
                                                     "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E"}));
  EXPECT_TRUE(logged("TX").empty());
  EXPECT_TRUE(alds().empty());
}

TEST_F(DeviceScanE2eTest, OneAldTakesFiveFrames) {
  ASSERT_NO_FATAL_FAILURE(startBus({"uid=0x4142,type=0x11"}));
  EXPECT_EQ(scan(), 1);
  EXPECT_EQ(logged("RX"), (std::vector<std::string>{"7E FF BF 81 F0 02 07 00 A4 F3 7E",
                                                     "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E",
                                                     "7E FF BF 81 F0 08 01 02 41 42 03 02 FF FF 2C 9A 7E",
                                                     "7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E",
                                                     "7E 01 93 8D B0 7E"}));
  EXPECT_EQ(logged("TX").size(), 4u);
  std::vector<AldDevice*> found = alds();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->address, 1);
  EXPECT_EQ(found[0]->deviceType, 0x11);
  EXPECT_EQ(found[0]->baseInfo.status, RUNNING);
  EXPECT_EQ(uidOf(found[0]), "AB");
}

TEST_F(DeviceScanE2eTest, TwoAldsDifferingAtBitThree) {
  ASSERT_NO_FATAL_FAILURE(startBus({"uid=0x4942", "uid=0x4142"}));
  EXPECT_EQ(scan(), 2);
  // Reset, root, two probes at each of the positions 1 to 3, and for each ALD a
  // confirmation, an assignment and an SNRM.
  EXPECT_EQ(logged("RX").size(), 14u);
  EXPECT_EQ(logged("TX COLLISION").size(), 3u);  // the root and the 0 branches at positions 1 and 2
  std::vector<AldDevice*> found = alds();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(uidOf(found[0]), "AB");
  EXPECT_EQ(uidOf(found[1]), "IB");
  EXPECT_EQ(found[0]->address, 1);
  EXPECT_EQ(found[1]->address, 2);
  EXPECT_EQ(found[0]->baseInfo.status, RUNNING);
  EXPECT_EQ(found[1]->baseInfo.status, RUNNING);
}

TEST_F(DeviceScanE2eTest, EightRandomAldsAllRun) {
  ASSERT_NO_FATAL_FAILURE(startBus({"--seed", "7", "--random", "8"}));
  EXPECT_EQ(scan(), 8);
  std::vector<AldDevice*> found = alds();
  ASSERT_EQ(found.size(), 8u);
  std::set<std::string> uids;
  for (size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(static_cast<size_t>(found[i]->address), i + 1);
    EXPECT_EQ(found[i]->baseInfo.status, RUNNING);
    EXPECT_EQ(found[i]->baseInfo.uidLength, 19);
    uids.insert(uidOf(found[i]));
  }
  EXPECT_EQ(uids.size(), 8u);
}

TEST_F(DeviceScanE2eTest, AldWithoutVendorCodeIsNotAddressed) {
  ASSERT_NO_FATAL_FAILURE(startBus({"uid=0x4142,type=0x11,noVendor=1"}));
  EXPECT_EQ(scan(), 0);
  EXPECT_EQ(logged("RX").size(), 2u);
  EXPECT_TRUE(alds().empty());
}

TEST_F(DeviceScanE2eTest, FailedSnrmLeavesTheAldAddressed) {
  // Its fifth frame, after reset, probe, confirmation and assignment, is the SNRM.
  ASSERT_NO_FATAL_FAILURE(startBus({"uid=0x4142,type=0x11,silentFrom=5"}));
  EXPECT_EQ(scan(), 1);
  EXPECT_EQ(logged("RX").size(), 5u);
  std::vector<AldDevice*> found = alds();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->address, 1);
  EXPECT_EQ(found[0]->baseInfo.status, ADDRESSED);
}

}  // namespace
