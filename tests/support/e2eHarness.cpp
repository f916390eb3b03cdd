#include "e2eHarness.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace e2e {

// The programs of this build, or of an unpacked package when the package check names its folder.
static std::string binDir() {
  const char* unpacked = getenv("PK_BIN_DIR_OVERRIDE");
  return unpacked != nullptr ? unpacked : PK_BIN_DIR;
}

std::string binPath(const std::string& program) { return binDir() + "/" + program; }

std::vector<std::string> emulatorWords() {
  std::vector<std::string> words;
  std::istringstream text(PK_EMULATOR);
  for (std::string word; text >> word;) words.push_back(word);
  return words;
}

void writeConfig(const std::string& text) {
  std::ofstream("/mnt/curflash/currsw/oridata/aisg.bin", std::ios::binary | std::ios::trunc) << text;
}

std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::string stripColours(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    size_t end = text.compare(i, 2, "\033[") == 0 ? text.find('m', i) : std::string::npos;
    if (end != std::string::npos) {
      i = end;
    } else if (text[i] != '\r') {
      plain += text[i];
    }
  }
  return plain;
}

double nowMs() {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void sleepMs(double milliseconds) {
  std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(milliseconds));
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
  for (double deadline = nowMs() + timeoutMs; !done(); sleepMs(10)) {
    if (nowMs() >= deadline) return false;
  }
  return true;
}

long cpuTicks(pid_t pid) {
  std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
  size_t close = stat.rfind(')');
  if (close == std::string::npos) return -1;
  // After the name: the state (field 3), ... utime and stime (fields 14 and 15).
  std::istringstream fields(stat.substr(close + 2));
  std::string skip;
  long utime = 0, stime = 0;
  for (int field = 3; field < 14; ++field) fields >> skip;
  return fields >> utime >> stime ? utime + stime : -1;
}

bool Child::start(const std::vector<std::string>& program) {
  std::vector<std::string> argv = program;
  if (!argv.empty() && argv[0].rfind(binDir(), 0) == 0) {
    std::vector<std::string> words = emulatorWords();
    argv.insert(argv.begin(), words.begin(), words.end());
  }
  std::vector<char*> args;
  for (auto& word : argv) args.push_back(&word[0]);
  args.push_back(nullptr);
  struct termios raw;
  cfmakeraw(&raw);
  _pid = forkpty(&_master, nullptr, &raw, nullptr);
  if (_pid == 0) {
    // A starter run in the background has SIGINT ignored, and threads may block signals.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);
    execvp(args[0], args.data());
    _exit(127);
  }
  if (_pid < 0) return false;
  _reader = std::thread([this] { gather(); });
  return true;
}

void Child::gather() {
  char buffer[4096];
  // EIO once the child and all that hold its terminal are gone; a short poll lets stop() end it anyway.
  for (struct pollfd pfd = {_master, POLLIN, 0}; !_ended;) {
    if (poll(&pfd, 1, 100) <= 0) continue;
    ssize_t n = read(_master, buffer, sizeof(buffer));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    std::lock_guard<std::mutex> guard(_lock);
    _output.append(buffer, static_cast<size_t>(n));
    if (_logArrivals) _arrivals.emplace_back(_output.size(), nowMs());
    _grown.notify_all();
  }
  _ended = true;
}

void Child::send(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    ssize_t n = write(_master, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

void Child::sendEof() {
  // In raw mode there is no end-of-file character: the terminal turns canonical for one ^D.
  struct termios t;
  if (tcgetattr(_master, &t) == 0) {
    t.c_lflag |= ICANON;
    tcsetattr(_master, TCSANOW, &t);
  }
  send("\004");
}

size_t Child::offsetOf(const std::string& text, size_t from, int timeoutMs) {
  std::unique_lock<std::mutex> guard(_lock);
  size_t at = std::string::npos;
  _grown.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                  [&] { return (at = _output.find(text, from)) != std::string::npos; });
  return at;
}

double Child::arrivalOf(size_t offset) {
  std::lock_guard<std::mutex> guard(_lock);
  auto read = std::upper_bound(_arrivals.begin(), _arrivals.end(), offset,
                               [](size_t value, const std::pair<size_t, double>& r) { return value < r.first; });
  return read == _arrivals.end() ? nowMs() : read->second;
}

std::string Child::output() {
  std::lock_guard<std::mutex> guard(_lock);
  return _output;
}

bool Child::running() {
  if (_pid <= 0 || _status != -1) return false;
  int status;
  if (waitpid(_pid, &status, WNOHANG) != _pid) return true;
  _status = status;
  return false;
}

int Child::waitExit(int timeoutMs) {
  for (double deadline = nowMs() + timeoutMs; running() && nowMs() < deadline;) sleepMs(20);
  // What the child wrote before it ended is still on its way.
  for (int i = 0; i < 50 && !_ended && !running(); ++i) sleepMs(20);
  return _status != -1 && WIFEXITED(_status) ? WEXITSTATUS(_status) : -1;
}

int Child::stop() {
  if (_pid <= 0) return -1;
  // Nothing of a child needs an orderly end: a sanitizer reports as it finds, on the child's terminal.
  if (running()) {
    kill(_pid, SIGKILL);
    waitpid(_pid, &_status, 0);
  }
  _ended = true;
  if (_reader.joinable()) _reader.join();
  close(_master);
  _pid = -1;
  return _status;
}

int runToEnd(const std::vector<std::string>& argv, std::string* out) {
  Child child;
  int status = child.start(argv) ? child.waitExit(15000) : -1;
  if (out != nullptr) *out = child.plainOutput();
  return status;
}

bool startSimulator(Child& sim, const std::vector<std::string>& words) {
  std::vector<std::string> argv = {binPath("aldsim"), "--link", kPort};
  argv.insert(argv.end(), words.begin(), words.end());
  writeConfig(std::string("PortName ") + kPort + "\n");
  return sim.start(argv) && sim.waitFor("ready ", 10000);
}

bool startService(Child& service, const std::vector<std::string>& options) {
  std::vector<std::string> argv = {binPath("pylonkeeper")};
  argv.insert(argv.end(), options.begin(), options.end());
  return service.start(argv) && service.waitFor("/*******************************************************/\n", 10000);
}

}  // namespace e2e
