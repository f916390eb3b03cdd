#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "InteractionLayer/interactionMsg.h"
#include "aisgAppLayer/aisgAppManager.h"
#include "e2eHarness.h"
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

// ---- The run machine end to end: the service against the simulated bus. ----

constexpr key_t kStatusKey = 0x400009;
const char* const kReset = "7E FF BF 81 F0 02 07 00 A4 F3 7E";
const char* const kAssign1 = "7E FF BF 81 F0 06 01 01 41 02 01 01";  // to the ALD of UID 0x41 at address 1
const std::pair<const char*, const char*> kKinds[] = {
    {kReset, "reset"}, {"7E FF BF 81 F0 04 01 00 03 00 A6 58 7E", "probe"}, {kAssign1, "assign"},
    {"7E 01 11", "poll1"}, {"7E 02 11", "poll2"}, {"7E 01 93", "snrm"}, {"7E 02 93", "snrm"}};

// The kinds of the frames that the service sent (RX in the simulator's log) from log position
// `from` on, as "reset probe snrm poll1 ...".
std::string sentKinds(const std::string& log, size_t from = 0) {
  std::string kinds;
  for (size_t at = log.find(" RX 7E", from); at != std::string::npos; at = log.find(" RX 7E", at + 1)) {
    const char* kind = "other";
    for (const auto& known : kKinds) {
      if (log.compare(at + 4, strlen(known.first), known.first) == 0) kind = known.second;
    }
    kinds += std::string(kinds.empty() ? "" : " ") + kind;
  }
  return kinds;
}

class RunMachineTest : public e2e::ServiceBench {
 protected:
  // The service at its default trace level, on a bus of these ALDs.
  void start(const std::vector<std::string>& alds, bool console) {
    startBus(alds);
    std::vector<std::string> options = {"-l", "3"};
    if (console) options.push_back("-c");
    startService(options);
    // The timer starts after every manager is complete; the first cycle comes a second later.
    ASSERT_TRUE(says(service, "Timer::startTimer\n", 5000)) << service.plainOutput();
  }

  // The status block, read as another process of the board does.
  static S_StatusShareMem block() {
    S_StatusShareMem copy{};
    void* at = shmat(shmget(kStatusKey, sizeof(copy), 0), nullptr, SHM_RDONLY);
    if (at == reinterpret_cast<void*>(-1)) return copy;
    memcpy(&copy, at, sizeof(copy));
    shmdt(at);
    return copy;
  }
  uint32_t ticks() { return block().tickCount; }

  // The cycles counted in three seconds.
  uint32_t rate() {
    uint32_t before = ticks();
    pumpFor(3000);
    return ticks() - before;
  }
  // Waits for an answered poll, then silences the ALD; the log position from then on.
  size_t quietAfterAPoll() {
    EXPECT_TRUE(says(bus, "TX 7E 01 11", 8000, _polled)) << bus.plainOutput();
    bus.send("quiet 1\n");
    return _polled = bus.output().size();
  }

  size_t _polled = 0;
};

TEST_F(RunMachineTest, WithoutTheConsoleTheServiceIdlesCountsOnceASecondAndKeepsItsTickChainAndTheBusQuiet) {
  // A block left by an earlier run is set afresh, all but its spare word.
  void* old = shmat(shmget(kStatusKey, sizeof(S_StatusShareMem), IPC_CREAT | 0666), nullptr, 0);
  *static_cast<S_StatusShareMem*>(old) = S_StatusShareMem{7, 1000, 1, 1, 0xDEADBEEF};
  start({"uid=0x41"}, false);
  S_StatusShareMem first = block();
  EXPECT_EQ(first.runStep, 1u);
  EXPECT_EQ(first.tickCount + first.rxAlarm + first.txAlarm, 0u);
  EXPECT_EQ(first.spare, 0xDEADBEEFu);
  ASSERT_TRUE(waitUntil([&] { return ticks() >= 1; }, 2500));
  EXPECT_NEAR(rate(), 3, 1);
  EXPECT_EQ(block().runStep, 4u);

  // 100 messages of one byte fill the application queue and stay, since the thread takes
  // only empty ones: the next tick's post is refused, and the count stands.
  int queue = msgget(0x600001, 0);
  unsigned char message[kRecordTypeSize + 1] = {1, 0, 0, 0, 0};
  for (int i = 0; i < 100; ++i) ASSERT_EQ(recordSend(queue, message, 1, 0), 0);
  ASSERT_TRUE(says(service, "messages currently on queue >= 100!", 2500)) << service.plainOutput();
  uint32_t held = ticks();
  pumpFor(1500);
  EXPECT_EQ(ticks(), held);
  // With room again, the lost tick is posted anew, and the cycles go on once a second.
  while (recordReceive(queue, message, 1, 0, IPC_NOWAIT) >= 0) {
  }
  ASSERT_TRUE(waitUntil([&] { return ticks() > held; }, 2500));
  EXPECT_NEAR(rate(), 3, 1);
  // Surplus ticks from outside each give a cycle, but no second chain.
  held = ticks();
  for (int i = 0; i < 50; ++i) ASSERT_EQ(recordSend(queue, message, 0, 0), 0);
  ASSERT_TRUE(waitUntil([&] { return ticks() >= held + 50; }, 2000));
  EXPECT_NEAR(rate(), 3, 1);
  EXPECT_EQ(sentKinds(bus.output()), "") << bus.plainOutput();
}

TEST_F(RunMachineTest, WithAldsTheStepsGoScanBaseInfoPollAndEachAldIsPolledOncePerCycle) {
  start({"uid=0x41", "uid=0x42"}, true);
  std::vector<uint32_t> steps = {1};
  ASSERT_TRUE(waitUntil([&] {
    if (block().runStep != steps.back()) steps.push_back(block().runStep);
    return e2e::occurrences(sentKinds(bus.output()), "poll1") >= 4;
  }, 10000)) << bus.plainOutput();
  EXPECT_EQ(steps, (std::vector<uint32_t>{1, 2, 3}));
  std::string kinds = sentKinds(bus.output());
  EXPECT_EQ(e2e::occurrences(kinds, "reset"), 1);
  EXPECT_EQ(e2e::occurrences(kinds, "snrm"), 2);
  const std::string alternating = "poll1 poll2 poll1 poll2 poll1 poll2 poll1";
  EXPECT_EQ(kinds.substr(kinds.find("poll1"), alternating.size()), alternating);
  // One poll per ALD and cycle.
  uint32_t cycles = ticks();
  int polls = e2e::occurrences(kinds, "poll1");
  pumpFor(3000);
  EXPECT_NEAR(e2e::occurrences(sentKinds(bus.output()), "poll1") - polls, ticks() - cycles, 1);
}

TEST_F(RunMachineTest, AQuietAldIsPolledFiveTimesThenAssignedItsAddressAgainOrLostAndTheBusScannedAgain) {
  start({"uid=0x41"}, true);
  // The fifth failed poll makes it ADDRESSED, and the first assignment goes out in the same
  // pass; the second is answered and the polls go on, with no new SNRM.
  size_t quiet = quietAfterAPoll();
  ASSERT_TRUE(says(bus, kAssign1, 16000, quiet)) << bus.plainOutput();
  bus.send("wake 1\n");
  ASSERT_TRUE(says(bus, "TX 7E 01 11", 8000, bus.output().size())) << bus.plainOutput();
  EXPECT_EQ(sentKinds(bus.output(), quiet), "poll1 poll1 poll1 poll1 poll1 assign assign poll1");
  EXPECT_EQ(block().runStep, 3u);
  // Quiet for good: after the fifth failed assignment one pass meets the LOST ALD, the next
  // cycle scans, and every cycle after it while the bus stays empty.
  quiet = quietAfterAPoll();
  ASSERT_TRUE(says(bus, kReset, 30000, quiet)) << bus.plainOutput();
  uint32_t scan = ticks();
  ASSERT_TRUE(waitUntil([&] { return e2e::occurrences(sentKinds(bus.output(), quiet), "reset") == 2; }, 5000));
  EXPECT_EQ(ticks() - scan, 1u);
  EXPECT_EQ(sentKinds(bus.output(), quiet).rfind("poll1 poll1 poll1 poll1 poll1 assign assign assign assign assign "
                                                 "reset probe reset", 0), 0u) << sentKinds(bus.output(), quiet);
  EXPECT_EQ(block().runStep, 1u);
}

TEST_F(RunMachineTest, WithoutItsStatusBlockTheServiceRunsOn) {
  shmctl(shmget(kStatusKey, 0, 0), IPC_RMID, nullptr);
  ASSERT_GE(shmget(kStatusKey, 8, IPC_CREAT | 0666), 0);  // too small for the status
  start({}, false);
  ASSERT_TRUE(says(service, "status block 0x400009 not available", 1000)) << service.plainOutput();
  // Every cycle still runs its two alarm checks, which find no block.
  EXPECT_TRUE(waitUntil([&] { return e2e::occurrences(service.output(), "_pShareMem is NULL.") >= 6; }, 4500));
  EXPECT_TRUE(service.running());
}

TEST_F(RunMachineTest, SLOW_BothAlarmsRiseAtTheThirtiethQuietCycleAndFallAtTheFirstGoodFrame) {
  start({"uid=0x41"}, false);
  // In step 4 the checks follow the count at once: read the words well before the next cycle.
  for (uint32_t cycle : {29u, 30u}) {
    ASSERT_TRUE(waitUntil([&] { return ticks() >= cycle; }, 36000));
    pumpFor(500);
    EXPECT_EQ(block().tickCount, cycle);
    EXPECT_EQ(block().rxAlarm + block().txAlarm, cycle == 30 ? 2u : 0u);
  }
  // An M-Plane request with the first probe of a scan, which the ALD without address answers.
  S_InteractionMsg request{};
  const unsigned char probe[] = {0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
  request.msgType = 1, request.dataLength = sizeof(probe);
  memcpy(request.data, probe, sizeof(probe));
  ASSERT_EQ(recordSend(msgget(0x400004, IPC_CREAT | 0666), &request, 150 + sizeof(probe), 0), 0);
  ASSERT_TRUE(says(bus, "TX 7E FF BF 81 F0", 2000)) << bus.plainOutput();
  EXPECT_TRUE(waitUntil([&] { return block().rxAlarm + block().txAlarm == 0; }, 2500));
}

}  // namespace
