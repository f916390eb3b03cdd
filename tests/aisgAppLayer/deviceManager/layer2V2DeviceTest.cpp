// The link procedures and the device scan against the fake bus.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"
#include "fakeBus.h"
#include "utility/debugTrace.h"

namespace {

using fake::Bytes;

enum Procedure { kLink, kDisc, kPoll, kReset, kHdlc, kAssign, kScan };

// A frame of the scan in short: "reset", "probe 00/02" (prefix/mask), "assign 4142->1", "snrm 1".
std::string describe(const S_HdlcPacket& packet) {
  const uint8_t* d = packet.data;
  const uint8_t n = d[4];
  if (packet.control == 0x83) return "snrm " + std::to_string(packet.address);
  if (packet.dataLength == 5 && d[3] == 0x07) return "reset";
  if (d[5 + n] == 0x03) return "probe " + hexText(d + 5, n, "") + "/" + hexText(d + 7 + n, n, "");
  return "assign " + hexText(d + 5, n, "") + "->" + std::to_string(d[7 + n]);
}

class Layer2V2DeviceTest : public testing::Test {
 protected:
  void SetUp() override {
    device_._pCommInterface = &bus_;
    container_->clear();
    gLogLevel = 1;
  }
  void TearDown() override {
    gLogLevel = 3;
    container_->clear();
  }

  // Runs one procedure on address 1 (a reset to all), with `uid` in info_ and in
  // the probe's prefix, and `mask` as the probe's one-byte mask.
  int run(Procedure procedure, const Bytes& uid = {}, uint8_t mask = 0) {
    info_ = S_AldBaseInfo{};
    info_.address = 77;
    info_.status = ASSIGNING;
    info_.uidLength = static_cast<uint8_t>(uid.size());
    std::copy(uid.begin(), uid.end(), info_.uid);
    S_UidScanUintV2_t step{};
    step.uidLength = info_.uidLength;
    std::copy(uid.begin(), uid.end(), step.uid);
    step.mask[0] = mask;
    bus_.sent.clear();
    bus_.times.clear();
    switch (procedure) {
      case kLink: return device_.linkEstablish(1);
      case kDisc: return device_.disconnect(1);
      case kPoll: return device_.devicePoll(1);
      case kReset: return device_.resetDevice(0xFF);
      case kHdlc: return device_.hdlcParameter(1);
      case kAssign: return device_.addressAssign(&info_, 1);
      case kScan: return device_.oneScan(step, &info_);
    }
    return 99;
  }

  // A whole scan of the fake bus: the number found; the frames sent go to frames_, described.
  int scan() {
    bus_.sent.clear();
    bus_.times.clear();
    frames_.clear();
    unsigned char found = 0xEE;
    EXPECT_EQ(device_.deviceScan(19, found), 0);
    for (const S_HdlcPacket& packet : bus_.sent) frames_.push_back(describe(packet));
    return found;
  }
  // The UID and status of the ALD at `address`: "4142 3".
  std::string aldAt(uint8_t address) {
    AldDevice* ald = container_->findAldDeviceObj(address);
    if (ald == nullptr) return "none";
    return hexText(ald->baseInfo.uid, ald->baseInfo.uidLength, "") + " " + std::to_string(ald->getStatus());
  }

  Layer2V2Device device_;
  fake::FakeBus bus_;
  S_AldBaseInfo info_{};
  std::vector<std::string> frames_;
  AldDeviceContainer* container_ = AldDeviceContainer::getInstance();
};

// Each procedure's frame and what it makes of replies: the frame as the worked
// frames have it, the time-out passed through, and each reply (control byte on
// the wire, information) with the result it must give.
TEST_F(Layer2V2DeviceTest, ProceduresSendTheWorkedFramesAndCheckTheReplies) {
  struct Reply {
    uint8_t control;
    Bytes data;
    int expected;
  };
  Bytes oversize = {0x81, 0xF0, 0x1E, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x15};
  oversize.resize(oversize.size() + 21, 0xEE);
  const struct {
    Procedure procedure;
    Bytes uid;
    uint8_t mask;
    const char* frame;
    std::vector<Reply> replies;
  } cases[] = {
      // UA with and without the final bit; DM.
      {kLink, {}, 0, "7E 01 93 8D B0 7E", {{0x73, {}, 0}, {0x63, {}, 0}, {0x1F, {}, -1}}},
      {kDisc, {}, 0, "7E 01 53 81 76 7E", {{0x73, {}, 0}, {0x1F, {}, -1}}},
      // RR with N(R) 5; RNR; an I-frame.
      {kPoll, {}, 0, "7E 01 11 97 17 7E", {{0xB1, {}, 0}, {0x15, {}, -1}, {0x10, {}, -1}}},
      {kReset, {}, 0, "7E FF BF 81 F0 02 07 00 A4 F3 7E",
       {{0xBF, {0x81, 0xF0, 0x02, 0x07, 0x00}, 0}, {0xBF, {0x81, 0xF0, 0x03, 0x05, 0x01, 0x00}, -1}, {0x73, {}, -1}}},
      // The ALD answers with its transmit window (7), not an echo of the request.
      {kHdlc, {}, 0, "7E 01 BF 81 80 12 05 04 00 00 00 00 06 04 00 00 00 00 07 01 00 08 01 00 E3 71 7E",
       {{0xBF, {0x81, 0x80, 0x03, 0x07, 0x01, 0x00}, 0}, {0xBF, {0x81, 0x80, 0x06, 0x05, 0x04, 0, 0, 0, 0}, -1}}},
      {kAssign, {0x41}, 0, "7E FF BF 81 F0 06 01 01 41 02 01 01 72 84 7E", {}},
      // Wants the UID and the device type: not without either, not in a group of length 0, and
      // not a UID too long for the record.
      {kAssign, {0x41, 0x42}, 0, "7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E",
       {{0xBF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}, 0},
        {0xBF, {0x81, 0xF0, 0x04, 0x01, 0x02, 0x41, 0x42}, -1},
        {0xBF, {0x81, 0xF0, 0x03, 0x04, 0x01, 0x11}, -1},
        {0xBF, {0x81, 0xF0, 0x00, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}, -1},
        {0x73, {}, -1},
        {0xBF, oversize, -1}}},
      // Wants the vendor code as well, in the ALD group of the one format. The group length may end
      // inside the last parameter, but neither it nor a parameter may run past the reply.
      {kScan, {}, 0, "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E",
       {{0xBF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}, -1},
        {0xBF, {0x81, 0xF0, 0x0A, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11, 0x06, 0x01, 'X'}, -1},
        {0xBF, {0x81, 0xF0, 0x00, 0x01, 0x02, 0x41, 0x42}, -1},
        {0xBF, {0x82, 0xF0, 0x03, 0x04, 0x01, 0x11}, -1},
        {0x73, {}, -1},
        {0xBF, oversize, -1},
        {0xBF, {0x81, 0xF0, 0x0A, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x02, 0x41, 0x42}, 0},
        {0xBF, {0x81, 0xF0, 0x20, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x02, 0x41, 0x42}, -1},
        {0xBF, {0x81, 0xF0, 0x0E, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x05, 0x41, 0x42}, -1}}},
      {kScan, {0x00}, 0x02, "7E FF BF 81 F0 06 01 01 00 03 01 02 39 E6 7E", {}},
      {kScan, {0x02}, 0x02, "7E FF BF 81 F0 06 01 01 02 03 01 02 4F DF 7E", {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(run(c.procedure, c.uid, c.mask), -2) << c.frame;
    ASSERT_EQ(bus_.sent.size(), 1u);
    EXPECT_EQ(bus_.times[0], 1000u);
    EXPECT_EQ(fake::wire(bus_.sent[0]), c.frame);
    bus_.script.push_back({-3, {}});
    EXPECT_EQ(run(c.procedure, c.uid, c.mask), -3) << c.frame;
    for (const Reply& r : c.replies) {
      bus_.script.push_back({0, fake::reply(0xFF, r.control, r.data)});
      EXPECT_EQ(run(c.procedure, c.uid, c.mask), r.expected) << c.frame << " reply " << &r - c.replies.data();
      // Whatever the reply, the record keeps its address and status and nothing runs past its UID.
      EXPECT_EQ(info_.address, 77);
      EXPECT_EQ(info_.status, ASSIGNING);
      EXPECT_EQ(info_.reserved, 0);
      EXPECT_LE(info_.uidLength, 20);
    }
  }
}

// An empty bus, then one ALD in five frames, again and again: the objects that a
// scan drops stay readable through the next scan, and then they are freed.
TEST_F(Layer2V2DeviceTest, ScanOfAnEmptyBusThenOfOneAldAgainAndAgain) {
  AldDevice stale;
  stale.address = 5;
  container_->attach(&stale);
  EXPECT_EQ(scan(), 0);
  EXPECT_EQ(frames_, (std::vector<std::string>{"reset", "probe /"}));
  EXPECT_EQ(container_->getAldDeviceNums(), 0u);

  bus_.alds = {{{0x41, 0x42}}};
  EXPECT_EQ(scan(), 1);
  EXPECT_EQ(frames_, (std::vector<std::string>{"reset", "probe /", "probe 4142/FFFF", "assign 4142->1", "snrm 1"}));
  EXPECT_EQ(aldAt(1), "4142 3");
  AldDevice* first = container_->findAldDeviceObj(1);
  EXPECT_EQ(first->baseInfo.address, 1);
  EXPECT_EQ(first->deviceType, 0x11);
  EXPECT_EQ(first->aisgVersion, 2);
  EXPECT_STREQ(reinterpret_cast<const char*>(first->baseInfo.vendorCode), "XY");
  first->setStatus(LOST);
  ASSERT_EQ(scan(), 1);
  EXPECT_NE(container_->findAldDeviceObj(1), first);
  EXPECT_EQ(first->getStatus(), LOST);
  size_t warm = 0;
  for (int i = 0; i < 400; ++i) {
    ASSERT_EQ(scan(), 1);
    if (i == 20) warm = mallinfo2().uordblks;
  }
  // An AldDevice object a scan would add well over 10 kB without freeing.
  EXPECT_LT(mallinfo2().uordblks, warm + 4096);
}

TEST_F(Layer2V2DeviceTest, ScanSplitsTwoAldsBreadthFirstWithTheZeroBranchFirst) {
  bus_.alds = {{{0x49, 0x42}, fake::kFailSnrm}, {{0x41, 0x42}}};  // apart at bit 3
  EXPECT_EQ(scan(), 2);
  EXPECT_EQ(frames_, (std::vector<std::string>{
                         "reset", "probe /",                   // collision
                         "probe 00/02", "probe 02/02",         // collision, silence
                         "probe 00/06", "probe 04/06",         // collision, silence
                         "probe 00/0E",                        // only 41 42
                         "probe 4142/FFFF", "assign 4142->1",  //
                         "probe 08/0E",                        // only 49 42
                         "probe 4942/FFFF", "assign 4942->2",  //
                         "snrm 1", "snrm 2"}));
  EXPECT_EQ(aldAt(1), "4142 3");
  EXPECT_EQ(aldAt(2), "4942 2") << "addressed only, its SNRM failed";
}

TEST_F(Layer2V2DeviceTest, ScanNeverSplitsBitZeroAndStopsAtPosition152) {
  bus_.alds = {{{0x40}}, {{0x41}}};
  EXPECT_EQ(scan(), 0);
  // The reset, the root, and two children for each of the positions 1 to 152.
  ASSERT_EQ(frames_.size(), 2u + 2u * 152u);
  EXPECT_EQ(frames_.back(), "probe 40" + std::string(36, '0') + "01/FE" + std::string(36, 'F') + "01");
}

TEST_F(Layer2V2DeviceTest, ScanDropsAldsThatFailTheirProbeOrAssignment) {
  // 43 42 is alone on its branch at position 1, 45 42 at position 2; 41 42 and 49 42 part at 3.
  bus_.alds = {{{0x41, 0x42}, fake::kFailConfirm},
               {{0x49, 0x42}},
               {{0x45, 0x42}, fake::kFailAssign},
               {{0x43, 0x42}, fake::kNoVendor}};
  EXPECT_EQ(scan(), 1);
  const std::string sent = testing::PrintToString(frames_);
  EXPECT_EQ(sent.find("assign 4142"), std::string::npos);
  EXPECT_EQ(sent.find("assign 4342"), std::string::npos);
  EXPECT_LT(sent.find("assign 4542->1"), sent.find("assign 4942->1"));
  EXPECT_EQ(aldAt(1), "4942 3");
}

TEST_F(Layer2V2DeviceTest, ScanGivesNoMoreThan254Addresses) {
  for (int i = 0; i < 255; ++i) bus_.alds.push_back({{static_cast<uint8_t>(i << 1), static_cast<uint8_t>(i >> 7)}});
  EXPECT_EQ(scan(), 254);
  int running = 0;
  for (int address = 1; address <= 254; ++address) running += aldAt(static_cast<uint8_t>(address)).back() == '3';
  EXPECT_EQ(running, 254);
  EXPECT_EQ(std::count_if(bus_.alds.begin(), bus_.alds.end(), [](const fake::Ald& a) { return a.address == 0; }), 1);
}

}  // namespace
