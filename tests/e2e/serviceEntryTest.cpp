// The service binary from the outside: options, exit codes, the version report,
// the configuration file and the trace.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "e2eHarness.h"

namespace {

const char* const kVersionFile = "/tmp/aisgVersion";

std::vector<std::string> service(std::vector<std::string> options) {
  options.insert(options.begin(), e2e::binPath("pylonkeeper"));
  return options;
}

TEST(ServiceEntryTest, HelpPrintsFourLinesAndExitsZeroWithoutAReport) {
  const std::string help =
      "help list:\n-h : show help.\n-c : enable commandline mode.\n"
      "-l [1]: setting log level,0-off 1-error , 2-warn , 3-info , 4-debug , 5-verbose.\n";
  for (auto options : {std::vector<std::string>{"-h"}, {"-c", "-h"}, {"-l", "5", "-h", "-x"}}) {
    e2e::Child child;
    ASSERT_TRUE(child.start(service(options)));
    EXPECT_EQ(child.waitExit(5000), 0);
    EXPECT_EQ(child.plainOutput(), help);
  }
  EXPECT_EQ(e2e::readFile(kVersionFile), "");
}

TEST(ServiceEntryTest, IllegalOptionsExitOneAtTheFirstOne) {
  for (auto options : {std::vector<std::string>{"-x", "-h"}, {"-c", "-l"}, {"-z"}}) {
    e2e::Child child;
    ASSERT_TRUE(child.start(service(options)));
    EXPECT_EQ(child.waitExit(5000), 1);
    EXPECT_NE(child.plainOutput().find("Illegal argument \"?\"\n"), std::string::npos) << child.plainOutput();
    EXPECT_EQ(child.plainOutput().find("help list:"), std::string::npos);
  }
}

// Starts the service, waits for the end of the version report and stops it.
std::string startedOutput(const std::vector<std::string>& options) {
  e2e::Child child;
  EXPECT_TRUE(child.start(service(options)));
  EXPECT_TRUE(child.waitFor("/*******************************************************/\n", 5000));
  child.pump(200);
  child.stop();
  return child.plainOutput();
}

TEST(ServiceEntryTest, VersionReportGoesToStdoutAndToSixRecordsOf255Bytes) {
  e2e::writeConfig("Version cfg-7\n");
  std::string out = startedOutput({});
  const std::string first = "/*******************pylonkeeper version*******************/\n";
  std::vector<std::string> lines = {first, "\t  Release Version : pylonkeeper_V1003\n",
                                    "\t  Release Date    : 20220804\n"};
  size_t at = out.find(first);
  ASSERT_NE(at, std::string::npos) << out;
  EXPECT_EQ(out.substr(at, first.size() + lines[1].size() + lines[2].size()), lines[0] + lines[1] + lines[2]);
  EXPECT_NE(out.find("\t  Creat Time      : " __DATE__), std::string::npos) << out;
  EXPECT_NE(out.find("\tConfig file version : cfg-7\n"), std::string::npos);

  std::string file = e2e::readFile(kVersionFile);
  ASSERT_EQ(file.size(), 1530u);
  for (size_t record = 0; record < 6; ++record) {
    std::string text = file.substr(record * 255, 255);
    size_t end = text.find('\0');
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(text.substr(end), std::string(255 - end, '\0')) << "record " << record << " is zero-filled";
    EXPECT_NE(out.find(text.substr(0, end)), std::string::npos) << "record " << record << " is also on stdout";
  }
  EXPECT_EQ(file.substr(4 * 255, 255).find("\tConfig file version : cfg-7\n"), 0u);
}

TEST(ServiceEntryTest, ConfigurationIsTracedBetweenTheFourthAndFifthReportLine) {
  e2e::writeConfig("portname /dev/ttyS9\nCommandMsgKey 0x400010\nShareMemKey 020000011\n");
  std::string out = startedOutput({});
  size_t creat = out.find("Creat Time");
  size_t port = out.find("INF:[configFile,L");
  size_t fifth = out.find("Config file version");
  ASSERT_NE(port, std::string::npos) << out;
  EXPECT_LT(creat, port);
  EXPECT_LT(port, fifth);
  for (const char* line : {"]Version = defalut\n", "]PortName = /dev/ttyS9\n",
                           "]ProjectPath = /mnt/curflash/currsw/app/pylonkeeper\n", "]CommandMsgKey = 0x00400010\n",
                           "]ResponseMsgKey = 0x00400005\n", "]ShareMemKey = 0x00400009\n"}) {
    EXPECT_NE(out.find(line), std::string::npos) << line << out;
  }
}

TEST(ServiceEntryTest, MissingConfigurationAndTheTraceLevelSwitch) {
  std::string out = startedOutput({});
  EXPECT_NE(out.find("ERR:[configFile,L"), std::string::npos) << out;
  EXPECT_NE(out.find("]Config file open failed!\n"), std::string::npos);
  EXPECT_NE(out.find("\tConfig file version : defalut\n"), std::string::npos);

  e2e::Child raw;
  ASSERT_TRUE(raw.start(service({"-l", "1"})));
  ASSERT_TRUE(raw.waitFor("Config file open failed!", 5000));
  EXPECT_NE(raw.output().find("\033[40;31m[AISG]["), std::string::npos) << "level 1 is red";
  raw.stop();

  // A word that is no number stores 0 (off); the last -l wins.
  for (auto options : {std::vector<std::string>{"-l", "abc"}, {"-l", "1", "-l", "0"}}) {
    out = startedOutput(options);
    EXPECT_EQ(out.find("Config file open failed!"), std::string::npos) << out;
    EXPECT_EQ(out.find("[AISG]"), std::string::npos) << out;
  }
  out = startedOutput({"-l", "0", "-l", "2abc"});
  EXPECT_NE(out.find("Config file open failed!"), std::string::npos) << "2abc stores 2";
}

}  // namespace
