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

int decode(Bytes wire, S_HdlcPacket& packet, int mode = hdlc::kStructured) {
  return HdlcProtocol::decode(wire.data(), unsigned(wire.size()), &packet, mode);
}

// Address 1, control 0 and 262 data bytes, the first two of them escaped: 268
// bytes between the flags, the most a frame may have.
Bytes longest() {
  Bytes frame = hex("7E 01 00 7D 5E 7D 5D");
  frame.insert(frame.end(), 260, 0x11);
  for (uint8_t byte : hex("BA D8 7E")) frame.push_back(byte);
  return frame;
}

// The layer-2 and layer-7 frames are checked where they are built.
const struct { S_HdlcPacket packet; Bytes wire; } kWorked[] = {
    {packetTo(3, 0x83), hex("7E 03 93 3D 83 7E")}, {packetTo(3, 0x63), hex("7E 03 73 33 64 7E")},
    {packetTo(3, 0x01, {}, 0, 5), hex("7E 03 B1 2D 81 7E")},
    {packetTo(1, 0x00, {0x7E, 0x00}, 2, 5), hex("7E 01 B4 7D 5E 00 92 63 7E")},
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
  std::string run, plain;  // a long run of escaped flags; 267 plain bytes
  for (int i = 0; i < 1000; ++i) run += "7D 5E ", plain += i < 267 ? "11 " : "";
  // A failure leaves dataLength as it was (17) and both numbers at 0xFF.
  const struct { Bytes wire; int result; unsigned int dataLength = 17; const char* out = ""; } cases[] = {
      {{}, -2}, {hex("03 93 3D 83"), -2}, {hex("00 7E 03 93"), -3}, {hex("7E 7E"), -6},
      {hex("7E 7E 7E 03 93 3D 83 7E"), -6}, {hex("7E 03 93 3D 7E"), -6}, {hex("7E 03 7D 5E 3D 7E"), -6},
      {hex("00 11 7E 03 93 3D 83 7E"), 0, 0}, {hex("7E 03 93 3D 83 7E 7E 03 93 00 00 7E"), 0, 0},
      {hex("7E 03 93 3D 83 7D 7E"), -4}, {hex("7E 03 7D 20 3D 83 7E"), -4},
      {hex("7E 01 B4 7D 5E 00 92 64 7E"), -1, 17, "Aisg Error: crc16=0x6492, calCrc16=0x6392\n"},
      {longest(), 0, 262}, {hex("7E " + plain + "7E"), -5},  // 266 bytes fill the record, 267 do not
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
  Guarded<S_HdlcPacket> packet;
  packet.value = packetTo(1, 0, {0x7E, 0x7D});
  packet.value.dataLength = 262;
  memset(packet.value.data + 2, 0x11, 260);
  Guarded<std::array<unsigned char, hdlc::kMaxFrame>> buffer;
  unsigned int length = 0;
  auto encode = [&](int mode) { return HdlcProtocol::encode(&packet.value, buffer.value.data(), &length, mode); };
  ASSERT_EQ(encode(hdlc::kTransparent), 0);
  EXPECT_EQ(Bytes(buffer.value.begin(), buffer.value.begin() + length), longest());
  // One escape more, a record of escapes, a length without room for the FCS: all refused untouched.
  packet.value.data[2] = 0x7E;
  length = 1234;
  EXPECT_EQ(encode(hdlc::kTransparent), -5);
  packet.value = packetTo(0x7E, 0x7E, Bytes(262, 0x7E));
  EXPECT_EQ(encode(hdlc::kStructured), -5);
  packet.value.dataLength = 263;
  EXPECT_EQ(encode(hdlc::kTransparent), -5);
  EXPECT_EQ(length, 1234u);
  EXPECT_TRUE(packet.intact() && buffer.intact());
}

}  // namespace
