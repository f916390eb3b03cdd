#include "e2eHarness.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <chrono>
#include <fstream>
#include <sstream>

namespace e2e {

namespace {

long long nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

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

std::vector<std::string> withEmulator(const std::vector<std::string>& argv) {
  if (argv.empty() || argv[0].rfind(binDir(), 0) != 0) return argv;
  std::vector<std::string> full = emulatorWords();
  full.insert(full.end(), argv.begin(), argv.end());
  return full;
}

void writeConfig(const std::string& text) {
  std::ofstream out("/mnt/curflash/currsw/oridata/aisg.bin", std::ios::binary | std::ios::trunc);
  out << text;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void sleepMs(int milliseconds) {
  struct timespec ts = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

long cpuTicks(pid_t pid) {
  std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
  size_t close = stat.rfind(')');
  if (close == std::string::npos) return -1;
  std::istringstream fields(stat.substr(close + 2));
  std::string field;
  long utime = 0;
  long stime = 0;
  // State is field 3; utime and stime are fields 14 and 15.
  for (int i = 3; i <= 15 && fields >> field; ++i) {
    if (i == 14) utime = std::stol(field);
    if (i == 15) stime = std::stol(field);
  }
  return utime + stime;
}

std::string stripColours(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\033' && i + 1 < text.size() && text[i + 1] == '[') {
      size_t end = text.find('m', i);
      if (end != std::string::npos) {
        i = end;
        continue;
      }
    }
    if (text[i] != '\r') out += text[i];
  }
  return out;
}

Child::~Child() {
  if (_pid > 0) stop();
  if (_master >= 0) close(_master);
}

pid_t spawnOnPty(const std::vector<std::string>& argv, int* master) {
  std::vector<char*> args;
  for (const auto& word : argv) args.push_back(const_cast<char*>(word.c_str()));
  args.push_back(nullptr);
  struct termios raw;
  cfmakeraw(&raw);
  pid_t pid = forkpty(master, nullptr, &raw, nullptr);
  if (pid != 0) return pid;
  // A starter run in the background has SIGINT ignored, and threads may block signals.
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);
  execvp(args[0], args.data());
  _exit(127);
}

bool Child::start(const std::vector<std::string>& program) {
  pid_t pid = spawnOnPty(withEmulator(program), &_master);
  if (pid < 0) return false;
  _pid = pid;
  fcntl(_master, F_SETFL, fcntl(_master, F_GETFL) | O_NONBLOCK);
  return true;
}

void Child::readAvailable(int timeoutMs) {
  if (_master < 0) return;
  struct pollfd pfd = {_master, POLLIN, 0};
  if (poll(&pfd, 1, timeoutMs) <= 0) return;
  char buffer[4096];
  for (;;) {
    ssize_t n = read(_master, buffer, sizeof(buffer));
    if (n <= 0) break;
    _output.append(buffer, static_cast<size_t>(n));
  }
}

bool Child::waitFor(const std::string& text, int timeoutMs, size_t from) {
  long long deadline = nowMs() + timeoutMs;
  for (;;) {
    if (_output.find(text, from) != std::string::npos) return true;
    long long left = deadline - nowMs();
    if (left <= 0) return false;
    readAvailable(static_cast<int>(left < 50 ? left : 50));
  }
}

void Child::pump(int milliseconds) {
  long long deadline = nowMs() + milliseconds;
  for (long long left = milliseconds; left > 0; left = deadline - nowMs()) {
    readAvailable(static_cast<int>(left < 50 ? left : 50));
  }
}

void Child::send(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(_master, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) {
        sleepMs(5);
        continue;
      }
      return;
    }
    done += static_cast<size_t>(n);
  }
}

void Child::sendEof() {
  // In raw mode there is no EOF character: end the child's input by making the
  // terminal canonical for one ^D.
  struct termios t;
  if (tcgetattr(_master, &t) == 0) {
    t.c_lflag |= ICANON;
    tcsetattr(_master, TCSANOW, &t);
  }
  send(std::string(1, '\004'));
}

bool Child::running() {
  if (_pid <= 0 || _exited) return false;
  int status;
  pid_t r = waitpid(_pid, &status, WNOHANG);
  if (r == _pid) {
    _exited = true;
    _status = status;
    return false;
  }
  return true;
}

int Child::waitExit(int timeoutMs) {
  long long deadline = nowMs() + timeoutMs;
  while (running()) {
    if (nowMs() >= deadline) return -1;
    readAvailable(20);
  }
  readAvailable(0);
  if (_exited && WIFEXITED(_status)) return WEXITSTATUS(_status);
  return -1;
}

int Child::stop() {
  if (_pid <= 0) return -1;
  if (running()) {
    kill(_pid, SIGTERM);
    for (int i = 0; i < 100 && running(); ++i) {
      readAvailable(20);
    }
    if (running()) {
      kill(_pid, SIGKILL);
      waitpid(_pid, &_status, 0);
      _exited = true;
    }
  }
  readAvailable(0);
  _pid = -1;
  return _status;
}

std::string Child::plainOutput() const { return stripColours(_output); }

}  // namespace e2e
