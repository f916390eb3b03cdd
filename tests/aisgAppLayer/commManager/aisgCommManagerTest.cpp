#include <sys/ioctl.h>

#include <future>
#include <map>

#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "ptyBus.h"

namespace {

class AisgCommManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    static Pty* bus = new Pty(true);  // one bus for the process, as long-lived as the manager holding it open
    _bus = bus;
    _manager = AisgCommManager::getInstance();
    _bus->receive(0);
    _manager->responseDataIsAvailable();
  }
  void TearDown() override {
    AldDeviceContainer::getInstance()->clear();
    e2e::sleepMs(50);  // a message in the manager thread may hold a device found before the clear
  }
  AldDevice* ald(uint8_t address, uint8_t sendNo, uint8_t receiveNo) {
    AldDevice& device = _alds[address];
    device.address = address, device.sendNo = sendNo, device.receiveNo = receiveNo;
    AldDeviceContainer::getInstance()->attach(&device);
    return &device;
  }
  // Sends packet, or the raw bytes when given, and waits up to time while an ALD takes the request
  // off the bus and answers with reply, if any, after delayMs (and another with `other` first,
  // 50 ms before). _reply or raw take what came back.
  int exchange(S_HdlcPacket packet, const Bytes& reply, unsigned int time = 1000, int delayMs = 0,
               Bytes* raw = nullptr, const Bytes& other = {}) {
    std::future<Bytes> alds;
    if (!reply.empty()) {
      alds = std::async(std::launch::async, [=] {
        Bytes request = _bus->receive();
        if (!other.empty()) _bus->write(other), e2e::sleepMs(50);
        e2e::sleepMs(delayMs);
        _bus->write(reply);
        return request;
      });
    }
    int length = raw ? int(raw->size()) : 0;
    if (raw) raw->resize(512);
    int result = raw ? _manager->sendCmdAndWaitResponse(raw->data(), &length, time)
                     : _manager->sendCmdAndWaitResponse(&packet, time);
    if (raw) raw->resize(size_t(length));
    if (alds.valid()) _request = alds.get();
    _reply = packet;
    return result;
  }
  Pty* _bus = nullptr;
  AisgCommManager* _manager = nullptr;
  std::map<uint8_t, AldDevice> _alds;
  Bytes _request;
  S_HdlcPacket _reply{};
};

TEST_F(AisgCommManagerTest, SequenceNumbersGoOutFromTheAldAndComeBackFromTheReply) {
  AldDevice *polled = ald(3, 2, 5), *commanded = ald(1, 2, 5), *other = ald(4, 0, 0);
  EXPECT_EQ(exchange(packetTo(3, 0x01), frame(packetTo(3, 0x01, {}, 0, 4))), 0);
  EXPECT_EQ(_request, hex("7E 03 B1 2D 81 7E"));
  EXPECT_EQ(Bytes({polled->sendNo, polled->receiveNo}), Bytes({4, 5}));  // an S-frame carries N(R) only
  EXPECT_EQ(exchange(packetTo(1, 0x00, {0x7E, 0x00}, 6, 1), frame(packetTo(1, 0x00, {0x11}, 7, 3))), 0);
  EXPECT_EQ(_request, hex("7E 01 B4 7D 5E 00 92 63 7E"));
  EXPECT_EQ(Bytes({commanded->sendNo, commanded->receiveNo, _reply.data[0], uint8_t(_reply.dataLength)}),
            Bytes({3, 0, 0x11, 1}));
  // A reply from another station is refused, though its numbers go to that station's ALD.
  EXPECT_EQ(exchange(packetTo(3, 0x01), frame(packetTo(4, 0x00, {0x22}, 1, 4))), -1);
  EXPECT_EQ(Bytes({_reply.address, other->sendNo, other->receiveNo, polled->sendNo, polled->receiveNo}),
            Bytes({4, 4, 2, 4, 5}));
  // The broadcast takes any, also from a station that no ALD record has yet, as in a scan.
  EXPECT_EQ(exchange(packetTo(0xFF, 0xBF), frame(packetTo(9, 0x63))), 0);
  EXPECT_EQ(Bytes({_reply.address, _reply.control}), Bytes({9, 0x63}));
}

TEST_F(AisgCommManagerTest, WaitsAsTheTimeAllowsAndOnlyAReplyThatCameAfterTheRequestAnswersIt) {
  const Bytes late = frame(packetTo(3, 0x01, {}, 0, 1)), request = frame(packetTo(3, 0x01));
  Bytes raw = request;
  // Below 10 ms the frame goes out and nothing is waited for.
  EXPECT_EQ(exchange(packetTo(3, 0x01), {}, 5), -2);
  EXPECT_EQ(_bus->receive().size(), 6u);
  EXPECT_EQ(exchange({}, {}, 5, 0, &raw), -1);
  const auto start = Clock::now();
  EXPECT_EQ(exchange(packetTo(3, 0x01), {}, 1000), -2);
  EXPECT_GE(msSince(start), 1000);
  _bus->receive(0);
  // A reply too late for its exchange answers no later one, raw or packet; nor do bytes still
  // coming in (read, and not yet ended by silence) when a request goes out.
  EXPECT_EQ(exchange(packetTo(3, 0x01), late, 50, 100), -2);
  e2e::sleepMs(100);
  EXPECT_EQ(exchange({}, {}, 100, 0, &(raw = request)), -1);
  EXPECT_EQ(exchange(packetTo(3, 0x01), late, 50, 100), -2);
  e2e::sleepMs(100);
  EXPECT_EQ(exchange(packetTo(3, 0x01), {}, 50), -2);
  _bus->write(late);
  e2e::sleepMs(5);  // until the pty has handed the bytes on, then until the service has read them
  for (int unread = 1, ms = 0; ioctl(_bus->slave, FIONREAD, &unread) == 0 && unread > 0 && ms < 1000; ++ms) e2e::sleepMs(1);
  EXPECT_EQ(exchange({}, {}, 100, 0, &(raw = request)), -1);
  // The raw form drops another station's reply and waits on for its own.
  EXPECT_EQ(exchange({}, late, 1000, 0, &(raw = request), frame(packetTo(4, 0x01))), 0);
  EXPECT_EQ(raw, late);
}

TEST_F(AisgCommManagerTest, UndecodableRepliesEndTheWaitAndAreCounted) {
  const unsigned int crc0 = _manager->getCrcErrorCount(), noStop0 = _manager->getWithoutStopFlagCount();
  const unsigned int received0 = _manager->getReceivedOctetsCount();
  const Bytes good = frame(packetTo(3, 0x01));
  Bytes badFcs = good, raw = good;
  badFcs[2] ^= 0x01;
  auto start = Clock::now();
  EXPECT_EQ(exchange(packetTo(3, 0x01), badFcs), -3);
  EXPECT_LT(msSince(start), 500);
  EXPECT_EQ(exchange(packetTo(3, 0x01), Bytes(good.begin(), good.end() - 1)), -3);
  EXPECT_EQ(exchange(packetTo(3, 0x01), {0x01, 0x02}), -3);
  EXPECT_EQ(std::vector<unsigned int>({_manager->getCrcErrorCount(), _manager->getWithoutStopFlagCount(),
                                       _manager->getReceivedOctetsCount()}),
            std::vector<unsigned int>({crc0 + 1, noStop0 + 1, received0}));
  EXPECT_EQ(exchange({}, badFcs, 1000, 0, &raw), 0);  // the raw form hands back whatever came
  EXPECT_EQ(raw, badFcs);
  EXPECT_EQ(exchange(packetTo(3, 0x01), good), 0);
  EXPECT_EQ(_manager->getReceivedOctetsCount(), received0 + 6);
  // Clearing leaves the count of bytes sent.
  const unsigned int sent = _manager->getSendOctetsCount();
  _manager->clearStatusData();
  EXPECT_EQ(std::vector<unsigned int>({_manager->getCrcErrorCount(), _manager->getWithoutStopFlagCount(),
                                       _manager->getReceivedOctetsCount(), _manager->getSendOctetsCount()}),
            std::vector<unsigned int>({0, 0, 0, sent}));
}

}  // namespace
