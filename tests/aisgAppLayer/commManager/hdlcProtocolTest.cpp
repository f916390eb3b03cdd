#include <array>
#include <cstring>

#include "captureStdout.h"
#include "ptyBus.h"

namespace {

// A value followed by canary bytes, to see any write past it.
template <typename T>
struct Guarded {
  T value;
  uint8_t after[64];
  Guarded() { memset(static_cast<void*>(this), 0xA5, sizeof(*this)); }
  bool intact() const { return std::count(after, after + 64, 0xA5) == 64; }
};

// Decodes a copy of wire, which has to stay as it came.
int decode(const Bytes& wire, S_HdlcPacket& packet, int mode = hdlc::kStructured) {
  Bytes copy = wire;
  int result = HdlcProtocol::decode(copy.data(), unsigned(copy.size()), &packet, mode);
  EXPECT_EQ(copy, wire);
  return result;
}

// Flag, address 1, control 0, n data bytes from head on, an FCS that needs no escape, flag.
Bytes framed(unsigned int n, const Bytes& head = {}) {
  Bytes content(n + 2, 0x11);
  content[0] = 1, content[1] = 0;
  std::copy(head.begin(), head.end(), content.begin() + 2);
  for (unsigned short fcs = 0;; ++content.back()) {
    HdlcProtocol::doCrc(content.data(), unsigned(content.size()), fcs);
    if ((fcs & 0xFF) - 0x7Du < 2 || (fcs >> 8) - 0x7Du < 2) continue;  // a 7D or 7E would be stuffed
    content.insert(content.end(), {uint8_t(fcs), uint8_t(fcs >> 8), 0x7E});
    content.insert(content.begin(), 0x7E);
    return content;
  }
}

const struct { S_HdlcPacket packet; Bytes wire; } kWorked[] = {
    {packetTo(3, 0x83), hex("7E 03 93 3D 83 7E")}, {packetTo(3, 0x63), hex("7E 03 73 33 64 7E")},
    {packetTo(3, 0x01, {}, 0, 5), hex("7E 03 B1 2D 81 7E")}, {packetTo(1, 0x83), hex("7E 01 93 8D B0 7E")},
    {packetTo(1, 0x43), hex("7E 01 53 81 76 7E")}, {packetTo(1, 0x01), hex("7E 01 11 97 17 7E")},
    {packetTo(1, 0x00, {0x7E, 0x00}, 2, 5), hex("7E 01 B4 7D 5E 00 92 63 7E")},
    {packetTo(0xFF, 0xAF, hex("81 F0 02 07 00")), hex("7E FF BF 81 F0 02 07 00 A4 F3 7E")},
    {packetTo(1, 0xAF, hex("81 80 12 05 04 00 00 00 00 06 04 00 00 00 00 07 01 00 08 01 00")),
     hex("7E 01 BF 81 80 12 05 04 00 00 00 00 06 04 00 00 00 00 07 01 00 08 01 00 E3 71 7E")},
    {packetTo(0xFF, 0xAF, hex("81 F0 07 01 02 41 42 02 01 01")),
     hex("7E FF BF 81 F0 07 01 02 41 42 02 01 01 F1 C5 7E")},
    {packetTo(0xFF, 0xAF, hex("81 F0 04 01 00 03 00")), hex("7E FF BF 81 F0 04 01 00 03 00 A6 58 7E")},
    {packetTo(0xFF, 0xAF, hex("81 F0 06 01 01 00 03 01 02")), hex("7E FF BF 81 F0 06 01 01 00 03 01 02 39 E6 7E")},
    {packetTo(0xFF, 0xAF, hex("81 F0 06 01 01 02 03 01 02")), hex("7E FF BF 81 F0 06 01 01 02 03 01 02 4F DF 7E")},
    {packetTo(3, 0x00, hex("88 00 00")), hex("7E 03 10 88 00 00 34 DB 7E")},
    {packetTo(3, 0x00, hex("82 01 00 01")), hex("7E 03 10 82 01 00 01 FF 10 7E")},
    {packetTo(3, 0x00, hex("81 03 00 01 37 00")), hex("7E 03 10 81 03 00 01 37 00 59 01 7E")},
};

TEST(HdlcProtocolTest, FcsAndWorkedFramesBothWays) {
  unsigned char digits[] = "123456789";
  unsigned short crc = 0x1234;
  HdlcProtocol::doCrc(digits, 9, crc);
  EXPECT_EQ(crc, 0x906E);
  for (const auto& worked : kWorked) {
    SCOPED_TRACE(&worked - kWorked);
    S_HdlcPacket packet = worked.packet, back{};
    EXPECT_EQ(encoded(packet), worked.wire);
    EXPECT_EQ(packet.control, worked.wire[2]);
    ASSERT_EQ(decode(worked.wire, back), 0);
    EXPECT_EQ(back.address, packet.address);
    EXPECT_EQ(Bytes(back.data, back.data + back.dataLength), Bytes(packet.data, packet.data + packet.dataLength));
    EXPECT_EQ(encoded(back), worked.wire);  // the split record builds the same control byte
  }
}

TEST(HdlcProtocolTest, StructuredControlByteSplitAndBuilt) {
  // The wire's control byte; P/F, N(S), N(R) and the kind left in the record.
  const uint8_t splits[][5] = {{0xB4, 1, 2, 5, 0x00},    {0x4E, 0, 7, 2, 0x00},       {0xB1, 1, 0xFF, 5, 0x01},
                               {0xE9, 0, 0xFF, 7, 0x09}, {0x73, 1, 0xFF, 0xFF, 0x63}, {0x0F, 0, 0xFF, 0xFF, 0x0F}};
  for (const auto& c : splits) {
    S_HdlcPacket sent = packetTo(3, c[0], {0x01}), got{};
    got.pollFinal = 0x55;
    ASSERT_EQ(decode(encoded(sent, hdlc::kTransparent), got), 0);
    EXPECT_EQ(Bytes({got.pollFinal, got.sendNo, got.receiveNo, got.control}), Bytes(c + 1, c + 5));
  }
  // Control, P/F, N(S), N(R); the wire's control byte, N(S) and N(R) after. Numbers go modulo 8,
  // P/F is bit 0, an S-frame keeps its low nibble and a U-frame no numbers.
  const uint8_t builds[][7] = {
      {0xFE, 1, 8, 9, 0x30, 0, 1}, {0xF9, 0xFE, 13, 10, 0x49, 13, 2}, {0x73, 0, 5, 6, 0x63, 5, 6}};
  for (const auto& c : builds) {
    S_HdlcPacket packet = packetTo(3, c[0], {}, c[2], c[3]);
    packet.pollFinal = c[1];
    const Bytes wire = encoded(packet);
    EXPECT_EQ(Bytes({wire.at(2), packet.sendNo, packet.receiveNo}), Bytes(c + 4, c + 7));
  }
}

TEST(HdlcProtocolTest, DecodeBoundaries) {
  std::string run;  // a long run of escaped flags
  for (int i = 0; i < 1000; ++i) run += "7D 5E ";
  // A failure leaves dataLength as it was (17) and both numbers at 0xFF.
  const struct { Bytes wire; int result; unsigned int dataLength = 17; const char* out = ""; } cases[] = {
      {{}, -2}, {hex("03 93 3D 83"), -2}, {hex("00 7E 03 93"), -3}, {hex("7E 7E"), -6},
      {hex("7E 7E 7E 03 93 3D 83 7E"), -6}, {hex("7E 03 93 3D 7E"), -6}, {hex("7E 03 7D 5E 3D 7E"), -6},
      {hex("00 11 7E 03 93 3D 83 7E"), 0, 0}, {hex("7E 03 93 3D 83 7E 7E 03 93 00 00 7E"), 0, 0},
      {hex("7E 03 93 3D 83 7D 7E"), -4}, {hex("7E 03 7D 20 3D 83 7E"), -4},
      {hex("7E 01 B4 7D 5E 00 92 64 7E"), -1, 17, "Aisg Error: crc16=0x6492, calCrc16=0x6392\n"},
      {framed(262), 0, 262}, {framed(263), -5},  // 266 bytes fill the record, 267 do not
      {hex("7E " + run + "7E"), -5}, {hex("7E " + run + "7D 20 01 7E"), -4},  // a bad escape wins over the length
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    Guarded<S_HdlcPacket> packet;
    packet.value.dataLength = 17;
    EXPECT_EQ(captured([&] { EXPECT_EQ(decode(c.wire, packet.value), c.result); }), c.out);
    EXPECT_TRUE(packet.intact());
    EXPECT_EQ(+packet.value.dataLength, c.dataLength);
    EXPECT_TRUE(c.result == 0 || (packet.value.sendNo == 0xFF && packet.value.receiveNo == 0xFF));
  }
}

TEST(HdlcProtocolTest, EncodeStaysWithin268BytesAndTheRecord) {
  // 266 plain bytes with two escaped data bytes make exactly 268.
  Bytes plain = framed(hdlc::kMaxDataLength, {0x7E, 0x7D}), expected = hex("7E 01 00 7D 5E 7D 5D");
  expected.insert(expected.end(), plain.begin() + 5, plain.end());
  Guarded<S_HdlcPacket> packet;
  packet.value = packetTo(1, 0, Bytes(plain.begin() + 3, plain.end() - 3));
  Guarded<std::array<unsigned char, hdlc::kMaxFrame>> buffer;
  unsigned int length = 0;
  auto encode = [&](int mode) { return HdlcProtocol::encode(&packet.value, buffer.value.data(), &length, mode); };
  ASSERT_EQ(encode(hdlc::kTransparent), 0);
  EXPECT_EQ(Bytes(buffer.value.begin(), buffer.value.begin() + length), expected);
  // One escape more, a record of escapes, a length without room for the FCS: all refused untouched.
  packet.value.data[2] = 0x7E;
  length = 1234;
  EXPECT_EQ(encode(hdlc::kTransparent), -5);
  packet.value = packetTo(0x7E, 0x7E, Bytes(hdlc::kMaxDataLength, 0x7E));
  EXPECT_EQ(encode(hdlc::kStructured), -5);
  packet.value.dataLength = hdlc::kMaxDataLength + 1;
  EXPECT_EQ(encode(hdlc::kTransparent), -5);
  EXPECT_EQ(length, 1234u);
  EXPECT_TRUE(packet.intact() && buffer.intact());
}

}  // namespace
