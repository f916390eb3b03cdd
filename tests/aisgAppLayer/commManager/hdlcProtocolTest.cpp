#include "captureStdout.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr uint8_t kCanary = 0xA5;
constexpr unsigned int kGuard = 64;

// A record or a wire buffer with guard bytes on both sides, to see any write past it.
#pragma pack(push, 1)
struct S_GuardedPacket {
  uint8_t before[kGuard];
  S_HdlcPacket packet;
  uint8_t after[kGuard];
};
struct S_GuardedBuffer {
  uint8_t before[kGuard];
  unsigned char bytes[hdlc::kMaxFrame];
  uint8_t after[kGuard];
};
#pragma pack(pop)

template <typename T>
void fillGuards(T& guarded) {
  memset(&guarded, kCanary, sizeof(guarded));
}

template <typename T>
bool guardsIntact(const T& guarded) {
  for (unsigned int i = 0; i < kGuard; ++i) {
    if (guarded.before[i] != kCanary || guarded.after[i] != kCanary) {
      return false;
    }
  }
  return true;
}

S_HdlcPacket makePacket(uint8_t address, uint8_t control, const Bytes& data = {}) {
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  packet.pollFinal = 1;
  packet.address = address;
  packet.control = control;
  packet.dataLength = static_cast<uint16_t>(data.size());
  if (!data.empty()) {
    memcpy(packet.data, data.data(), data.size());
  }
  return packet;
}

Bytes encodeToBytes(S_HdlcPacket& packet, int mode, int* result) {
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  *result = HdlcProtocol::encode(&packet, buffer, &length, mode);
  return Bytes(buffer, buffer + (*result == 0 ? length : 0));
}

int decodeBytes(Bytes wire, S_HdlcPacket& packet, int mode) {
  return HdlcProtocol::decode(wire.data(), static_cast<unsigned int>(wire.size()), &packet, mode);
}

bool needsEscape(unsigned char byte) {
  return byte == hdlc::kFlag || byte == hdlc::kEscape;
}

// Address 1, control 0 and `dataLength` data bytes beginning with `head`, closed
// by a good FCS: the unstuffed content of a frame. The last data byte is varied
// until the FCS itself needs no escape, so the stuffed size is predictable.
Bytes contentWithFcs(unsigned int dataLength, const Bytes& head = {}) {
  Bytes content(dataLength + 2, 0x11);
  content[0] = 0x01;
  content[1] = 0x00;
  std::copy(head.begin(), head.end(), content.begin() + 2);
  unsigned short fcs = 0;
  for (;;) {
    HdlcProtocol::doCrc(content.data(), static_cast<unsigned int>(content.size()), fcs);
    if (!needsEscape(fcs & 0xFF) && !needsEscape(fcs >> 8)) {
      break;
    }
    ++content.back();
  }
  content.push_back(static_cast<unsigned char>(fcs & 0xFF));
  content.push_back(static_cast<unsigned char>(fcs >> 8));
  return content;
}

Bytes framed(const Bytes& content) {
  Bytes wire{hdlc::kFlag};
  wire.insert(wire.end(), content.begin(), content.end());
  wire.push_back(hdlc::kFlag);
  return wire;
}

struct S_WorkedFrame {
  const char* name;
  S_HdlcPacket packet;
  Bytes wire;
};

S_HdlcPacket iFrame(uint8_t address, uint8_t sendNo, uint8_t receiveNo, const Bytes& data) {
  S_HdlcPacket packet = makePacket(address, 0, data);
  packet.sendNo = sendNo;
  packet.receiveNo = receiveNo;
  return packet;
}

std::vector<S_WorkedFrame> workedFrames() {
  S_HdlcPacket rr3 = makePacket(3, 0x01);
  rr3.receiveNo = 5;
  return {
      {"SNRM", makePacket(3, 0x83), {0x7E, 0x03, 0x93, 0x3D, 0x83, 0x7E}},
      {"UA", makePacket(3, 0x63), {0x7E, 0x03, 0x73, 0x33, 0x64, 0x7E}},
      {"RR5", rr3, {0x7E, 0x03, 0xB1, 0x2D, 0x81, 0x7E}},
      {"Ibyte7E", iFrame(1, 2, 5, {0x7E, 0x00}), {0x7E, 0x01, 0xB4, 0x7D, 0x5E, 0x00, 0x92, 0x63, 0x7E}},
      {"SNRM1", makePacket(1, 0x83), {0x7E, 0x01, 0x93, 0x8D, 0xB0, 0x7E}},
      {"DISC1", makePacket(1, 0x43), {0x7E, 0x01, 0x53, 0x81, 0x76, 0x7E}},
      {"RR0", makePacket(1, 0x01), {0x7E, 0x01, 0x11, 0x97, 0x17, 0x7E}},
      {"Reset", makePacket(0xFF, 0xAF, {0x81, 0xF0, 0x02, 0x07, 0x00}),
       {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x02, 0x07, 0x00, 0xA4, 0xF3, 0x7E}},
      {"HdlcParameters",
       makePacket(1, 0xAF, {0x81, 0x80, 0x12, 0x05, 0x04, 0x00, 0x00, 0x00, 0x00, 0x06, 0x04, 0x00, 0x00, 0x00,
                            0x00, 0x07, 0x01, 0x00, 0x08, 0x01, 0x00}),
       {0x7E, 0x01, 0xBF, 0x81, 0x80, 0x12, 0x05, 0x04, 0x00, 0x00, 0x00, 0x00, 0x06, 0x04,
        0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x00, 0x08, 0x01, 0x00, 0xE3, 0x71, 0x7E}},
      {"AddressAssignment", makePacket(0xFF, 0xAF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x02, 0x01, 0x01}),
       {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x02, 0x01, 0x01, 0xF1, 0xC5, 0x7E}},
      {"ScanFirstProbe", makePacket(0xFF, 0xAF, {0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00}),
       {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00, 0xA6, 0x58, 0x7E}},
      {"ScanProbeBit0", makePacket(0xFF, 0xAF, {0x81, 0xF0, 0x06, 0x01, 0x01, 0x00, 0x03, 0x01, 0x02}),
       {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x06, 0x01, 0x01, 0x00, 0x03, 0x01, 0x02, 0x39, 0xE6, 0x7E}},
      {"ScanProbeBit1", makePacket(0xFF, 0xAF, {0x81, 0xF0, 0x06, 0x01, 0x01, 0x02, 0x03, 0x01, 0x02}),
       {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x06, 0x01, 0x01, 0x02, 0x03, 0x01, 0x02, 0x4F, 0xDF, 0x7E}},
      {"GetSubNums", iFrame(3, 0, 0, {0x88, 0x00, 0x00}), {0x7E, 0x03, 0x10, 0x88, 0x00, 0x00, 0x34, 0xDB, 0x7E}},
      {"GetTilt", iFrame(3, 0, 0, {0x82, 0x01, 0x00, 0x01}),
       {0x7E, 0x03, 0x10, 0x82, 0x01, 0x00, 0x01, 0xFF, 0x10, 0x7E}},
      {"SetTilt", iFrame(3, 0, 0, {0x81, 0x03, 0x00, 0x01, 0x37, 0x00}),
       {0x7E, 0x03, 0x10, 0x81, 0x03, 0x00, 0x01, 0x37, 0x00, 0x59, 0x01, 0x7E}},
  };
}

TEST(HdlcProtocolTest, FcsIsTheX25CheckValue) {
  unsigned char digits[] = "123456789";
  unsigned short crc = 0x1234;
  HdlcProtocol::doCrc(digits, 9, crc);
  EXPECT_EQ(crc, 0x906E);
  HdlcProtocol::doCrc(digits, 0, crc);
  EXPECT_EQ(crc, 0);
}

TEST(HdlcProtocolTest, WorkedFramesEncodeToTheirBytesAndDecodeBack) {
  for (S_WorkedFrame& frame : workedFrames()) {
    SCOPED_TRACE(frame.name);
    S_HdlcPacket packet = frame.packet;
    int result = -99;
    EXPECT_EQ(encodeToBytes(packet, hdlc::kStructured, &result), frame.wire);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(packet.control, frame.wire[2]);

    Bytes original = frame.wire;
    S_HdlcPacket decoded;
    memset(&decoded, 0, sizeof(decoded));
    ASSERT_EQ(HdlcProtocol::decode(frame.wire.data(), static_cast<unsigned int>(frame.wire.size()), &decoded,
                                   hdlc::kStructured),
              0);
    EXPECT_EQ(frame.wire, original);
    EXPECT_EQ(decoded.address, frame.packet.address);
    ASSERT_EQ(+decoded.dataLength, +frame.packet.dataLength);
    EXPECT_EQ(0, memcmp(decoded.data, frame.packet.data, decoded.dataLength));
    // The split record builds the same control byte again.
    EXPECT_EQ(encodeToBytes(decoded, hdlc::kStructured, &result), frame.wire);
  }
}

TEST(HdlcProtocolTest, StructuredDecodeSplitsTheControlByKind) {
  struct S_Case {
    uint8_t wireControl;
    uint8_t pollFinal, sendNo, receiveNo, control;
  };
  const S_Case cases[] = {
      {0xB4, 1, 2, 5, 0x00},     // I-frame
      {0x4E, 0, 7, 2, 0x00},     // I-frame without P/F
      {0xB1, 1, 0xFF, 5, 0x01},  // RR
      {0xE9, 0, 0xFF, 7, 0x09},  // REJ
      {0x73, 1, 0xFF, 0xFF, 0x63},  // UA
      {0xBF, 1, 0xFF, 0xFF, 0xAF},  // XID
      {0x0F, 0, 0xFF, 0xFF, 0x0F},  // DM without F
  };
  for (const S_Case& c : cases) {
    SCOPED_TRACE(c.wireControl);
    S_HdlcPacket sent = makePacket(3, c.wireControl, {0x01});
    int result = 0;
    Bytes wire = encodeToBytes(sent, hdlc::kTransparent, &result);
    ASSERT_EQ(result, 0);
    S_HdlcPacket packet = makePacket(0, 0);
    packet.pollFinal = 0x55;
    ASSERT_EQ(decodeBytes(wire, packet, hdlc::kStructured), 0);
    EXPECT_EQ(packet.pollFinal, c.pollFinal);
    EXPECT_EQ(packet.sendNo, c.sendNo);
    EXPECT_EQ(packet.receiveNo, c.receiveNo);
    EXPECT_EQ(packet.control, c.control);
    EXPECT_EQ(+packet.dataLength, 1);
  }
}

TEST(HdlcProtocolTest, StructuredEncodeReducesSequenceNumbersAndKeepsOnlyKindBits) {
  S_HdlcPacket packet = iFrame(3, 8, 9, {});
  packet.control = 0xFE;  // any even value is an I-frame
  int result = 0;
  Bytes wire = encodeToBytes(packet, hdlc::kStructured, &result);
  ASSERT_EQ(result, 0);
  EXPECT_EQ(wire[2], 0x30);  // N(R) 1, P, N(S) 0
  EXPECT_EQ(packet.sendNo, 0);
  EXPECT_EQ(packet.receiveNo, 1);

  // An S-frame keeps its low nibble and takes N(R); P comes from bit 0 only.
  S_HdlcPacket rej = makePacket(3, 0xF9);
  rej.receiveNo = 10;
  rej.sendNo = 13;
  rej.pollFinal = 0xFE;
  encodeToBytes(rej, hdlc::kStructured, &result);
  EXPECT_EQ(rej.control, 0x49);
  EXPECT_EQ(rej.receiveNo, 2);
  EXPECT_EQ(rej.sendNo, 13);

  // A U-frame ignores both numbers and replaces P/F.
  S_HdlcPacket ua = makePacket(3, 0x73);
  ua.pollFinal = 0;
  ua.sendNo = 5;
  ua.receiveNo = 6;
  encodeToBytes(ua, hdlc::kStructured, &result);
  EXPECT_EQ(ua.control, 0x63);
  EXPECT_EQ(ua.sendNo, 5);
}

TEST(HdlcProtocolTest, TransparentModePassesAddressAndControlThrough) {
  S_HdlcPacket packet = makePacket(0x7E, 0x7D, {0x7D});
  packet.pollFinal = 0;
  packet.sendNo = 9;
  packet.receiveNo = 8;
  int result = 0;
  Bytes wire = encodeToBytes(packet, hdlc::kTransparent, &result);
  ASSERT_EQ(result, 0);
  Bytes head(wire.begin(), wire.begin() + 7);
  EXPECT_EQ(head, (Bytes{0x7E, 0x7D, 0x5E, 0x7D, 0x5D, 0x7D, 0x5D}));
  EXPECT_EQ(packet.control, 0x7D);
  EXPECT_EQ(packet.pollFinal, 0);
  EXPECT_EQ(packet.sendNo, 9);
  EXPECT_EQ(packet.receiveNo, 8);

  S_HdlcPacket back = makePacket(0, 0);
  back.pollFinal = 0x33;
  ASSERT_EQ(decodeBytes(wire, back, hdlc::kTransparent), 0);
  EXPECT_EQ(back.address, 0x7E);
  EXPECT_EQ(back.control, 0x7D);
  EXPECT_EQ(back.data[0], 0x7D);
  EXPECT_EQ(back.pollFinal, 0x33);

  // An I-frame stays raw and carries no numbers.
  S_HdlcPacket raw = makePacket(0, 0);
  ASSERT_EQ(decodeBytes({0x7E, 0x01, 0xB4, 0x7D, 0x5E, 0x00, 0x92, 0x63, 0x7E}, raw, hdlc::kTransparent), 0);
  EXPECT_EQ(raw.control, 0xB4);
  EXPECT_EQ(raw.sendNo, 0xFF);
  EXPECT_EQ(raw.receiveNo, 0xFF);
}

TEST(HdlcProtocolTest, DecodeFindsFlagsAndRejectsShortFrames) {
  const Bytes snrm{0x7E, 0x03, 0x93, 0x3D, 0x83, 0x7E};
  auto withPrefix = [&](Bytes prefix) {
    prefix.insert(prefix.end(), snrm.begin(), snrm.end());
    return prefix;
  };
  struct S_Case {
    const char* name;
    Bytes wire;
    int result;
  };
  const S_Case cases[] = {
      {"empty", {}, -2},
      {"no flag", {0x03, 0x93, 0x3D, 0x83}, -2},
      {"one flag", {0x00, 0x7E, 0x03, 0x93}, -3},
      {"two flags", {0x7E, 0x7E}, -6},
      {"two flags then a good frame", withPrefix({0x7E, 0x7E}), -6},
      {"three bytes", {0x7E, 0x03, 0x93, 0x3D, 0x7E}, -6},
      {"escaped to three bytes", {0x7E, 0x03, 0x7D, 0x5E, 0x3D, 0x7E}, -6},
      {"noise before the flag", withPrefix({0x00, 0x11}), 0},
      {"second frame unseen", {0x7E, 0x03, 0x93, 0x3D, 0x83, 0x7E, 0x7E, 0x03, 0x93, 0x00, 0x00, 0x7E}, 0},
      {"escape before the closing flag", {0x7E, 0x03, 0x93, 0x3D, 0x83, 0x7D, 0x7E}, -4},
      {"escape of 20", {0x7E, 0x03, 0x7D, 0x20, 0x3D, 0x83, 0x7E}, -4},
  };
  for (const S_Case& c : cases) {
    SCOPED_TRACE(c.name);
    S_HdlcPacket packet = makePacket(0, 0);
    packet.sendNo = 1;
    packet.receiveNo = 1;
    std::string out = captured([&] { EXPECT_EQ(decodeBytes(c.wire, packet, hdlc::kStructured), c.result); });
    EXPECT_EQ(out, "");
    if (c.result == 0) {
      EXPECT_EQ(packet.address, 3);
      EXPECT_EQ(packet.control, 0x83);
      EXPECT_EQ(+packet.dataLength, 0);
    } else {
      EXPECT_EQ(packet.sendNo, 0xFF);
      EXPECT_EQ(packet.receiveNo, 0xFF);
    }
  }
}

TEST(HdlcProtocolTest, WrongFcsPrintsReceivedThenComputed) {
  S_HdlcPacket packet = makePacket(0, 0);
  packet.dataLength = 17;
  int result = 0;
  std::string out = captured(
      [&] { result = decodeBytes({0x7E, 0x01, 0xB4, 0x7D, 0x5E, 0x00, 0x92, 0x64, 0x7E}, packet, hdlc::kStructured); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(out, "Aisg Error: crc16=0x6492, calCrc16=0x6392\n");
  EXPECT_EQ(packet.sendNo, 0xFF);
  EXPECT_EQ(packet.receiveNo, 0xFF);
  EXPECT_EQ(+packet.dataLength, 17);
}

TEST(HdlcProtocolTest, EncodeFitsExactly268StuffedBytes) {
  // 266 plain bytes with two escaped data bytes make 268.
  Bytes content = contentWithFcs(hdlc::kMaxDataLength, {0x7E, 0x7D});
  S_HdlcPacket packet = makePacket(content[0], content[1], Bytes(content.begin() + 2, content.end() - 2));
  S_GuardedBuffer buffer;
  fillGuards(buffer);
  unsigned int length = 0;
  ASSERT_EQ(HdlcProtocol::encode(&packet, buffer.bytes, &length, hdlc::kTransparent), 0);
  EXPECT_EQ(Bytes(buffer.bytes, buffer.bytes + 7), (Bytes{0x7E, 0x01, 0x00, 0x7D, 0x5E, 0x7D, 0x5D}));
  EXPECT_EQ(length, hdlc::kMaxFrame);
  EXPECT_EQ(buffer.bytes[hdlc::kMaxFrame - 1], 0x7E);

  // One more escape is one byte too many.
  packet.data[2] = 0x7E;
  length = 1234;
  EXPECT_EQ(HdlcProtocol::encode(&packet, buffer.bytes, &length, hdlc::kTransparent), -5);
  EXPECT_EQ(length, 1234u);
  EXPECT_TRUE(guardsIntact(buffer));
}

TEST(HdlcProtocolTest, EncodeNeverWritesPastBufferOrRecord) {
  S_GuardedPacket guarded;
  fillGuards(guarded);
  guarded.packet = makePacket(0x7E, 0x7E, Bytes(hdlc::kMaxDataLength, 0x7E));
  S_GuardedBuffer buffer;
  fillGuards(buffer);
  unsigned int length = 7;
  EXPECT_EQ(HdlcProtocol::encode(&guarded.packet, buffer.bytes, &length, hdlc::kStructured), -5);
  EXPECT_EQ(length, 7u);
  EXPECT_TRUE(guardsIntact(buffer));
  EXPECT_TRUE(guardsIntact(guarded));

  // A data length without room for the FCS is refused before anything is stored.
  guarded.packet.dataLength = hdlc::kMaxDataLength + 1;
  EXPECT_EQ(HdlcProtocol::encode(&guarded.packet, buffer.bytes, &length, hdlc::kTransparent), -5);
  guarded.packet.dataLength = 0xFFFF;
  EXPECT_EQ(HdlcProtocol::encode(&guarded.packet, buffer.bytes, &length, hdlc::kTransparent), -5);
  EXPECT_TRUE(guardsIntact(guarded));
  EXPECT_TRUE(guardsIntact(buffer));
}

TEST(HdlcProtocolTest, DecodeTakesNoMoreThanTheRecordsFrameArea) {
  for (unsigned int size : {266u, 267u, 268u, 269u}) {
    SCOPED_TRACE(size);
    S_GuardedPacket guarded;
    fillGuards(guarded);
    Bytes wire = framed(contentWithFcs(size - 4));
    int result = decodeBytes(wire, guarded.packet, hdlc::kStructured);
    EXPECT_TRUE(guardsIntact(guarded));
    if (size == hdlc::kFrameArea) {
      EXPECT_EQ(result, 0);
      EXPECT_EQ(static_cast<unsigned int>(guarded.packet.dataLength), hdlc::kMaxDataLength);
    } else {
      // 267 and 268 would pass the wire limit but not fit the record.
      EXPECT_EQ(result, -5);
    }
  }
}

TEST(HdlcProtocolTest, LongEscapeRunStopsAtTheRecord) {
  S_GuardedPacket guarded;
  fillGuards(guarded);
  Bytes wire{0x7E};
  for (int i = 0; i < 1000; ++i) {
    wire.push_back(0x7D);
    wire.push_back(0x5E);
  }
  wire.push_back(0x7E);
  EXPECT_EQ(decodeBytes(wire, guarded.packet, hdlc::kStructured), -5);
  EXPECT_TRUE(guardsIntact(guarded));
  EXPECT_EQ(guarded.packet.data[263], 0x7E);

  // A bad escape far beyond the limit still wins over the length.
  wire.insert(wire.end() - 1, {0x7D, 0x20, 0x01});
  fillGuards(guarded);
  EXPECT_EQ(decodeBytes(wire, guarded.packet, hdlc::kStructured), -4);
  EXPECT_TRUE(guardsIntact(guarded));
}

TEST(HdlcProtocolTest, TransAndTransBackStuffOnlyFlagAndEscapeUpTo268Bytes) {
  struct {
    uint8_t before[kGuard];
    unsigned char bytes[hdlc::kMaxContent];
    uint8_t after[kGuard];
  } target;
  fillGuards(target);
  unsigned int length = 99;
  unsigned char source[] = {0x7E, 0x00, 0x7D, 0x11, 0x13, 0x5E};
  ASSERT_EQ(HdlcProtocol::trans(source, sizeof(source), target.bytes, &length), 0);
  EXPECT_EQ(Bytes(target.bytes, target.bytes + length), (Bytes{0x7D, 0x5E, 0x00, 0x7D, 0x5D, 0x11, 0x13, 0x5E}));
  ASSERT_EQ(HdlcProtocol::trans(source, 0, target.bytes, &length), 0);
  EXPECT_EQ(length, 0u);

  Bytes flags(hdlc::kMaxContent / 2 + 1, 0x7E);
  length = 5;
  EXPECT_EQ(HdlcProtocol::trans(flags.data(), static_cast<unsigned int>(flags.size()), target.bytes, &length), -5);
  EXPECT_EQ(length, 5u);

  // 269 escaped bytes back are too many; 268 fit.
  Bytes stuffed;
  for (unsigned int i = 0; i <= hdlc::kMaxContent; ++i) {
    stuffed.insert(stuffed.end(), {0x7D, 0x5D});
  }
  EXPECT_EQ(HdlcProtocol::transBack(stuffed.data(), static_cast<unsigned int>(stuffed.size()), target.bytes, &length),
            -5);
  EXPECT_EQ(length, 5u);
  ASSERT_EQ(HdlcProtocol::transBack(stuffed.data(), static_cast<unsigned int>(stuffed.size() - 2), target.bytes,
                                    &length),
            0);
  EXPECT_EQ(length, hdlc::kMaxContent);
  EXPECT_EQ(target.bytes[hdlc::kMaxContent - 1], 0x7D);
  stuffed.push_back(0x7D);
  EXPECT_EQ(HdlcProtocol::transBack(stuffed.data(), static_cast<unsigned int>(stuffed.size()), target.bytes, &length),
            -4);
  EXPECT_TRUE(guardsIntact(target));
}

}  // namespace
