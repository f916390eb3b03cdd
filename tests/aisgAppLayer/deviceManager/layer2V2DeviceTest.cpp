#include <gtest/gtest.h>

#include <cstring>

#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"
#include "fakeBus.h"
#include "utility/debugTrace.h"

namespace {

using fake::Bytes;
using fake::captured;
using fake::reply;
using fake::wire;

class Layer2V2DeviceTest : public testing::Test {
 protected:
  void SetUp() override {
    device_._pCommInterface = &comm_;
    device_.aisgVersion = 2;
  }
  void TearDown() override { gLogLevel = 3; }

  // The one frame sent since the last call, checked for the procedures' time-out.
  S_HdlcPacket lastSent() {
    EXPECT_EQ(comm_.sent.size(), 1u);
    EXPECT_EQ(comm_.times.back(), 1000u);
    S_HdlcPacket packet = comm_.sent.back();
    comm_.sent.clear();
    comm_.times.clear();
    return packet;
  }

  Layer2V2Device device_;
  fake::ScriptedComm comm_;
};

S_HdlcPacket xid(uint8_t address, const Bytes& data) { return reply(address, 0xBF, data); }

TEST_F(Layer2V2DeviceTest, LinkEstablishWantsUaWithOrWithoutFinalBit) {
  comm_.then(0, reply(1, 0x73));
  EXPECT_EQ(device_.linkEstablish(1), 0);
  S_HdlcPacket sent = lastSent();
  EXPECT_EQ(sent.pollFinal, 1);
  EXPECT_EQ(+sent.dataLength, 0);
  EXPECT_EQ(wire(sent), "7E 01 93 8D B0 7E");

  comm_.then(0, reply(1, 0x63));
  EXPECT_EQ(device_.linkEstablish(1), 0);
  comm_.then(0, reply(1, 0x1F));  // DM
  EXPECT_EQ(device_.linkEstablish(1), -1);
  comm_.then(0, reply(1, 0x11));  // RR
  EXPECT_EQ(device_.linkEstablish(1), -1);
}

TEST_F(Layer2V2DeviceTest, ExchangeFailuresPassThroughUnchanged) {
  for (int failure : {-1, -2, -3}) {
    comm_.then(failure);
    EXPECT_EQ(device_.linkEstablish(3), failure);
    comm_.then(failure);
    EXPECT_EQ(device_.devicePoll(3), failure);
    comm_.then(failure);
    EXPECT_EQ(device_.hdlcParameter(3), failure);
    S_AldBaseInfo info{};
    comm_.then(failure);
    EXPECT_EQ(device_.addressAssign(&info, 3), failure);
  }
  device_._pCommInterface = nullptr;
  EXPECT_EQ(device_.disconnect(3), -1);
}

TEST_F(Layer2V2DeviceTest, DisconnectSendsDiscAndWantsUa) {
  comm_.then(0, reply(1, 0x73));
  EXPECT_EQ(device_.disconnect(1), 0);
  EXPECT_EQ(wire(lastSent()), "7E 01 53 81 76 7E");
  comm_.then(0, reply(1, 0x1F));
  EXPECT_EQ(device_.disconnect(1), -1);
}

TEST_F(Layer2V2DeviceTest, DevicePollWantsRrWhateverItsNumber) {
  comm_.then(0, reply(1, 0xB1));  // RR, N(R) 5
  EXPECT_EQ(device_.devicePoll(1), 0);
  EXPECT_EQ(wire(lastSent()), "7E 01 11 97 17 7E");
  // RNR, REJ and an I-frame are answers, but not the one wanted.
  for (uint8_t control : {0x15, 0x19, 0x10}) {
    comm_.then(0, reply(1, control));
    EXPECT_EQ(device_.devicePoll(1), -1) << int(control);
  }
}

TEST_F(Layer2V2DeviceTest, ResetGoesToAllAndWantsTheResetParameterBack) {
  gLogLevel = 4;
  std::string out = captured([&] { EXPECT_EQ(device_.resetDevice(0xFF), -2); });
  EXPECT_NE(out.find("resetDevice() ret = -2\n"), std::string::npos);
  EXPECT_EQ(wire(lastSent()), "7E FF BF 81 F0 02 07 00 A4 F3 7E");

  comm_.then(0, xid(0xFF, {0x81, 0xF0, 0x02, 0x07, 0x00}));
  out = captured([&] { EXPECT_EQ(device_.resetDevice(0xFF), 0); });
  EXPECT_NE(out.find("resetDevice() ret = 0\n"), std::string::npos);

  // A wrong reply fails without the trace of the result.
  comm_.then(0, xid(0xFF, {0x81, 0xF0, 0x03, 0x05, 0x01, 0x00}));
  out = captured([&] { EXPECT_EQ(device_.resetDevice(0xFF), -1); });
  EXPECT_EQ(out.find("resetDevice() ret"), std::string::npos);
  comm_.then(0, reply(0xFF, 0x73));
  EXPECT_EQ(device_.resetDevice(0xFF), -1);
}

TEST_F(Layer2V2DeviceTest, HdlcParameterLooksAtTheFirstParameterOnly) {
  comm_.then(0, xid(1, {0x81, 0x80, 0x03, 0x07, 0x01, 0x00}));
  EXPECT_EQ(device_.hdlcParameter(1), 0);
  EXPECT_EQ(wire(lastSent()),
            "7E 01 BF 81 80 12 05 04 00 00 00 00 06 04 00 00 00 00 07 01 00 08 01 00 E3 71 7E");
  // An echo of the request starts with parameter 5.
  comm_.then(0, xid(1, {0x81, 0x80, 0x06, 0x05, 0x04, 0x00, 0x00, 0x00, 0x00}));
  EXPECT_EQ(device_.hdlcParameter(1), -1);
}

class AddressAssignTest : public Layer2V2DeviceTest {
 protected:
  void SetUp() override {
    Layer2V2DeviceTest::SetUp();
    info_.uidLength = 2;
    info_.uid[0] = 0x41;
    info_.uid[1] = 0x42;
    info_.deviceType = 0x55;
  }
  int assignWithReply(const Bytes& data) {
    comm_.then(0, xid(0xFF, data));
    int ret = device_.addressAssign(&info_, 1);
    comm_.sent.clear();
    comm_.times.clear();
    return ret;
  }
  S_AldBaseInfo info_{};
};

TEST_F(AddressAssignTest, FrameGoesToAllStations) {
  info_.address = 1;  // an ALD that has the address already gets the same frame
  EXPECT_EQ(device_.addressAssign(&info_, 1), -2);
  S_HdlcPacket sent = lastSent();
  EXPECT_EQ(sent.address, 0xFF);
  EXPECT_EQ(wire(sent), "7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E");

  info_.uidLength = 19;
  for (int i = 0; i < 19; ++i) info_.uid[i] = static_cast<uint8_t>(i + 1);
  device_.addressAssign(&info_, 9);
  sent = lastSent();
  ASSERT_EQ(+sent.dataLength, 27);
  EXPECT_EQ(sent.data[2], 24);
  EXPECT_EQ(sent.data[4], 19);
  EXPECT_EQ(memcmp(sent.data + 5, info_.uid, 19), 0);
  EXPECT_EQ(Bytes(sent.data + 24, sent.data + 27), (Bytes{0x02, 0x01, 0x09}));
}

TEST_F(AddressAssignTest, ReplyOverwritesUidAndType) {
  // Parameters in any order, with others among them; a longer UID than was sent.
  EXPECT_EQ(assignWithReply({0x81, 0xF0, 0x0B, 0x02, 0x01, 0x01, 0x04, 0x01, 0x11, 0x01, 0x03, 0x41, 0x42, 0x43}),
            0);
  EXPECT_EQ(info_.uidLength, 3);
  EXPECT_EQ(Bytes(info_.uid, info_.uid + 3), (Bytes{0x41, 0x42, 0x43}));
  EXPECT_EQ(info_.deviceType, 0x11);
  EXPECT_EQ(info_.address, 0);  // the scan sets it
}

TEST_F(AddressAssignTest, WrongRepliesFail) {
  EXPECT_EQ(assignWithReply({0x81, 0xF0, 0x04, 0x01, 0x02, 0x41, 0x42}), -1);  // no device type
  EXPECT_EQ(assignWithReply({0x81, 0xF0, 0x03, 0x04, 0x01, 0x11}), -1);        // no UID
  EXPECT_EQ(assignWithReply({0x81, 0xF0, 0x00, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}), -1);
  EXPECT_EQ(assignWithReply({0x81, 0x80, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}), -1);
  comm_.then(0, reply(0xFF, 0x73));
  EXPECT_EQ(device_.addressAssign(&info_, 1), -1);
}

TEST_F(AddressAssignTest, OversizeOrTruncatedUidIsMalformed) {
  Bytes oversize = {0x81, 0xF0, 0x1A, 0x04, 0x01, 0x11, 0x01, 0x15};
  for (int i = 0; i < 21; ++i) oversize.push_back(0xEE);
  EXPECT_EQ(assignWithReply(oversize), -1);
  EXPECT_EQ(info_.uidLength, 2);
  EXPECT_EQ(info_.uid[2], 0);
  // The UID's length byte says 5 but the reply ends after 2.
  EXPECT_EQ(assignWithReply({0x81, 0xF0, 0x0A, 0x04, 0x01, 0x11, 0x01, 0x05, 0x41, 0x42}), -1);
  EXPECT_EQ(info_.uidLength, 2);
}

class OneScanTest : public Layer2V2DeviceTest {
 protected:
  int scanWithReply(const Bytes& data) {
    comm_.then(0, xid(0xFF, data));
    info_ = S_AldBaseInfo{};
    info_.address = 77;
    info_.status = ASSIGNING;
    int ret = device_.oneScan(S_UidScanUintV2_t{}, &info_);
    comm_.sent.clear();
    comm_.times.clear();
    return ret;
  }
  S_AldBaseInfo info_{};
};

TEST_F(OneScanTest, ProbesCarryPrefixAndMask) {
  S_AldBaseInfo info{};
  EXPECT_EQ(device_.oneScan(S_UidScanUintV2_t{}, &info), -2);
  EXPECT_EQ(wire(lastSent()), "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E");

  S_UidScanUintV2_t step{};
  step.uidLength = 1;
  step.bitPosition = 1;
  step.mask[0] = 0x02;
  device_.oneScan(step, &info);
  EXPECT_EQ(wire(lastSent()), "7E FF BF 81 F0 06 01 01 00 03 01 02 39 E6 7E");
  step.uid[0] = 0x02;
  device_.oneScan(step, &info);
  EXPECT_EQ(wire(lastSent()), "7E FF BF 81 F0 06 01 01 02 03 01 02 4F DF 7E");
}

TEST_F(OneScanTest, TakesTheThreeParametersInAnyOrder) {
  EXPECT_EQ(scanWithReply({0x81, 0xF0, 0x0F, 0x06, 0x02, 'X', 'Y', 0x09, 0x01, 0x00, 0x04, 0x01, 0x11, 0x01, 0x03,
                           0x41, 0x42, 0x43}),
            0);
  EXPECT_EQ(info_.uidLength, 3);
  EXPECT_EQ(Bytes(info_.uid, info_.uid + 3), (Bytes{0x41, 0x42, 0x43}));
  EXPECT_EQ(info_.deviceType, 0x11);
  EXPECT_STREQ(reinterpret_cast<const char*>(info_.vendorCode), "XY");
  EXPECT_EQ(info_.address, 77);
  EXPECT_EQ(info_.status, ASSIGNING);
}

TEST_F(OneScanTest, MissingParametersAreTracedWithTheirFlags) {
  std::string out = captured([&] {
    EXPECT_EQ(scanWithReply({0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x11}), -1);
  });
  EXPECT_NE(out.find("reply params failed[flag = 0x3]\n"), std::string::npos) << out;
  out = captured([&] { EXPECT_EQ(scanWithReply({0x81, 0xF0, 0x00, 0x01, 0x02, 0x41, 0x42}), -1); });
  EXPECT_NE(out.find("reply params failed[flag = 0x0]\n"), std::string::npos) << out;
}

TEST_F(OneScanTest, WrongShapesAndFailedExchangesFail) {
  std::string out = captured([&] {
    EXPECT_EQ(scanWithReply({0x82, 0xF0, 0x03, 0x04, 0x01, 0x11}), -1);
    EXPECT_EQ(scanWithReply({0x81, 0x80, 0x03, 0x04, 0x01, 0x11}), -1);
    comm_.then(0, reply(0xFF, 0x73));
    EXPECT_EQ(device_.oneScan(S_UidScanUintV2_t{}, &info_), -1);
    comm_.then(-3);
    EXPECT_EQ(device_.oneScan(S_UidScanUintV2_t{}, &info_), -3);
  });
  EXPECT_NE(out.find("serialport send or reveice failed\n"), std::string::npos);
}

TEST_F(OneScanTest, OversizeOrTruncatedUidIsMalformed) {
  Bytes oversize = {0x81, 0xF0, 0x1E, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x15};
  for (int i = 0; i < 21; ++i) oversize.push_back(0xEE);
  EXPECT_EQ(scanWithReply(oversize), -1);
  EXPECT_EQ(info_.uidLength, 0);
  EXPECT_EQ(info_.reserved, 0);  // nothing ran past the uid field
  // The group length may end inside the last parameter, but not promise more than the reply holds.
  EXPECT_EQ(scanWithReply({0x81, 0xF0, 0x0A, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x02, 0x41, 0x42}),
            0);
  EXPECT_EQ(scanWithReply({0x81, 0xF0, 0x20, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y', 0x01, 0x02, 0x41, 0x42}),
            -1);
}

}  // namespace
