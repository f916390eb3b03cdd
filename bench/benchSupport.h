#ifndef PK_BENCH_BENCH_SUPPORT_H
#define PK_BENCH_BENCH_SUPPORT_H

// What the measurements share: the bus's fixed costs, child processes whose
// output is gathered as it comes, the simulator's frame log and small statistics.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "e2eHarness.h"

namespace bench {

// One byte on the AISG wire: 10 bits at 9600 baud.
constexpr double kByteMs = 10.0 / 9.6;
// The silence that ends a received message.
constexpr double kSilenceMs = 20.0;
// The waiter tests for a reply every 10 ms; by convention a reply waits half of that.
constexpr double kPollPeriodMs = 10.0;
constexpr double kPollMeanMs = 5.0;
// A layer-2 exchange that gets no reply.
constexpr double kLayer2TimeoutMs = 1000.0;

// The port the simulator links and the service opens, inside the sandbox: the harness's.
using e2e::kPort;

using e2e::binPath;
using e2e::nowMs;
using e2e::readFile;
using e2e::sleepMs;
// Writes the service's configuration file (the sandbox's own).
using e2e::writeConfig;

// A result line for the driver: "@key value".
void report(const std::string& key, const std::string& value);
std::string fixed(double value, int decimals);

// The value below which `share` (0..1) of the values lie, by nearest rank.
double percentile(std::vector<double> values, double share);
double mean(const std::vector<double>& values);

// The test harness's child process on a pty, whose output its own thread gathers
// as it comes: the bus must never stall because the bench is busy waiting on
// something else. The measurements ask it to note when each piece arrived.
using e2e::Child;

// Starts the simulator on kPort, paced at 9600 baud, with these extra words.
bool startPacedSimulator(Child& sim, const std::vector<std::string>& words);
// Points the service at `port`, with further configuration lines if given, and starts it with these options.
bool startService(Child& service, const std::string& port, const std::vector<std::string>& options,
                  const std::string& moreConfig = "");

// One frame of the simulator's log.
struct S_BusFrame {
  double stampMs;              // the simulator's clock, ms since midnight
  bool fromPrimary;            // RX: sent by the service; TX: the simulator's reply
  std::vector<uint8_t> bytes;  // as on the wire, flags included
  size_t offset;               // where the line starts in the log
};
std::vector<S_BusFrame> busFrames(const std::string& log);

// A frame from the primary to `address` that is an RR poll.
bool isPollTo(const S_BusFrame& frame, uint8_t address);
// Types `mret_v2 getTilt 1 1` on the service's console and waits up to timeoutMs for its answer:
// 1 with the send and the answer's arrival (steady clock, ms), 0 to try again, or -1 after the
// eleventh miss of the road (reported).
int consoleGetTilt(Child& service, int timeoutMs, const std::string& road, int& failures, double& start,
                   double& answered);

// One exchange seen in the simulator's log: a frame from the primary and the reply behind it.
struct S_LoggedExchange {
  size_t requestBytes;
  size_t replyBytes;    // 0: no reply
  double turnaroundMs;  // reply stamp minus request stamp (1 ms resolution each)
};
std::vector<S_LoggedExchange> loggedExchanges(const std::vector<S_BusFrame>& frames);

// When a reply is ready for the waiter, counted from the send, on this rig: the
// pty hands the request over at once, the simulator paces its reply, whose last
// byte comes (n - 1) byte times after its first, then the silence ends it.
double rigReadyMs(size_t replyBytes, double turnaroundMs);
// The same on a real bus, where both frames take their whole time on the wire.
double busReadyMs(size_t requestBytes, size_t replyBytes, double turnaroundMs);
// The floor of an exchange whose reply is ready at `readyMs`: the waiter tests
// every 10 ms from the send, so it sees the reply at the next multiple of 10 ms.
double floorAtPollMs(double readyMs);
// The floor by the convention of a mean wait of 5 ms for the poll.
double floorAtMeanPollMs(double readyMs);

// CPU time (user and system, all threads, also those that ended) of a process, in seconds.
double cpuSeconds(pid_t pid);
// A "VmXXX:" figure of /proc/PID/status in KiB, or -1.
long statusKib(pid_t pid, const std::string& field);

}  // namespace bench

#endif
