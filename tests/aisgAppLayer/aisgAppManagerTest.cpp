// The run machine: its alarm check, and end to end the service's cycles on the simulated bus.
#include <sys/msg.h>
#include <sys/shm.h>

#include "aisgAppLayer/aisgAppManager.h"
#include "serviceBench.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"

namespace {

TEST(OctetStillCheckTest, TheWordRisesAtTheThirtiethStillCheckAndFallsAtTheFirstChange) {
  unsigned int last = 0, still = 0;
  uint32_t word = 0;
  // The alarm word after each of `times` checks of the count octets; 'c' where a check saw a change.
  auto run = [&](unsigned int octets, int times) {
    std::string seen;
    while (times-- > 0) seen += AisgAppManager::octetStillCheck(octets, last, still, word) ? char('0' + word) : 'c';
    return seen;
  };
  // At start the last count is 0 as well: the first check is already still.
  EXPECT_EQ(run(0, 100), std::string(29, '0') + std::string(71, '1'));
  EXPECT_EQ(still, 30u);
  // Any change clears the word at once, and 30 still checks are needed again.
  EXPECT_EQ(run(1, 30), "c" + std::string(29, '0'));
  EXPECT_EQ(run(2, 31), "c" + std::string(29, '0') + "1");
}

constexpr key_t kStatusKey = 0x400009;

class RunMachineTest : public e2e::ServiceBench {
 protected:
  // The status block, read as another process of the board does.
  static S_StatusShareMem block() {
    S_StatusShareMem copy{};
    void* at = shmat(shmget(kStatusKey, sizeof(copy), 0), nullptr, SHM_RDONLY);
    if (at == reinterpret_cast<void*>(-1)) return copy;
    memcpy(&copy, at, sizeof(copy));
    shmdt(at);
    return copy;
  }
  static uint32_t ticks() { return block().tickCount; }
  // The cycles counted in three seconds.
  static uint32_t rate() {
    uint32_t before = ticks();
    e2e::sleepMs(3000);
    return ticks() - before;
  }
};

TEST_F(RunMachineTest, WithoutTheConsoleTheServiceIdlesCountsOnceASecondAndKeepsItsTickChainAndTheBusQuiet) {
  // A block left by an earlier run is set afresh, all but its spare word.
  void* old = shmat(shmget(kStatusKey, sizeof(S_StatusShareMem), IPC_CREAT | 0666), nullptr, 0);
  *static_cast<S_StatusShareMem*>(old) = S_StatusShareMem{7, 1000, 1, 1, 0xDEADBEEF};
  start({"uid=0x41"}, {"-l", "3"});
  play("says Timer::startTimer\n");  // the first cycle comes a second later
  S_StatusShareMem first = block();
  EXPECT_EQ(std::vector<uint32_t>({first.runStep, first.tickCount, first.rxAlarm, first.txAlarm, first.spare}),
            std::vector<uint32_t>({1, 0, 0, 0, 0xDEADBEEF}));
  ASSERT_TRUE(e2e::waitUntil([&] { return ticks() >= 1; }, 2500));
  EXPECT_NEAR(rate(), 3, 1);
  EXPECT_EQ(block().runStep, 4u);
  // 100 messages of one byte are longer than the empty ones the thread takes: each is taken off and
  // dropped with a trace, none gives a cycle, and the chain goes on (a post refused meanwhile is made again).
  int queue = msgget(0x600001, 0);
  unsigned char message[kRecordTypeSize + 1] = {1, 0, 0, 0, 0};
  uint32_t held = ticks();
  for (int i = 0; i < 100; ++i) ASSERT_EQ(recordSend(queue, message, 1, 0), 0);
  const char* drop = "dropped a message longer than 0 bytes";
  ASSERT_TRUE(e2e::waitUntil([&] { return e2e::occurrences(service.output(), drop) == 100; }, 5000));
  EXPECT_LT(ticks(), held + 10);  // not one cycle per message
  EXPECT_NEAR(rate(), 3, 1);
  // Surplus ticks from outside each give a cycle, but no second chain.
  held = ticks();
  for (int i = 0; i < 50; ++i) ASSERT_EQ(recordSend(queue, message, 0, 0), 0);
  ASSERT_TRUE(e2e::waitUntil([&] { return ticks() >= held + 50; }, 2000));
  EXPECT_NEAR(rate(), 3, 1);
  EXPECT_EQ(bus.output().find(" RX "), std::string::npos) << bus.plainOutput();
  // The block stays when the service is gone, its counter still.
  service.stop();
  play("run pkstatus --alive 1 | reply alive        : no\nexit 2");
}

TEST_F(RunMachineTest, WithAldsTheStepsGoScanBaseInfoPollAndThePollsTakeTurns) {
  start({"uid=0x41", "uid=0x42"}, {"-c", "-l", "3"});
  play(
      "says Rs485 send Data(11).\n | says 7E FF BF 81 F0 02 07 00 A4 F3 7E \n | "
      "says device scan success, then go to get base info. | says get base info start. | "
      "sent reset probe other other assign other other other snrm1 snrm2 poll1 poll2 poll1 poll2 poll1 poll2 | "
      "run pkstatus | reply run step     : 3 (alds poll)");
}

TEST_F(RunMachineTest, WithoutItsStatusBlockTheServiceRunsOn) {
  shmctl(shmget(kStatusKey, 0, 0), IPC_RMID, nullptr);
  ASSERT_GE(shmget(kStatusKey, 8, IPC_CREAT | 0666), 0);  // too small for the status
  start({}, {});
  // Every cycle still runs its two alarm checks, which find no block.
  play(
      "says status block 0x400009 not available | says _pShareMem is NULL. | says _pShareMem is NULL. | "
      "says _pShareMem is NULL. | says _pShareMem is NULL. | run pkstatus | reply exit 3");
  EXPECT_TRUE(service.running());
}

TEST_F(RunMachineTest, SLOW_BothAlarmsRiseAtTheThirtiethQuietCycleAndFallAtTheFirstGoodFrame) {
  start({"uid=0x41"}, {});
  // In step 4 the checks follow the count at once: read the words well before the next cycle.
  for (uint32_t cycle : {29u, 30u}) {
    ASSERT_TRUE(e2e::waitUntil([&] { return ticks() >= cycle; }, 36000));
    e2e::sleepMs(500);
    EXPECT_EQ(block().tickCount, cycle);
    EXPECT_EQ(block().rxAlarm + block().txAlarm, cycle == 30 ? 2u : 0u);
  }
  EXPECT_EQ(run("pkstatus"), 1);
  // The first probe of a scan, which the ALD without an address answers.
  EXPECT_EQ(run("mplanectl FF BF 81F00401000300"), 0);
  EXPECT_TRUE(e2e::waitUntil([&] { return block().rxAlarm + block().txAlarm == 0; }, 2500));
}

}  // namespace
