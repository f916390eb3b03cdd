#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "aisgAppLayer/aisgAppManager.h"
#include "e2eHarness.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"

namespace {

TEST(OctetStillCheckTest, TheWordRisesAtTheThirtiethStillCheckAndFallsAtTheFirstChange) {
  unsigned int last = 0, still = 0;
  uint32_t word = 0;
  auto check = [&](unsigned int octets, int times) {
    bool stood = false;
    for (int i = 0; i < times; ++i) stood = AisgAppManager::octetStillCheck(octets, last, still, word);
    return stood;
  };
  // At start count and last count are both 0: the first check is already still.
  EXPECT_TRUE(check(0, 29));
  EXPECT_EQ(word, 0u);
  check(0, 1);
  EXPECT_EQ(word, 1u);
  check(0, 100);
  EXPECT_EQ(still, 30u);
  // Any change clears it at once, and a full 30 still checks are needed again.
  EXPECT_FALSE(check(1, 1));
  EXPECT_EQ(word, 0u);
  check(1, 29);
  check(2, 1);
  check(2, 29);
  EXPECT_EQ(word, 0u);
  check(2, 1);
  EXPECT_EQ(word, 1u);
}

// ---- The run machine end to end: the service against the simulated bus. ----

constexpr key_t kStatusKey = 0x400009;
const char* const kReset = "7E FF BF 81 F0 02 07 00 A4 F3 7E";
const char* const kRootProbe = "7E FF BF 81 F0 04 01 00 03 00 A6 58 7E";
// To the ALD of UID 0x41 at address 1.
const char* const kAssign1 = "7E FF BF 81 F0 06 01 01 41 02 01 01";
const char* const kPoll1 = "7E 01 11";

struct S_Sent {
  long ms;  // time of day
  std::string bytes;
};

// The frames that the service sent (RX in the simulator's log) from text position `from` on.
std::vector<S_Sent> sentFrames(const std::string& log, size_t from = 0) {
  std::vector<S_Sent> sent;
  std::istringstream in(log.substr(from));
  for (std::string line; std::getline(in, line);) {
    int h, m, s, ms;
    if (sscanf(line.c_str(), "%d:%d:%d.%d RX", &h, &m, &s, &ms) == 4 && line.find(" RX 7E") != std::string::npos) {
      sent.push_back({((h * 60L + m) * 60 + s) * 1000 + ms, line.substr(line.find("7E"))});
    }
  }
  return sent;
}

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

int countSent(const std::string& log, const char* prefix) {
  int n = 0;
  for (const S_Sent& frame : sentFrames(log)) n += startsWith(frame.bytes, prefix);
  return n;
}

// The kinds of the frames sent to the one ALD of UID 0x41, e.g. "poll poll assign reset".
std::string kindsSent(const std::string& log, size_t from) {
  std::string kinds;
  for (const S_Sent& frame : sentFrames(log, from)) {
    kinds += startsWith(frame.bytes, kReset) ? "reset " : startsWith(frame.bytes, kAssign1) ? "assign "
             : startsWith(frame.bytes, kPoll1) ? "poll " : "other ";
  }
  return kinds;
}

class RunMachineTest : public testing::Test {
 protected:
  void SetUp() override {
    int id = shmget(kStatusKey, 0, 0);  // no block of an earlier case
    if (id >= 0) shmctl(id, IPC_RMID, nullptr);
  }
  void TearDown() override {
    service.stop();
    bus.stop();
    if (_block != nullptr) shmdt(const_cast<S_StatusShareMem*>(_block));
    // In a sanitizer build the service reports its findings on its output.
    EXPECT_EQ(service.output().find("Sanitizer"), std::string::npos) << service.plainOutput();
  }

  void start(std::vector<std::string> alds, bool console) {
    alds.insert(alds.begin(), {e2e::binPath("aldsim"), "--link", "/tmp/ttyALD"});
    ASSERT_TRUE(bus.start(alds));
    ASSERT_TRUE(bus.waitFor("ready ", 3000)) << bus.plainOutput();
    e2e::writeConfig("PortName /tmp/ttyALD\n");
    std::vector<std::string> argv = {e2e::binPath("pylonkeeper")};
    if (console) argv.push_back("-c");
    ASSERT_TRUE(service.start(argv));
    // The timer starts after every manager is complete; the first cycle comes a second later.
    ASSERT_TRUE(service.waitFor("Timer::startTimer\n", 5000)) << service.plainOutput();
  }

  // The status block, attached read-only as another process of the board does.
  S_StatusShareMem block() {
    if (_block == nullptr) {
      void* at = shmat(shmget(kStatusKey, sizeof(S_StatusShareMem), 0), nullptr, SHM_RDONLY);
      if (at == reinterpret_cast<void*>(-1)) return S_StatusShareMem{0, 0, 0, 0, 0};
      _block = static_cast<volatile S_StatusShareMem*>(at);
    }
    return S_StatusShareMem{_block->runStep, _block->tickCount, _block->rxAlarm, _block->txAlarm, _block->spare};
  }
  uint32_t ticks() { return block().tickCount; }

  // Gathers both programs' output (so that neither blocks on a full terminal) until
  // done() holds or the time is up.
  bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    for (int waited = 0; !done(); waited += 50) {
      if (waited >= timeoutMs) return false;
      service.pump(25);
      bus.pump(25);
    }
    return true;
  }
  void pumpFor(int ms) { waitUntil([] { return false; }, ms); }
  bool says(e2e::Child& child, const char* text, int timeoutMs, size_t from = 0) {
    return waitUntil([&] { return child.output().find(text, from) != std::string::npos; }, timeoutMs);
  }
  // Waits for an answered poll, then silences the ALD; the log position from then on.
  size_t quietAfterAPoll() {
    EXPECT_TRUE(says(bus, "TX 7E 01 11", 8000)) << bus.plainOutput();
    bus.send("quiet 1\n");
    return bus.output().size();
  }

  e2e::Child bus;
  e2e::Child service;

 private:
  volatile S_StatusShareMem* _block = nullptr;
};

TEST_F(RunMachineTest, WithoutTheConsoleTheServiceIdlesCountsOnceASecondAndKeepsTheBusQuiet) {
  // A block left by an earlier run is set afresh, all but its spare word.
  int id = shmget(kStatusKey, sizeof(S_StatusShareMem), IPC_CREAT | 0666);
  auto* old = static_cast<S_StatusShareMem*>(shmat(id, nullptr, 0));
  *old = S_StatusShareMem{7, 1000, 1, 1, 0xDEADBEEF};
  shmdt(old);
  start({"uid=0x41"}, false);
  S_StatusShareMem first = block();
  EXPECT_EQ(first.runStep, 1u);
  EXPECT_EQ(first.tickCount + first.rxAlarm + first.txAlarm, 0u);
  EXPECT_EQ(first.spare, 0xDEADBEEFu);

  ASSERT_TRUE(waitUntil([&] { return ticks() >= 1; }, 2500));
  uint32_t start = ticks();
  pumpFor(4000);
  EXPECT_GE(ticks() - start, 3u);
  EXPECT_LE(ticks() - start, 5u);
  EXPECT_EQ(block().runStep, 4u);
  EXPECT_TRUE(sentFrames(bus.output()).empty()) << bus.plainOutput();
}

TEST_F(RunMachineTest, WithTheConsoleOnAnEmptyBusEveryCycleScansAgain) {
  start({}, true);
  ASSERT_TRUE(waitUntil([&] { return countSent(bus.output(), kReset) >= 3; }, 12000)) << bus.plainOutput();
  EXPECT_EQ(block().runStep, 1u);
  std::vector<S_Sent> sent = sentFrames(bus.output());
  ASSERT_GE(sent.size(), 5u);
  for (size_t i : {0, 2}) {
    EXPECT_TRUE(startsWith(sent[i].bytes, kReset));
    EXPECT_TRUE(startsWith(sent[i + 1].bytes, kRootProbe));
  }
  // Two unanswered exchanges of a second each, then the ten ticks of the cycle.
  EXPECT_NEAR(sent[2].ms - sent[0].ms, 3100, 400);
}

TEST_F(RunMachineTest, WithAldsTheStepsGoScanBaseInfoPollAndEachAldIsPolledOncePerCycle) {
  start({"uid=0x41", "uid=0x42"}, true);
  std::vector<uint32_t> steps = {1};
  ASSERT_TRUE(waitUntil([&] {
    if (block().runStep != steps.back()) steps.push_back(block().runStep);
    return countSent(bus.output(), kPoll1) >= 4;
  }, 10000)) << bus.plainOutput();
  EXPECT_EQ(steps, (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(countSent(bus.output(), kReset), 1);
  EXPECT_EQ(countSent(bus.output(), "7E 01 93") + countSent(bus.output(), "7E 02 93"), 2);  // SNRMs
  std::string order;
  long lastPoll1 = -1;
  for (const S_Sent& frame : sentFrames(bus.output())) {
    if (startsWith(frame.bytes, "7E 02 11")) order += "2";
    if (!startsWith(frame.bytes, kPoll1)) continue;
    order += "1";
    if (lastPoll1 >= 0) {
      EXPECT_NEAR(frame.ms - lastPoll1, 1050, 200);
    }
    lastPoll1 = frame.ms;
  }
  EXPECT_EQ(order.substr(0, 7), "1212121");
}

TEST_F(RunMachineTest, AQuietAldThatTakesItsAddressAgainIsPolledAgainWithoutANewLink) {
  start({"uid=0x41"}, true);
  size_t quiet = quietAfterAPoll();
  ASSERT_TRUE(says(bus, kAssign1, 16000, quiet)) << bus.plainOutput();
  bus.send("wake 1\n");
  ASSERT_TRUE(says(bus, "TX 7E 01 11", 8000, bus.output().size())) << bus.plainOutput();
  // The fifth failed poll makes it ADDRESSED, and the first assignment goes out in the
  // same pass; the second is answered and the polls go on, with no SNRM.
  EXPECT_EQ(kindsSent(bus.output(), quiet), "poll poll poll poll poll assign assign poll ");
  EXPECT_EQ(block().runStep, 3u);
}

TEST_F(RunMachineTest, AnAldThatStaysQuietIsLostAndTheBusIsScannedAgain) {
  start({"uid=0x41"}, true);
  size_t quiet = quietAfterAPoll();
  ASSERT_TRUE(says(bus, kReset, 30000, quiet)) << bus.plainOutput();
  // After the fifth failed assignment, one pass meets the LOST ALD, and the next cycle scans.
  EXPECT_EQ(kindsSent(bus.output(), quiet),
            "poll poll poll poll poll assign assign assign assign assign reset ");
}

TEST_F(RunMachineTest, WithoutItsStatusBlockTheServiceRunsOn) {
  ASSERT_GE(shmget(kStatusKey, 8, IPC_CREAT | 0666), 0);  // too small for the status
  start({}, false);
  ASSERT_TRUE(says(service, "status block 0x400009 not available", 1000)) << service.plainOutput();
  auto nulls = [&] {
    const std::string& out = service.output();
    int n = 0;
    for (size_t at = out.find("_pShareMem is NULL."); at != std::string::npos; at = out.find("_pShareMem is NULL.", at + 1)) ++n;
    return n;
  };
  // Every cycle still runs its two alarm checks, which find no block.
  EXPECT_TRUE(waitUntil([&] { return nulls() >= 6; }, 4500)) << service.plainOutput();
  EXPECT_TRUE(service.running());
}

TEST_F(RunMachineTest, TheTickChainNeitherDiesNorDoubles) {
  start({}, false);
  ASSERT_TRUE(waitUntil([&] { return ticks() >= 1; }, 2500));
  int queue = msgget(0x600001, 0);
  ASSERT_GE(queue, 0);
  auto rate = [&] {
    uint32_t before = ticks();
    pumpFor(3000);
    return ticks() - before;
  };
  // 100 messages of one byte fill the application queue and stay, since the thread takes
  // only empty ones: the next tick's post is refused.
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
}

TEST_F(RunMachineTest, SLOW_BothAlarmsRiseAtTheThirtiethQuietCycleAndFallAtTheFirstGoodFrame) {
  start({"uid=0x41"}, false);
  // In step 4 the checks follow the count at once: read the words well before the next cycle.
  ASSERT_TRUE(waitUntil([&] { return ticks() >= 29; }, 36000));
  pumpFor(500);
  EXPECT_EQ(block().tickCount, 29u);
  EXPECT_EQ(block().rxAlarm + block().txAlarm, 0u);
  ASSERT_TRUE(waitUntil([&] { return ticks() >= 30; }, 2000));
  pumpFor(500);
  EXPECT_EQ(block().rxAlarm, 1u);
  EXPECT_EQ(block().txAlarm, 1u);

  // An M-Plane request with the first probe of a scan, which the ALD without address answers.
  const unsigned char probe[] = {0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
  std::vector<unsigned char> request(1650, 0);
  setRecordType(request.data(), 1);
  uint32_t length = sizeof(probe);
  memcpy(&request[146], &length, sizeof(length));
  memcpy(&request[150], probe, sizeof(probe));
  ASSERT_EQ(recordSend(msgget(0x400004, IPC_CREAT | 0666), request.data(), 150 + sizeof(probe), 0), 0);
  ASSERT_TRUE(says(bus, "TX 7E FF BF 81 F0", 2000)) << bus.plainOutput();
  EXPECT_TRUE(waitUntil([&] { return block().rxAlarm == 0; }, 2500));
  EXPECT_EQ(block().txAlarm, 0u);
}

}  // namespace
