#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "common/configFile.h"

namespace {

ConfigFile readConfig(const std::string& text) {
  const char* path = "/tmp/config.txt";
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  return ConfigFile(path);
}

// Without a file every default stands, and the commented sample holds exactly them.
TEST(ConfigFileTest, DefaultsStandWithoutAFileAndInTheCommentedSample) {
  for (const char* path : {"/tmp/no-such-file", PK_SOURCE_DIR "/packaging/aisg.bin.sample"}) {
    SCOPED_TRACE(path);
    ConfigFile config(path);
    EXPECT_EQ(config._version, "defalut");
    EXPECT_EQ(config._portName, "/dev/ttyPS1");
    EXPECT_EQ(config._projectPath, "/mnt/curflash/currsw/app/pylonkeeper");
    EXPECT_EQ(config._commandMsgKey, 0x400004);
    EXPECT_EQ(config._responseMsgKey, 0x400005);
    EXPECT_EQ(config._shareMemKey, 0x400009);
  }
}

TEST(ConfigFileTest, KeysInAnyCaseAndNumbersInEveryBase) {
  ConfigFile config = readConfig(
      "portname /dev/ttyS7\n"
      "VERSION   v2.1 trailing words\n"
      "CommandMsgKey 4194308\n"
      "ResponseMsgKey 0x500005\n"
      "ShareMemKey 020000004\n"
      "ProjectPath /opt/pk");
  EXPECT_EQ(config._portName, "/dev/ttyS7");
  EXPECT_EQ(config._version, "v2.1");
  EXPECT_EQ(config._commandMsgKey, 0x400004);
  EXPECT_EQ(config._responseMsgKey, 0x500005);
  EXPECT_EQ(config._shareMemKey, 0x400004) << "a leading 0 is octal";
  EXPECT_EQ(config._projectPath, "/opt/pk") << "the last line is read without a line feed";
}

TEST(ConfigFileTest, LinesThatYieldNoKeyAndValueAreIgnored) {
  ConfigFile config = readConfig(
      "Version\t7\n"             // a tab does not end the key
      " PortName /dev/ttyX\n"    // a blank before the key voids the line
      "PortName\n"               // no value
      "# a comment line\n"        // its first word is no key
      "Unknown 5\n"
      "ShareMemKey 0x99999999\n"  // out of range: the earlier value stays
      "CommandMsgKey text\n"      // no number: 0
      "ResponseMsgKey 12abc\n");  // text behind the digits is ignored
  EXPECT_EQ(config._version, "defalut");
  EXPECT_EQ(config._portName, "/dev/ttyPS1");
  EXPECT_EQ(config._shareMemKey, 0x400009);
  EXPECT_EQ(config._commandMsgKey, 0);
  EXPECT_EQ(config._responseMsgKey, 12);
}

TEST(ConfigFileTest, LaterLinesWinAndOverlongInputStaysInItsBuffers) {
  std::string longValue(300, 'v');
  std::string longLine = "PortName " + longValue + "\n";
  ConfigFile config = readConfig("Version one\nVersion two\n" + longLine + std::string(1000, 'k') +
                                 " x\nPortName /dev/last\n");
  EXPECT_EQ(config._version, "two");
  EXPECT_EQ(config._portName, "/dev/last");

  // A line of 254 characters is read whole; its value is kept to the value buffer.
  ConfigFile cut = readConfig("PortName " + std::string(245, 'p') + "\n");
  EXPECT_EQ(cut._portName, std::string(119, 'p'));
}

}  // namespace
