#include "captureStdout.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "InteractionLayer/InteractionObj/CommandLine/aisgCommand.h"
#include "InteractionLayer/InteractionObj/CommandLine/mretV2Command.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct HandlerRun {
  int result = 0;
  Bytes frame;
  std::string printed;
};

HandlerRun run(CommandHandler handler, std::vector<std::string> words) {
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  unsigned char frame[1500];
  memset(frame, 0xEE, sizeof(frame));
  unsigned int length = 0;
  HandlerRun r;
  r.printed = captured([&] { r.result = handler(static_cast<int>(words.size()), argv.data(), frame, &length); });
  r.frame.assign(frame, frame + length);
  return r;
}

// The address and the layer-7 message of a frame the handler built.
struct Decoded {
  uint8_t address;
  Bytes data;
};

Decoded decoded(const Bytes& frame) {
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  Bytes copy = frame;
  EXPECT_EQ(HdlcProtocol::decode(copy.data(), static_cast<unsigned int>(copy.size()), &packet, hdlc::kStructured), 0);
  return {packet.address, Bytes(packet.data, packet.data + packet.dataLength)};
}

TEST(MretV2HandlersTest, FramesOnTheWire) {
  HandlerRun r = run(MretV2Command::__mret_v2_getNumberOfAntenna, {"3"});
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.frame, (Bytes{0x7E, 0x03, 0x10, 0x88, 0x00, 0x00, 0x34, 0xDB, 0x7E}));
  EXPECT_EQ(run(MretV2Command::__mret_v2_getTilt, {"3", "1"}).frame,
            (Bytes{0x7E, 0x03, 0x10, 0x82, 0x01, 0x00, 0x01, 0xFF, 0x10, 0x7E}));
  EXPECT_EQ(run(MretV2Command::__mret_v2_setTilt, {"3", "1", "5.5"}).frame,
            (Bytes{0x7E, 0x03, 0x10, 0x81, 0x03, 0x00, 0x01, 0x37, 0x00, 0x59, 0x01, 0x7E}));
  Decoded calibrate = decoded(run(MretV2Command::__mret_v2_calibrate, {"3", "2"}).frame);
  EXPECT_EQ(calibrate.address, 3);
  EXPECT_EQ(calibrate.data, (Bytes{0x80, 0x01, 0x00, 0x02}));
}

TEST(MretV2HandlersTest, TiltInTenthsCutTowardZero) {
  auto tilt = [](const char* word) {
    Bytes data = decoded(run(MretV2Command::__mret_v2_setTilt, {"3", "1", word}).frame).data;
    return Bytes(data.begin() + 4, data.end());
  };
  EXPECT_EQ(tilt("-1.5"), (Bytes{0xF1, 0xFF}));
  EXPECT_EQ(tilt("0.05"), (Bytes{0x00, 0x00}));
  EXPECT_EQ(tilt("-0.05"), (Bytes{0x00, 0x00}));
  EXPECT_EQ(tilt("abc"), (Bytes{0x00, 0x00}));
  EXPECT_EQ(tilt("12.39x"), (Bytes{0x7B, 0x00}));
  // Past 16 bits the value wraps; past 32 bits it saturates instead of being undefined.
  EXPECT_EQ(tilt("3276.8"), (Bytes{0x00, 0x80}));
  EXPECT_EQ(tilt("1e20"), (Bytes{0xFF, 0xFF}));
}

TEST(MretV2HandlersTest, AddressesInAnyBaseCutToEightBits) {
  EXPECT_EQ(decoded(run(MretV2Command::__mret_v2_getTilt, {"0x10", "1"}).frame).address, 16);
  EXPECT_EQ(decoded(run(MretV2Command::__mret_v2_getTilt, {"010", "1"}).frame).address, 8);
  EXPECT_EQ(decoded(run(MretV2Command::__mret_v2_getTilt, {"259", "1"}).frame).address, 3);
  EXPECT_EQ(decoded(run(MretV2Command::__mret_v2_getTilt, {"7", "0x102"}).frame).data, (Bytes{0x82, 0x01, 0x00, 0x02}));
  EXPECT_EQ(decoded(run(MretV2Command::__mret_v2_getNumberOfAntenna, {"zz"}).frame).address, 0);
}

TEST(MretV2HandlersTest, RefusedArgumentsSendNothing) {
  const struct {
    CommandHandler handler;
    std::vector<std::string> words;
    const char* line;
  } cases[] = {
      {MretV2Command::__mret_v2_getTilt, {"3"}, "the command is incomplete!\n"},
      {MretV2Command::__mret_v2_calibrate, {"3"}, "the command is incomplete!\n"},
      {MretV2Command::__mret_v2_setTilt, {"3", "1"}, "the command is incomplete!\n"},
      {MretV2Command::__mret_v2_getNumberOfAntenna, {}, "the command is incomplete!\n"},
      {MretV2Command::__mret_v2_getTilt, {"99999999999999999999999", "1"}, "input devAddr error\n"},
      {MretV2Command::__mret_v2_calibrate, {"3", "99999999999999999999999"}, "input subNo error\n"},
      {MretV2Command::__mret_v2_setTilt, {"3", "1", "1e40"}, "input tilt error\n"},
  };
  for (const auto& c : cases) {
    HandlerRun r = run(c.handler, c.words);
    EXPECT_EQ(r.result, -1) << c.line;
    EXPECT_EQ(r.printed, c.line);
    EXPECT_TRUE(r.frame.empty());
  }
}

// An I-frame reply from address 3 with the given layer-7 bytes.
Bytes replyFrame(const Bytes& data, uint8_t control = 0x00) {
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  packet.pollFinal = 1;
  packet.address = 3;
  packet.control = control;
  std::copy(data.begin(), data.end(), packet.data);
  packet.dataLength = static_cast<uint16_t>(data.size());
  unsigned char frame[hdlc::kMaxFrame];
  unsigned int length = 0;
  EXPECT_EQ(HdlcProtocol::encode(&packet, frame, &length, hdlc::kStructured), 0);
  return Bytes(frame, frame + length);
}

std::string analysed(Bytes frame) {
  MretV2Command command;
  return captured([&] { command.responseAnalyse(frame.data(), static_cast<unsigned int>(frame.size())); });
}

const std::string kHead = "mret_v2 Command response analyse:\n";

TEST(MretV2ResponseAnalyseTest, PrintedForms) {
  EXPECT_EQ(analysed(replyFrame({0x82, 0x03, 0x00, 0x01, 0x00, 0xF1, 0xFF})), kHead + "ald[3] subNo[1]:\ntilt = -1.500000\n");
  EXPECT_EQ(analysed(replyFrame({0x82, 0x03, 0x00, 0x01, 0x00, 0x37, 0x00})), kHead + "ald[3] subNo[1]:\ntilt = 5.500000\n");
  EXPECT_EQ(analysed(replyFrame({0x82, 0x01, 0x00, 0x02, 0x05})), kHead + "ald[3] subNo[2]:\nalarm = 5\n");
  EXPECT_EQ(analysed(replyFrame({0x80, 0x02, 0x00, 0x01, 0x00})), kHead + "ald[3] subNo[1]:\ncalibrate success\n");
  EXPECT_EQ(analysed(replyFrame({0x81, 0x02, 0x00, 0x01, 0x00})), kHead + "ald[3] subNo[1]:\nset tilt success\n");
  EXPECT_EQ(analysed(replyFrame({0x81, 0x02, 0x00, 0x01, 0x13})), kHead + "ald[3] subNo[1]:\nalarm = 19\n");
  EXPECT_EQ(analysed(replyFrame({0x88, 0x02, 0x00, 0x00, 0x02})), kHead + "ald[3] :\nsubUint nums = 2\n");
  EXPECT_EQ(analysed(replyFrame({0x88, 0x02, 0x00, 0x01, 0x0B})), kHead + "ald[3] :\nalarm = 11\n");
}

TEST(MretV2ResponseAnalyseTest, OtherProceduresDumpTheWholeFrame) {
  Bytes frame = replyFrame({0x83, 0x01, 0x00, 0x7E});
  std::string dump = "reply data = ";
  char hex[4];
  for (uint8_t byte : frame) {
    snprintf(hex, sizeof(hex), "%02X ", byte);
    dump += hex;
  }
  EXPECT_EQ(analysed(frame), kHead + dump + "\n");
  EXPECT_NE(dump.find("7D 5E"), std::string::npos) << "the dump shows the frame as it was stuffed";
}

TEST(MretV2ResponseAnalyseTest, UnusableReplies) {
  EXPECT_EQ(analysed(replyFrame({}, 0x01)), kHead + "reply frame is not I_Frame!\n");
  Bytes broken = replyFrame({0x82, 0x01, 0x00, 0x01});
  broken[broken.size() - 2] ^= 0x01;
  std::string out = analysed(broken);
  EXPECT_EQ(out.rfind(kHead, 0), 0u);
  EXPECT_EQ(out.substr(out.size() - 20), "hdlc decode failed!\n");
}

TEST(AisgResponseAnalyseTest, PrintsItsLineOnly) {
  AisgCommand command;
  Bytes frame = replyFrame({0x82, 0x01, 0x00, 0x01});
  EXPECT_EQ(captured([&] { command.responseAnalyse(frame.data(), static_cast<unsigned int>(frame.size())); }),
            "Aisg Command response analyse:\n");
}

}  // namespace
