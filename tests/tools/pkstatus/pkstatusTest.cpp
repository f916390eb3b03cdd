#include <gtest/gtest.h>
#include <signal.h>
#include <sys/shm.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "aisgAppLayer/statusShareMem.h"
#include "e2eHarness.h"

namespace {

constexpr key_t kDefaultKey = 0x400009;

// A status block as the service leaves it; ticking() moves its life counter every
// 200 ms, as a live service does (faster, to keep the cases short).
class StatusBlock {
 public:
  explicit StatusBlock(key_t key = kDefaultKey, size_t size = sizeof(S_StatusShareMem))
      : _id(shmget(key, size, IPC_CREAT | 0666)),
        _block(static_cast<S_StatusShareMem*>(shmat(_id, nullptr, 0))) {}
  ~StatusBlock() {
    _running = false;
    if (_ticker.joinable()) _ticker.join();
    shmdt(_block);
    shmctl(_id, IPC_RMID, nullptr);
  }
  void ticking() {
    _running = true;
    _ticker = std::thread([this] {
      for (; _running; e2e::sleepMs(200)) __atomic_fetch_add(&_block->tickCount, 1, __ATOMIC_RELAXED);
    });
  }
  void set(const S_StatusShareMem& status) { *_block = status; }
  S_StatusShareMem* operator->() { return _block; }

 private:
  int _id;
  S_StatusShareMem* _block;
  std::atomic<bool> _running{false};
  std::thread _ticker;
};

// Runs pkstatus to its end; its exit status, and its output in `output`.
int pkstatus(std::vector<std::string> args, std::string* output = nullptr) {
  e2e::Child child;
  args.insert(args.begin(), e2e::binPath("pkstatus"));
  EXPECT_TRUE(child.start(args));
  int code = child.waitExit(6000);
  if (output != nullptr) *output = child.plainOutput();
  return code;
}

class PkstatusTest : public testing::Test {
 protected:
  void SetUp() override { e2e::writeConfig(""); }
};

TEST_F(PkstatusTest, ShowsTheStepByNameTheCounterAndTheAlarmsAndTellsThemByExitStatus) {
  StatusBlock status;
  status.set(S_StatusShareMem{1, 7, 0, 0, 0});
  status.ticking();
  std::string out;
  const char* names[] = {"device scan", "get base info", "alds poll", "idle"};
  for (uint32_t step = 1; step <= 4; ++step) {
    status->runStep = step;
    EXPECT_EQ(pkstatus({}, &out), 0) << out;
    EXPECT_NE(out.find("run step     : " + std::to_string(step) + " (" + names[step - 1] + ")"), std::string::npos) << out;
    EXPECT_NE(out.find("alive        : yes"), std::string::npos) << out;
  }
  status->rxAlarm = 1;
  EXPECT_EQ(pkstatus({}, &out), 1);
  EXPECT_NE(out.find("rxAlarm      : 1\ntxAlarm      : 0"), std::string::npos) << out;
  status->rxAlarm = 0;
  status->txAlarm = 1;
  EXPECT_EQ(pkstatus({}), 1);
}

TEST_F(PkstatusTest, NotAliveNoBlockAndTheKeyOfTheConfiguration) {
  EXPECT_EQ(pkstatus({"--alive", "0"}), 3);
  {
    StatusBlock tooSmall(kDefaultKey, 8);
    EXPECT_EQ(pkstatus({"--alive", "0"}), 3);
  }
  e2e::writeConfig("ShareMemKey 0x5a5a01\n");
  StatusBlock status(0x5a5a01);
  status.set(S_StatusShareMem{3, 41, 1, 0, 0});
  std::string out;
  // A counter that stands still is not alive, whatever the alarms.
  EXPECT_EQ(pkstatus({"--alive", "1"}, &out), 2) << out;
  EXPECT_NE(out.find("life counter : 41\n"), std::string::npos) << out;
  EXPECT_NE(out.find("alive        : no"), std::string::npos) << out;
}

TEST_F(PkstatusTest, WatchPrintsALineAtTheStartAndAtEveryChange) {
  StatusBlock status;
  status.set(S_StatusShareMem{1, 5, 0, 0, 0});
  e2e::Child child;
  ASSERT_TRUE(child.start({e2e::binPath("pkstatus"), "--watch", "--for", "1.6"}));
  e2e::sleepMs(300);
  status->tickCount = 6;
  e2e::sleepMs(300);
  status->runStep = 3;
  e2e::sleepMs(300);
  status->rxAlarm = 1;
  EXPECT_EQ(child.waitExit(3000), 1);  // the counter moved in the last 3 s; an alarm is up
  std::string out = child.plainOutput();
  size_t at = 0;
  for (const char* line : {"run step 1 (device scan), life counter 5, rxAlarm 0, txAlarm 0\n",
                           "run step 1 (device scan), life counter 6, rxAlarm 0, txAlarm 0\n",
                           "run step 3 (alds poll), life counter 6, rxAlarm 0, txAlarm 0\n",
                           "run step 3 (alds poll), life counter 6, rxAlarm 1, txAlarm 0\n"}) {
    at = out.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << out;
    EXPECT_EQ(out.substr(at - 13, 13).find_first_not_of("0123456789:. "), std::string::npos);  // HH:MM:SS.mmm
  }
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4);

  e2e::Child endless;
  ASSERT_TRUE(endless.start({e2e::binPath("pkstatus"), "--watch"}));
  ASSERT_TRUE(endless.waitFor("life counter 6", 2000));
  kill(endless.pid(), SIGINT);
  EXPECT_EQ(endless.waitExit(1000), 2);  // never saw the counter move
}

TEST_F(PkstatusTest, HelpAndWrongUsage) {
  std::string help;
  EXPECT_EQ(pkstatus({"--help"}, &help), 0);
  for (const char* word : {"--alive", "--watch", "--for", "1 device scan", "4 idle", "ShareMemKey", "  2  not alive", "  3  no status block"}) {
    EXPECT_NE(help.find(word), std::string::npos) << word;
  }
  EXPECT_EQ(pkstatus({"--alive"}), 4);
  EXPECT_EQ(pkstatus({"--for", "soon"}), 4);
  EXPECT_EQ(pkstatus({"--verbose"}), 4);
}

}  // namespace
