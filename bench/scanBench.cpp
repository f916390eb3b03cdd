// The device scan through the library, and the poll cycle of the running service.
#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <vector>

#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"
#include "benchParts.h"
#include "benchSupport.h"

namespace bench {

namespace {

// The same seed gives the same UIDs, so the runs compare.
const char* const kSeed = "7";

// The comm interface of the scan, timing each exchange on its way to the real one.
class TimedComm : public DeviceCommInterface {
 public:
  struct S_Exchange {
    double ms;
    int result;
  };

  explicit TimedComm(DeviceCommInterface* inner) : _inner(inner) {}

  void commandSend(unsigned char* data, unsigned int length) override { _inner->commandSend(data, length); }
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    double start = nowMs();
    int result = _inner->sendCmdAndWaitResponse(packet, time);
    exchanges.push_back({nowMs() - start, result});
    return result;
  }
  int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) override {
    double start = nowMs();
    int result = _inner->sendCmdAndWaitResponse(data, length, time);
    exchanges.push_back({nowMs() - start, result});
    return result;
  }
  void clearStatusData() override { _inner->clearStatusData(); }
  void apartFromReplies(const std::function<void()>& work) override { _inner->apartFromReplies(work); }

  std::vector<S_Exchange> exchanges;

 private:
  DeviceCommInterface* _inner;
};

}  // namespace

int runScan(int alds) {
  Child sim;
  if (!startPacedSimulator(sim, {"--random", std::to_string(alds), "--seed", kSeed})) {
    report("error", "scan: simulator did not start");
    return 1;
  }
  writeConfig(std::string("PortName ") + kPort + "\n");
  TimedComm comm(AisgCommManager::getInstance());
  Layer2Device* layer2 = Layer2DeviceFactory::creatLayer2DeviceObj(2, &comm);
  unsigned char found = 0;
  double start = nowMs();
  layer2->deviceScan(19, found);
  double wall = nowMs() - start;
  sleepMs(50);  // the last reply's log line

  std::vector<S_LoggedExchange> logged = loggedExchanges(busFrames(sim.output()));
  if (logged.size() != comm.exchanges.size()) {
    report("error", "scan: " + std::to_string(logged.size()) + " frames logged for " +
                        std::to_string(comm.exchanges.size()) + " exchanges");
    return 1;
  }
  std::vector<double> turnarounds;
  for (const S_LoggedExchange& exchange : logged) {
    if (exchange.replyBytes > 0) turnarounds.push_back(exchange.turnaroundMs);
  }
  double turnaround = mean(turnarounds);
  // The algorithm's own time: every exchange at its floor, every time-out at its full length.
  double own = 0, ownOnBus = 0, inExchanges = 0, timeoutSpent = 0, replyExcess = 0;
  int timeouts = 0, collisions = 0, replies = 0;
  for (size_t i = 0; i < logged.size(); ++i) {
    const TimedComm::S_Exchange& exchange = comm.exchanges[i];
    inExchanges += exchange.ms;
    if (exchange.result == -2) {
      ++timeouts;
      timeoutSpent += exchange.ms;
      own += kLayer2TimeoutMs;
      ownOnBus += kLayer2TimeoutMs;
      continue;
    }
    if (exchange.result == -3) ++collisions;
    ++replies;
    double floor = floorAtPollMs(rigReadyMs(logged[i].replyBytes, turnaround));
    own += floor;
    ownOnBus += floorAtPollMs(busReadyMs(logged[i].requestBytes, logged[i].replyBytes, turnaround));
    replyExcess += exchange.ms - floor;
  }
  report("scan.alds", std::to_string(alds));
  report("scan.found", std::to_string(found));
  report("scan.exchanges", std::to_string(logged.size()));
  report("scan.timeouts", std::to_string(timeouts));
  report("scan.collisions", std::to_string(collisions));
  report("scan.wall", fixed(wall / 1000.0, 3));
  report("scan.own", fixed(own / 1000.0, 3));
  report("scan.ownOnBus", fixed(ownOnBus / 1000.0, 3));
  report("scan.outside", fixed((wall - inExchanges), 1));
  report("scan.timeoutMean", fixed(timeouts > 0 ? timeoutSpent / timeouts : 0.0, 2));
  report("scan.replyExcessMean", fixed(replies > 0 ? replyExcess / replies : 0.0, 2));
  report("scan.turnaround", fixed(turnaround, 2));
  return 0;
}

int runPollCycle(int alds, int cycles) {
  Child sim, service;
  if (!startPacedSimulator(sim, {"--random", std::to_string(alds), "--seed", kSeed}) ||
      !startService(service, kPort, {"-c"})) {
    report("error", "poll: simulator or service did not start");
    return 1;
  }
  // Until the first ALD has been polled cycles + 1 times; the scan comes first.
  double deadline = nowMs() + 300000;
  std::vector<S_BusFrame> frames;
  std::vector<double> polls;
  for (size_t from = 0; polls.size() < static_cast<size_t>(cycles) + 1;) {
    size_t at = sim.offsetOf(" RX 7E 01 ", from, static_cast<int>(std::max(0.0, deadline - nowMs())));
    if (at == std::string::npos) {
      report("error", "poll: the first ALD was polled " + std::to_string(polls.size()) + " times");
      return 1;
    }
    from = at + 1;
    sim.offsetOf("\n", at, 1000);
    frames = busFrames(sim.output());
    polls.clear();
    for (const S_BusFrame& frame : frames) {
      if (isPollTo(frame, 1)) polls.push_back(frame.stampMs);
    }
  }
  std::vector<double> intervals;
  for (size_t i = 1; i < polls.size(); ++i) intervals.push_back(polls[i] - polls[i - 1]);
  // The ALDs polled between the last two polls of the first one, and the bus time they took.
  std::set<uint8_t> polled;
  std::vector<double> pollFloors;
  std::vector<S_LoggedExchange> logged = loggedExchanges(frames);
  size_t exchange = 0;
  bool inLastCycle = false;
  int seen = 0;
  for (const S_BusFrame& frame : frames) {
    if (!frame.fromPrimary) continue;
    if (isPollTo(frame, 1)) inLastCycle = ++seen == static_cast<int>(polls.size()) - 1;
    if (inLastCycle && frame.bytes.size() > 2 && (frame.bytes[2] & 0x0F) == 0x01) {
      polled.insert(frame.bytes[1]);
      if (logged[exchange].replyBytes > 0) pollFloors.push_back(floorAtPollMs(rigReadyMs(logged[exchange].replyBytes, 0.0)));
    }
    ++exchange;
  }
  report("poll.alds", std::to_string(alds));
  report("poll.polled", std::to_string(polled.size()));
  report("poll.cycles", std::to_string(intervals.size()));
  report("poll.cycle", fixed(mean(intervals), 1));
  report("poll.cycleMax", fixed(percentile(intervals, 1.0), 1));
  // The cycle starts on a tick of the 100 ms timer, and the next one comes on the
  // 10th tick after the step: the step rounded up to 100 ms, plus 900 ms.
  double step = 0;
  for (double floor : pollFloors) step += floor;
  report("poll.step", fixed(step, 1));
  report("poll.expected", fixed(100.0 * std::ceil(step / 100.0) + 900.0, 1));
  return 0;
}

}  // namespace bench
