#include "simRunner.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "simLog.h"

namespace {
// Longest operator line kept; the rest of a longer line is dropped.
constexpr size_t kMaxInputLine = 256;
// Pause after a failing read of the port, so a broken port cannot make the loop spin.
constexpr unsigned int kPortFailurePauseUs = 100000;
// An event far ahead is waited for an hour at a time, which poll's int holds.
constexpr long long kLongestWaitMs = 3600000;
}  // namespace

SimRunner::SimRunner(SimPort& port, AldBus& bus, bool paced, const std::vector<S_SimEvent>& events)
    : _port(port), _bus(bus), _paced(paced), _startMs(nowMs()) {
  for (const S_SimEvent& event : events) {
    _events.emplace(_startMs + static_cast<long long>(event.seconds * 1000.0), event.command);
  }
}

long long SimRunner::nowMs() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<long long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

double SimRunner::secondsSinceStart() const { return static_cast<double>(nowMs() - _startMs) / 1000.0; }

int SimRunner::pollTimeout() const {
  if (_pending.empty() && _events.empty()) return -1;
  long long due = _pending.empty() ? _events.begin()->first : _pending.begin()->first;
  if (!_events.empty()) due = std::min(due, _events.begin()->first);
  return static_cast<int>(std::clamp(due - nowMs(), 0LL, kLongestWaitMs));
}

void SimRunner::run() {
  for (;;) {
    struct pollfd fds[2] = {{_port.fd(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    int ready = poll(fds, _inputOpen ? 2 : 1, pollTimeout());
    if (ready > 0 && fds[0].revents != 0) readPort();
    if (ready > 0 && _inputOpen && fds[1].revents != 0) readInput();
    runDueEvents();
    writeDue();
  }
}

void SimRunner::readPort() {
  uint8_t buffer[512];
  ssize_t n = read(_port.fd(), buffer, sizeof(buffer));
  if (n <= 0) {
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    SimLog::info(std::string("port read failed: ") + (n == 0 ? "end of file" : strerror(errno)));
    usleep(kPortFailurePauseUs);
    return;
  }
  std::vector<std::vector<uint8_t>> frames;
  size_t noise = _splitter.feed(buffer, static_cast<size_t>(n), frames);
  if (noise > 0) SimLog::info("noise: " + std::to_string(noise) + " bytes outside frames");
  for (const std::vector<uint8_t>& frame : frames) {
    SimLog::frame("RX", frame.data(), frame.size());
    std::vector<S_SimReply> replies;
    int result = _bus.handleFrame(frame.data(), frame.size(), secondsSinceStart(), replies);
    if (result != 0) SimLog::info("frame not decoded (" + std::to_string(result) + "), ignored");
    send(replies);
  }
}

void SimRunner::send(const std::vector<S_SimReply>& replies) {
  long long now = nowMs();
  for (const S_SimReply& reply : replies) schedule(now + reply.delayMs, {reply.bytes, reply.logAs, reply.splitMs});
}

void SimRunner::runCommand(const std::string& line) {
  std::vector<std::string> lines;
  std::vector<S_SimReply> noise;
  _bus.command(line, lines, secondsSinceStart(), &noise);
  for (const std::string& text : lines) SimLog::info(text);
  send(noise);
}

void SimRunner::runDueEvents() {
  while (!_events.empty() && _events.begin()->first <= nowMs()) {
    std::string line = _events.begin()->second;
    _events.erase(_events.begin());
    runCommand(line);
  }
}

void SimRunner::readInput() {
  char buffer[256];
  ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (n <= 0) {
    // End of input leaves the bus running; stop watching stdin so poll does not wake for it.
    _inputOpen = false;
    return;
  }
  for (ssize_t i = 0; i < n; ++i) {
    char c = buffer[i];
    if (c != '\n') {
      if (c != '\r' && _inputLine.size() < kMaxInputLine) _inputLine += c;
      continue;
    }
    runCommand(_inputLine);
    _inputLine.clear();
  }
}

void SimRunner::schedule(long long due, const S_PendingWrite& write) { _pending.emplace(due, write); }

void SimRunner::writeDue() {
  while (!_pending.empty() && _pending.begin()->first <= nowMs()) {
    S_PendingWrite write = _pending.begin()->second;
    _pending.erase(_pending.begin());
    if (write.logAs != nullptr) SimLog::frame(write.logAs, write.bytes.data(), write.bytes.size());
    size_t first = write.bytes.size();
    if (write.splitMs > 0) {
      first /= 2;
      schedule(nowMs() + write.splitMs,
               {std::vector<uint8_t>(write.bytes.begin() + first, write.bytes.end()), nullptr, 0});
    }
    if (_port.write(write.bytes.data(), first, _paced) != 0) SimLog::info("port full, reply dropped");
  }
}
