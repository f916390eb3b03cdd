#include <gtest/gtest.h>
#include <signal.h>
#include <sys/shm.h>

#include <algorithm>
#include <string>
#include <vector>

#include "aisgAppLayer/statusShareMem.h"
#include "e2eHarness.h"

namespace {

constexpr size_t npos = std::string::npos;

// A status block under key, as the service leaves it.
S_StatusShareMem* statusBlock(const S_StatusShareMem& status, key_t key = 0x400009) {
  auto* block = static_cast<S_StatusShareMem*>(shmat(shmget(key, sizeof(status), IPC_CREAT | 0666), nullptr, 0));
  *block = status;
  return block;
}

// Runs pkstatus with these arguments to its end; its exit status, and its output in `output`.
int pkstatus(std::vector<std::string> args, std::string* output = nullptr) {
  args.insert(args.begin(), e2e::binPath("pkstatus"));
  return e2e::runToEnd(args, output);
}

TEST(PkstatusTest, WatchPrintsALineAtTheStartAndAtEveryChange) {
  e2e::writeConfig("");
  S_StatusShareMem* status = statusBlock({1, 5, 0, 0, 0});
  e2e::Child watch;
  ASSERT_TRUE(watch.start({e2e::binPath("pkstatus"), "--watch", "--for", "2.5", "--alive", "10"}));
  const char* lines[] = {"run step 1 (device scan), life counter 5, rxAlarm 0, txAlarm 0\n",
                         "run step 1 (device scan), life counter 6, rxAlarm 0, txAlarm 0\n",
                         "run step 3 (alds poll), life counter 6, rxAlarm 0, txAlarm 0\n",
                         "run step 3 (alds poll), life counter 6, rxAlarm 1, txAlarm 0\n"};
  // Each change once the line before it is out.
  ASSERT_TRUE(watch.waitFor(lines[0], 1500)) << watch.plainOutput();
  status->tickCount = 6;
  ASSERT_TRUE(watch.waitFor(lines[1], 1500)) << watch.plainOutput();
  status->runStep = 3;
  ASSERT_TRUE(watch.waitFor(lines[2], 1500)) << watch.plainOutput();
  status->rxAlarm = 1;
  EXPECT_EQ(watch.waitExit(5000), 1);  // the counter moved in the last 10 s; an alarm is up
  std::string out = watch.plainOutput();
  EXPECT_NE(out.find(lines[3]), npos) << out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4);
  EXPECT_EQ(out.substr(out.find(lines[0]) - 13, 13).find_first_not_of("0123456789:. "), npos);  // HH:MM:SS.mmm
}

// A live service's block gives 0 (the end-to-end scenes read it); see the watch for an alarm's 1.
TEST(PkstatusTest, ExitStatusTellsNotAliveNoBlockOrWrongUsage) {
  e2e::writeConfig("");
  EXPECT_EQ(pkstatus({"--alive", "0"}), 3);
  ASSERT_GE(shmget(0x400009, 8, IPC_CREAT | 0666), 0);  // too small for the status
  EXPECT_EQ(pkstatus({"--alive", "0"}), 3);
  // The key of the configuration; a counter that stands still is not alive, whatever the alarms.
  e2e::writeConfig("ShareMemKey 0x5a5a01\n");
  statusBlock({3, 41, 0, 1, 0}, 0x5a5a01);
  std::string out;
  EXPECT_EQ(pkstatus({"--alive", "1"}, &out), 2) << out;
  EXPECT_NE(
      out.find(
          "run step     : 3 (alds poll)\nlife counter : 41\nrxAlarm      : 0\ntxAlarm      : 1\nalive        : no"),
      npos)
      << out;
  for (const char* wrong : {"--alive", "--verbose"}) EXPECT_EQ(pkstatus({wrong}), 4) << wrong;
}

}  // namespace
