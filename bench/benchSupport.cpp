#include "benchSupport.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>

namespace bench {

void report(const std::string& key, const std::string& value) {
  // The library traces on the same stdout; the driver keeps only lines that begin with '@'.
  printf("\n@%s %s\n", key.c_str(), value.c_str());
  fflush(stdout);
}

std::string fixed(double value, int decimals) {
  char text[64];
  snprintf(text, sizeof(text), "%.*f", decimals, value);
  return text;
}

double percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  size_t rank = static_cast<size_t>(share * static_cast<double>(values.size()) + 0.999999);
  rank = std::max<size_t>(rank, 1);
  return values[std::min(rank, values.size()) - 1];
}

double mean(const std::vector<double>& values) {
  if (values.empty()) return 0.0;
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

bool startPacedSimulator(Child& sim, const std::vector<std::string>& words) {
  std::vector<std::string> paced = {"--pace"};
  paced.insert(paced.end(), words.begin(), words.end());
  return e2e::startSimulator(sim, paced);
}

bool startService(Child& service, const std::string& port, const std::vector<std::string>& options,
                  const std::string& moreConfig) {
  writeConfig("PortName " + port + "\n" + moreConfig);
  return e2e::startService(service, options);
}

namespace {

// "HH:MM:SS.mmm" as ms since midnight, or -1.
double stampOf(const std::string& line) {
  int h, m, s, ms;
  if (sscanf(line.c_str(), "%2d:%2d:%2d.%3d", &h, &m, &s, &ms) != 4) return -1.0;
  return ((h * 60.0 + m) * 60.0 + s) * 1000.0 + ms;
}

}  // namespace

std::vector<S_BusFrame> busFrames(const std::string& log) {
  std::vector<S_BusFrame> frames;
  size_t start = 0;
  while (start < log.size()) {
    size_t end = log.find('\n', start);
    if (end == std::string::npos) break;  // a line still being written
    std::string line = log.substr(start, end - start);
    size_t rx = line.find(" RX 7E");
    size_t tx = line.find(" TX ");
    double stamp = stampOf(line);
    if (stamp >= 0 && (rx != std::string::npos || tx != std::string::npos)) {
      S_BusFrame frame;
      frame.stampMs = stamp;
      frame.fromPrimary = rx != std::string::npos;
      frame.offset = start;
      std::istringstream bytes(line.substr(line.find("7E")));
      for (std::string word; bytes >> word;)
        frame.bytes.push_back(static_cast<uint8_t>(strtoul(word.c_str(), nullptr, 16)));
      frames.push_back(frame);
    }
    start = end + 1;
  }
  return frames;
}

bool isPollTo(const S_BusFrame& frame, uint8_t address) {
  // RR: an S-frame (low bits 01) whose supervision bits 3 and 2 are 00.
  return frame.fromPrimary && frame.bytes.size() >= 3 && frame.bytes[1] == address && (frame.bytes[2] & 0x0F) == 0x01;
}

std::vector<S_LoggedExchange> loggedExchanges(const std::vector<S_BusFrame>& frames) {
  std::vector<S_LoggedExchange> exchanges;
  for (size_t i = 0; i < frames.size(); ++i) {
    if (!frames[i].fromPrimary) continue;
    S_LoggedExchange exchange = {frames[i].bytes.size(), 0, 0.0};
    if (i + 1 < frames.size() && !frames[i + 1].fromPrimary) {
      exchange.replyBytes = frames[i + 1].bytes.size();
      exchange.turnaroundMs = frames[i + 1].stampMs - frames[i].stampMs;
    }
    exchanges.push_back(exchange);
  }
  return exchanges;
}

double rigReadyMs(size_t replyBytes, double turnaroundMs) {
  return turnaroundMs + static_cast<double>(replyBytes - 1) * kByteMs + kSilenceMs;
}

double busReadyMs(size_t requestBytes, size_t replyBytes, double turnaroundMs) {
  return static_cast<double>(requestBytes + replyBytes) * kByteMs + turnaroundMs + kSilenceMs;
}

double floorAtPollMs(double readyMs) { return kPollPeriodMs * std::ceil(readyMs / kPollPeriodMs); }

double floorAtMeanPollMs(double readyMs) { return readyMs + kPollMeanMs; }

double cpuSeconds(pid_t pid) {
  long ticks = e2e::cpuTicks(pid);
  return ticks < 0 ? -1.0 : static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

long statusKib(pid_t pid, const std::string& field) {
  std::istringstream lines(readFile("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, field.size() + 1, field + ":") == 0) return std::stol(line.substr(field.size() + 1));
  }
  return -1;
}

int consoleGetTilt(Child& service, int timeoutMs, const std::string& road, int& failures, double& start,
                   double& answered) {
  size_t mark = service.mark();
  start = nowMs();
  service.send("mret_v2 getTilt 1 1\n");
  size_t at = service.offsetOf("tilt = ", mark, timeoutMs);
  if (at != std::string::npos) {
    answered = service.arrivalOf(at + 6);
    return 1;
  }
  if (++failures <= 10) return 0;
  report("error", road + ": getTilt unanswered ten times");
  return -1;
}

}  // namespace bench
