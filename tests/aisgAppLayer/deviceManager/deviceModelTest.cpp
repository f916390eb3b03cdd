#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include "aisgAppLayer/deviceManager/aldDevice.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"
#include "fakeBus.h"
#include "utility/debugTrace.h"

namespace {

using fake::captured;

TEST(AldDeviceTest, SequenceNumbersKeepThreeBits) {
  AldDevice ald;
  EXPECT_EQ(ald._pCommInterface, nullptr);
  ald.setSendNo(9);
  ald.setReceiveNo(8);
  EXPECT_EQ(ald.sendNo, 1);
  EXPECT_EQ(ald.receiveNo, 0);
}

// Only five failures in a row change the status, and the counter starts again.
TEST(AldDeviceTest, FiveFailuresInARowChangeTheStatus) {
  AldDevice ald;
  ald.baseInfo.status = RUNNING;
  for (int i = 0; i < 4; ++i) ald.addFailedCount();
  ald.clearFailedCount();
  for (int i = 0; i < 4; ++i) ald.addFailedCount();
  EXPECT_EQ(ald.baseInfo.status, RUNNING);
  ald.addFailedCount();
  EXPECT_EQ(ald.baseInfo.status, ADDRESSED);
  EXPECT_EQ(ald.failedCount, 0);

  for (int i = 0; i < 4; ++i) ald.addAddressAissgnRetryCount();
  ald.clearAddressAissgnRetryCount();
  for (int i = 0; i < 4; ++i) ald.addAddressAissgnRetryCount();
  EXPECT_EQ(ald.baseInfo.status, ADDRESSED);
  ald.addAddressAissgnRetryCount();
  EXPECT_EQ(ald.baseInfo.status, LOST);
  EXPECT_EQ(ald.addressAssignRetryCount, 0);
}

TEST(AldDeviceTest, UidIsCopiedWholeWhateverItsLength) {
  AldDevice ald;
  unsigned char uid[20];
  for (int i = 0; i < 20; ++i) uid[i] = static_cast<unsigned char>(0xA0 + i);
  ald.setUid(uid);
  ald.baseInfo.uidLength = 2;
  unsigned char out[21];
  memset(out, 0, sizeof(out));
  out[20] = 0x5A;
  ald.getUid(out);
  EXPECT_EQ(memcmp(out, uid, 20), 0);
  EXPECT_EQ(out[20], 0x5A);
}

TEST(DeviceTest, WithoutInterfaceNothingIsForwarded) {
  AldDevice ald;
  S_HdlcPacket packet{};
  packet.address = 7;
  packet.dataLength = 3;
  std::string out = captured([&] {
    gLogLevel = 4;
    EXPECT_EQ(ald.sendCmdAndWaitResponse(&packet, 1000), -1);
    gLogLevel = 3;
  });
  EXPECT_NE(out.find("sendCmdAndWaitResponse start\n"), std::string::npos);
  EXPECT_NE(out.find("_pCommInterface = NULL\n"), std::string::npos);
  EXPECT_EQ(packet.address, 7);
  EXPECT_EQ(+packet.dataLength, 3);
  unsigned char data[4] = {};
  EXPECT_EQ(ald.commandSend(data, 4), -1);
  EXPECT_EQ(ald.waitReadResponseData(data, 4, 10), -1);
}

TEST(DeviceTest, ForwardsToTheInterface) {
  struct Comm : fake::ScriptedComm {
    int waitResult = 0;
    int waitReadResponseData(unsigned char*, unsigned int, unsigned int) override { return waitResult; }
  } comm;
  AldDevice device;
  device._pCommInterface = &comm;
  comm.then(-3);
  S_HdlcPacket packet{};
  EXPECT_EQ(device.sendCmdAndWaitResponse(&packet, 500), -3);
  ASSERT_EQ(comm.times.size(), 1u);
  EXPECT_EQ(comm.times[0], 500u);

  unsigned char data[4] = {};
  EXPECT_EQ(device.commandSend(data, 4), 0);
  EXPECT_EQ(comm.commandSends, 1);
  EXPECT_EQ(device.waitReadResponseData(data, 4, 10), 0);
  comm.waitResult = 5;
  EXPECT_EQ(device.waitReadResponseData(data, 4, 10), 0);
  comm.waitResult = -1;
  EXPECT_EQ(device.waitReadResponseData(data, 4, 10), -2);
}

TEST(Layer2DeviceFactoryTest, OnlyVersionTwoExists) {
  fake::ScriptedComm comm;
  std::string out = captured([&] {
    gLogLevel = 4;
    EXPECT_EQ(Layer2DeviceFactory::creatLayer2DeviceObj(1, &comm), nullptr);
    EXPECT_EQ(Layer2DeviceFactory::creatLayer2DeviceObj(3, &comm), nullptr);
    gLogLevel = 3;
  });
  EXPECT_NE(out.find("Creat Layer2V2Device failed. \n"), std::string::npos);

  Layer2Device* device = Layer2DeviceFactory::creatLayer2DeviceObj(2, &comm);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->_pCommInterface, &comm);
  EXPECT_EQ(device->aisgVersion, 2);
  Layer2DeviceContainer* container = Layer2DeviceContainer::getInstance();
  container->attach(device);
  EXPECT_EQ(container->findLayer2DeviceObj(2), device);
  EXPECT_EQ(container->getBeginLayer2DeviceObj(), device);
  EXPECT_EQ(container->getNextLayer2DeviceObj(), nullptr);
  EXPECT_TRUE(container->isEnd());
  container->clear();
  delete device;
}

class AldDeviceContainerTest : public testing::Test {
 protected:
  void SetUp() override {
    container_ = AldDeviceContainer::getInstance();
    container_->clear();
    for (int i = 0; i < 4; ++i) alds_[i].address = static_cast<uint8_t>(10 * (i + 1));
  }
  void TearDown() override { container_->clear(); }

  // The keys of a whole walk from the start, in the shape every walk has.
  std::vector<int> walk() {
    std::vector<int> keys;
    for (AldDevice* ald = container_->getBeginAldDeviceObj(); ald != nullptr && !container_->isEnd();
         ald = container_->getNextAldDeviceObj()) {
      keys.push_back(ald->address);
    }
    return keys;
  }

  AldDeviceContainer* container_ = nullptr;
  AldDevice alds_[4];  // addresses 10, 20, 30, 40
};

TEST_F(AldDeviceContainerTest, EmptyContainerGivesNothing) {
  EXPECT_EQ(container_->getBeginAldDeviceObj(), nullptr);
  EXPECT_EQ(container_->getNextAldDeviceObj(), nullptr);
  EXPECT_TRUE(container_->isEnd());
  EXPECT_EQ(container_->findAldDeviceObj(10), nullptr);
  EXPECT_EQ(container_->getAldDeviceNums(), 0u);
}

TEST_F(AldDeviceContainerTest, AttachKeepsTheFirstAndWalksAscend) {
  container_->attach(&alds_[2]);
  container_->attach(&alds_[0]);
  container_->attach(&alds_[3]);
  container_->attach(&alds_[1]);
  AldDevice twin;
  twin.address = 20;
  container_->attach(&twin);
  EXPECT_EQ(container_->findAldDeviceObj(20), &alds_[1]);
  EXPECT_EQ(container_->getAldDeviceNums(), 4u);
  EXPECT_EQ(walk(), (std::vector<int>{10, 20, 30, 40}));
  EXPECT_TRUE(container_->isEnd());
  // A new walk starts again at the smallest key.
  EXPECT_EQ(walk(), (std::vector<int>{10, 20, 30, 40}));

  container_->dettach(&twin);  // removes whatever has that key
  container_->dettach(&twin);
  EXPECT_EQ(walk(), (std::vector<int>{10, 30, 40}));
}

TEST_F(AldDeviceContainerTest, FindDuringAWalkLeavesTheCursor) {
  for (AldDevice& ald : alds_) container_->attach(&ald);
  EXPECT_EQ(container_->getBeginAldDeviceObj(), &alds_[0]);
  EXPECT_EQ(container_->findAldDeviceObj(40), &alds_[3]);
  EXPECT_EQ(container_->findAldDeviceObj(99), nullptr);
  EXPECT_EQ(container_->getNextAldDeviceObj(), &alds_[1]);
  EXPECT_FALSE(container_->isEnd());
}

TEST_F(AldDeviceContainerTest, WalksOnTwoThreadsKeepTheirOwnPlace) {
  for (AldDevice& ald : alds_) container_->attach(&ald);
  std::promise<void> started, otherDone;
  std::vector<int> mine;
  std::thread first([&] {
    AldDevice* ald = container_->getBeginAldDeviceObj();
    mine.push_back(ald->address);
    ald = container_->getNextAldDeviceObj();
    mine.push_back(ald->address);
    started.set_value();
    otherDone.get_future().wait();
    for (ald = container_->getNextAldDeviceObj(); ald != nullptr && !container_->isEnd();
         ald = container_->getNextAldDeviceObj()) {
      mine.push_back(ald->address);
    }
  });
  started.get_future().wait();
  EXPECT_EQ(walk(), (std::vector<int>{10, 20, 30, 40}));
  EXPECT_TRUE(container_->isEnd());
  otherDone.set_value();
  first.join();
  EXPECT_EQ(mine, (std::vector<int>{10, 20, 30, 40}));
}

TEST_F(AldDeviceContainerTest, ClearDuringAnotherThreadsWalkEndsIt) {
  for (AldDevice& ald : alds_) container_->attach(&ald);
  std::promise<void> started, cleared;
  AldDevice* afterClear = &alds_[0];
  bool endAfterClear = false;
  std::vector<int> restarted;
  std::thread walker([&] {
    container_->getBeginAldDeviceObj();
    started.set_value();
    cleared.get_future().wait();
    afterClear = container_->getNextAldDeviceObj();
    endAfterClear = container_->isEnd();
    restarted = walk();
  });
  started.get_future().wait();
  container_->clear();
  container_->attach(&alds_[3]);
  cleared.set_value();
  walker.join();
  EXPECT_EQ(afterClear, nullptr);
  EXPECT_TRUE(endAfterClear);
  EXPECT_EQ(restarted, (std::vector<int>{40}));
}

}  // namespace
