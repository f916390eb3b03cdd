#ifndef PK_TESTS_E2E_HARNESS_H
#define PK_TESTS_E2E_HARNESS_H

// Programs of this build on ptys, in the sandbox's paths: shared by the tests and the bench.
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace e2e {

// The pty the simulator links and the service opens, inside the sandbox.
constexpr const char* kPort = "/tmp/ttyALD";

// The path of a program built by the project (pylonkeeper, aldsim, mplanectl, pkstatus).
std::string binPath(const std::string& program);
// The words that run a program of this build: the emulator's words first when the
// build is for another machine (empty on the host).
std::vector<std::string> emulatorWords();
// The service's fixed configuration file, written in the sandbox's own folder.
void writeConfig(const std::string& text);
// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::string& path);
// Text without the trace colour sequences and carriage returns.
std::string stripColours(const std::string& text);
double nowMs();  // the steady clock
void sleepMs(double milliseconds);
// Waits until done() holds, testing every 10 ms; false when timeoutMs passed first.
bool waitUntil(const std::function<bool()>& done, int timeoutMs);
// Processor time (user and system, all threads) that a process has used so far, in clock ticks; -1 when unknown.
long cpuTicks(pid_t pid);

// A child process on a pty, so that its output is line-buffered as at a console. A
// thread of its own gathers the output as it comes: a child never stalls on a full
// terminal, whatever its starter waits for. With logArrivals it also notes when each
// piece arrived.
class Child {
 public:
  explicit Child(bool logArrivals = false) : _logArrivals(logArrivals) {}
  ~Child() { stop(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Starts argv, with the emulator's words in front of a program of this build; its
  // signals at their defaults and none blocked, whatever its starter's state.
  bool start(const std::vector<std::string>& argv);
  void send(const std::string& text);
  // Ends the child's standard input.
  void sendEof();
  // Where text stands in the output at or after `from`, waiting up to timeoutMs for it; npos if it never came.
  size_t offsetOf(const std::string& text, size_t from, int timeoutMs);
  bool waitFor(const std::string& text, int timeoutMs, size_t from = 0) {
    return offsetOf(text, from, timeoutMs) != std::string::npos;
  }
  void pump(int milliseconds) { sleepMs(milliseconds); }  // the output gathers by itself
  // When the byte at `offset` of the output arrived (steady clock, ms); needs logArrivals.
  double arrivalOf(size_t offset);
  std::string output();
  std::string plainOutput() { return stripColours(output()); }
  size_t mark() { return output().size(); }
  pid_t pid() const { return _pid; }
  bool running();
  // Waits for the child to end by itself; its exit code, or -1 on time-out or a signal.
  int waitExit(int timeoutMs);
  // Kills the child and returns its wait status, or -1.
  int stop();

 private:
  void gather();

  const bool _logArrivals;
  pid_t _pid = -1;
  int _master = -1;
  int _status = -1;
  std::atomic<bool> _ended{false};
  std::thread _reader;
  std::mutex _lock;
  std::condition_variable _grown;
  std::string _output;
  std::vector<std::pair<size_t, double>> _arrivals;  // end offset of each read, and when it came
};

// Runs argv to its end (a tool of this build, for instance); its exit status, or -1 after 15 s or a
// signal, and its output without colours in *out.
int runToEnd(const std::vector<std::string>& argv, std::string* out = nullptr);

// The simulator on kPort with these words (its options, then its ALDs), and a
// configuration that names the port; true once it is ready.
bool startSimulator(Child& sim, const std::vector<std::string>& words);
// The service with these options; true once its version report is out.
bool startService(Child& service, const std::vector<std::string>& options);

}  // namespace e2e

#endif
