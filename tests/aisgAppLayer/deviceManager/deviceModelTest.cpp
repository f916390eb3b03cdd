#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "aisgAppLayer/deviceManager/aldDevice.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"
#include "fakeBus.h"

namespace {

// Five failures in a row change the status and start the count again; a success in between resets it.
TEST(AldDeviceTest, FiveFailuresInARowChangeTheStatus) {
  using Counter = void (AldDevice::*)();
  const struct {
    Counter add, clear;
    uint8_t after;
  } counters[] = {{&AldDevice::addFailedCount, &AldDevice::clearFailedCount, ADDRESSED},
                  {&AldDevice::addAddressAissgnRetryCount, &AldDevice::clearAddressAissgnRetryCount, LOST}};
  for (const auto& counter : counters) {
    AldDevice ald;
    auto fail = [&](int times) {
      while (times-- > 0) (ald.*counter.add)();
      return ald.getStatus();
    };
    ald.setStatus(RUNNING);
    fail(4);
    (ald.*counter.clear)();
    EXPECT_EQ(fail(4), RUNNING);
    EXPECT_EQ(fail(1), counter.after);
    ald.setStatus(RUNNING);
    EXPECT_EQ(fail(4), RUNNING) << "the count starts again after the change";
  }
}

TEST(Layer2DeviceFactoryTest, OnlyVersionTwoExists) {
  fake::FakeBus comm;
  EXPECT_EQ(Layer2DeviceFactory::creatLayer2DeviceObj(1, &comm), nullptr);
  EXPECT_EQ(Layer2DeviceFactory::creatLayer2DeviceObj(3, &comm), nullptr);
  Layer2Device* device = Layer2DeviceFactory::creatLayer2DeviceObj(2, &comm);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->_pCommInterface, &comm);
  EXPECT_EQ(device->aisgVersion, 2);
  Layer2DeviceContainer::getInstance()->attach(device);
  EXPECT_EQ(Layer2DeviceContainer::getInstance()->findLayer2DeviceObj(2), device);
  Layer2DeviceContainer::getInstance()->clear();
  delete device;
}

class AldDeviceContainerTest : public testing::Test {
 protected:
  void SetUp() override {
    container_->clear();
    for (int i : {2, 0, 3, 1}) {
      alds_[i].address = static_cast<uint8_t>(10 * (i + 1));
      container_->attach(&alds_[i]);
    }
  }
  void TearDown() override { container_->clear(); }

  // The keys of a whole walk, in the shape every walk has.
  std::vector<int> walk() {
    std::vector<int> keys;
    for (AldDevice* ald = container_->getBeginAldDeviceObj(); ald != nullptr && !container_->isEnd();
         ald = container_->getNextAldDeviceObj()) {
      keys.push_back(ald->address);
    }
    return keys;
  }

  AldDeviceContainer* container_ = AldDeviceContainer::getInstance();
  AldDevice alds_[4];  // addresses 10, 20, 30, 40, attached out of order
  const std::vector<int> all_ = {10, 20, 30, 40};
};

TEST_F(AldDeviceContainerTest, AttachKeepsTheFirstAndWalksAscend) {
  AldDevice twin;
  twin.address = 20;
  container_->attach(&twin);
  EXPECT_EQ(container_->findAldDeviceObj(20), &alds_[1]);
  EXPECT_EQ(container_->getAldDeviceNums(), 4u);
  EXPECT_EQ(walk(), all_);
  EXPECT_EQ(walk(), all_) << "a new walk starts again at the smallest key";
  container_->dettach(&twin);  // removes whatever has that key
  EXPECT_EQ(walk(), (std::vector<int>{10, 30, 40}));
}

// A walk on another thread is neither disturbed by this thread's walk nor left dangling by its clear.
TEST_F(AldDeviceContainerTest, WalksOnTwoThreads) {
  std::promise<void> begun, walked, stepped, cleared;
  std::vector<int> mine, restarted;
  AldDevice* afterClear = &alds_[0];
  bool endAfterClear = false;
  std::thread other([&] {
    mine.push_back(container_->getBeginAldDeviceObj()->address);
    begun.set_value();
    walked.get_future().wait();
    mine.push_back(container_->getNextAldDeviceObj()->address);
    stepped.set_value();
    cleared.get_future().wait();
    afterClear = container_->getNextAldDeviceObj();
    endAfterClear = container_->isEnd();
    restarted = walk();
  });
  begun.get_future().wait();
  EXPECT_EQ(walk(), all_);
  walked.set_value();
  stepped.get_future().wait();
  container_->clear();
  container_->attach(&alds_[3]);
  cleared.set_value();
  other.join();
  EXPECT_EQ(mine, (std::vector<int>{10, 20}));
  EXPECT_EQ(afterClear, nullptr);
  EXPECT_TRUE(endAfterClear);
  EXPECT_EQ(restarted, (std::vector<int>{40}));
}

}  // namespace
