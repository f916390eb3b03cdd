// The link procedures and the device scan against the simulator's ALDs.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"
#include "simBus.h"
#include "utility/debugTrace.h"
#include "utility/hexText.h"

namespace {

using tframes::Bytes;

// A frame of the scan in short: "reset", "probe 00/02" (prefix/mask), "assign 4142->1", "snrm 1".
std::string describe(const S_HdlcPacket& packet) {
  const uint8_t* d = packet.data;
  const uint8_t n = d[4];
  if (packet.control == 0x83) return "snrm " + std::to_string(packet.address);
  if (packet.dataLength == 5 && d[3] == 0x07) return "reset";
  if (d[5 + n] == 0x03) return "probe " + hexText(d + 5, n, "") + "/" + hexText(d + 7 + n, n, "");
  return "assign " + hexText(d + 5, n, "") + "->" + std::to_string(d[7 + n]);
}

// The simulator's bus with two knobs of the scan: the replies to the first `garbled`
// address assignments come garbled (the ALDs took the addresses all the same), and
// `running` notes how many ALDs showed RUNNING whenever a link's numbers were reset.
struct FieldBus : SimBus {
  using SimBus::SimBus;
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    if (garbled == 0 || describe(*packet).rfind("assign", 0) != 0) return SimBus::sendCmdAndWaitResponse(packet, time);
    --garbled;
    answer(*packet);
    return -3;
  }
  void apartFromReplies(const std::function<void()>& work) override {
    char count = '0';
    for (uint8_t a = 1; a < 5; ++a) {
      AldDevice* ald = AldDeviceContainer::getInstance()->findAldDeviceObj(a);
      count = char(count + (ald != nullptr && ald->getStatus() == RUNNING));
    }
    running += count;
    work();
  }
  int garbled = 0;
  std::string running;
};

class Layer2V2DeviceTest : public testing::Test {
 protected:
  void SetUp() override {
    gLogLevel = 1;  // the scans' traces are many
    container_->clear();
  }

  // A whole scan of a bus of these ALDs: the number found; the frames sent go to frames_, in short.
  int scan(const std::vector<std::string>& alds, int garbledAssignments = 0) {
    bus_ = FieldBus(alds);
    bus_.garbled = garbledAssignments;
    device_._pCommInterface = &bus_;
    unsigned char found = 0xEE;
    EXPECT_EQ(device_.deviceScan(19, found), 0);
    frames_.clear();
    for (const S_HdlcPacket& packet : bus_.sent) frames_ += (frames_.empty() ? "" : ", ") + describe(packet);
    return found;
  }
  // The ALDs in the container, address, UID and status: "1:4142:3 2:4942:2".
  std::string alds() {
    std::string text;
    for (AldDevice* ald = container_->getBeginAldDeviceObj(); ald != nullptr && !container_->isEnd();
         ald = container_->getNextAldDeviceObj()) {
      text += (text.empty() ? "" : " ") + std::to_string(ald->address) + ":" +
              hexText(ald->baseInfo.uid, ald->baseInfo.uidLength, "") + ":" + std::to_string(ald->getStatus());
    }
    return text;
  }

  Layer2V2Device device_;
  FieldBus bus_;
  std::string frames_;
  AldDeviceContainer* container_ = AldDeviceContainer::getInstance();
};

// Each procedure's frame and what it makes of replies: silence, a reply that does
// not decode, and replies (control byte on the wire, information; control 0 for
// bytes as they stand) with the result each gives.
TEST_F(Layer2V2DeviceTest, ProceduresSendTheWorkedFramesAndCheckTheReplies) {
  using Run = std::function<int(Layer2V2Device&, S_AldBaseInfo&)>;
  struct Reply {
    uint8_t control;
    Bytes data;
    int expected;
  };
  Bytes oversize = {0x81, 0xF0, 0x1E, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x15};
  oversize.resize(oversize.size() + 21, 0xEE);
  const Reply other = {0x73, {}, -1};
  const struct {
    Run run;
    const char* frame;
    std::vector<Reply> replies;
  } cases[] = {
      // UA with and without the final bit; DM.
      {[](auto& d, auto&) { return d.linkEstablish(1); }, "7E 01 93 8D B0 7E", {{0x73, {}, 0}, {0x63, {}, 0}, {0x1F, {}, -1}}},
      {[](auto& d, auto&) { return d.disconnect(1); }, "7E 01 53 81 76 7E", {{0x73, {}, 0}}},
      // RR with N(R) 5; RNR; an I-frame; DM, from an ALD without a link.
      {[](auto& d, auto&) { return d.devicePoll(1); }, "7E 01 11 97 17 7E",
       {{0xB1, {}, 0}, {0x15, {}, -1}, {0x10, {}, -1}, {0x1F, {}, -4}}},
      {[](auto& d, auto&) { return d.resetDevice(0xFF); }, "7E FF BF 81 F0 02 07 00 A4 F3 7E",
       {{0xBF, {0x81, 0xF0, 0x02, 0x07, 0x00}, 0}, {0xBF, {0x81, 0xF0, 0x03, 0x05, 0x01, 0x00}, -1}, other}},
      // The ALD answers with its transmit window (7), not an echo of the request.
      {[](auto& d, auto&) { return d.hdlcParameter(1); },
       "7E 01 BF 81 80 12 05 04 00 00 00 00 06 04 00 00 00 00 07 01 00 08 01 00 E3 71 7E",
       {{0xBF, {0x81, 0x80, 0x03, 0x07, 0x01, 0x00}, 0}, {0xBF, {0x81, 0x80, 0x06, 0x05, 0x04, 0, 0, 0, 0}, -1}}},
      // Wants the UID and the device type: not without either, not in a group of length 0, and
      // not a UID too long for the record.
      {[](auto& d, auto& info) { return d.addressAssign(&info, 1); }, "7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E",
       {{0xBF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}, 0},
        {0xBF, {0x81, 0xF0, 0x04, 0x01, 0x02, 0x41, 0x42}, -1},
        {0xBF, {0x81, 0xF0, 0x03, 0x04, 0x01, 0x11}, -1},
        {0xBF, {0x81, 0xF0, 0x00, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}, -1}, other, {0xBF, oversize, -1}}},
      // Wants the vendor code as well, in the ALD group of the one format, in any order and among
      // others. The group length may end inside the last parameter, but neither it nor a
      // parameter may run past the reply.
      {[](auto& d, auto& info) { return d.oneScan({}, &info); }, "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E",
       {{0xBF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}, -1},
        {0xBF, {0x81, 0xF0, 0x0A, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11, 0x06, 0x01, 'X'}, -1},
        {0xBF, {0x81, 0xF0, 0x00, 0x01, 0x02, 0x41, 0x42}, -1},
        {0xBF, {0x82, 0xF0, 0x03, 0x04, 0x01, 0x11}, -1}, other, {0xBF, oversize, -1},
        {0xBF, {0x81, 0xF0, 0x0D, 0x04, 0x01, 0x11, 0x09, 0x01, 0x00, 0x06, 0x02, 'X', 'Y', 0x01, 0x02, 0x41, 0x42}, 0},
        {0xBF, {0x81, 0xF0, 0x20, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x02, 0x41, 0x42}, -1},
        {0xBF, {0x81, 0xF0, 0x0E, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x05, 0x41, 0x42}, -1}}},
      {[](auto& d, auto& info) { return d.oneScan({1, 0, {0x02}, {0x02}}, &info); },
       "7E FF BF 81 F0 06 01 01 02 03 01 02 4F DF 7E", {}},
  };
  device_._pCommInterface = &bus_;
  for (const auto& c : cases) {
    std::vector<Reply> replies = {{0, {}, -2}, {0, {0x7E, 0x03, 0x7E}, -3}};
    replies.insert(replies.end(), c.replies.begin(), c.replies.end());
    for (const Reply& r : replies) {
      S_HdlcPacket reply = tframes::packetTo(0xFF, r.control, r.data);
      bus_.script.push_back(r.control == 0 ? r.data : tframes::encoded(reply, 0));
      S_AldBaseInfo info{77, 0, 2, {0x41, 0x42}, ASSIGNING, 0, {}};
      bus_.sent.clear();
      EXPECT_EQ(c.run(device_, info), r.expected) << c.frame << " reply " << &r - replies.data();
      ASSERT_EQ(bus_.sent.size(), 1u);
      const Bytes sent = tframes::frame(bus_.sent[0]);
      EXPECT_EQ(hexText(sent.data(), sent.size()), c.frame);
      // Whatever the reply, the record keeps its address and status and nothing runs past its UID.
      EXPECT_EQ(std::vector<int>({info.address, info.status, info.reserved}), std::vector<int>({77, ASSIGNING, 0}));
      EXPECT_LE(info.uidLength, 20);
    }
  }
}

// Whole scans: the ALDs found, the frames in short (the last of them, as many as
// given), how many went out, the ALDs in the container, and how many were RUNNING
// at each reset of a link's numbers (the ALD of that link never).
TEST_F(Layer2V2DeviceTest, ScansGoBreadthFirstWithTheZeroBranchFirst) {
  const std::string deepest = "probe 40" + std::string(36, '0') + "01/FE" + std::string(36, 'F') + "01";
  const struct {
    std::vector<std::string> alds;
    int found;
    size_t frames;
    std::string last, container, running;
    int garbledAssignments = 0;
  } cases[] = {
      {{}, 0, 2, "reset, probe /", "", ""},
      {{"uid=0x4142"}, 1, 5, "reset, probe /, probe 4142/FFFF, assign 4142->1, snrm 1", "1:4142:3", "0"},
      // Apart at bit 3: collisions down to it, with silence on each branch of bit 1; 49 42
      // falls silent at its eighth frame, its SNRM, and stays addressed only.
      {{"uid=0x4942,silentFrom=8", "uid=0x4142"}, 2, 14,
       "reset, probe /, probe 00/02, probe 02/02, probe 00/06, probe 04/06, probe 00/0E, probe 4142/FFFF, "
       "assign 4142->1, probe 08/0E, probe 4942/FFFF, assign 4942->2, snrm 1, snrm 2",
       "1:4142:3 2:4942:2", "0"},
      // The reply to 41 42's assignment is garbled: it took address 1 all the same, and 49 42 gets 2.
      {{"uid=0x4942", "uid=0x4142"}, 2, 14, "assign 4142->1, probe 08/0E, probe 4942/FFFF, assign 4942->2, snrm 1, snrm 2",
       "1:4142:3 2:4942:3", "01", 1},
      // Apart at bit 0 only, which is never split: two children for each position up to 152.
      {{"uid=0x40", "uid=0x41"}, 0, 2 + 2 * 152, deepest, "", ""},
      // 43 42 is alone at position 1 but leaves out its vendor code; 45 42 alone at 2 falls
      // silent at its sixth frame, the assignment; of 41 42 and 49 42, apart at 3, 41 42 falls
      // silent at its sixth, the confirmation. The address is not used up.
      {{"uid=0x4142,silentFrom=6", "uid=0x4942", "uid=0x4542,silentFrom=6", "uid=0x4342,noVendor=1"}, 1, 14,
       "probe 00/02, probe 02/02, probe 00/06, probe 04/06, probe 4542/FFFF, assign 4542->1, probe 00/0E, "
       "probe 4142/FFFF, probe 08/0E, probe 4942/FFFF, assign 4942->1, snrm 1",
       "1:4942:3", "0"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(scan(c.alds, c.garbledAssignments), c.found) << c.last;
    EXPECT_EQ(bus_.sent.size(), c.frames) << c.last;
    EXPECT_EQ(frames_.substr(frames_.size() - std::min(frames_.size(), c.last.size())), c.last);
    EXPECT_EQ(alds(), c.container) << c.last;
    EXPECT_EQ(bus_.running, c.running) << c.last;
  }
}

// A link set up anew (after a DM, a new address) starts at numbers 0 with its counters cleared.
TEST_F(Layer2V2DeviceTest, ALinkSetUpAnewStartsAtNumbersZeroWithClearedCounters) {
  device_._pCommInterface = &bus_;
  AldDevice ald;
  ald.address = 1, ald.sendNo = 5, ald.receiveNo = 6, ald.failedCount = 4, ald.addressAssignRetryCount = 3;
  S_HdlcPacket ua = tframes::packetTo(1, 0x73);
  bus_.script.push_back(tframes::encoded(ua, 0));
  EXPECT_EQ(device_.openLink(ald), 0);
  EXPECT_EQ(std::vector<int>({ald.sendNo, ald.receiveNo, ald.failedCount, ald.addressAssignRetryCount, ald.getStatus()}),
            std::vector<int>({0, 0, 0, 0, RUNNING}));
}

// The record of an ALD found; the objects that a scan drops stay readable through
// the next scan, and then they are freed.
TEST_F(Layer2V2DeviceTest, RepeatedScansReplaceAndFreeTheRecords) {
  AldDevice stale;
  stale.address = 5;
  container_->attach(&stale);
  EXPECT_EQ(scan({"uid=0x4142,type=0x11,vendor=XY"}), 1);
  AldDevice* first = container_->findAldDeviceObj(1);
  EXPECT_EQ(std::vector<int>({first->baseInfo.address, first->deviceType, first->aisgVersion}),
            std::vector<int>({1, 0x11, 2}));
  EXPECT_STREQ(reinterpret_cast<const char*>(first->baseInfo.vendorCode), "XY");
  first->setStatus(LOST);
  size_t warm = 0;
  for (int i = 0; i < 400; ++i) {
    unsigned char found = 0;
    device_.deviceScan(19, found);
    ASSERT_EQ(alds(), "1:4142:3");
    EXPECT_TRUE(i > 0 || first->getStatus() == LOST) << "dropped, yet readable through the next scan";
    if (i == 20) warm = mallinfo2().uordblks;
  }
  // An AldDevice object a scan would add well over 10 kB without freeing.
  EXPECT_LT(mallinfo2().uordblks, warm + 4096);
}

TEST_F(Layer2V2DeviceTest, ScanGivesNoMoreThan254Addresses) {
  std::vector<std::string> bus;
  for (int i = 0; i < 255; ++i) bus.push_back("uid=0x" + hexText(std::vector<uint8_t>{uint8_t(i << 1), uint8_t(i >> 7)}.data(), 2, ""));
  EXPECT_EQ(scan(bus), 254);
  const std::string found = alds() + " ";
  size_t running = 0;
  for (size_t at = found.find(":3 "); at != std::string::npos; at = found.find(":3 ", at + 1)) ++running;
  EXPECT_EQ(running, 254u);
  std::vector<std::string> lines;
  bus_.model.command("list", lines);
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find(" - ") != std::string::npos; }), 1);
}

}  // namespace
