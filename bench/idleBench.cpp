// What the service costs while nothing is asked of it: CPU time and memory.
#include "benchParts.h"
#include "benchSupport.h"

namespace bench {

namespace {

constexpr const char* kMissingPort = "/tmp/ttyNone";
// Start-up work (the version report, the first cycles and the first use of
// every path, which touches its pages) is not idle cost.
constexpr double kSettleMs = 5000.0;

}  // namespace

int runIdle(const std::string& state, int seconds) {
  Child sim, service;
  bool started = false;
  if (state == "relay") {
    started = startPacedSimulator(sim, {"--random", "4", "--seed", "7"}) && startService(service, kPort, {});
  } else if (state == "console4") {
    started = startPacedSimulator(sim, {"--random", "4", "--seed", "7"}) && startService(service, kPort, {"-c"}) &&
              // The poll of address 4: all four found and RUNNING.
              sim.offsetOf(" RX 7E 04 ", 0, 60000) != std::string::npos;
  } else if (state == "noport") {
    started = startService(service, kMissingPort, {"-c"});
  }
  if (!started) {
    report("error", "idle " + state + ": did not start");
    return 1;
  }
  sleepMs(kSettleMs);
  pid_t pid = service.pid();
  long rssStart = statusKib(pid, "VmRSS");
  double cpuStart = cpuSeconds(pid);
  double start = nowMs();
  sleepMs(seconds * 1000.0);
  double cpu = cpuSeconds(pid) - cpuStart;
  double elapsed = (nowMs() - start) / 1000.0;
  report("idle.state", state);
  report("idle.seconds", fixed(elapsed, 1));
  report("idle.cpu", fixed(cpu, 2));
  report("idle.share", fixed(100.0 * cpu / elapsed, 3));
  report("idle.rssStart", std::to_string(rssStart));
  report("idle.rssEnd", std::to_string(statusKib(pid, "VmRSS")));
  report("idle.hwm", std::to_string(statusKib(pid, "VmHWM")));
  // Resident pages of its own, and of the program and the shared libraries, which other processes share.
  report("idle.rssAnon", std::to_string(statusKib(pid, "RssAnon")));
  report("idle.rssFile", std::to_string(statusKib(pid, "RssFile")));
  report("idle.threads", std::to_string(statusKib(pid, "Threads")));
  return 0;
}

}  // namespace bench
