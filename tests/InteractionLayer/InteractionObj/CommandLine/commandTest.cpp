#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../../interactionTestSupport.h"
#include "InteractionLayer/InteractionObj/CommandLine/aisgCommand.h"
#include "InteractionLayer/InteractionObj/CommandLine/commandFactory.h"
#include "InteractionLayer/InteractionObj/CommandLine/commandSplit.h"
#include "InteractionLayer/InteractionObj/CommandLine/mretV2Command.h"
#include "captureStdout.h"

namespace {

using itest::Bytes;
using itest::iFrame;
using Words = std::vector<std::string>;

TEST(CommandSplitTest, BlanksSeparateTabsDoNotAndTenWordsAtMost) {
  const struct { std::string line; Words words; } cases[] = {
      {"  aisg   getDevNums  ", {"aisg", "getDevNums"}},
      {"aisg\tgetDevNums x", {"aisg\tgetDevNums", "x"}},
      {"     ", {}},
      {"1 2 3 4 5 6 7 8 9 10 11", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"}},
  };
  for (auto c : cases) {
    S_CommmandSplit_t split{};
    CommandSplit::split(&split, &c.line[0]);
    EXPECT_EQ(Words(split.argv, split.argv + split.argc), c.words);
  }
}

const char* const kIncomplete = "the command is incomplete!\n";
const char* const kMretHelp =
    "usage: mret_v2 calibrate addr subNo -- calibrate antenna\nusage: mret_v2 getTilt addr subNo -- get tilt\n"
    "usage: mret_v2 setTilt addr subNo tilt -- set tilt\nusage: mret_v2 getSubNums addr -- get subUnit numbers\n";

// A console line run on its group as the console does: the frame to send, or what it printed instead.
TEST(MretV2CommandTest, LinesToFramesOnTheWireOrRefusals) {
  const std::string big = "99999999999999999999999";
  const struct { std::string line; Bytes frame; std::string printed; } cases[] = {
      {"mret_v2 getSubNums 3", {0x7E, 0x03, 0x10, 0x88, 0x00, 0x00, 0x34, 0xDB, 0x7E}, ""},
      {"mret_v2 getTilt 3 1", {0x7E, 0x03, 0x10, 0x82, 0x01, 0x00, 0x01, 0xFF, 0x10, 0x7E}, ""},
      {"mret_v2 setTilt 3 1 5.5", {0x7E, 0x03, 0x10, 0x81, 0x03, 0x00, 0x01, 0x37, 0x00, 0x59, 0x01, 0x7E}, ""},
      {"MRET_V2 CALIBRATE 3 2", iFrame(3, {0x80, 0x01, 0x00, 0x02}), ""},
      // The tilt in tenths cut toward zero; past 16 bits it wraps, past 32 it saturates.
      {"mret_v2 setTilt 3 1 -1.5", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0xF1, 0xFF}), ""},
      {"mret_v2 setTilt 3 1 0.05", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0x00, 0x00}), ""},
      {"mret_v2 setTilt 3 1 -0.05", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0x00, 0x00}), ""},
      {"mret_v2 setTilt 3 1 abc", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0x00, 0x00}), ""},
      {"mret_v2 setTilt 3 1 nan", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0x00, 0x00}), ""},
      {"mret_v2 setTilt 3 1 3276.8", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0x00, 0x80}), ""},
      {"mret_v2 setTilt 3 1 1e20", iFrame(3, {0x81, 0x03, 0x00, 0x01, 0xFF, 0xFF}), ""},
      // Numbers in any base, cut to eight bits.
      {"mret_v2 getTilt 0x10 1", iFrame(16, {0x82, 0x01, 0x00, 0x01}), ""},
      {"mret_v2 getTilt 010 1", iFrame(8, {0x82, 0x01, 0x00, 0x01}), ""},
      {"mret_v2 getTilt 259 0x102", iFrame(3, {0x82, 0x01, 0x00, 0x02}), ""},
      {"mret_v2 getSubNums zz", iFrame(0, {0x88, 0x00, 0x00}), ""},
      {"mret_v2 getTilt 3", {}, kIncomplete},
      {"mret_v2 calibrate 3", {}, kIncomplete},
      {"mret_v2 setTilt 3 1", {}, kIncomplete},
      {"mret_v2 getSubNums", {}, kIncomplete},
      {"mret_v2 getTilt " + big + " 1", {}, "input devAddr error\n"},
      {"mret_v2 calibrate 3 " + big, {}, "input subNo error\n"},
      {"mret_v2 setTilt 3 1 1e40", {}, "input tilt error\n"},
      {"mret_v2 getTlt 1 1", {}, "not find cmd[getTlt]\n"},
      {"mret_v2", {}, kMretHelp},
      {"mret_v2 HELP 1", {}, kMretHelp},
      {"aisg", {}, "usage: aisg getDevNums -- get number of ALD\n"},
  };
  for (auto c : cases) {
    S_CommmandSplit_t split{};
    CommandSplit::split(&split, &c.line[0]);
    unsigned char frame[1500];
    unsigned int length = 0;
    int result = 0;
    std::string printed = captured([&] {
      result = CommandFactory::creatCommandObj(split.argv[0])->execut(split.argc - 1, &split.argv[1], frame, &length);
    });
    EXPECT_EQ(Bytes(frame, frame + length), c.frame) << c.line;
    EXPECT_EQ(printed, c.printed) << c.line;
    EXPECT_EQ(result, c.printed.empty() ? 0 : -1) << c.line;
  }
}

TEST(MretV2CommandTest, ReplyAnalysisPrintsEachKindOfReply) {
  const struct { Bytes frame; std::string printed; } cases[] = {
      {iFrame(3, {0x82, 0x03, 0x00, 0x01, 0x00, 0xF1, 0xFF}), "ald[3] subNo[1]:\ntilt = -1.500000\n"},
      {iFrame(3, {0x82, 0x01, 0x00, 0x02, 0x05}), "ald[3] subNo[2]:\nalarm = 5\n"},
      {iFrame(3, {0x80, 0x02, 0x00, 0x01, 0x00}), "ald[3] subNo[1]:\ncalibrate success\n"},
      {iFrame(3, {0x81, 0x02, 0x00, 0x01, 0x00}), "ald[3] subNo[1]:\nset tilt success\n"},
      {iFrame(3, {0x81, 0x02, 0x00, 0x01, 0x13}), "ald[3] subNo[1]:\nalarm = 19\n"},
      {iFrame(3, {0x88, 0x02, 0x00, 0x00, 0x02}), "ald[3] :\nsubUint nums = 2\n"},
      {iFrame(3, {0x88, 0x02, 0x00, 0x01, 0x0B}), "ald[3] :\nalarm = 11\n"},
      // Any other procedure: the whole frame as it came, stuffed.
      {iFrame(3, {0x83, 0x01, 0x00, 0x7E}), "reply data = 7E 03 10 83 01 00 7D 5E 34 87 7E \n"},
      {iFrame(3, {}, 0x01), "reply frame is not I_Frame!\n"},
  };
  auto analysed = [](Command&& command, Bytes frame) {
    return captured([&] { command.responseAnalyse(frame.data(), static_cast<unsigned int>(frame.size())); });
  };
  for (const auto& c : cases) {
    EXPECT_EQ(analysed(MretV2Command(), c.frame), "mret_v2 Command response analyse:\n" + c.printed);
  }
  // A broken FCS (the codec's trace may come in between).
  std::string broken = analysed(MretV2Command(), {0x7E, 0x03, 0x10, 0x82, 0x01, 0x00, 0x01, 0xFF, 0x11, 0x7E});
  EXPECT_EQ(broken.rfind("mret_v2 Command response analyse:\n", 0), 0u);
  EXPECT_EQ(broken.substr(broken.size() - 20), "hdlc decode failed!\n");
  EXPECT_EQ(analysed(AisgCommand(), cases[0].frame), "Aisg Command response analyse:\n");
}

}  // namespace
