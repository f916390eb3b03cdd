#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "common/configFile.h"

namespace {

// Every value of a configuration, the keys in hexadecimal: "version port path command response share".
std::string valuesOf(const ConfigFile& c) {
  char keys[40];
  snprintf(keys, sizeof(keys), "%#x %#x %#x", c._commandMsgKey, c._responseMsgKey, c._shareMemKey);
  return c._version + " " + c._portName + " " + c._projectPath + " " + keys;
}

const std::string kDefaults = "defalut /dev/ttyPS1 /mnt/curflash/currsw/app/pylonkeeper 0x400004 0x400005 0x400009";

// Without a file every default stands, and the commented sample holds exactly them.
TEST(ConfigFileTest, DefaultsStandWithoutAFileAndInTheCommentedSample) {
  EXPECT_EQ(valuesOf(ConfigFile("/tmp/no-such-file")), kDefaults);
  EXPECT_EQ(valuesOf(ConfigFile(PK_SOURCE_DIR "/packaging/aisg.bin.sample")), kDefaults);
}

TEST(ConfigFileTest, KeysInAnyCaseNumbersInEveryBaseAndLinesThatYieldNoKeyAndValueIgnored) {
  const std::string keep = " /mnt/curflash/currsw/app/pylonkeeper ";
  const struct {
    std::string text, values;
  } cases[] = {
      {"portname /dev/ttyS7\nVERSION   v2.1 trailing words\nCommandMsgKey 4194310\nResponseMsgKey 0x500005\n"
       "ShareMemKey 020000004\nProjectPath /opt/pk",  // a leading 0 is octal; the last line needs no line feed
       "v2.1 /dev/ttyS7 /opt/pk 0x400006 0x500005 0x400004"},
      {"Version\t7\n"           // a tab does not end the key
       " PortName /dev/ttyX\n"  // a blank before the key voids the line
       "PortName\n"             // no value
       "Unknown 5\n"
       "ShareMemKey 0x99999999\n"  // out of range: the earlier value stays
       "CommandMsgKey text\n"      // no number: 0
       "ResponseMsgKey 12abc\n",   // text behind the digits is ignored
       "defalut /dev/ttyPS1" + keep + "0 0xc 0x400009"},
      // Later lines win, and overlong lines stay in their buffers.
      {"Version one\nVersion two\nPortName " + std::string(300, 'v') + "\n" + std::string(1000, 'k') +
           " x\nPortName /dev/last\n",
       "two /dev/last" + keep + "0x400004 0x400005 0x400009"},
      // A line of 254 characters is read whole; its value is kept to the value buffer.
      {"PortName " + std::string(245, 'p') + "\n",
       "defalut " + std::string(119, 'p') + keep + "0x400004 0x400005 0x400009"},
  };
  for (const auto& c : cases) {
    std::ofstream("/tmp/config.txt", std::ios::binary | std::ios::trunc) << c.text;
    EXPECT_EQ(valuesOf(ConfigFile("/tmp/config.txt")), c.values) << c.text;
  }
}

}  // namespace
