// Exchange latency: one getTilt I-frame to one ALD and its reply, from the
// request leaving the bench to the reply coming back, on both roads.
#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "InteractionLayer/interactionMsg.h"
#include "benchParts.h"
#include "benchSupport.h"
#include "common/configFile.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"

namespace bench {

namespace {

constexpr uint8_t kAddress = 1;
const char* const kUid = "BENCH01";
// Exchanges before the measured ones: first use of every path.
constexpr int kWarmUp = 5;
// Console commands go out only in the quiet part of the run machine's cycle:
// from when the poll's exchange has surely ended (its reply, 20 ms of silence,
// the 10 ms poll of the waiter) to well before the next poll, which comes 900 ms
// or more after the last one. So none waits for the command lock behind a poll.
constexpr double kQuietFromMs = 50.0;
constexpr double kQuietToMs = 750.0;

void noAction(int) {}

// Figures of one road: latencies, and the frames the simulator logged for the same exchanges.
void reportRoad(const std::string& road, const std::vector<double>& latencies, Child& sim) {
  sleepMs(50);  // the last reply's log line
  std::vector<S_LoggedExchange> logged;
  for (const S_LoggedExchange& exchange : loggedExchanges(busFrames(sim.output()))) {
    // The getTilt I-frames: a request of ten bytes or more (the polls and U-frames have six).
    if (exchange.requestBytes >= 10 && exchange.replyBytes > 0) logged.push_back(exchange);
  }
  if (logged.size() < latencies.size()) {
    report("error", road + ": " + std::to_string(logged.size()) + " exchanges logged for " +
                        std::to_string(latencies.size()) + " measured");
    return;
  }
  logged.erase(logged.begin(), logged.end() - static_cast<long>(latencies.size()));
  std::vector<double> turnarounds, requestBytes, replyBytes, rigFloors, meanFloors, busFloors, excess, meanExcess;
  for (const S_LoggedExchange& exchange : logged) turnarounds.push_back(exchange.turnaroundMs);
  // Each stamp has 1 ms resolution: the mean of their differences is the estimate without bias.
  double turnaround = mean(turnarounds);
  for (size_t i = 0; i < logged.size(); ++i) {
    double ready = rigReadyMs(logged[i].replyBytes, turnaround);
    requestBytes.push_back(static_cast<double>(logged[i].requestBytes));
    replyBytes.push_back(static_cast<double>(logged[i].replyBytes));
    rigFloors.push_back(floorAtPollMs(ready));
    meanFloors.push_back(floorAtMeanPollMs(ready));
    busFloors.push_back(floorAtPollMs(busReadyMs(logged[i].requestBytes, logged[i].replyBytes, turnaround)));
    excess.push_back(latencies[i] - rigFloors.back());
    meanExcess.push_back(latencies[i] - meanFloors.back());
  }
  report(road + ".n", std::to_string(latencies.size()));
  report(road + ".median", fixed(percentile(latencies, 0.5), 2));
  report(road + ".p99", fixed(percentile(latencies, 0.99), 2));
  report(road + ".requestBytes", fixed(percentile(requestBytes, 0.5), 0));
  report(road + ".replyBytes", fixed(percentile(replyBytes, 0.5), 0));
  report(road + ".turnaround", fixed(turnaround, 2));
  report(road + ".ready", fixed(rigReadyMs(static_cast<size_t>(percentile(replyBytes, 0.5)), turnaround), 2));
  report(road + ".rigFloor", fixed(percentile(rigFloors, 0.5), 2));
  report(road + ".meanFloor", fixed(percentile(meanFloors, 0.5), 2));
  report(road + ".busFloor", fixed(percentile(busFloors, 0.5), 2));
  report(road + ".excess", fixed(percentile(excess, 0.5), 2));
  report(road + ".excessP99", fixed(percentile(excess, 0.99), 2));
  report(road + ".meanExcess", fixed(percentile(meanExcess, 0.5), 2));
}

// The M-Plane peer: it runs the link itself, so it keeps the sequence numbers.
class MplanePeer {
 public:
  MplanePeer(int commandId, int responseId) : _commandId(commandId), _responseId(responseId) {}

  // Sends address, control and info; the reply's address, control and info in
  // `reply`. On failure `why` tells what came back.
  bool exchange(const std::vector<uint8_t>& frame, std::vector<uint8_t>& reply, double& ms) {
    S_InteractionMsg request;
    memset(&request, 0, sizeof(request));
    request.msgType = E_INTERACTION_MSG_MPLANE;
    request.dataLength = static_cast<uint32_t>(frame.size());
    memcpy(request.data, frame.data(), frame.size());
    S_InteractionMsg answer;
    double start = nowMs();
    if (msgcheckAndsnd(_commandId, &request, request.dataLength + interaction::kHeaderSize, 0) != 0) {
      why = "the command queue refused the request";
      return false;
    }
    // A blocking receive, so that the reply is seen the moment it is queued; the
    // alarm only ends a wait for a reply that never comes.
    alarm(5);
    ssize_t n = recordReceive(_responseId, &answer, interaction::kMaxText, 0, 0);
    alarm(0);
    ms = nowMs() - start;
    if (n < 0) {
      why = "no reply within 5 s";
      return false;
    }
    if (answer.result != 1) {
      why = std::string("reply \"") + std::string(answer.errorInfo, strnlen(answer.errorInfo, sizeof(answer.errorInfo))) + "\"";
      return false;
    }
    reply.assign(answer.data, answer.data + answer.dataLength);
    return true;
  }

  // getTilt of sub-unit 1 as an I-frame with the link's numbers.
  bool getTilt(double& ms) {
    uint8_t control = static_cast<uint8_t>((_receiveNo << 5) | 0x10 | (_sendNo << 1));
    std::vector<uint8_t> reply;
    if (!exchange({kAddress, control, 0x82, 0x01, 0x00, 0x01}, reply, ms)) return false;
    if (reply.size() < 3 || (reply[1] & 0x01) != 0 || reply[2] != 0x82) {
      char text[64];
      snprintf(text, sizeof(text), "control %02X answered by control %02X", control, reply.size() > 1 ? reply[1] : 0);
      why = text;
      return false;
    }
    _receiveNo = static_cast<uint8_t>(((reply[1] >> 1) + 1) & 0x07);
    _sendNo = static_cast<uint8_t>((reply[1] >> 5) & 0x07);
    return true;
  }

  // SNRM: the link anew, both sequence numbers at 0.
  bool openLink() {
    std::vector<uint8_t> reply;
    double ms;
    _sendNo = 0;
    _receiveNo = 0;
    return exchange({kAddress, 0x93}, reply, ms);
  }

  std::string why;

 private:
  int _commandId;
  int _responseId;
  uint8_t _sendNo = 0;
  uint8_t _receiveNo = 0;
};

}  // namespace

int runMplaneExchanges(int count) {
  Child sim(true), service(true);
  if (!startPacedSimulator(sim, {std::string("uid=") + kUid}) || !startService(service, kPort, {})) {
    report("error", "mplane: simulator or service did not start");
    return 1;
  }
  struct sigaction action;
  memset(&action, 0, sizeof(action));
  action.sa_handler = noAction;  // without SA_RESTART: the alarm ends msgrcv
  sigaction(SIGALRM, &action, nullptr);
  ConfigFile* config = ConfigFile::getInstance();
  MplanePeer peer(msgget(config->_commandMsgKey, 0), msgget(config->_responseMsgKey, 0));

  // Without -c the service addresses nobody: the peer gives the ALD its address and opens the link.
  // Built byte by byte: range inserts into a small vector trip a false overflow warning of g++ 12.
  const uint8_t uidLength = static_cast<uint8_t>(strlen(kUid));
  std::vector<uint8_t> assign = {0xFF, 0xBF, 0x81, 0xF0, static_cast<uint8_t>(uidLength + 5), 0x01, uidLength};
  for (uint8_t i = 0; i < uidLength; ++i) assign.push_back(static_cast<uint8_t>(kUid[i]));
  for (uint8_t byte : {uint8_t(0x02), uint8_t(0x01), kAddress}) assign.push_back(byte);
  std::vector<uint8_t> reply;
  double ms;
  if (!peer.exchange(assign, reply, ms) || !peer.openLink()) {
    report("error", "mplane: the ALD took no address or no link: " + peer.why);
    return 1;
  }
  std::vector<double> latencies;
  int failures = 0;
  for (int done = 0; done < kWarmUp + count;) {
    if (peer.getTilt(ms)) {
      if (done++ >= kWarmUp) latencies.push_back(ms);
      continue;
    }
    // A reply lost on the way leaves the peer's numbers behind the ALD's: the link starts anew.
    report("failure", peer.why);
    if (++failures > 10 || !peer.openLink()) {
      report("error", "mplane: getTilt failed: " + peer.why);
      return 1;
    }
  }
  report("mplane.failures", std::to_string(failures));
  reportRoad("mplane", latencies, sim);
  return 0;
}

namespace {

// Waits for the next RR poll of the ALD after `from`, and for the reply to it.
// When that reply arrived, or -1; `from` moves behind the reply, `pollArrival` is when the poll arrived.
double waitForPoll(Child& sim, size_t& from, int timeoutMs, double& pollArrival) {
  double deadline = nowMs() + timeoutMs;
  for (;;) {
    int left = static_cast<int>(deadline - nowMs());
    size_t at = sim.offsetOf(" RX 7E ", from, left > 0 ? left : 0);
    if (at == std::string::npos) return -1;
    size_t end = sim.offsetOf("\n", at, 1000);
    if (end == std::string::npos) return -1;
    std::string output = sim.output();
    size_t lineStart = output.rfind('\n', at);
    lineStart = lineStart == std::string::npos ? 0 : lineStart + 1;
    std::vector<S_BusFrame> frames = busFrames(output.substr(lineStart, end + 1 - lineStart));
    from = end + 1;
    if (frames.empty() || !isPollTo(frames[0], kAddress)) continue;
    pollArrival = sim.arrivalOf(at);
    size_t reply = sim.offsetOf(" TX ", from, 1000);
    if (reply == std::string::npos) return -1;
    from = reply + 1;
    return sim.arrivalOf(reply);
  }
}

}  // namespace

int runConsoleExchanges(int count) {
  Child sim(true), service(true);
  if (!startPacedSimulator(sim, {std::string("uid=") + kUid}) || !startService(service, kPort, {"-c"})) {
    report("error", "console: simulator or service did not start");
    return 1;
  }
  size_t from = 0;
  double pollArrival = 0;
  // The first poll means the scan is over and the ALD is RUNNING.
  double pollEnd = waitForPoll(sim, from, 30000, pollArrival);
  if (pollEnd < 0) {
    report("error", "console: the ALD was never polled");
    return 1;
  }
  std::vector<double> latencies;
  int done = 0;
  int failures = 0;
  int metPoll = 0;
  while (done < kWarmUp + count) {
    double lastAnswer = pollEnd;
    sleepMs(kQuietFromMs);
    while (done < kWarmUp + count && nowMs() - pollEnd < kQuietToMs) {
      double start = 0;
      const int got = consoleGetTilt(service, 2000, "console", failures, start, lastAnswer);
      if (got < 0) return 1;
      if (got == 0) continue;
      if (done++ >= kWarmUp) latencies.push_back(lastAnswer - start);
    }
    pollEnd = waitForPoll(sim, from, 5000, pollArrival);
    if (pollEnd < 0) {
      report("error", "console: polls stopped");
      return 1;
    }
    // A poll that came before the last answer may have held the command lock.
    if (pollArrival < lastAnswer) ++metPoll;
  }
  reportRoad("console", latencies, sim);
  report("console.metPoll", std::to_string(metPoll));
  report("console.failures", std::to_string(failures));
  return 0;
}

}  // namespace bench
