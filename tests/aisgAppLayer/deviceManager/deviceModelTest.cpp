#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "aisgAppLayer/deviceManager/aldDevice.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"
#include "simBus.h"

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
  SimBus comm;
  EXPECT_EQ(Layer2DeviceFactory::creatLayer2DeviceObj(1, &comm), nullptr);
  EXPECT_EQ(Layer2DeviceFactory::creatLayer2DeviceObj(3, &comm), nullptr);
  Layer2Device* device = Layer2DeviceFactory::creatLayer2DeviceObj(2, &comm);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->_pCommInterface, &comm);
  EXPECT_EQ(device->aisgVersion, 2);
  delete device;
}

// The keys of a whole walk, in the shape every walk has.
std::vector<int> walk(AldDeviceContainer* container) {
  std::vector<int> keys;
  for (AldDevice* ald = container->getBeginAldDeviceObj(); ald != nullptr && !container->isEnd();
       ald = container->getNextAldDeviceObj()) {
    keys.push_back(ald->address);
  }
  return keys;
}

// Attach keeps the first of a key, walks ascend and start again, dettach removes whatever has
// the key; and a walk on another thread is neither disturbed by this thread's walk nor left
// dangling by its clear.
TEST(AldDeviceContainerTest, WalksAscendOnEachThreadApart) {
  AldDeviceContainer* container = AldDeviceContainer::getInstance();
  AldDevice alds[5];
  for (int i : {2, 0, 3, 1, 4}) {
    alds[i].address = static_cast<uint8_t>(i == 4 ? 20 : 10 * (i + 1));
    container->attach(&alds[i]);
  }
  EXPECT_EQ(container->findAldDeviceObj(20), &alds[1]);
  EXPECT_EQ(container->getAldDeviceNums(), 4u);
  std::promise<void> begun, walked, stepped, cleared;
  std::vector<int> other;
  std::thread thread([&] {
    other.push_back(container->getBeginAldDeviceObj()->address);
    begun.set_value();
    walked.get_future().wait();
    other.push_back(container->getNextAldDeviceObj()->address);
    stepped.set_value();
    cleared.get_future().wait();
    other.push_back(container->getNextAldDeviceObj() == nullptr && container->isEnd());
    other.push_back(walk(container).at(0));
  });
  begun.get_future().wait();
  EXPECT_EQ(walk(container), (std::vector<int>{10, 20, 30, 40}));
  EXPECT_EQ(walk(container), (std::vector<int>{10, 20, 30, 40})) << "a new walk starts again";
  walked.set_value();
  stepped.get_future().wait();
  container->dettach(&alds[4]);
  EXPECT_EQ(walk(container), (std::vector<int>{10, 30, 40}));
  container->clear();
  container->attach(&alds[3]);
  cleared.set_value();
  thread.join();
  EXPECT_EQ(other, (std::vector<int>{10, 20, 1, 40}));
  container->clear();
}

}  // namespace
