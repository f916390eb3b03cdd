#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <vector>

#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"
#include "fakeBus.h"
#include "utility/debugTrace.h"

namespace {

using fake::Bytes;
using fake::captured;
using fake::wire;

std::string hex(const uint8_t* bytes, unsigned int count) {
  std::string text;
  char two[3];
  for (unsigned int i = 0; i < count; ++i) {
    snprintf(two, sizeof(two), "%02X", bytes[i]);
    text += two;
  }
  return text;
}

// A frame of the scan in short: "reset", "probe 00/02" (prefix/mask), "assign 4142->1", "snrm 1".
std::string describe(const S_HdlcPacket& packet) {
  const uint8_t* d = packet.data;
  if (packet.control == 0x83) return "snrm " + std::to_string(packet.address);
  if (packet.address != 0xFF || packet.control != 0xAF) return "other";
  if (packet.dataLength == 5 && d[3] == 0x07) return "reset";
  const uint8_t n = d[4];
  if (d[5 + n] == 0x03) return "probe " + hex(d + 5, n) + "/" + hex(d + 7 + n, n);
  if (d[5 + n] == 0x02) return "assign " + hex(d + 5, n) + "->" + std::to_string(d[7 + n]);
  return "other";
}

size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

class DeviceScanTest : public testing::Test {
 protected:
  void SetUp() override {
    device_._pCommInterface = &bus_;
    device_.aisgVersion = 2;
    container_->clear();
  }
  void TearDown() override {
    gLogLevel = 3;
    container_->clear();
  }

  void addAld(const Bytes& uid) {
    fake::Ald ald;
    ald.uid = uid;
    bus_.alds.push_back(ald);
  }

  unsigned char scan() {
    unsigned char found = 0xEE;
    EXPECT_EQ(device_.deviceScan(19, found), 0);
    return found;
  }

  std::vector<std::string> frames() const {
    std::vector<std::string> all;
    for (const S_HdlcPacket& packet : bus_.sent) all.push_back(describe(packet));
    return all;
  }

  Layer2V2Device device_;
  fake::FakeBus bus_;
  AldDeviceContainer* container_ = AldDeviceContainer::getInstance();
};

TEST_F(DeviceScanTest, EmptyBusFindsNothingAndEmptiesTheContainer) {
  AldDevice stale;
  stale.address = 5;
  container_->attach(&stale);
  unsigned char found = 0;
  std::string out = captured([&] { found = scan(); });
  EXPECT_EQ(found, 0);
  EXPECT_EQ(frames(), (std::vector<std::string>{"reset", "probe /"}));
  EXPECT_EQ(count(out, "device scan timeout\n"), 1u);
  EXPECT_EQ(container_->getAldDeviceNums(), 0u);
  EXPECT_EQ(container_->findAldDeviceObj(5), nullptr);
}

TEST_F(DeviceScanTest, OneAldTakesFiveFramesAndRuns) {
  addAld({0x41, 0x42});
  EXPECT_EQ(scan(), 1);
  ASSERT_EQ(bus_.sent.size(), 5u);
  EXPECT_EQ(wire(bus_.sent[0]), "7E FF BF 81 F0 02 07 00 A4 F3 7E");
  EXPECT_EQ(wire(bus_.sent[1]), "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E");
  EXPECT_EQ(describe(bus_.sent[2]), "probe 4142/FFFF");
  EXPECT_EQ(wire(bus_.sent[3]), "7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E");
  EXPECT_EQ(wire(bus_.sent[4]), "7E 01 93 8D B0 7E");
  for (unsigned int time : bus_.times) EXPECT_EQ(time, 1000u);

  AldDevice* ald = container_->findAldDeviceObj(1);
  ASSERT_NE(ald, nullptr);
  EXPECT_EQ(container_->getAldDeviceNums(), 1u);
  EXPECT_EQ(ald->baseInfo.status, RUNNING);
  EXPECT_EQ(ald->baseInfo.address, 1);
  EXPECT_EQ(ald->address, 1);
  EXPECT_EQ(ald->deviceType, 0x11);
  EXPECT_EQ(ald->aisgVersion, 2);
  EXPECT_EQ(ald->_pCommInterface, nullptr);
  EXPECT_EQ(ald->sendNo, 0);
  EXPECT_EQ(ald->receiveNo, 0);
  EXPECT_EQ(hex(ald->baseInfo.uid, ald->baseInfo.uidLength), "4142");
  EXPECT_STREQ(reinterpret_cast<const char*>(ald->baseInfo.vendorCode), "XY");
}

TEST_F(DeviceScanTest, TwoAldsAreSplitBreadthFirstWithTheZeroBranchFirst) {
  addAld({0x49, 0x42});  // bit 3 set
  addAld({0x41, 0x42});
  EXPECT_EQ(scan(), 2);
  EXPECT_EQ(frames(), (std::vector<std::string>{
                          "reset", "probe /",                   // conflict
                          "probe 00/02", "probe 02/02",         // conflict, silence
                          "probe 00/06", "probe 04/06",         // conflict, silence
                          "probe 00/0E",                        // only 41 42
                          "probe 4142/FFFF", "assign 4142->1",  //
                          "probe 08/0E",                        // only 49 42
                          "probe 4942/FFFF", "assign 4942->2",  //
                          "snrm 1", "snrm 2"}));
  EXPECT_EQ(hex(container_->findAldDeviceObj(1)->baseInfo.uid, 2), "4142");
  EXPECT_EQ(hex(container_->findAldDeviceObj(2)->baseInfo.uid, 2), "4942");
  EXPECT_EQ(container_->findAldDeviceObj(2)->baseInfo.status, RUNNING);
}

TEST_F(DeviceScanTest, BitZeroIsNeverSplitAndTheSplitStopsAtPosition152) {
  addAld({0x40});
  addAld({0x41});
  gLogLevel = 1;
  EXPECT_EQ(scan(), 0);
  // The reset, the root, and two children for each of the positions 1 to 152.
  ASSERT_EQ(bus_.sent.size(), 2u + 2u * 152u);
  const S_HdlcPacket& last = bus_.sent.back();
  ASSERT_EQ(+last.dataLength, 2 * 20 + 7);
  EXPECT_EQ(last.data[4], 20);
  EXPECT_EQ(last.data[5 + 19], 0x01);       // uid byte 19
  EXPECT_EQ(last.data[7 + 20 + 19], 0x01);  // mask byte 19
  EXPECT_EQ(container_->getAldDeviceNums(), 0u);
}

TEST_F(DeviceScanTest, ReplyWithoutVendorCodeIsDropped) {
  addAld({0x41, 0x42});
  bus_.alds[0].noVendor = true;
  unsigned char found = 0;
  std::string out = captured([&] { found = scan(); });
  EXPECT_EQ(found, 0);
  EXPECT_NE(out.find("reply params failed[flag = 0x3]\n"), std::string::npos) << out;
  EXPECT_NE(out.find("oneScan ret others = -1 \n"), std::string::npos) << out;
  EXPECT_EQ(frames(), (std::vector<std::string>{"reset", "probe /"}));
}

TEST_F(DeviceScanTest, FailedConfirmationOrAssignmentLeavesTheAddressFree) {
  addAld({0x41, 0x42});
  addAld({0x49, 0x42});
  addAld({0x45, 0x42});  // bit 2 set: alone on its branch at position 2
  bus_.alds[0].failConfirm = true;
  bus_.alds[2].failAssign = true;
  EXPECT_EQ(scan(), 1);
  const std::vector<std::string> sent = frames();
  EXPECT_EQ(count(::testing::PrintToString(sent), "assign 4142"), 0u);
  EXPECT_EQ(count(::testing::PrintToString(sent), "assign 4542->1"), 1u);
  EXPECT_EQ(count(::testing::PrintToString(sent), "assign 4942->1"), 1u);
  ASSERT_EQ(container_->getAldDeviceNums(), 1u);
  EXPECT_EQ(hex(container_->findAldDeviceObj(1)->baseInfo.uid, 2), "4942");
}

TEST_F(DeviceScanTest, FailedSnrmLeavesTheAldAddressed) {
  addAld({0x41, 0x42});
  addAld({0x49, 0x42});
  bus_.alds[0].failSnrm = true;
  EXPECT_EQ(scan(), 2);
  EXPECT_EQ(container_->findAldDeviceObj(1)->baseInfo.status, ADDRESSED);
  EXPECT_EQ(container_->findAldDeviceObj(2)->baseInfo.status, RUNNING);
}

TEST_F(DeviceScanTest, RepeatedScanRestartsAtOneWithNewObjects) {
  addAld({0x41, 0x42});
  EXPECT_EQ(scan(), 1);
  AldDevice* first = container_->findAldDeviceObj(1);
  ASSERT_NE(first, nullptr);
  first->baseInfo.status = LOST;
  bus_.sent.clear();
  EXPECT_EQ(scan(), 1);
  EXPECT_EQ(bus_.sent.size(), 5u);
  AldDevice* second = container_->findAldDeviceObj(1);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->baseInfo.status, RUNNING);
  // A pointer found before a scan stays good through the next one.
  EXPECT_EQ(first->baseInfo.status, LOST);
  EXPECT_EQ(hex(first->baseInfo.uid, first->baseInfo.uidLength), "4142");
}

TEST_F(DeviceScanTest, NeverMoreThan254Addresses) {
  for (int i = 0; i < 255; ++i) addAld({static_cast<uint8_t>(i << 1), static_cast<uint8_t>(i >> 7)});
  gLogLevel = 2;
  unsigned char found = 0;
  std::string out = captured([&] { found = scan(); });
  EXPECT_EQ(found, 254);
  EXPECT_EQ(count(out, "device scan has no address left for another ALD\n"), 1u);
  EXPECT_EQ(container_->getAldDeviceNums(), 254u);
  EXPECT_EQ(container_->findAldDeviceObj(0), nullptr);
  EXPECT_EQ(container_->findAldDeviceObj(255), nullptr);
  int running = 0;
  for (AldDevice* ald = container_->getBeginAldDeviceObj(); ald != nullptr && !container_->isEnd();
       ald = container_->getNextAldDeviceObj()) {
    running += ald->baseInfo.status == RUNNING;
  }
  EXPECT_EQ(running, 254);
  int unaddressed = 0;
  for (const fake::Ald& ald : bus_.alds) unaddressed += ald.address == 0;
  EXPECT_EQ(unaddressed, 1);
}

TEST_F(DeviceScanTest, MemoryStaysBoundedOverManyScans) {
  addAld({0x41, 0x42});
  addAld({0x49, 0x42});
  gLogLevel = 0;
  size_t warm = 0;
  for (int i = 0; i < 400; ++i) {
    bus_.sent.clear();
    bus_.times.clear();
    ASSERT_EQ(scan(), 2);
    if (i == 20) warm = mallinfo2().uordblks;
  }
  // Two AldDevice objects a scan would add well over 20 kB without reclaiming.
  EXPECT_LT(mallinfo2().uordblks, warm + 4096);
}

}  // namespace
