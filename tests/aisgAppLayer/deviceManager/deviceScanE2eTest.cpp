// The scan through the real serial path against the ALD simulator. Each case
// needs a process of its own (as under ctest): the communication manager keeps
// the port it opened first.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
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
  // Starts the simulator with these ALDs and runs a whole scan on its pty while
  // its log is drained, so that it never blocks on a full terminal. The ALDs found.
  int scan(const std::vector<std::string>& alds) {
    std::vector<std::string> argv = {e2e::binPath("aldsim"), "--link", "/tmp/ttyALD"};
    argv.insert(argv.end(), alds.begin(), alds.end());
    if (!sim_.start(argv) || !sim_.waitFor("ready", 10000)) {
      ADD_FAILURE() << sim_.output();
      return -1;
    }
    e2e::writeConfig("PortName /tmp/ttyALD\n");
    std::unique_ptr<Layer2Device> layer2(Layer2DeviceFactory::creatLayer2DeviceObj(2, AisgCommManager::getInstance()));
    std::atomic<bool> done{false};
    unsigned char count = 0xEE;
    std::thread scanner([&] {
      EXPECT_EQ(layer2->deviceScan(19, count), 0);
      done = true;
    });
    while (!done) sim_.pump(50);
    scanner.join();
    sim_.pump(200);
    return count;
  }

  // The frames that the simulator logged as received from the primary.
  std::vector<std::string> received() {
    std::vector<std::string> frames;
    std::istringstream lines(e2e::stripColours(sim_.output()));
    for (std::string line; std::getline(lines, line);) {
      size_t at = line.find(" RX 7E");
      if (at != std::string::npos) frames.push_back(line.substr(at + 4));
    }
    return frames;
  }

  e2e::Child sim_;
  AldDeviceContainer* container_ = AldDeviceContainer::getInstance();
};

const char kReset[] = "7E FF BF 81 F0 02 07 00 A4 F3 7E";
const char kRootProbe[] = "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E";

TEST_F(DeviceScanE2eTest, EmptyBus) {
  EXPECT_EQ(scan({}), 0);
  EXPECT_EQ(received(), (std::vector<std::string>{kReset, kRootProbe}));
  EXPECT_EQ(container_->getAldDeviceNums(), 0u);
}

TEST_F(DeviceScanE2eTest, OneAldTakesFiveFrames) {
  EXPECT_EQ(scan({"uid=0x4142,type=0x11"}), 1);
  EXPECT_EQ(received(), (std::vector<std::string>{kReset, kRootProbe,
                                                  "7E FF BF 81 F0 08 01 02 41 42 03 02 FF FF 2C 9A 7E",
                                                  "7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E",
                                                  "7E 01 93 8D B0 7E"}));
  AldDevice* ald = container_->findAldDeviceObj(1);
  ASSERT_NE(ald, nullptr);
  EXPECT_EQ(ald->deviceType, 0x11);
  EXPECT_EQ(ald->getStatus(), RUNNING);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(ald->baseInfo.uid), ald->baseInfo.uidLength), "AB");
}

TEST_F(DeviceScanE2eTest, EightRandomAldsAllRun) {
  EXPECT_EQ(scan({"--seed", "7", "--random", "8"}), 8);
  EXPECT_EQ(container_->getAldDeviceNums(), 8u);
  std::set<std::string> uids;
  for (uint8_t address = 1; address <= 8; ++address) {
    AldDevice* ald = container_->findAldDeviceObj(address);
    ASSERT_NE(ald, nullptr) << int(address);
    EXPECT_EQ(ald->getStatus(), RUNNING);
    EXPECT_EQ(ald->baseInfo.uidLength, 19);
    uids.insert(std::string(reinterpret_cast<const char*>(ald->baseInfo.uid), ald->baseInfo.uidLength));
  }
  EXPECT_EQ(uids.size(), 8u);
}

}  // namespace
