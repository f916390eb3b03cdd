// The service binary from the outside: options, exit codes, the version report, the
// configuration file and the trace.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "e2eHarness.h"

namespace {

using Words = std::vector<std::string>;
constexpr size_t npos = std::string::npos;

TEST(ServiceEntryTest, HelpAndIllegalOptionsEndTheServiceWithoutAReport) {
  const std::string help =
      "help list:\n-h : show help.\n-c : enable commandline mode.\n"
      "-l [1]: setting log level,0-off 1-error , 2-warn , 3-info , 4-debug , 5-verbose.\n";
  // Options are read in turn, and the first -h or illegal one ends the service.
  const struct {
    Words options;
    int exit;
  } cases[] = {{{"-h"}, 0}, {{"-c", "-h"}, 0}, {{"-l", "5", "-h", "-x"}, 0}, {{"-x", "-h"}, 1}, {{"-c", "-l"}, 1}};
  for (const auto& c : cases) {
    Words argv = {e2e::binPath("pylonkeeper")};
    argv.insert(argv.end(), c.options.begin(), c.options.end());
    std::string out;
    EXPECT_EQ(e2e::runToEnd(argv, &out), c.exit) << argv.back();
    if (c.exit == 0) {
      EXPECT_EQ(out, help);
    } else {
      EXPECT_NE(out.find("Illegal argument \"?\"\n"), npos) << out;
      EXPECT_EQ(out.find("help list:"), npos);
    }
  }
  EXPECT_EQ(e2e::readFile("/tmp/aisgVersion"), "");
}

// The service with these options, stopped 200 ms after its version report: all it printed.
std::string startedOutput(const Words& options) {
  e2e::Child child;
  EXPECT_TRUE(e2e::startService(child, options));
  e2e::sleepMs(200);
  child.stop();
  return child.output();
}

TEST(ServiceEntryTest, VersionReportGoesToStdoutAndToSixRecordsOf255BytesAroundTheConfigurationTrace) {
  e2e::writeConfig("Version cfg-7\nportname /dev/ttyS9\nCommandMsgKey 0x400010\nShareMemKey 020000011\n");
  std::string out = e2e::stripColours(startedOutput({}));
  const std::string head =
      "/*******************pylonkeeper version*******************/\n"
      "\t  Release Version : pylonkeeper_V1003\n\t  Release Date    : 20220804\n"
      "\t  Creat Time      : " __DATE__;
  ASSERT_NE(out.find(head), npos) << out;
  std::string file = e2e::readFile("/tmp/aisgVersion");
  ASSERT_EQ(file.size(), 1530u);
  for (size_t record = 0; record < 6; ++record) {
    std::string text = file.substr(record * 255, 255);
    size_t end = text.find('\0');
    ASSERT_NE(end, npos);
    EXPECT_EQ(text.substr(end), std::string(255 - end, '\0')) << "record " << record << " is zero-filled";
    EXPECT_NE(out.find(text.substr(0, end)), npos) << "record " << record << " is also on stdout";
  }
  EXPECT_EQ(file.substr(4 * 255, 255).find("\tConfig file version : cfg-7\n"), 0u);
  // The configuration is read, and traced, between the fourth and the fifth line of the report.
  size_t at = out.find("Creat Time");
  for (const char* line : {"]Version = cfg-7\n", "]PortName = /dev/ttyS9\n",
                           "]ProjectPath = /mnt/curflash/currsw/app/pylonkeeper\n", "]CommandMsgKey = 0x00400010\n",
                           "]ResponseMsgKey = 0x00400005\n", "]ShareMemKey = 0x00400009\n", "Config file version"}) {
    at = out.find(line, at);
    EXPECT_NE(at, npos) << line << out;
  }
}

TEST(ServiceEntryTest, TheTraceLevelSwitch) {
  // Without a configuration file: its error is the first trace, red at level 1.
  std::string out = startedOutput({"-l", "1"});
  EXPECT_NE(out.find("\033[40;31m[AISG]["), npos) << out;
  EXPECT_NE(out.find("ERR:[configFile,L"), npos) << out;
  EXPECT_NE(out.find("]Config file open failed!\n"), npos);
  EXPECT_NE(e2e::stripColours(out).find("\tConfig file version : defalut\n"), npos);
  // A word that is no number stores 0 (off); the last -l wins; "2abc" stores 2.
  for (const Words& options : {Words{"-l", "abc"}, Words{"-l", "1", "-l", "0"}, Words{"-l", "0", "-l", "2abc"}}) {
    out = startedOutput(options);
    EXPECT_EQ(out.find("Config file open failed!") != npos, options.back() == "2abc") << out;
    EXPECT_EQ(out.find("[AISG]") != npos, options.back() == "2abc") << out;
  }
}

}  // namespace
