#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <map>

#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "ptyBus.h"

namespace {

using Clock = std::chrono::steady_clock;

class AisgCommManagerTest : public testing::Test {
 protected:
  // One bus for the process, as long-lived as the singleton that holds it open.
  static PtyBus& bus() {
    static PtyBus* shared = new PtyBus();
    return *shared;
  }
  void SetUp() override {
    bus();
    _manager = AisgCommManager::getInstance();
    bus().receive(0);
    _manager->responseDataIsAvailable();
  }
  void TearDown() override {
    AldDeviceContainer::getInstance()->clear();
    e2e::sleepMs(50);  // a message in the manager thread may hold a device found before the clear
  }
  AldDevice* ald(uint8_t address, uint8_t sendNo, uint8_t receiveNo) {
    AldDevice* device = &_alds[address];
    device->address = address;
    device->sendNo = sendNo;
    device->receiveNo = receiveNo;
    AldDeviceContainer::getInstance()->attach(device);
    return device;
  }
  // Runs send while the ALD takes the frame off the bus and answers after delayMs.
  template <typename Send>
  int answered(const Bytes& reply, Send send, int delayMs = 0) {
    auto alds = std::async(std::launch::async, [=] {
      Bytes request = bus().receive();
      e2e::sleepMs(delayMs);
      bus().write(reply);
      return request;
    });
    int result = send();
    _request = alds.get();
    return result;
  }
  int exchange(S_HdlcPacket& packet, const Bytes& reply, unsigned int time = 1000, int delayMs = 0) {
    return answered(reply, [&] { return _manager->sendCmdAndWaitResponse(&packet, time); }, delayMs);
  }
  int rawExchange(Bytes& raw, unsigned int time) {
    int length = int(raw.size());
    raw.resize(512);
    int result = _manager->sendCmdAndWaitResponse(raw.data(), &length, time);
    raw.resize(size_t(length));
    return result;
  }

  AisgCommManager* _manager = nullptr;
  std::map<uint8_t, AldDevice> _alds;
  Bytes _request;
};

TEST_F(AisgCommManagerTest, SequenceNumbersGoOutFromTheAldAndComeBackFromTheReply) {
  AldDevice* polled = ald(3, 2, 5);
  AldDevice* commanded = ald(1, 2, 5);
  const unsigned int sent0 = _manager->getSendOctetsCount();
  const unsigned int received0 = _manager->getReceivedOctetsCount();
  S_HdlcPacket packet = packetTo(3, 0x01);
  const Bytes rr = frame(3, 0x01, 0, 4);
  EXPECT_EQ(exchange(packet, rr), 0);
  EXPECT_EQ(_request, (Bytes{0x7E, 0x03, 0xB1, 0x2D, 0x81, 0x7E}));
  EXPECT_EQ(polled->sendNo, 4);  // an S-frame carries N(R) only
  EXPECT_EQ(polled->receiveNo, 5);

  packet = packetTo(1, 0x00, {0x7E, 0x00});
  packet.sendNo = 6;
  packet.receiveNo = 1;
  const Bytes reply = frame(1, 0x00, 7, 3, {0x11});
  EXPECT_EQ(exchange(packet, reply), 0);
  EXPECT_EQ(_request, (Bytes{0x7E, 0x01, 0xB4, 0x7D, 0x5E, 0x00, 0x92, 0x63, 0x7E}));
  EXPECT_EQ(commanded->receiveNo, 0);
  EXPECT_EQ(commanded->sendNo, 3);
  EXPECT_EQ(int{packet.dataLength}, 1);
  EXPECT_EQ(packet.data[0], 0x11);
  EXPECT_EQ(_manager->getSendOctetsCount(), sent0 + 6 + 9);
  EXPECT_EQ(_manager->getReceivedOctetsCount(), received0 + rr.size() + reply.size());
}

TEST_F(AisgCommManagerTest, TheFlagIsTestedEvery10MsAsTheTimeAllows) {
  S_HdlcPacket packet = packetTo(3, 0x01);
  auto start = Clock::now();
  EXPECT_EQ(_manager->sendCmdAndWaitResponse(&packet, 5), -2);
  EXPECT_LT(msSince(start), 10);
  EXPECT_EQ(bus().receive().size(), 6u);
  Bytes raw = frame(3, 0x01, 0, 0);
  EXPECT_EQ(rawExchange(raw, 5), -1);
  EXPECT_EQ(raw.size(), 6u);
  // 19 ms: one test, one sleep. The fastest of three keeps a busy machine out of it.
  long fastest = 1000;
  for (int i = 0; i < 3; ++i, fastest = std::min(fastest, msSince(start))) {
    packet = packetTo(3, 0x01);
    start = Clock::now();
    EXPECT_EQ(_manager->sendCmdAndWaitResponse(&packet, 19), -2);
  }
  EXPECT_GE(fastest, 10);
  EXPECT_LT(fastest, 20);
  packet = packetTo(3, 0x01);
  start = Clock::now();
  EXPECT_EQ(_manager->sendCmdAndWaitResponse(&packet, 1000), -2);
  EXPECT_GE(msSince(start), 1000);
  EXPECT_LT(msSince(start), 1500);  // a hundred sleeps, each a little long
}

TEST_F(AisgCommManagerTest, ALateReplyIsTakenByARawExchangeButDroppedByTheNextSend) {
  ald(3, 0, 0);
  const Bytes late = frame(3, 0x01, 0, 1);
  auto missLateReply = [&] {
    S_HdlcPacket packet = packetTo(3, 0x01);
    EXPECT_EQ(exchange(packet, late, 50, 100), -2);
    e2e::sleepMs(100);
  };
  missLateReply();
  Bytes raw = frame(3, 0x01, 0, 0);
  EXPECT_EQ(rawExchange(raw, 100), 0);
  EXPECT_EQ(raw, late);
  missLateReply();
  S_HdlcPacket packet = packetTo(3, 0x01);
  EXPECT_EQ(_manager->sendCmdAndWaitResponse(&packet, 50), -2);
}

TEST_F(AisgCommManagerTest, TheReplyMustComeFromTheTargetUnlessItIsTheBroadcast) {
  AldDevice* target = ald(3, 1, 1);
  AldDevice* other = ald(4, 0, 0);
  S_HdlcPacket packet = packetTo(3, 0x01);
  EXPECT_EQ(exchange(packet, frame(4, 0x00, 1, 4, {0x22})), -1);
  EXPECT_EQ(packet.address, 4);
  EXPECT_EQ(other->sendNo, 4);
  EXPECT_EQ(other->receiveNo, 2);
  EXPECT_EQ(target->sendNo, 1);
  EXPECT_EQ(target->receiveNo, 1);
  // A station that no ALD record has yet, as in a scan.
  packet = packetTo(0xFF, 0xBF);
  EXPECT_EQ(exchange(packet, frame(9, 0x63, 0, 0)), 0);
  EXPECT_EQ(packet.address, 9);
  EXPECT_EQ(packet.control, 0x63);
}

TEST_F(AisgCommManagerTest, UndecodableRepliesEndTheWaitAndAreCounted) {
  const unsigned int crc0 = _manager->getCrcErrorCount();
  const unsigned int noStop0 = _manager->getWithoutStopFlagCount();
  const unsigned int received0 = _manager->getReceivedOctetsCount();
  const Bytes good = frame(3, 0x01, 0, 0);
  Bytes badFcs = good;
  badFcs[2] ^= 0x01;
  auto poll = [this](const Bytes& reply) {
    S_HdlcPacket packet = packetTo(3, 0x01);
    return exchange(packet, reply);
  };
  auto start = Clock::now();
  EXPECT_EQ(poll(badFcs), -3);
  EXPECT_LT(msSince(start), 500);
  EXPECT_EQ(_manager->getCrcErrorCount(), crc0 + 1);
  EXPECT_EQ(_manager->getReceivedOctetsCount(), received0);
  EXPECT_EQ(poll(Bytes(good.begin(), good.end() - 1)), -3);
  EXPECT_EQ(_manager->getWithoutStopFlagCount(), noStop0 + 1);
  EXPECT_EQ(poll(Bytes{0x01, 0x02}), -3);
  EXPECT_EQ(_manager->getCrcErrorCount() + _manager->getWithoutStopFlagCount(), crc0 + noStop0 + 2);
  // The raw form hands back whatever came; its caller decodes.
  Bytes raw = good;
  EXPECT_EQ(answered(badFcs, [&] { return rawExchange(raw, 1000); }), 0);
  EXPECT_EQ(raw, badFcs);

  const unsigned int sent = _manager->getSendOctetsCount();
  _manager->clearStatusData();
  EXPECT_EQ(_manager->getCrcErrorCount() + _manager->getWithoutStopFlagCount(), 0u);
  EXPECT_EQ(_manager->getReceivedOctetsCount(), 0u);
  EXPECT_EQ(_manager->getSendOctetsCount(), sent);
}

}  // namespace
