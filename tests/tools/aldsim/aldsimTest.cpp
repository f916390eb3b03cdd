// The ALD bus simulator's model of the ALDs. The program around it, its pty, log
// and commands, runs in every end-to-end case.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simBus.h"
#include "utility/hexText.h"

namespace {

using tframes::Bytes;
using tframes::packetTo;

// The bus's answer to the frame of packet, on the wire; empty for silence.
std::string answer(SimBus& bus, const S_HdlcPacket& packet) {
  const Bytes reply = bus.answer(packet);
  return hexText(reply.data(), reply.size());
}

const Bytes kRootProbe = {0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
const char* const kCollision = "7E FF BF 81 F0 0B 01 02 41 42 04 01 01 06 02 53 49 B9 2B 7E";
const char* const kFirstAlone = "7E FF BF 81 F0 0B 01 02 41 42 04 01 01 06 02 53 49 46 2B 7E";
const char* const kUa = "7E 05 73 E3 30 7E";

// Two ALDs, one frame from the primary after the other, and the answer on the
// wire: probes reach only unaddressed ALDs whose UID matches under the mask (a UID
// shorter than the probe reading 0 beyond its end), answers from several collide
// (the first one's FCS spoiled), an assignment is answered from the new address,
// I-frames go in sequence or are answered by RR, SNRM starts the numbers again,
// and a reset, addressed or to all, makes an ALD forget its address.
TEST(AldBusTest, AnswersFrameByFrame) {
  SimBus bus({"uid=0x4142,tilt=2.5", "uid=0x4143,type=0x11,vendor=XY"});
  auto xid = [](uint8_t address, const Bytes& data) { return packetTo(address, 0xAF, data); };
  auto iFrame = [](uint8_t ns, const Bytes& data) { return packetTo(5, 0x00, data, ns, ns); };
  const struct {
    S_HdlcPacket request;
    const char* reply;
  } steps[] = {
      {xid(0xFF, kRootProbe), kCollision},
      {xid(0xFF, {0x81, 0xF0, 0x08, 0x01, 0x02, 0x00, 0x01, 0x03, 0x02, 0x00, 0x01}),
       "7E FF BF 81 F0 0B 01 02 41 43 04 01 11 06 02 58 59 90 EA 7E"},
      {xid(0xFF, {0x81, 0xF0, 0x0A, 0x01, 0x03, 0x41, 0x42, 0x00, 0x03, 0x03, 0xFF, 0xFF, 0xFF}), kFirstAlone},
      {xid(0xFF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x02, 0x01, 0x05}),
       "7E 05 BF 81 F0 07 01 02 41 42 04 01 01 B7 DC 7E"},
      {xid(0xFF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x43, 0x02, 0x01, 0x06}),
       "7E 06 BF 81 F0 07 01 02 41 43 04 01 11 63 57 7E"},
      {xid(0xFF, kRootProbe), ""},
      {packetTo(4, 0x83), ""},
      {packetTo(5, 0x83), kUa},
      {packetTo(5, 0x01), "7E 05 11 F7 70 7E"},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), "7E 05 30 82 04 00 01 00 19 00 4F D1 7E"},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), "7E 05 31 F5 51 7E"},
      {iFrame(1, {0x81, 0x03, 0x00, 0x01, 0xF1, 0xFF}), "7E 05 52 81 02 00 01 00 5B 95 7E"},
      {iFrame(2, {0x82, 0x01, 0x00, 0x02}), "7E 05 74 82 02 00 02 19 25 B2 7E"},
      {iFrame(3, {0x82, 0x01, 0x00, 0x01}), "7E 05 96 82 04 00 01 00 F1 FF CD 99 7E"},
      {iFrame(4, {0x80, 0x01, 0x00, 0x01}), "7E 05 B8 80 02 00 01 00 02 35 7E"},
      {iFrame(5, {0x88, 0x00, 0x00}), "7E 05 DA 88 02 00 00 01 94 E8 7E"},
      {iFrame(6, {0x85, 0x00, 0x00}), "7E 05 FC 85 01 00 0B A8 AC 7E"},
      {xid(5, {0x81, 0x80, 0x06, 0x07, 0x01, 0x00, 0x08, 0x01, 0x00}), "7E 05 BF 81 80 03 07 01 01 F4 77 7E"},
      {packetTo(5, 0x83), kUa},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), "7E 05 30 82 04 00 01 00 00 00 C6 93 7E"},
      {xid(5, {0x81, 0xF0, 0x02, 0x07, 0x00}), "7E 05 BF 81 F0 02 07 00 A2 8D 7E"},
      {xid(0xFF, kRootProbe), kFirstAlone},
      {xid(0xFF, {0x81, 0xF0, 0x02, 0x07, 0x00}), ""},
      {xid(0xFF, kRootProbe), kCollision},
  };
  for (const auto& step : steps) {
    EXPECT_EQ(answer(bus, step.request), step.reply) << "step " << &step - steps;
  }
}

// The fault knobs: every reply spoiled, replies from another address with an
// alarm in the tilt procedures, and an ALD told to be quiet.
TEST(AldBusTest, FaultKnobs) {
  SimBus bus({"uid=0x51,badFcs=100", "uid=0x52,wrongAddr=9,alarm=7"});
  EXPECT_EQ(answer(bus, packetTo(0xFF, 0xAF, {0x81, 0xF0, 0x06, 0x01, 0x01, 0x51, 0x02, 0x01, 0x01})),
            "7E 01 BF 81 F0 06 01 01 51 04 01 01 F9 14 7E");
  EXPECT_EQ(answer(bus, packetTo(0xFF, 0xAF, {0x81, 0xF0, 0x06, 0x01, 0x01, 0x52, 0x02, 0x01, 0x02})),
            "7E 09 BF 81 F0 06 01 01 52 04 01 01 61 8D 7E");
  const S_HdlcPacket getTilt = packetTo(2, 0x00, {0x82, 0x01, 0x00, 0x01});
  EXPECT_EQ(answer(bus, getTilt), "7E 09 30 82 02 00 01 07 55 C2 7E");
  std::vector<std::string> lines;
  bus.model.command("quiet 2", lines);
  EXPECT_EQ(answer(bus, getTilt), "");
}

}  // namespace
