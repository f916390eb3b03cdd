#include "benchSupport.h"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>

namespace bench {

double nowMs() {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void sleepMs(double milliseconds) {
  struct timespec ts;
  ts.tv_sec = static_cast<time_t>(milliseconds / 1000.0);
  ts.tv_nsec = static_cast<long>((milliseconds - static_cast<double>(ts.tv_sec) * 1000.0) * 1e6);
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

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

Child::~Child() { stop(); }

bool Child::start(const std::vector<std::string>& argv) {
  pid_t pid = e2e::spawnOnPty(argv, &_master);
  if (pid < 0) return false;
  _pid = pid;
  _reader = std::thread([this] { gather(); });
  return true;
}

void Child::gather() {
  char buffer[4096];
  for (;;) {
    ssize_t n = read(_master, buffer, sizeof(buffer));
    if (n < 0 && errno == EINTR) continue;
    // EIO once the child and everything holding its terminal are gone.
    if (n <= 0) break;
    double now = nowMs();
    std::lock_guard<std::mutex> guard(_lock);
    _output.append(buffer, static_cast<size_t>(n));
    _reads.emplace_back(_output.size(), now);
    _grown.notify_all();
  }
}

void Child::send(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(_master, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

size_t Child::waitFor(const std::string& text, size_t from, int timeoutMs) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  std::unique_lock<std::mutex> guard(_lock);
  for (;;) {
    size_t at = _output.find(text, from);
    if (at != std::string::npos) return at;
    if (_grown.wait_until(guard, deadline) == std::cv_status::timeout) {
      at = _output.find(text, from);
      return at;
    }
  }
}

double Child::arrivalOf(size_t offset) {
  std::lock_guard<std::mutex> guard(_lock);
  auto read = std::upper_bound(_reads.begin(), _reads.end(), offset,
                               [](size_t value, const std::pair<size_t, double>& r) { return value < r.first; });
  return read == _reads.end() ? nowMs() : read->second;
}

size_t Child::mark() {
  std::lock_guard<std::mutex> guard(_lock);
  return _output.size();
}

std::string Child::output() {
  std::lock_guard<std::mutex> guard(_lock);
  return _output;
}

void Child::stop() {
  if (_pid > 0) {
    kill(_pid, SIGKILL);
    waitpid(_pid, nullptr, 0);
    _pid = -1;
  }
  if (_reader.joinable()) _reader.join();
  if (_master >= 0) {
    close(_master);
    _master = -1;
  }
}

bool startSimulator(Child& sim, const std::vector<std::string>& words) {
  std::vector<std::string> argv = {binPath("aldsim"), "--pace", "--link", kBusLink};
  argv.insert(argv.end(), words.begin(), words.end());
  return sim.start(argv) && sim.waitFor("ready ", 0, 10000) != std::string::npos;
}

bool startService(Child& service, const std::string& port, const std::vector<std::string>& options) {
  writeConfig("PortName " + port + "\n");
  std::vector<std::string> argv = {binPath("pylonkeeper")};
  argv.insert(argv.end(), options.begin(), options.end());
  // The last thread of the start-up chain announces itself.
  return service.start(argv) && service.waitFor("processCommThread start", 0, 10000) != std::string::npos;
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
      for (std::string word; bytes >> word;) frame.bytes.push_back(static_cast<uint8_t>(strtoul(word.c_str(), nullptr, 16)));
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

}  // namespace bench
