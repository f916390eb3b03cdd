// What the search for unaddressed ALDs costs a console exchange with -c: with a
// short discovery period, console getTilt exchanges typed at random moments,
// told apart by what else held the bus while they waited: a discovery probe,
// which nobody answers here and so holds it for a whole layer-2 time-out, a
// poll of the run machine, or nothing.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "benchParts.h"
#include "benchSupport.h"

namespace bench {

namespace {

constexpr uint8_t kAddress = 1;
// The probe of a discovery: an XID to every ALD with an empty UID and an empty mask.
const std::vector<uint8_t> kProbe = {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00};
// A poll holds the bus for its reply and the silence after it: about 30 ms, and the waiter's next test.
constexpr double kPollHoldMs = 50.0;
// The pause before each exchange is drawn from 0 to this, so that exchanges meet the
// probes and the polls at every phase; with about 40 ms per exchange one in ten meets a probe.
constexpr int kMaxPauseMs = 300;

struct S_Timed {
  double start;
  double end;
};

}  // namespace

int runDiscoveryExchanges(int count, int periodSeconds) {
  Child sim(true), service(true);
  if (!startPacedSimulator(sim, {"uid=BENCH01"}) ||
      !startService(service, kPort, {"-c"}, "DiscoveryPeriod " + std::to_string(periodSeconds) + "\n") ||
      // The first poll: the scan is over and the ALD is RUNNING.
      !e2e::waitUntil(
          [&] {
            for (const S_BusFrame& frame : busFrames(sim.output())) {
              if (isPollTo(frame, kAddress)) return true;
            }
            return false;
          },
          30000)) {
    report("error", "discovery: the ALD was never polled");
    return 1;
  }
  std::mt19937 random(7);
  std::uniform_int_distribution<int> pause(0, kMaxPauseMs);
  std::vector<S_Timed> exchanges;
  int failures = 0;
  while (static_cast<int>(exchanges.size()) < count) {
    sleepMs(pause(random));
    double start = 0, answered = 0;
    const int got = consoleGetTilt(service, 3000, "discovery", failures, start, answered);
    if (got < 0) return 1;
    if (got > 0) exchanges.push_back({start, answered});
  }
  sleepMs(50);  // the last reply's log line
  // When the bus was held by a probe or a poll, in the bench's clock (the log's arrival).
  std::vector<S_Timed> probes, polls;
  std::string log = sim.output();
  for (const S_BusFrame& frame : busFrames(log)) {
    double sent = sim.arrivalOf(frame.offset);
    if (frame.fromPrimary && frame.bytes.size() >= kProbe.size() &&
        std::equal(kProbe.begin(), kProbe.end(), frame.bytes.begin())) {
      probes.push_back({sent, sent + kLayer2TimeoutMs + kPollPeriodMs});
    } else if (isPollTo(frame, kAddress)) {
      polls.push_back({sent, sent + kPollHoldMs});
    }
  }
  auto met = [](const S_Timed& exchange, const std::vector<S_Timed>& holds) {
    for (const S_Timed& hold : holds) {
      if (hold.start < exchange.end && hold.end > exchange.start) return true;
    }
    return false;
  };
  std::vector<double> withProbe, withPoll, clear;
  for (const S_Timed& exchange : exchanges) {
    double ms = exchange.end - exchange.start;
    if (met(exchange, probes)) {
      withProbe.push_back(ms);
    } else if (met(exchange, polls)) {
      withPoll.push_back(ms);
    } else {
      clear.push_back(ms);
    }
  }
  report("discovery.period", std::to_string(periodSeconds));
  report("discovery.probes", std::to_string(probes.size()));
  report("discovery.failures", std::to_string(failures));
  const std::pair<const char*, std::vector<double>*> classes[] = {
      {"probe", &withProbe}, {"poll", &withPoll}, {"clear", &clear}};
  for (const auto& item : classes) {
    std::string name = std::string("discovery.") + item.first;
    report(name + ".n", std::to_string(item.second->size()));
    report(name + ".median", fixed(percentile(*item.second, 0.5), 2));
    report(name + ".p99", fixed(percentile(*item.second, 0.99), 2));
  }
  return 0;
}

}  // namespace bench
