// The ALD bus simulator's model of the ALDs. The program around it, its pty, log
// and commands, runs in every end-to-end case.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "simBus.h"
#include "simSchedule.h"
#include "utility/hexText.h"

namespace {

using tframes::Bytes;
using tframes::packetTo;

// The bus's answer to the frame of packet at a time, on the wire; empty for silence.
std::string answer(SimBus& bus, const S_HdlcPacket& packet, double seconds = 0) {
  const Bytes frame = tframes::frame(packet);
  std::vector<S_SimReply> replies;
  bus.model.handleFrame(frame.data(), frame.size(), seconds, replies);
  if (replies.empty()) return "";
  const S_SimReply& r = replies[0];
  return (r.delayMs ? std::to_string(r.delayMs) + " ms late: " : "") + hexText(r.bytes.data(), r.bytes.size());
}

const Bytes kRootProbe = {0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
const char* const kCollision = "7E FF BF 81 F0 0B 01 02 41 42 04 01 01 06 02 53 49 B9 2B 7E";
const char* const kFirstAlone = "7E FF BF 81 F0 0B 01 02 41 42 04 01 01 06 02 53 49 46 2B 7E";
const char* const kUa = "7E 05 73 E3 30 7E";
const char* const kDm = "7E 05 1F 89 99 7E";
const Bytes kFirstProbe = {0x81, 0xF0, 0x0A, 0x01, 0x03, 0x41, 0x42, 0x00, 0x03, 0x03, 0xFF, 0xFF, 0xFF};
const Bytes kAssign5 = {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x02, 0x01, 0x05};

// Two ALDs, one frame from the primary after the other (some after a field event),
// and the answer on the wire: probes reach only unaddressed ALDs whose UID matches
// under the mask (a UID shorter than the probe reading 0 beyond its end), answers
// from several collide (the first one's FCS spoiled), an assignment is answered
// from the new address, DM without a link, I-frames go in sequence or are answered
// by RR, SNRM starts the numbers again, and a reset makes an ALD forget its address.
TEST(AldBusTest, AnswersFrameByFrame) {
  SimBus bus({"uid=0x4142,tilt=2.5", "uid=0x4143,type=0x11,vendor=XY"});
  auto xid = [](uint8_t address, const Bytes& data) { return packetTo(address, 0xAF, data); };
  auto iFrame = [](uint8_t ns, const Bytes& data) { return packetTo(5, 0x00, data, ns, ns); };
  const char* const assigned = "7E 05 BF 81 F0 07 01 02 41 42 04 01 01 B7 DC 7E";
  const struct {
    S_HdlcPacket request;
    const char* reply;
    const char* event = nullptr;  // runs before the frame, with its noise in front of the reply
    double at = 0;
  } steps[] = {
      {xid(0xFF, kRootProbe), kCollision},
      {xid(0xFF, {0x81, 0xF0, 0x08, 0x01, 0x02, 0x00, 0x01, 0x03, 0x02, 0x00, 0x01}),
       "7E FF BF 81 F0 0B 01 02 41 43 04 01 11 06 02 58 59 90 EA 7E"},
      {xid(0xFF, kFirstProbe), kFirstAlone},
      {xid(0xFF, kAssign5), assigned},
      {xid(0xFF, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x43, 0x02, 0x01, 0x06}),
       "7E 06 BF 81 F0 07 01 02 41 43 04 01 11 63 57 7E"},
      {xid(0xFF, kRootProbe), ""},
      {packetTo(5, 0x01), kDm},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), kDm},
      {packetTo(4, 0x83), ""},
      {packetTo(5, 0x83), kUa},
      {packetTo(5, 0x01), "7E 05 11 F7 70 7E"},
      {packetTo(5, 0x01), "7E 05 11 08 70 7E", "address 2 5"},
      {packetTo(6, 0x01), "7E 06 1F E1 B3 7E", "address 2 6"},
      {packetTo(5, 0x01), "46 B4 DC 08 86 3A 29 65 | 7E 05 11 F7 70 7E", "noise 8"},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), "7E 05 30 82 04 00 01 00 19 00 4F D1 7E"},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), "7E 05 31 F5 51 7E"},
      {iFrame(1, {0x81, 0x03, 0x00, 0x01, 0xF1, 0xFF}), "7E 05 52 81 02 00 01 00 5B 95 7E"},
      {iFrame(2, {0x82, 0x01, 0x00, 0x02}), "7E 05 74 82 02 00 02 19 25 B2 7E"},
      {iFrame(3, {0x82, 0x01, 0x00, 0x01}), "7E 05 96 82 04 00 01 00 F1 FF CD 99 7E"},
      {iFrame(4, {0x80, 0x01, 0x00, 0x01}), "7E 05 B8 80 02 00 01 00 02 35 7E"},
      {iFrame(5, {0x88, 0x00, 0x00}), "7E 05 DA 88 02 00 00 01 94 E8 7E"},
      {iFrame(6, {0x85, 0x00, 0x00}), "7E 05 FC 85 01 00 0B A8 AC 7E"},
      {xid(5, {0x81, 0x80, 0x06, 0x07, 0x01, 0x00, 0x08, 0x01, 0x00}), "7E 05 BF 81 80 03 07 01 01 F4 77 7E"},
      {packetTo(5, 0x01), "7E 05 F1 F9 97 7E", "garble 1 ua 1"},
      {packetTo(5, 0x43), "7E 05 73 1C 30 7E"},
      {packetTo(5, 0x01), kDm},
      {packetTo(5, 0x83), kUa},
      {packetTo(5, 0x01), "1200 ms late: 7E 05 11 F7 70 7E", "delay 1 1200"},
      {iFrame(0, {0x82, 0x01, 0x00, 0x01}), "7E 05 30 82 04 00 01 00 00 00 C6 93 7E"},
      {packetTo(5, 0x01), kDm, "drop 1"},
      {xid(5, {0x81, 0xF0, 0x02, 0x07, 0x00}), "7E 05 BF 81 F0 02 07 00 A2 8D 7E"},
      {xid(0xFF, kRootProbe), kFirstAlone},
      {xid(0xFF, {0x81, 0xF0, 0x02, 0x07, 0x00}), ""},
      {xid(0xFF, kRootProbe), kCollision},
      {xid(0xFF, kAssign5), assigned},
      {packetTo(5, 0x83), kUa},
      {packetTo(5, 0x01), "", "power 1 2"},
      {xid(0xFF, kFirstProbe), "", nullptr, 1.9},
      {xid(0xFF, kRootProbe), kFirstAlone, "unplug 2", 2},
      {xid(0xFF, kAssign5), assigned, nullptr, 2},
      {packetTo(5, 0x01), kDm, nullptr, 2},
      {xid(0xFF, kRootProbe), "7E FF BF 81 F0 0B 01 02 41 44 04 01 01 06 02 53 49 F7 36 7E", "plug uid=0x4144", 2},
  };
  for (const auto& step : steps) {
    std::vector<std::string> lines;
    std::vector<S_SimReply> noise;
    EXPECT_EQ(step.event ? bus.model.command(step.event, lines, step.at, &noise) : 0, 0) << step.event;
    EXPECT_EQ(lines, step.event ? std::vector<std::string>{step.event} : std::vector<std::string>{});
    const std::string before = noise.empty() ? "" : hexText(noise[0].bytes.data(), noise[0].bytes.size()) + " | ";
    EXPECT_EQ(before + answer(bus, step.request, step.at), step.reply) << "step " << &step - steps;
  }
}

// The fault knobs: every reply spoiled, replies from another address with an
// alarm in the tilt procedures, an ALD told to be quiet, and noise without a flag.
TEST(AldBusTest, FaultKnobs) {
  SimBus bus({"uid=0x51,badFcs=100", "uid=0x52,wrongAddr=9,alarm=7"});
  EXPECT_EQ(answer(bus, packetTo(0xFF, 0xAF, {0x81, 0xF0, 0x06, 0x01, 0x01, 0x51, 0x02, 0x01, 0x01})),
            "7E 01 BF 81 F0 06 01 01 51 04 01 01 F9 14 7E");
  EXPECT_EQ(answer(bus, packetTo(0xFF, 0xAF, {0x81, 0xF0, 0x06, 0x01, 0x01, 0x52, 0x02, 0x01, 0x02})),
            "7E 09 BF 81 F0 06 01 01 52 04 01 01 61 8D 7E");
  const S_HdlcPacket getTilt = packetTo(2, 0x00, {0x82, 0x01, 0x00, 0x01});
  EXPECT_EQ(answer(bus, packetTo(2, 0x83)), "7E 09 73 43 99 7E");
  EXPECT_EQ(answer(bus, getTilt), "7E 09 30 82 02 00 01 07 55 C2 7E");
  std::vector<std::string> lines;
  bus.model.command("quiet 2", lines);
  EXPECT_EQ(answer(bus, getTilt), "");
  std::vector<S_SimReply> noise;
  bus.model.command("noise 4096", lines, 0, &noise);
  EXPECT_EQ(std::count(noise.at(0).bytes.begin(), noise.at(0).bytes.end(), 0x7E), 0) << "a flag in the noise";
}

// The schedule of --at: each "SECONDS:COMMAND" read, then all tried in time
// order (a plug before the power of its ALD) on a copy of the bus.
TEST(AldBusTest, ScheduleIsCheckedBeforeTheRun) {
  const struct {
    std::vector<std::string> at;
    const char* error;
  } cases[] = {
      {{"4:power 3 1", "0.5:drop 1", "3:plug uid=AB", "3:garble 3 any 2"}, ""},
      {{"2:power 3 1", "3:plug uid=AB"}, "bad --at '2:power 3 1': no ALD '3' (1 to 2)"},
      {{"-1:drop 1"}, "bad --at '-1:drop 1' (SECONDS:COMMAND, SECONDS 0 to 10000000)"},
      {{"1e8:drop 1"}, "bad --at '1e8:drop 1' (SECONDS:COMMAND, SECONDS 0 to 10000000)"},
      {{"1.5:garble 1 crc 2"}, "bad --at '1.5:garble 1 crc 2': bad kind 'crc' for garble (xid, ua, rr, dm, i, any, assign)"},
      {{"1:power 1"}, "bad --at '1:power 1': usage: power N SECONDS"},
      {{"1:power 1 -2"}, "bad --at '1:power 1 -2': bad SECONDS '-2' for power (0 or more)"},
      {{"1:noise 0"}, "bad --at '1:noise 0': bad COUNT '0' for noise (1 to 4096)"},
      {{"1:plug type=1"}, "bad --at '1:plug type=1': ALD 'type=1' has no uid"},
      {{"1:address 1 255"}, "bad --at '1:address 1 255': bad value '255' for address (1 to 254)"},
  };
  for (const auto& c : cases) {
    std::vector<S_SimEvent> events(c.at.size());
    std::string error;
    bool read = true;
    for (size_t i = 0; i < c.at.size() && read; ++i) read = SimSchedule::parse(c.at[i], events[i], error) == 0;
    if (read) SimSchedule::check(events, SimBus({"uid=A1", "uid=A2"}).model, error);
    EXPECT_EQ(error, c.error) << c.at[0];
  }
}

}  // namespace
