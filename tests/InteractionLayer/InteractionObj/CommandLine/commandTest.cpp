#include "captureStdout.h"
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "InteractionLayer/InteractionObj/CommandLine/aisgCommand.h"
#include "InteractionLayer/InteractionObj/CommandLine/commandFactory.h"
#include "InteractionLayer/InteractionObj/CommandLine/mretV2Command.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"

namespace {

// Runs execut on a group with the words behind the group word.
int execut(Command* command, std::vector<std::string> words, std::string* out) {
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  unsigned char frame[1500] = {};
  unsigned int frameLength = 0;
  int result = 0;
  *out = captured([&] { result = command->execut(static_cast<int>(words.size()), argv.data(), frame, &frameLength); });
  return result;
}

TEST(CommandFactoryTest, GroupWordsWithoutRegardToCaseAndOneObjectPerGroup) {
  Command* aisg = CommandFactory::creatCommandObj("AISG");
  Command* mret = CommandFactory::creatCommandObj("Mret_V2");
  ASSERT_NE(dynamic_cast<AisgCommand*>(aisg), nullptr);
  ASSERT_NE(dynamic_cast<MretV2Command*>(mret), nullptr);
  // The same object every time: a reply in analysis never meets a freed one.
  EXPECT_EQ(CommandFactory::creatCommandObj("aisg"), aisg);
  EXPECT_EQ(CommandFactory::creatCommandObj("mret_v2"), mret);
  EXPECT_EQ(CommandFactory::creatCommandObj("mret"), nullptr);
  EXPECT_EQ(CommandFactory::creatCommandObj(nullptr), nullptr);
}

class GetDevNumsTest : public testing::Test {
 protected:
  void TearDown() override {
    AldDeviceContainer::getInstance()->clear();
    for (AldDevice* ald : _alds) delete ald;
  }
  void add(uint8_t address, uint8_t type, const std::string& uid) {
    AldDevice* ald = new AldDevice();
    ald->address = address;
    ald->deviceType = type;
    ald->aisgVersion = 2;
    ald->baseInfo.address = address;
    ald->baseInfo.uidLength = static_cast<uint8_t>(uid.size());
    for (size_t i = 0; i < uid.size() && i < 20; ++i) ald->baseInfo.uid[i] = static_cast<uint8_t>(uid[i]);
    ald->baseInfo.status = ADDRESSED;
    AldDeviceContainer::getInstance()->attach(ald);
    _alds.push_back(ald);
  }
  std::vector<AldDevice*> _alds;
};

TEST_F(GetDevNumsTest, ListsEveryAldByRisingAddressWithAtMostTwentyUidBytes) {
  std::string out;
  EXPECT_EQ(execut(CommandFactory::creatCommandObj("aisg"), {"getDevNums"}, &out), -1);
  EXPECT_EQ(out, "ALD nums = 0 \n");
  add(5, 0x11, "ABCDEFGHIJKLMNOPQRST");
  add(2, 0x01, "NX0001");
  EXPECT_EQ(execut(CommandFactory::creatCommandObj("aisg"), {"getDevNums", "surplus"}, &out), -1);
  EXPECT_EQ(out,
            "ALD nums = 2 \n"
            "addr:2 , type=0x01, AISGv2 , uid:NX0001\n"
            "addr:5 , type=0x11, AISGv2 , uid:ABCDEFGHIJKLMNOPQRST\n");
}

}  // namespace
