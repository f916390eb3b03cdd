#include <gtest/gtest.h>
#include <sys/shm.h>

#include <algorithm>
#include <string>

#include "aisgAppLayer/statusShareMem.h"
#include "e2eHarness.h"

namespace {

constexpr size_t npos = std::string::npos;

// The watch on a block of the test's own. (The end-to-end cases run pkstatus on the service's block:
// its exit statuses, and the key of the configuration.)
TEST(PkstatusTest, WatchPrintsALineAtTheStartAndAtEveryChange) {
  e2e::writeConfig("");
  auto* status = static_cast<S_StatusShareMem*>(shmat(shmget(0x400009, 20, IPC_CREAT | 0666), nullptr, 0));
  *status = S_StatusShareMem{1, 5, 0, 0, 0};
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

}  // namespace
